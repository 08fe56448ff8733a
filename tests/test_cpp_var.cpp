// The C++ layer over the full variant: ownership, views, typed accessors,
// iteration, resolvers and ordering.  Leaks and double frees show up under
// the asan preset, where every test here also runs.
#include <qel.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <list>
#include <ranges>
#include <string>
#include <vector>

namespace {

using std::int64_t;
using std::uint32_t;
using std::uint64_t;

// ---- what the overloads accept, decided at compile time ----

template <class V, class T>
concept can_add = requires(V &v, const T &t) { v.add(t); };
template <class V, class T>
concept can_get = requires(const V &v) { v.template get<T>(0); };
template <class V>
concept can_set_through = requires(V &v) { v.set(1, 2); };

static_assert(can_add<qel::var, int>);
static_assert(can_add<qel::var, long>);
static_assert(can_add<qel::var, long long>);
static_assert(can_add<qel::var, unsigned>);
static_assert(can_add<qel::var, int64_t>);
static_assert(can_add<qel::var, float>);
static_assert(can_add<qel::var, double>);
static_assert(can_add<qel::var, const char *>);
static_assert(can_add<qel::var, char[5]>);
static_assert(can_add<qel::var, std::string>);
static_assert(can_add<qel::var, std::string_view>);
static_assert(!can_add<qel::var, bool>);         // neither 0/1 nor text
static_assert(!can_add<qel::var, char>);         // a character is not a number
static_assert(!can_add<qel::var, long double>);  // no C call takes it
static_assert(!can_add<qel::var, std::nullptr_t>);
static_assert(!can_add<qel::var, qel::var>);
static_assert(can_get<qel::var, int64_t> && can_get<qel::var, uint32_t> && can_get<qel::var, float> &&
              can_get<qel::var, double> && can_get<qel::var, std::string_view>);
static_assert(!can_get<qel::var, bool> && !can_get<qel::var, std::string> && !can_get<qel::var, char>);
// Writes go through mutable handles only.
static_assert(can_set_through<qel::var_ref>);
static_assert(!can_set_through<qel::var_cref>);
static_assert(can_set_through<qel::var> && !can_set_through<const qel::var>);
static_assert(std::same_as<decltype(std::declval<const qel::var &>()["x"]), qel::var_cref>);
static_assert(std::same_as<decltype(std::declval<qel::var &>()["x"]), qel::var_ref>);
static_assert(std::same_as<decltype(std::declval<qel::var &>()[0]), qel::var_ref>);
// Owners are move-only; views are plain pointers.
static_assert(!std::is_copy_constructible_v<qel::var> && !std::is_copy_assignable_v<qel::var>);
static_assert(std::is_nothrow_move_constructible_v<qel::var> && std::is_nothrow_move_assignable_v<qel::var>);
static_assert(sizeof(qel::var) == sizeof(void *) && sizeof(qel::var_ref) == sizeof(void *));
static_assert(std::is_trivially_copyable_v<qel::var_ref> && std::is_trivially_copyable_v<qel::var_cref>);
static_assert(std::ranges::random_access_range<decltype(std::declval<qel::var &>().values<double>())>);
static_assert(std::ranges::forward_range<decltype(std::declval<qel::var &>().members())>);
static_assert(qel::storage_of(0) == qel::storage::record && qel::storage_of(9) == qel::storage::bits32 &&
              qel::storage_of(5) == qel::storage::bits32 && qel::storage_of(6) == qel::storage::bits64 &&
              qel::storage_of(8) == qel::storage::bytes && qel::storage_of(10) == qel::storage::record &&
              qel::storage_of(0xFFFFFFFFu) == qel::storage::record);

// ---- ownership and moves ----

TEST(CppVarOwnership, NewVariantHasTypeFormAndNoSchema) {
    qel::var v(qel::code::f64, qel::form::multi);
    ASSERT_TRUE(v);
    EXPECT_EQ(v.type(), 6u);
    EXPECT_EQ(v.multi(), 1);
    EXPECT_TRUE(v.is_multi());
    EXPECT_EQ(v.size(), 0);
    EXPECT_FALSE(v.schema());
    qel::var w(4);
    EXPECT_EQ(w.multi(), 0);
    EXPECT_EQ(qel::var::make(3, 0xFF).multi(), -1);
}

TEST(CppVarOwnership, MoveTransfersAndEmptiesTheSource) {
    qel::var a(qel::code::bytes);
    a.set("payload");
    qel_var *raw = a.get();
    qel::var b(std::move(a));
    EXPECT_FALSE(a);  // NOLINT(bugprone-use-after-move): the moved-from state is the point
    EXPECT_EQ(a.get(), nullptr);
    EXPECT_EQ(b.get(), raw);
    EXPECT_EQ(b.get<std::string_view>(), "payload");

    qel::var c(qel::code::i64);
    c = std::move(b);  // c's old variant is freed (a leak shows under asan)
    EXPECT_EQ(c.get(), raw);
    EXPECT_FALSE(b);  // NOLINT(bugprone-use-after-move)

    qel::var &alias = c;
    c = std::move(alias);  // self-move keeps the variant
    EXPECT_EQ(c.get(), raw);
    EXPECT_EQ(c.get<std::string_view>(), "payload");
}

TEST(CppVarOwnership, ReleaseHandsTheVariantBack) {
    qel::var v(qel::code::i64);
    v.set(5);
    qel_var *raw = v.release();
    EXPECT_FALSE(v);
    ASSERT_NE(raw, nullptr);
    EXPECT_EQ(qel_var_get_long(raw, 0), 5);
    qel_var_free(raw);  // a double free shows under asan if v still owned it
}

TEST(CppVarOwnership, AdoptResetAndSwap) {
    qel::var a = qel::var::adopt(qel_var_new(4, 0));
    a.set(1);
    qel::var b = qel::var::adopt(qel_var_new(4, 0));
    b.set(2);
    swap(a, b);
    EXPECT_EQ(a.get<int64_t>(), 2);
    EXPECT_EQ(b.get<int64_t>(), 1);
    a.reset(qel_var_new(6, 0));  // frees the old one
    EXPECT_EQ(a.type(), 6u);
    a.reset();
    EXPECT_FALSE(a);
    a.reset();  // resetting an empty owner is harmless
    qel::var none;
    EXPECT_FALSE(none);
}

TEST(CppVarOwnership, VectorOfOwnersFreesEachOnce) {
    std::vector<qel::var> vs;
    for (int i = 0; i < 50; ++i) {  // reallocation moves them
        vs.emplace_back(qel::code::bytes, qel::form::multi);
        vs.back().add(std::to_string(i));
    }
    for (int i = 0; i < 50; ++i) EXPECT_EQ(vs[static_cast<std::size_t>(i)].get<std::string_view>(0), std::to_string(i));
    vs.erase(vs.begin(), vs.begin() + 25);
    EXPECT_EQ(vs.front().get<std::string_view>(0), "25");
}

TEST(CppVarOwnership, CloneIsDeepAndIndependent) {
    qel::schema s;
    s.add("id", 4).add("tags", 7, 1);
    qel::var r = qel::var::make(20, 0, s);
    r["id"].set(42);
    r["tags"].add("a");
    r["tags"].add("b");
    r.set_buf(9);

    qel::var c = r.clone();
    ASSERT_NE(c.get(), r.get());
    EXPECT_EQ(c.type(), 20u);
    EXPECT_EQ(c.schema().get(), s.get());
    EXPECT_EQ(c.get_buf(), 9u);
    EXPECT_EQ(c["id"].get<int64_t>(), 42);
    ASSERT_EQ(c["tags"].size(), 2);
    EXPECT_NE(c["tags"].get(), r["tags"].get());

    c["id"].set(7);
    c["tags"].add("c");
    EXPECT_EQ(r["id"].get<int64_t>(), 42);
    EXPECT_EQ(r["tags"].size(), 2);

    qel::var member = r["tags"].clone();  // a view clones into an owner
    EXPECT_EQ(member.size(), 2);
    EXPECT_EQ(member.get<std::string_view>(1), "b");

    qel::var one(1);  // the clone starts from another code internally
    one.set(-1);
    EXPECT_EQ(one.clone().get<int64_t>(), 4294967295);
    EXPECT_EQ(one.clone().type(), 1u);
}

// ---- views ----

TEST(CppVarViews, ReferencesNeverFree) {
    qel::schema s;
    s.add("n", 4);
    qel::var r = qel::var::make(12, 0, s);
    {
        qel::var_ref n = r["n"];
        ASSERT_TRUE(n);
        n.set(3);
        qel::var_ref copy = n;  // copying a view copies the pointer
        copy.set(4);
    }  // the views go; the member stays
    EXPECT_EQ(r["n"].get<int64_t>(), 4);
    qel::var_ref whole = r;
    qel::var_cref read = whole;
    EXPECT_EQ(read.get(), r.get());
    EXPECT_EQ(read["n"].get<int64_t>(), 4);
}

TEST(CppVarViews, MissingMembersAndElementsAreNullViews) {
    qel::schema s;
    s.add("n", 4);
    qel::var r = qel::var::make(12, 0, s);
    EXPECT_FALSE(r["nope"]);
    EXPECT_FALSE(r.member(std::string_view("n\0", 2)));  // names are byte strings
    qel::var num(4);
    EXPECT_FALSE(num["n"]);
    EXPECT_FALSE(num[0]);
    qel::var arr(12, qel::form::multi);
    EXPECT_FALSE(arr[0]);
    EXPECT_EQ(r[0].get(), r.get());  // a single record is its own element
    const qel::var &cr = r;
    EXPECT_EQ(cr["n"].get(), r["n"].get());
}

TEST(CppVarViews, ViewOfAVariantTheCallerOwnsInC) {
    qel_var *raw = qel_var_new(6, 1);
    {
        qel::var_ref v(raw);
        v.add(1.5);
        v.add(2.5);
    }
    EXPECT_EQ(qel_var_size(raw), 2);
    EXPECT_EQ(qel_var_get_double(raw, 1), 2.5);
    qel_var_free(raw);
}

// ---- typed accessors: the C++ type picks the C call ----

TEST(CppVarAccessors, IntegersGoThroughTheLongCalls) {
    qel::var v(qel::code::i64);
    v.set(int64_t{9007199254740993});  // a double would round this to 2^53
    EXPECT_EQ(v.get<int64_t>(), 9007199254740993);
    v.set(-3);
    EXPECT_EQ(v.get<int64_t>(), -3);
    v.set(4294967295u);
    EXPECT_EQ(v.get<int64_t>(), 4294967295);
    v.set(std::numeric_limits<uint64_t>::max());  // as by static_cast: -1
    EXPECT_EQ(v.get<int64_t>(), -1);
    v.set(static_cast<short>(-7));
    EXPECT_EQ(v.get<int>(), -7);
    v.set(std::numeric_limits<long long>::min());
    EXPECT_EQ(v.get<long long>(), std::numeric_limits<long long>::min());
}

TEST(CppVarAccessors, FloatAndDoubleGoThroughTheirOwnCalls) {
    qel::var v(qel::code::f64);
    v.set(0.1f);  // the float call: widened exactly
    EXPECT_EQ(v.get<double>(), static_cast<double>(0.1f));
    EXPECT_NE(v.get<double>(), 0.1);
    v.set(0.1);  // the double call: unchanged
    EXPECT_EQ(v.get<double>(), 0.1);
    EXPECT_EQ(v.get<float>(), 0.1f);

    qel::var f(qel::code::f32);
    f.set(16777217);  // integer to float: nearest
    EXPECT_EQ(f.get<float>(), 16777216.0f);
    f.set(-2.75);
    EXPECT_EQ(f.get<int64_t>(), -2);
}

TEST(CppVarAccessors, ConversionsOfTheLibraryHold) {
    qel::var u(qel::code::u32);
    u.set(-1);
    EXPECT_EQ(u.get<int64_t>(), 4294967295);
    EXPECT_EQ(u.get<uint32_t>(), 4294967295u);
    EXPECT_EQ(u.get<double>(), 4294967295.0);
    EXPECT_EQ(u.get<float>(), 4294967296.0f);

    qel::var i(qel::code::i64);
    i.set(1e300);
    EXPECT_EQ(i.get<int64_t>(), std::numeric_limits<int64_t>::min());
    i.set(std::nanf(""));
    EXPECT_EQ(i.get<int64_t>(), std::numeric_limits<int64_t>::min());

    qel::var d(qel::code::f64);
    d.set(-7.9);
    EXPECT_EQ(d.get<int64_t>(), -7);
}

TEST(CppVarAccessors, StringsInBothForms) {
    qel::var s(qel::code::bytes);
    s.set("abc");
    EXPECT_EQ(s.get<std::string_view>(), "abc");
    s.set(std::string("with\0zero", 9));  // explicit length keeps the zero byte
    EXPECT_EQ(s.get<std::string_view>(), std::string_view("with\0zero", 9));
    const char *none = nullptr;
    s.set(none);  // NULL is the empty string
    EXPECT_TRUE(s.get<std::string_view>().empty());

    qel::var a(8, qel::form::multi);
    a.add("x");
    a.add(std::string("yy"));
    a.add(std::string_view("zzz").substr(0, 2));
    a.add(none);
    char buf[] = {'m', 'u', 't', 0};
    a.add(buf);
    ASSERT_EQ(a.size(), 5);
    EXPECT_EQ(a.get<std::string_view>(0), "x");
    EXPECT_EQ(a.get<std::string_view>(1), "yy");
    EXPECT_EQ(a.get<std::string_view>(2), "zz");
    EXPECT_EQ(a.get<std::string_view>(3), "");
    EXPECT_EQ(a.get<std::string_view>(4), "mut");
    a.set(1, "Y");
    EXPECT_EQ(a.get<std::string_view>(1), "Y");
    EXPECT_EQ(a.get<std::string_view>(99), "");  // out of range: empty
}

TEST(CppVarAccessors, WrongClassGivesNeutralResults) {
    qel::var s(qel::code::bytes);
    s.set("text");
    EXPECT_EQ(s.get<int64_t>(), 0);
    EXPECT_EQ(s.get<double>(), 0.0);
    s.set(5);  // a number into a string: nothing
    EXPECT_EQ(s.get<std::string_view>(), "text");
    qel::var n(qel::code::i64);
    n.set("12");  // text into a number: nothing
    EXPECT_EQ(n.get<int64_t>(), 0);
    EXPECT_TRUE(n.get<std::string_view>().empty());
    n.add(3);  // add on a single variant: nothing
    EXPECT_EQ(n.size(), 0);
    EXPECT_EQ(n.get<int64_t>(), 0);
}

TEST(CppVarAccessors, ArraysAddSetGetAndAddAll) {
    qel::var a(qel::code::f64, qel::form::multi);
    a.add(1);
    a.add(2.5f);
    a.add(3.25);
    std::vector<double> more{4.0, 5.0};
    a.add_all(more);
    a.add_all(std::span<const double>(more).first(1));
    a.add_all({7, 8});
    std::list<float> fl{9.5f};
    a.add_all(fl);
    ASSERT_EQ(a.size(), 9);
    a.set(0, 1.5);
    const std::array<double, 9> want{1.5, 2.5, 3.25, 4.0, 5.0, 4.0, 7.0, 8.0, 9.5};
    EXPECT_TRUE(std::ranges::equal(a.values<double>(), want));
    EXPECT_EQ(a.get<double>(100), 0.0);

    qel::var kinds(qel::code::f64, qel::form::multi);
    kinds.add(0.1f);  // the float call: widened exactly
    kinds.add(0.1);   // the double call: unchanged
    kinds.add(int64_t{9007199254740993});  // the integer call: nearest double
    EXPECT_EQ(kinds.get<double>(0), static_cast<double>(0.1f));
    EXPECT_EQ(kinds.get<double>(1), 0.1);
    EXPECT_EQ(kinds.get<double>(2), 9007199254740992.0);
    qel::var ints(qel::code::i64, qel::form::multi);
    ints.add(int64_t{9007199254740993});  // through a double it would lose the 1
    EXPECT_EQ(ints.get<int64_t>(0), 9007199254740993);

    std::vector<std::string> words{"a", "b"};
    qel::var w(qel::code::bytes, qel::form::multi);
    w.add_all(words);
    EXPECT_EQ(w.size(), 2);
    EXPECT_EQ(w.get<std::string_view>(1), "b");
}

TEST(CppVarAccessors, IteratorsAreIndexBased) {
    qel::var a(qel::code::i64, qel::form::multi);
    for (int i = 0; i < 10; ++i) a.add(i * i);
    auto vals = a.values<int64_t>();
    EXPECT_EQ(vals.size(), 10);
    auto it = vals.begin();
    EXPECT_EQ(it[3], 9);
    it += 4;
    EXPECT_EQ(*it, 16);
    EXPECT_EQ(*(it - 1), 9);
    EXPECT_EQ(vals.end() - it, 6);
    EXPECT_TRUE(it < vals.end());
    EXPECT_EQ(std::ranges::distance(vals), 10);
    int64_t sum = 0;
    for (int64_t x : a.values<int64_t>()) sum += x;
    EXPECT_EQ(sum, 285);
    EXPECT_EQ(*std::ranges::find(vals, 49), 49);
    EXPECT_EQ(std::ranges::find(vals, 50), vals.end());

    qel::var single(qel::code::i64);
    single.set(5);
    EXPECT_TRUE(single.values<int64_t>().empty());  // a single variant has no elements
}

TEST(CppVarAccessors, VariantToVariant) {
    qel::var src(qel::code::u32);
    src.set(-1);
    qel::var arr(qel::code::u32, qel::form::multi);
    arr.add_var(src);
    arr.add_var(src);
    ASSERT_EQ(arr.size(), 2);
    EXPECT_EQ(arr.get<int64_t>(1), 4294967295);

    qel::var five(qel::code::u32);
    five.set(5);
    arr.set_var(0, five);
    EXPECT_EQ(arr.get<int64_t>(0), 5);

    qel::var out(qel::code::bytes);
    arr.get_var(0, out);  // re-forms out into a single code 1
    EXPECT_EQ(out.type(), 1u);
    EXPECT_EQ(out.get<int64_t>(), 5);

    qel::var copy(qel::code::f64);
    copy.copy_from(arr);
    EXPECT_EQ(copy.type(), 1u);
    EXPECT_EQ(copy.size(), 2);

    qel::var app(qel::code::u32);
    app.set(9);
    app.append(five);  // single dst becomes an array holding 5
    ASSERT_EQ(app.size(), 1);
    EXPECT_EQ(app.get<int64_t>(0), 5);
}

TEST(CppVarAccessors, KeyedInsertFindAndCallerValues) {
    qel::var k(qel::code::bytes, qel::form::multi);
    EXPECT_EQ(k.add_x("alpha"), 0u);
    EXPECT_EQ(k.add_x(std::string("beta")), 0u);
    const int64_t at = k.find("alpha");
    ASSERT_GE(at, 0);
    k.set_buf(at, 77);
    EXPECT_EQ(k.add_x("alpha"), 77u);  // the same entry again
    EXPECT_EQ(k.size(), 2);
    EXPECT_EQ(k.find("gamma"), -1);
    EXPECT_EQ(k.find(5), -1);  // a number is no key of a string array

    qel::var d(qel::code::f64, qel::form::multi);
    d.add_x(2);
    d.set_buf(-1, 5);
    EXPECT_EQ(d.add_x(2.0), 5u);
    EXPECT_EQ(d.find(2), d.find(2.0f));
    EXPECT_EQ(d.find(2), 0);
    EXPECT_EQ(d.find("2"), -1);

    qel::var u(qel::code::u32, qel::form::multi);
    u.add(7);
    u.add(-1);
    EXPECT_EQ(u.find(-1), 1);  // converted as the adders convert: 0xFFFFFFFF
    EXPECT_EQ(u.find(4294967295u), 1);
    EXPECT_EQ(u.find(7.9), 0);  // truncated

    qel::var f(qel::code::f32, qel::form::multi);
    f.add(0.1);
    EXPECT_EQ(f.find(0.1), 0);  // nearest float, as stored
    EXPECT_EQ(f.find(0.1f), 0);

    qel::var single(qel::code::i64);
    EXPECT_EQ(single.find(0), -1);
    EXPECT_EQ(single.add_x(3), 0u);
}

TEST(CppVarAccessors, SortAndBinarySearch) {
    qel::var d(qel::code::f64, qel::form::multi);
    d.add_all({3.0, 1.0, 2.0, 0.5});
    d.sort();
    EXPECT_TRUE(std::ranges::equal(d.values<double>(), std::array{0.5, 1.0, 2.0, 3.0}));
    EXPECT_EQ(d.bfind(2), 2);
    EXPECT_EQ(d.bfind(2.5), -1);
    d.add(-1.0);
    d.sort(qel::order::descending);
    EXPECT_TRUE(std::ranges::equal(d.values<double>(), std::array{3.0, 2.0, 1.0, 0.5, -1.0}));

    qel::var s(qel::code::bytes, qel::form::multi);
    s.add_all({"pear", "apple", "fig"});
    s.sort();
    EXPECT_EQ(s.get<std::string_view>(0), "apple");
    EXPECT_EQ(s.bfind("fig"), 1);
    EXPECT_EQ(s.bfind("kiwi"), -1);
}

TEST(CppVarAccessors, CapacityAndRawBytes) {
    qel::var a(qel::code::i64, qel::form::multi);
    a.expand(16);
    a.add(1);
    a.set_buf(5, 55);  // between count and capacity
    EXPECT_EQ(a.get_buf(5), 55u);
    a.shrink(0);
    EXPECT_EQ(a.size(), 0);

    qel::var s(qel::code::bytes);
    s.set("hello");
    std::span<std::byte> bytes = s.buffer();
    ASSERT_EQ(bytes.size(), 5u);
    EXPECT_EQ(std::memcmp(bytes.data(), "hello", 5), 0);
    EXPECT_GE(s.buf_size(), 5);
    EXPECT_EQ(s.buf_len(), 5);

    qel::var n(qel::code::i64);
    n.set(1);
    std::span<std::byte> raw = n.buffer();
    ASSERT_EQ(raw.size(), 8u);
    const int64_t x = 123456789;
    std::memcpy(raw.data(), &x, sizeof x);  // writes reach the value
    EXPECT_EQ(n.get<int64_t>(), 123456789);
    n.zero();
    EXPECT_EQ(n.get<int64_t>(), 0);

    EXPECT_TRUE(a.buffer().empty());
}

// ---- records: members, elements, iteration ----

TEST(CppVarRecords, MembersWalkInInsertionOrder) {
    qel::schema s;
    s.add("zeta", 4).add("alpha", 7).add("mid", 6, 1);
    qel::var r = qel::var::make(20, 0, s);
    std::vector<std::string> names;
    std::vector<uint32_t> types;
    for (auto m : r.members()) {
        names.emplace_back(m.name);
        types.push_back(m.value.type());
    }
    EXPECT_EQ(names, (std::vector<std::string>{"zeta", "alpha", "mid"}));
    EXPECT_EQ(types, (std::vector<uint32_t>{4, 7, 6}));

    // Write through the walk, read through a const walk.
    for (auto m : r.members())
        if (m.value.type() == 4) m.value.set(11);
    const qel::var &cr = r;
    int64_t seen = -1;
    for (auto m : cr.members()) {
        static_assert(std::same_as<decltype(m.value), qel::var_cref>);
        if (m.name == "zeta") seen = m.value.get<int64_t>();
    }
    EXPECT_EQ(seen, 11);
    EXPECT_EQ(std::ranges::distance(r.members()), 3);
}

TEST(CppVarRecords, WalkSkipsFreedMembers) {
    qel::schema s;
    s.add("a", 4).add("b", 4);
    qel::var r = qel::var::make(20, 0, s);
    r.shrink(0);  // frees the members; their names stay with no member
    EXPECT_TRUE(r.members().empty());
    EXPECT_FALSE(r["a"]);
    qel::var v(qel::code::f64);
    v.set(2.5);
    r.set_member("b", v);
    std::vector<std::string> names;
    for (auto m : r.members()) names.emplace_back(m.name);
    EXPECT_EQ(names, std::vector<std::string>{"b"});
    EXPECT_EQ(r["b"].get<double>(), 2.5);
}

TEST(CppVarRecords, NothingToWalkOutsideSingleRecords) {
    qel::var n(qel::code::i64);
    EXPECT_TRUE(n.members().empty());
    qel::var arr(20, qel::form::multi);
    EXPECT_TRUE(arr.members().empty());
    qel::var bare(12);  // no schema: no members
    EXPECT_TRUE(bare.members().empty());
    qel::var code0(0);
    code0.set_member("x", n);  // shortcuts do not serve code 0
    EXPECT_TRUE(code0.members().empty());
}

TEST(CppVarRecords, SetMemberCopiesAndWalkSeesNewMembers) {
    qel::var r(12);
    qel::var tags(qel::code::bytes, qel::form::multi);
    tags.add("t1");
    r.set_member("tags", tags);
    r.set_member(std::string("id"), qel::var(qel::code::i64));
    tags.add("t2");  // the record holds a copy
    ASSERT_TRUE(r["tags"]);
    EXPECT_EQ(r["tags"].size(), 1);
    std::vector<std::string> names;
    for (auto m : r.members()) names.emplace_back(m.name);
    EXPECT_EQ(names, (std::vector<std::string>{"tags", "id"}));
}

TEST(CppVarRecords, RecordArraysElements) {
    qel::schema s;
    s.add("x", 4);
    qel::var arr = qel::var::make(30, qel::form::multi, s);
    qel::var_ref e0 = arr.add_new();
    ASSERT_TRUE(e0);
    EXPECT_EQ(e0.schema().get(), s.get());
    qel::var x(qel::code::i64);
    x.set(10);
    e0.set_member("x", x);
    arr.add_copy(arr[0].clone());  // src must not live inside arr
    x.set(20);
    qel::var rec(30);
    rec.set_member("x", x);
    arr.set_element(1, rec);
    ASSERT_EQ(arr.size(), 2);
    std::vector<int64_t> xs;
    for (qel::var_ref e : arr.elements()) xs.push_back(e["x"].get<int64_t>());
    EXPECT_EQ(xs, (std::vector<int64_t>{10, 20}));
    const qel::var &carr = arr;
    EXPECT_EQ(carr.elements()[1]["x"].get<int64_t>(), 20);
    EXPECT_FALSE(arr[2]);

    qel::var nums(qel::code::i64, qel::form::multi);
    nums.add(1);
    EXPECT_TRUE(nums.elements().empty());  // numbers are not elements
}

// ---- resolvers ----

TEST(CppVarResolver, LambdaWithCapturesSeesDepthFirstOrder) {
    qel::schema outer, inner;
    outer.add("id", 4).add("tags", 7, 1).add("child", 21);
    inner.add("x", 6).add("name", 8);
    std::vector<uint32_t> calls;
    auto r = qel::var::make(20, 0, [&](uint32_t type) -> qel_schema * {
        calls.push_back(type);
        if (type == 20) return outer.get();
        if (type == 21) return inner.get();
        return nullptr;
    });
    EXPECT_EQ(calls, (std::vector<uint32_t>{20, 4, 7, 21, 6, 8}));
    EXPECT_EQ(r.schema().get(), outer.get());
    ASSERT_TRUE(r["child"]);
    EXPECT_EQ(r["child"].schema().get(), inner.get());
    EXPECT_EQ(r["child"]["name"].type(), 8u);
    EXPECT_EQ(r["tags"].size(), 0);
    EXPECT_TRUE(r["tags"].is_multi());
}

TEST(CppVarResolver, EveryKindOfCallable) {
    qel::schema s;
    s.add("v", 4);

    // A mutable lambda with state of its own, returning a reference to a
    // live schema; it is called through the caller's object, not a copy.
    auto counting = [&s, calls = 0](uint32_t) mutable -> const qel::schema & {
        ++calls;
        return s;
    };
    auto a = qel::var::make(12, 0, counting);
    EXPECT_TRUE(a["v"]);
    struct probe {
        int calls = 0;
        qel_schema *operator()(uint32_t) { ++calls; return nullptr; }
    };
    probe p;
    auto z = qel::var::make(4, 0, p);
    EXPECT_EQ(p.calls, 1);  // the caller's object itself was called
    auto from_temp = qel::var::make(4, 0, probe{});  // a temporary lives through the call
    EXPECT_TRUE(from_temp);

    // A function object passed as a const lvalue, returning a qel::schema *.
    struct by_table {
        const qel::schema *for12;
        const qel::schema *operator()(uint32_t code) const { return code == 12 ? for12 : nullptr; }
    };
    const by_table table{&s};
    auto b = qel::var::make(12, 0, table);
    EXPECT_EQ(b.schema().get(), s.get());

    // A plain function pointer.
    static qel_schema *stored = nullptr;
    stored = s.get();
    qel_schema *(*fn)(uint32_t) = [](uint32_t t) -> qel_schema * { return t == 12 ? stored : nullptr; };
    auto c = qel::var::make(12, 0, fn);
    EXPECT_TRUE(c["v"]);

    // The C form is still there.
    auto d = qel::var::make(12, 0, s.get(), nullptr);
    EXPECT_EQ(d.schema().get(), s.get());
    EXPECT_TRUE(d["v"]);

    // An array stores the resolver's schema for later elements.
    auto e = qel::var::make(12, qel::form::multi, table);
    EXPECT_EQ(e.size(), 0);
    EXPECT_EQ(e.add_new().schema().get(), s.get());
}

TEST(CppVarResolver, ChangeWithResolver) {
    qel::schema s;
    s.add("m", 6);
    qel::var v(qel::code::f32);
    v.set(1.5f);
    v.set_buf(3);
    int calls = 0;
    auto resolve = [&](uint32_t t) -> qel_schema * {
        ++calls;
        return t == 40 ? s.get() : nullptr;
    };
    v.change(40, 0, resolve);
    EXPECT_EQ(calls, 2);  // the record, then its member
    EXPECT_EQ(v.type(), 40u);
    EXPECT_EQ(v.get_buf(), 0u);
    EXPECT_TRUE(v["m"]);
    v.change(40, 0, resolve);  // same code and form: nothing, no call
    EXPECT_EQ(calls, 2);
    v.change(41, 0, s);
    EXPECT_EQ(v.schema().get(), s.get());
    v.change(qel::code::i64);
    EXPECT_EQ(v.type(), 4u);
}

// ---- ordering ----

TEST(CppVarOrder, FollowsTheLibrarysComparison) {
    qel::var a(qel::code::i64), b(qel::code::i64);
    a.set(-1);
    b.set(1);
    EXPECT_TRUE(a > b);  // 64-bit integers compare unsigned
    EXPECT_EQ(a <=> b, std::weak_ordering::greater);
    b.set(-1);
    EXPECT_TRUE(a == b);
    EXPECT_FALSE(a != b);

    qel::var d(qel::code::f64);
    EXPECT_TRUE(a < d);  // code 4 before code 6, whatever the values

    qel::var arr(qel::code::i64, qel::form::multi);
    EXPECT_TRUE(a < arr);  // single before array

    qel::var nan(qel::code::f32), one(qel::code::f32);
    nan.set(std::nanf(""));
    one.set(1.0f);
    EXPECT_EQ(nan <=> one, std::weak_ordering::equivalent);

    qel::var s1(qel::code::bytes), s2(qel::code::bytes);
    s1.set("abc");
    s2.set("abd");
    EXPECT_TRUE(s1 < s2);
    EXPECT_TRUE(s1 <= s2);
    EXPECT_TRUE(s2 >= s1);
}

TEST(CppVarOrder, MixesOwnersAndViews) {
    qel::schema s;
    s.add("n", 4);
    qel::var r = qel::var::make(12, 0, s);
    r["n"].set(5);
    qel::var five(qel::code::i64);
    five.set(5);
    const qel::var &cr = r;
    EXPECT_TRUE(r["n"] == five);
    EXPECT_TRUE(five == r["n"]);
    EXPECT_TRUE(cr["n"] == r["n"]);
    EXPECT_TRUE(cr["n"] == five);
    qel::var six(qel::code::i64);
    six.set(6);
    EXPECT_TRUE(cr["n"] < six);
    EXPECT_TRUE(six > r.ref()["n"]);
}

TEST(CppVarOrder, ArraysCompareElementByElement) {
    qel::var a(qel::code::f64, qel::form::multi), b(qel::code::f64, qel::form::multi);
    a.add_all({1.0, 2.0});
    b.add_all({1.0, 2.0, 0.0});
    EXPECT_TRUE(a < b);  // a prefix orders first
    a.add(5.0);
    EXPECT_TRUE(a > b);
    b.set(2, 5.0);
    EXPECT_TRUE(a == b);
}

}  // namespace
