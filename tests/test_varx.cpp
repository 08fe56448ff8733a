// The variant extensions by hand: the golden orders of the float sorts and
// the stable sort by the caller's order, schema tags, the resolver's order,
// self-nesting and the depth limit, and find after keyed adds.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "test_support.h"
#include "internal/qel_var_internal.h"  // the library's storage classes are the C++ layer's

namespace {

using namespace qel_test;

constexpr unsigned kMaxBuildDepth = 256;  // records nested by one construction, at most

std::vector<uint64_t> bufs(qel::var_cref v) {
  std::vector<uint64_t> out;
  for (int64_t i = 0; i < v.size(); ++i) out.push_back(v.get_buf(i));
  return out;
}

// ---- golden orders of the float sorts (ties and NaNs where the quicksort puts them)

qel::var floats(uint32_t type, const std::vector<double> &values) {
  qel::var v(type, 1);
  for (size_t k = 0; k < values.size(); ++k) {
    v.add(values[k]);
    v.set_buf(static_cast<int64_t>(k), k);
  }
  return v;
}

TEST(Sort, FloatAndDoubleGoldenOrders) {
  std::vector<double> forty;
  for (int i = 0; i < 40; ++i) forty.push_back(static_cast<double>((i * 7) % 5) - (i % 3 == 0 ? 0.5 : 0.0));
  forty[13] = kNaN, forty[27] = -0.0, forty[31] = kInf, forty[5] = -kInf;
  const std::vector<uint64_t> up40{5, 30, 15, 0,  25, 20, 27, 35, 13, 10, 18, 3,  33, 8, 28, 23, 38, 6,  36, 21,
                                   1, 11, 26, 16, 39, 9,  24, 4,  19, 29, 34, 14, 12, 2, 7,  32, 17, 37, 22, 31};
  const std::vector<uint64_t> down40{31, 2, 32, 17, 37, 7, 22, 12, 34, 14, 4,  19, 29, 24, 39, 9,  16, 1, 26, 11,
                                     21, 6, 36, 23, 28, 8, 38, 3,  18, 33, 10, 35, 27, 20, 25, 15, 13, 0, 30, 5};
  for (const uint32_t type : {5u, 6u}) {
    qel::var up = floats(type, {3, 1, 3, 2, 3, 1, 2, 3, 1, 2}), down = floats(type, {3, 1, 3, 2, 3, 1, 2, 3, 1, 2});
    qel_var_qsort(up.get(), -1);  // any nonzero flag is ascending
    qel_var_qsort(down.get(), 0);
    EXPECT_EQ(bufs(up), (std::vector<uint64_t>{1, 8, 5, 3, 6, 9, 7, 2, 0, 4})) << type;
    EXPECT_EQ(bufs(down), (std::vector<uint64_t>{7, 2, 4, 0, 3, 9, 6, 8, 5, 1})) << type;
    qel::var a = floats(type, forty), b = floats(type, forty);
    qel_var_qsort(a.get(), 2);
    qel_var_qsort(b.get(), 0);
    EXPECT_EQ(bufs(a), up40) << type;
    EXPECT_EQ(bufs(b), down40) << type;
    // A thousand values with many ties, NaNs and infinities: the whole order as one checksum.
    for (const int flag : {1, 0}) {
      qel::var big(type, 1);
      for (int i = 0; i < 1000; ++i) {
        big.add(i % 37 == 0 ? kNaN : i % 101 == 0 ? -kInf : static_cast<double>((i * 7919) % 13) - 6.0);
        big.set_buf(i, static_cast<uint64_t>(i));
      }
      qel_var_qsort(big.get(), flag);
      uint64_t h = 14695981039346656037u;  // FNV-1a over the caller values in sorted order
      for (const uint64_t x : bufs(big)) h = (h ^ x) * 1099511628211u;
      EXPECT_EQ(h, flag ? 0x45e57e5c25635a17u : 0x6a564c454c896d93u) << type;
    }
    // NaN, 3, 1 ascending gives 1, 3, NaN; 3, NaN, 1 gives NaN, 1, 3.
    qel::var n1 = floats(type, {kNaN, 3, 1}), n2 = floats(type, {3, kNaN, 1});
    qel_var_qsort(n1.get(), 1);
    qel_var_qsort(n2.get(), 1);
    EXPECT_EQ(bufs(n1), (std::vector<uint64_t>{2, 1, 0})) << type;
    EXPECT_EQ(bufs(n2), (std::vector<uint64_t>{1, 2, 0})) << type;
  }
}

// ---- schemas

TEST(Schema, TagsNamesAndNull) {
  qel::schema s;
  qel_var_schema_add(s.get(), "id", 2, 70000, 0x80);  // 16-bit code, multi sign-extended in the tag
  qel_var_schema_add(s.get(), "id", 2, 7, 0);
  qel_var_schema_add(s.get(), "rec", 3, 0, 0);
  uint32_t t = 9;
  uint8_t m = 9;
  EXPECT_EQ(qel_var_schema_find(s.get(), "id", 2, &t, &m), 0);  // the first of that name
  EXPECT_EQ(t, 4464u);
  EXPECT_EQ(m, 0x80);
  const char *name = "junk";
  int64_t len = 9;
  EXPECT_EQ(qel_array_get_at(s.get(), 0, &name, &len), 0xFF801170u);
  EXPECT_EQ(qel_var_schema_find(s.get(), "i", 1, &t, &m), -1);
  EXPECT_EQ(qel_var_schema_size(s.get()), 3);
  for (const int64_t bad : {int64_t{-1}, int64_t{3}}) {
    qel_var_schema_get_at(s.get(), bad, &name, &len, &t, &m);
    EXPECT_TRUE(name == nullptr && len == 0 && t == 4464 && m == 0x80);  // outputs reset, type and multi kept
  }
  qel_var_schema_get_at(s.get(), 2, &name, &len, &t, &m);  // a zero tag gives only the name
  EXPECT_TRUE(std::string(name, static_cast<size_t>(len)) == "rec" && t == 4464 && m == 0x80);
  qel_var_schema_set_at(s.get(), 0, 6, 1);
  qel_var_schema_set_at(s.get(), 3, 9, 9);
  qel_var_schema_get_at(s.get(), 0, &name, &len, &t, &m);
  EXPECT_TRUE(std::string(name, static_cast<size_t>(len)) == "id" && t == 6 && m == 1);
  EXPECT_EQ(qel_var_schema_size(s.get()), 3);
  qel_var_schema_add(nullptr, "x", 1, 1, 0);
  qel_var_schema_free(nullptr);

  // A change affects only records made afterwards.
  qel::var before = qel::var::make(12, 0, s);
  qel_var_schema_add(s.get(), "late", 4, 4, 0);
  qel::var after = qel::var::make(12, 0, s);
  EXPECT_EQ(names(before), (std::vector<std::string>{"id", "id", "rec"}));
  EXPECT_EQ(names(after), (std::vector<std::string>{"id", "id", "rec", "late"}));
}

// ---- construction through a resolver

TEST(Construct, ResolverOrderAndSelfNesting) {
  qel::schema a, b, self;
  a.add("id", 4).add("tags", 7, 1).add("child", 21);
  b.add("x", 6).add("back", 20).add("c", 8, 0xFF);
  self.add("n", 4).add("self", 12).add("many", 12, 1);
  Resolver r;
  r.map = {{20, a.get()}, {21, b.get()}};
  {
    // Depth first in schema order; a schema already on the path gets no members.
    qel::var v = qel::var::make(20, 0, &r, Resolver::resolve);
    EXPECT_EQ(r.calls, (std::vector<uint32_t>{20, 4, 7, 21, 6, 20, 8}));
    EXPECT_EQ(names(v["child"]), (std::vector<std::string>{"x", "back", "c"}));
    EXPECT_EQ(v["child"]["back"].schema().get(), a.get());
    EXPECT_TRUE(names(v["child"]["back"]).empty());
    EXPECT_EQ(v["child"]["c"].multi(), -1);
  }
  // Without a resolver the context is the schema of every member.
  qel::var w = qel::var::make(12, 0, self);
  EXPECT_EQ(w["self"].schema().get(), self.get());
  EXPECT_TRUE(names(w["self"]).empty());
  EXPECT_EQ(w["many"].size(), 0);
  EXPECT_EQ(w["n"].schema().get(), self.get());
}

// A member the resolver lists while its record is built comes into being with
// the others; members added by name later, and after a shrink, join the hash.
TEST(Construct, MembersListedMeanwhileOrAddedLater) {
  qel::schema s;
  s.add("a", 4).add("b", 7);
  auto grow = [](void *context, uint32_t type) -> qel_schema * {
    auto *g = static_cast<qel::schema *>(context);
    if (type == 4 && qel_var_schema_size(g->get()) == 2) g->add("late", 6);
    return type == 12 ? g->get() : nullptr;
  };
  qel::var v = qel::var::make(12, 0, &s, grow);
  v["late"].set(2.5);
  qel::var x(4);
  x.set(int64_t{7});
  for (const char *n : {"c", "d", "e", "f", "g"}) v.set_member(n, x);
  EXPECT_EQ(names(v), (std::vector<std::string>{"a", "b", "late", "c", "d", "e", "f", "g"}));
  EXPECT_TRUE(v["a"].get<int64_t>() == 0 && v["late"].get<double>() == 2.5 && v["g"].get<int64_t>() == 7);
  v.shrink(0);
  v.set_member("a", x);
  EXPECT_TRUE(v["a"].get<int64_t>() == 7 && !v["b"]);
}

// Hands out a fresh schema {level, next:30} for every record it is asked for.
struct Endless {
  std::vector<qel::schema> made;
  static qel_schema *resolve(void *context, uint32_t type) {
    if (type != 30) return nullptr;
    auto &s = static_cast<Endless *>(context)->made.emplace_back();
    s.add("level", 4).add("next", 30);
    return s.get();
  }
};

TEST(Construct, DepthIsBoundedForResolversThatNeverRepeat) {
  Endless e;
  qel::var v = qel::var::make(30, 0, &e, Endless::resolve);
  unsigned levels = 0;
  qel::var_cref p = v;
  for (; p["next"]; p = p["next"]) ++levels;
  EXPECT_EQ(levels, kMaxBuildDepth);
  EXPECT_NE(p.schema().get(), nullptr);  // the last one has its schema, no members
  EXPECT_EQ(e.made.size(), kMaxBuildDepth + 1);
  // The copy of the last record is made from its schema: one level more.
  qel::var copy = v.clone();
  levels = 0;
  for (qel::var_cref q = copy; q; q = q["next"]) ++levels;
  EXPECT_EQ(levels, kMaxBuildDepth + 2);
}

// ---- find after keyed adds: from their index, with the linear search's answer

TEST(Find, KeyedIndexGivesTheLinearAnswerAfterAppendsAndCuts) {
  qel::var n = qel::var::make(1, 1), s = qel::var::make(7, 1);
  const uint32_t five = 5;
  for (const uint32_t x : {7u, 5u}) qel_var_add_integer_x(n.get(), x);
  qel_var_add_integer(n.get(), 5);  // a second 5, above the first
  EXPECT_EQ(qel_var_find(n.get(), &five, 0), 1);
  qel_var_add_string_x(s.get(), "b", 1);
  qel_var_add_string_x(s.get(), "a", 1);
  qel_var_shrink(n.get(), 1);  // the cut entries stay in storage, out of use
  qel_var_shrink(s.get(), 1);
  EXPECT_EQ(qel_var_find(n.get(), &five, 0), -1);
  EXPECT_EQ(qel_var_find(s.get(), "a", 1), -1);
}

TEST(SortBy, RecordsByCountThenNameAndStringsWithCallerValues) {
  qel::schema s;
  s.add("count", qel::code::i64).add("name", qel::code::bytes);
  qel::var hosts = qel::var::make(20, qel::form::multi, s);
  const std::pair<int, const char *> rows[] = {{2, "b"}, {3, "z"}, {2, "a"}, {3, "c"}, {2, "a"}};
  for (uint64_t k = 0; k < 5; ++k) {
    qel::var_ref e = hosts.add_new();
    e["count"].set(rows[k].first);
    e["name"].set(rows[k].second);
    e.set_buf(k);
  }
  ASSERT_GT(hosts.get()->data.vars.capacity, 5);
  hosts.get()->data.vars.count = 6;  // a slot without an element goes last, unseen
  hosts.sort_by([](qel::var_cref a, qel::var_cref b) {
    return std::tuple(-a["count"].get<int64_t>(), a["name"].get<std::string_view>()) <=>
           std::tuple(-b["count"].get<int64_t>(), b["name"].get<std::string_view>());
  });
  std::vector<uint64_t> order;
  for (int64_t k = 0; k < 5; ++k) order.push_back(hosts[k].get_buf());
  EXPECT_EQ(order, (std::vector<uint64_t>{3, 1, 2, 4, 0}));
  EXPECT_FALSE(hosts[5]);
  qel::var words(qel::code::bytes, qel::form::multi);
  words.add_all({"bb", "a", "ccc", "dd"});
  for (int64_t k = 0; k < 4; ++k) words.set_buf(k, static_cast<uint64_t>(k));
  auto longer_first = [](const qel_var *a, const qel_var *b, void *) {  // then the higher caller value
    const int64_t la = qel_var_buf_len(a), lb = qel_var_buf_len(b);
    return static_cast<int>(lb > la || (lb == la && qel_var_get_buf(b, 0) > qel_var_get_buf(a, 0)));
  };
  qel_var_sort_by(words.get(), longer_first, nullptr);
  EXPECT_EQ(bufs(words), (std::vector<uint64_t>{2, 3, 0, 1}));
  qel_var_sort_by(words.get(), nullptr, nullptr);  // no order: nothing
  EXPECT_EQ(words.get<std::string_view>(0), "ccc");
  for (const int64_t n : {17, 40, 1000}) {  // runs merged in passes, the last one short
    qel::var v(qel::code::u32, qel::form::multi);
    std::vector<std::pair<int64_t, uint64_t>> want, got;
    for (int64_t k = 0; k < n; ++k) {
      v.add(k * 7 % 10);
      v.set_buf(k, static_cast<uint64_t>(k));
      want.emplace_back(k * 7 % 10, k);
    }
    std::stable_sort(want.begin(), want.end(), [](auto &a, auto &b) { return a.first < b.first; });
    v.sort_by([](qel::var_cref a, qel::var_cref b) { return a.get<int64_t>() < b.get<int64_t>(); });
    for (int64_t k = 0; k < n; ++k) got.emplace_back(v.get<int64_t>(k), v.get_buf(k));
    EXPECT_EQ(got, want) << n << " entries";
  }
}

}  // namespace
