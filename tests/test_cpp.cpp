// The C++ layer: what the overloads accept and refuse at compile time,
// owners, resolvers of every kind, checked access, JSON text, the order of
// variants, and variants printed in failed assertions.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "test_support.h"

namespace {

// ---- the C++ layer: what the overloads accept, resolvers of every kind, order

template <class V, class T>
concept can_add = requires(V &v, const T &t) {
  v.add(t);
};
template <class V, class T>
concept can_get = requires(const V &v) {
  v.template get<T>(0);
};
template <class V>
concept can_set_through = requires(V &v) {
  v.set(1, 2);
};

static_assert(can_add<qel::var, int> && can_add<qel::var, unsigned> && can_add<qel::var, float> &&
              can_add<qel::var, double> && can_add<qel::var, const char *> && can_add<qel::var, char[5]> &&
              can_add<qel::var, std::string> && can_add<qel::var, std::string_view>);
static_assert(!can_add<qel::var, bool> && !can_add<qel::var, char> && !can_add<qel::var, long double> &&
              !can_add<qel::var, std::nullptr_t> && !can_add<qel::var, qel::var>);
static_assert(can_get<qel::var, int64_t> && can_get<qel::var, uint32_t> && can_get<qel::var, std::string_view>);
static_assert(!can_get<qel::var, bool> && !can_get<qel::var, std::string> && !can_get<qel::var, char>);
static_assert(can_set_through<qel::var_ref> && !can_set_through<qel::var_cref> && !can_set_through<const qel::var>);
static_assert(std::same_as<decltype(std::declval<const qel::var &>()["x"]), qel::var_cref>);
static_assert(std::same_as<decltype(std::declval<qel::var &>()[0]), qel::var_ref>);
static_assert(!std::is_copy_constructible_v<qel::var> && std::is_nothrow_move_assignable_v<qel::var>);
static_assert(!std::is_copy_constructible_v<qel::xvar> && !std::is_copy_constructible_v<qel::xvars>);
static_assert(sizeof(qel::var) == sizeof(void *) && std::is_trivially_copyable_v<qel::var_ref>);
static_assert(std::ranges::random_access_range<decltype(std::declval<qel::var &>().values<double>())>);
static_assert(std::ranges::forward_range<decltype(std::declval<qel::var &>().members())>);
// std::uint8_t and std::int8_t (the form byte's type) are small integers; a character is no index.
static_assert(can_add<qel::var, std::uint8_t> && can_add<qel::var, std::int8_t> && can_get<qel::var, std::uint8_t>);
template <class V, class I>
concept can_index = requires(V &v, I i) {
  v[i];
};
static_assert(can_index<qel::var, int> && can_index<const qel::var, std::uint8_t>);
static_assert(!can_index<qel::var, char> && !can_index<const qel::var, char>);
// Views and ranges come only from named owners: a temporary's would dangle
// (tests/misuse holds the same misuses as code that must not build).
template <class V>
concept can_ref = requires(V &&v) {
  static_cast<V &&>(v).ref();
};
template <class V>
concept can_values = requires(V &&v) {
  static_cast<V &&>(v).template values<int64_t>();
};
template <class V>
concept can_elements = requires(V &&v) {
  static_cast<V &&>(v).elements();
};
template <class V>
concept can_members = requires(V &&v) {
  static_cast<V &&>(v).members();
};
template <class S>
concept can_make_with = requires(S &&s) {
  qel::var::make(20, 0, static_cast<S &&>(s));
};
template <class S>
concept can_change_with = requires(S &&s, qel::var &v) {
  v.change(20, 0, static_cast<S &&>(s));
};
static_assert(can_ref<qel::var &> && !can_ref<qel::var>);
static_assert(can_values<const qel::var &> && !can_values<qel::var> && can_values<qel::xvar &> &&
              !can_values<qel::xvar>);
static_assert(can_elements<qel::var &> && can_elements<const qel::var &> && !can_elements<qel::var>);
static_assert(can_members<qel::var &> && can_members<const qel::var &> && !can_members<qel::var>);
static_assert(std::is_convertible_v<qel::var &, qel::var_ref> && !std::is_convertible_v<qel::var, qel::var_ref>);
static_assert(std::is_convertible_v<const qel::var &, qel::var_cref> &&
              !std::is_convertible_v<qel::var, qel::var_cref>);
static_assert(can_make_with<qel::schema &> && !can_make_with<qel::schema>);
static_assert(std::is_same_v<decltype(qel::schema().add("a", 4)), qel::schema>);  // a value, not a dying reference
static_assert(can_change_with<qel::schema &> && !can_change_with<qel::schema>);
// The two families' codes are distinct types: a double is code 6 in one and 4 in the other.
static_assert(std::is_constructible_v<qel::var, qel::code> && !std::is_constructible_v<qel::var, qel::xcode>);
static_assert(std::is_constructible_v<qel::xvar, qel::xcode> && !std::is_constructible_v<qel::xvar, qel::code> &&
              !std::is_constructible_v<qel::xvars, qel::code>);

TEST(Cpp, OwnersMoveReleaseAndClone) {
  qel::var a(qel::code::f64, qel::form::multi);
  a.add_all({1.0, 2.0});
  qel::var b = std::move(a);
  EXPECT_FALSE(a);
  qel::var c = qel::var::adopt(b.release());
  EXPECT_FALSE(b);
  qel::var d = c.clone();
  c.set(1, 6.0);
  const auto vals = d.values<double>();
  EXPECT_EQ(std::vector<double>(vals.begin(), vals.end()), (std::vector<double>{1.0, 2.0}));
}

TEST(Cpp, ResolversOfEveryKind) {
  qel::schema s;
  s.add("v", 4);
  auto counting = [&s, calls = 0](uint32_t) mutable -> const qel::schema & {
    ++calls;
    return s;
  };
  const qel::var by_ref = qel::var::make(12, 0, counting);
  EXPECT_TRUE(by_ref["v"]);
  struct probe {
    int calls = 0;
    qel_schema *operator()(uint32_t) {
      ++calls;
      return nullptr;
    }
  };
  probe p;
  qel::var z = qel::var::make(4, 0, p);
  EXPECT_EQ(p.calls, 1);  // the caller's object itself was called
  struct by_table {
    const qel::schema *for12;
    const qel::schema *operator()(uint32_t code) const { return code == 12 ? for12 : nullptr; }
  };
  const by_table table{&s};
  EXPECT_EQ(qel::var::make(12, 0, table).schema().get(), s.get());
  static qel_schema *stored = nullptr;
  stored = s.get();
  qel_schema *(*fn)(uint32_t) = [](uint32_t t) -> qel_schema * { return t == 12 ? stored : nullptr; };
  const qel::var by_fn = qel::var::make(12, 0, fn);
  EXPECT_TRUE(by_fn["v"]);
  qel::var e = qel::var::make(12, qel::form::multi, table);
  EXPECT_EQ(e.add_new().schema().get(), s.get());  // an array keeps the schema for its elements
  int calls = 0;
  qel::var v(qel::code::f32);
  v.set_buf(3);
  v.change(40, 0, [&](uint32_t t) -> qel_schema * { return ++calls, t == 40 ? s.get() : nullptr; });
  EXPECT_EQ(calls, 2);  // the record, then its member
  EXPECT_EQ(v.get_buf(), 0u);
}

TEST(Cpp, ElementsWithMembersAndCheckedAccess) {
  qel::schema host, sub, sum;
  host.add("host", qel::code::bytes).add("sub", 31);
  sub.add("x", qel::code::f64);
  sum.add("hosts", 30, qel::form::multi);
  auto resolve = [&](uint32_t t) { return t == 30 ? &host : t == 31 ? &sub : t == 40 ? &sum : nullptr; };
  qel::var s = qel::var::make(40, 0, resolve);
  qel::var_ref e = s["hosts"].add_new();  // members from the array's schema; "sub" has none to take
  e["host"].set("web-01");
  EXPECT_EQ(s["hosts"][0]["host"].get<std::string_view>(), "web-01");
  EXPECT_TRUE(e.find_member("sub") && !e["sub"].find_member("x") && !e.find_member("hots"));
  EXPECT_EQ(s["hosts"].add_new(resolve).at("sub").at("x").type(), 6u);  // through a resolver, nested too
  EXPECT_DEATH((void)e.at("hots"), "no member \"hots\"");
  EXPECT_DEATH((void)s["hosts"].at(2), "no element 2");
  qel::var plain(30, qel::form::multi);  // no schema: no members, as qel_var_add_new
  EXPECT_EQ(qel_var_member_count(plain.add_new().get()), 0);
  EXPECT_EQ(qel_var_member_count(qel_var_add_new(s["hosts"].get())), 0);
}

TEST(Cpp, JsonTextAndStrictReadsThroughAnyResolver) {
  qel::schema ev;
  ev.add("host", qel::code::bytes).add("value", qel::code::f64);
  auto resolve = [&](uint32_t t) { return t == 30 ? &ev : nullptr; };
  qel::var rows = qel::var::make(30, qel::form::multi, resolve);
  EXPECT_TRUE(qel::json::read(rows, R"([{"host":"a","value":1.5}])", resolve));
  EXPECT_EQ(rows[0]["value"].get<double>(), 1.5);
  const qel::json::text t = qel::json::write(rows);
  EXPECT_TRUE(t && t.json == R"([{"host":"a","value":1.5}])");
  const qel::json::result missing = qel::json::read(rows, R"([{"host":"b"}])", resolve);  // strict unless told
  EXPECT_EQ(missing.code(), QEL_JSON_ERR_MISSING);
  EXPECT_TRUE(missing.message().ends_with(missing.cause()) && missing.cause().size() < missing.message().size());
  EXPECT_EQ(qel::json::read(rows, R"([{"host":"b","value":null}])", resolve).code(), QEL_JSON_ERR_NULL);
  EXPECT_EQ(rows[0]["host"].get<std::string_view>(), "a");  // failed reads changed nothing
  EXPECT_TRUE(qel::json::read(rows, R"([{"host":"b"}])", ev, 0) && rows[0]["host"].get<std::string_view>() == "b");
  qel::var d(qel::code::f64);
  d.set(std::nan(""));
  EXPECT_TRUE(!qel::json::write(d) && qel::json::write(d).code == QEL_JSON_ERR_NONFINITE);
  qel::stream s;
  s.append("x");
  EXPECT_EQ(qel::json::write(d, s, qel::json::nonfinite_null), QEL_JSON_OK);
  qel::stream moved = std::move(s);
  EXPECT_TRUE(s.empty() && moved.view() == "xnull");
}

TEST(Cpp, OrderFollowsTheLibrarysComparison) {
  qel::var a(qel::code::i64), b(qel::code::i64), d(qel::code::f64), arr(qel::code::i64, qel::form::multi);
  a.set(-1);
  b.set(1);
  EXPECT_EQ(a <=> b, std::partial_ordering::greater);  // 64-bit integers compare unsigned
  b.set(-1);
  EXPECT_TRUE(a == b && !(a != b));
  EXPECT_TRUE(a < d && a < arr);                   // code before value, single before array
  qel::var c0(0), c1(0x7FFFFFFF), c2(0xFFFFFFFE);  // codes unsigned: no cycle as in qel_var_cmp
  EXPECT_TRUE(c0 < c1 && c1 < c2 && c0 < c2);
  qel::var nan(qel::code::f32), one(qel::code::f32);
  nan.set(std::nanf(""));
  one.set(1.0f);
  EXPECT_EQ(nan <=> one, std::partial_ordering::unordered);
  qel::var x(qel::code::f64, qel::form::multi), y(qel::code::f64, qel::form::multi);
  x.add_all({1.0, 2.0});
  y.add_all({1.0, 2.0, 0.0});
  EXPECT_TRUE(x < y);  // a prefix orders first
  x.add(5.0);
  EXPECT_TRUE(x > y);
}

TEST(Cpp, FailedComparisonsPrintVariantsAsJson) {
  qel::var x(qel::code::f64, qel::form::multi), s(qel::code::bytes);
  x.add_all({1.5, std::numeric_limits<double>::infinity()});
  s.set(std::string_view("a\xff", 2));
  EXPECT_EQ(testing::PrintToString(x), "[1.5,null]");
  EXPECT_EQ(testing::PrintToString(qel::var_cref(s)), R"("a\u00ff")");
  EXPECT_EQ(testing::PrintToString(static_cast<const qel_var *>(nullptr)), "(null qel_var)");
}

}  // namespace
