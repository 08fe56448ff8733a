// The C++ layer over schemas, the light variant and the column set.
#include <qel.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace {

using std::int64_t;
using std::uint32_t;
using std::uint64_t;

template <class V, class T>
concept can_add = requires(V &v, const T &t) { v.add(t); };
static_assert(can_add<qel::xvar, int> && can_add<qel::xvar, float> && can_add<qel::xvar, double> &&
              can_add<qel::xvar, const char *> && can_add<qel::xvar, std::string>);
static_assert(!can_add<qel::xvar, bool> && !can_add<qel::xvar, char>);
static_assert(!std::is_copy_constructible_v<qel::xvar> && std::is_nothrow_move_constructible_v<qel::xvar>);
static_assert(!std::is_copy_constructible_v<qel::xvars> && std::is_nothrow_move_assignable_v<qel::xvars>);
static_assert(!std::is_copy_constructible_v<qel::schema> && std::is_nothrow_move_assignable_v<qel::schema>);

// ---- schemas ----

TEST(CppSchema, AddFindAtAndIterate) {
    qel::schema s;
    EXPECT_EQ(s.size(), 0);
    EXPECT_FALSE(s.find("id"));
    s.add("id", 4).add(std::string("tags"), 7, qel::form::multi).add("wide", 70000, 0xFF);
    EXPECT_EQ(s.size(), 3);

    auto tags = s.find("tags");
    ASSERT_TRUE(tags);
    EXPECT_EQ(tags->index, 1);
    EXPECT_EQ(tags->type, 7u);
    EXPECT_EQ(tags->multi, 1);
    EXPECT_EQ(tags->name, "tags");

    auto wide = s.at(2);
    EXPECT_EQ(wide.name, "wide");
    EXPECT_EQ(wide.type, 4464u);  // type codes keep 16 bits
    EXPECT_EQ(wide.multi, 0xFF);

    auto none = s.at(3);
    EXPECT_TRUE(none.name.empty());
    EXPECT_EQ(none.type, 0u);

    std::vector<std::string> names;
    for (const qel::schema_member &m : s) names.emplace_back(m.name);
    EXPECT_EQ(names, (std::vector<std::string>{"id", "tags", "wide"}));
    EXPECT_EQ(std::ranges::distance(s.members()), 3);

    s.set_at(0, 6, 1);
    EXPECT_EQ(s[0].type, 6u);
    EXPECT_EQ(s[0].multi, 1);
    EXPECT_EQ(s[0].name, "id");
}

TEST(CppSchema, DuplicateNamesFindTheFirst) {
    qel::schema s;
    s.add("id", 4).add("id", 6);
    auto id = s.find("id");
    ASSERT_TRUE(id);
    EXPECT_EQ(id->index, 0);
    EXPECT_EQ(id->type, 4u);
    EXPECT_FALSE(s.find("i"));
    EXPECT_FALSE(s.find(std::string_view("id\0", 3)));
}

TEST(CppSchema, OwnershipAndViews) {
    qel::schema a;
    a.add("x", 4);
    qel_schema *raw = a.get();
    qel::schema b(std::move(a));
    EXPECT_FALSE(a);  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(b.get(), raw);
    qel::schema_view v = b;
    EXPECT_EQ(v.size(), 1);
    EXPECT_EQ(v.at(0).name, "x");
    EXPECT_TRUE(v == qel::schema_view(raw));

    qel::schema c;
    c = std::move(b);  // c's empty schema is freed
    EXPECT_EQ(c.get(), raw);
    qel_schema *back = c.release();
    EXPECT_FALSE(c);
    qel::schema d = qel::schema::adopt(back);
    EXPECT_EQ(d.size(), 1);
    d.reset();
    EXPECT_FALSE(d);
}

// ---- the light variant ----

TEST(CppXvar, SingleValuesEveryKind) {
    qel::xvar u(qel::xcode::u32);
    u.set(-1);
    EXPECT_EQ(u.get<int64_t>(), 4294967295);
    EXPECT_EQ(u.get<double>(), 4294967295.0);
    EXPECT_EQ(u.get<float>(), 4294967296.0f);
    u.set(7, int64_t{4294967297});  // index ignored, low 32 bits
    EXPECT_EQ(u.get<uint32_t>(), 1u);

    qel::xvar i(qel::xcode::i64);
    i.set(-2.7f);
    EXPECT_EQ(i.get<int64_t>(), -2);
    i.set(int64_t{9007199254740993});
    EXPECT_EQ(i.get<int64_t>(), 9007199254740993);

    qel::xvar f(qel::xcode::f32);
    f.set(0.1);
    EXPECT_EQ(f.get<float>(), 0.1f);

    qel::xvar d(qel::xcode::f64);
    d.set(0.1f);
    EXPECT_EQ(d.get<double>(), static_cast<double>(0.1f));
    d.set(-3.99);
    EXPECT_EQ(d.get<int64_t>(), -3);

    qel::xvar s(qel::xcode::bytes);
    s.set_buf(42);
    s.set(3, "abc");
    EXPECT_EQ(s.get<std::string_view>(), "abc");
    EXPECT_EQ(s.get_buf(), 42u);  // setters keep the caller value
    EXPECT_EQ(s.get<int64_t>(), 0);
    EXPECT_EQ(s.size(), 0);
}

TEST(CppXvar, ArraysAddKeyedInsertAndIterate) {
    qel::xvar a(qel::xcode::f64, qel::form::multi);
    a.add(1);
    a.add(2.5f);
    a.add(3.25);
    a.add_all(std::vector<double>{4.0});
    a.add_all({5.0});
    EXPECT_EQ(a.size(), 5);
    EXPECT_TRUE(std::ranges::equal(a.values<double>(), std::array{1.0, 2.5, 3.25, 4.0, 5.0}));
    a.set(0, 9);
    EXPECT_EQ(a.get<double>(0), 9.0);
    a.add(0.1f);
    a.add(0.1);
    EXPECT_EQ(a.get<double>(5), static_cast<double>(0.1f));
    EXPECT_EQ(a.get<double>(6), 0.1);
    qel::xvar ints(qel::xcode::i64, qel::form::multi);
    ints.add(int64_t{9007199254740993});
    ints.set(0, int64_t{9007199254740993});
    EXPECT_EQ(ints.get<int64_t>(0), 9007199254740993);

    qel::xvar k(qel::xcode::bytes, qel::form::multi);
    uint64_t *b = k.add_x("key");
    ASSERT_NE(b, nullptr);
    *b = 99;
    EXPECT_EQ(*k.add_x(std::string("key")), 99u);  // the same entry
    EXPECT_EQ(k.size(), 1);
    EXPECT_EQ(k.get_buf(0), 99u);
    k.add("second");
    EXPECT_EQ(k.get<std::string_view>(1), "second");

    qel::xvar n(qel::xcode::u32, qel::form::multi);
    uint64_t *nb = n.add_x(2.5);  // stored as 2
    ASSERT_NE(nb, nullptr);
    *nb = 5;
    EXPECT_EQ(n.get<int64_t>(0), 2);
    EXPECT_EQ(n.get_buf(-1), 5u);

    qel::xvar single(qel::xcode::i64);
    EXPECT_EQ(single.add_x(1), nullptr);  // wrong form: nothing
    EXPECT_EQ(single.add_x("x"), nullptr);
    single.add(1);
    EXPECT_EQ(single.get<int64_t>(), 0);
}

TEST(CppXvar, ShrinkChangeAndOwnership) {
    qel::xvar a(qel::xcode::i64, qel::form::multi);
    for (int i = 0; i < 5; ++i) a.add(i);
    a.set_buf(1, 11);
    a.shrink(2);
    EXPECT_EQ(a.size(), 2);
    EXPECT_EQ(a.get_buf(1), 11u);
    a.change(qel::xcode::i64, 2);  // another multi byte: emptied
    EXPECT_EQ(a.size(), 0);
    EXPECT_EQ(a.multi(), 2);
    a.change(qel::xcode::f64, 0xFF);
    EXPECT_EQ(a.multi(), -1);
    EXPECT_TRUE(a.is_multi());

    qel_xvar *raw = a.get();
    qel::xvar b = std::move(a);
    EXPECT_FALSE(a);  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(b.get(), raw);
    qel_xvar *back = b.release();
    EXPECT_FALSE(b);
    qel_xvar_free(back);

    qel::xvar c = qel::xvar::adopt(qel_xvar_new(5, 1));
    c.add("x");
    qel::xvar d(qel::xcode::f32);
    swap(c, d);
    EXPECT_EQ(d.type(), 5u);
    EXPECT_EQ(c.type(), 3u);
    d.reset();
    EXPECT_FALSE(d);
}

// ---- the column set ----

TEST(CppXvars, EntriesWholeAndValueByValue) {
    qel::xvars col(qel::xcode::i64, qel::form::multi);
    qel::xvar row(qel::xcode::i64, qel::form::multi);
    row.add_all({1, 2});
    row.set_buf(1, 7);
    col.add_var(row);
    row.shrink(0);
    row.add_all({3, 4, 5});
    col.add_var(row);
    EXPECT_EQ(col.size(), 2);
    EXPECT_EQ(col.entry_size(0), 2);
    EXPECT_EQ(col.entry_size(1), 3);
    EXPECT_EQ(col.get_buf(0, 1), 7u);
    EXPECT_TRUE(std::ranges::equal(col.values<int64_t>(1), std::array<int64_t, 3>{3, 4, 5}));

    col.add(2, 10);  // a new entry
    col.add(2, 11.9);  // grows the last entry (truncated)
    col.add(0, 99);  // not the last entry: nothing
    EXPECT_EQ(col.size(), 3);
    EXPECT_TRUE(std::ranges::equal(col.values<int64_t>(2), std::array<int64_t, 2>{10, 11}));
    col.set(2, 0, 2.5f);
    EXPECT_EQ(col.get<int64_t>(2, 0), 2);
    EXPECT_EQ(col.get<double>(2, 5), 0.0);  // out of the entry

    qel::xvar out(qel::xcode::i64, qel::form::multi);
    for (int i = 0; i < 10; ++i) out.add(i);
    col.fetch(0, out);
    EXPECT_EQ(out.size(), 2);
    EXPECT_EQ(out.get<int64_t>(1), 2);
    EXPECT_EQ(out.get_buf(1), 7u);

    col.clear();
    EXPECT_EQ(col.size(), 0);
}

TEST(CppXvars, StringsAndSingleColumns) {
    qel::xvars col(qel::xcode::bytes, qel::form::multi);
    col.add(0, "ab");
    col.add(0, std::string("c"));
    col.add(1, std::string_view("def"));
    EXPECT_EQ(col.get<std::string_view>(0, 1), "c");
    EXPECT_EQ(col.get<std::string_view>(1, 0), "def");
    col.set(1, 0, "DEF");
    std::vector<std::string> all;
    for (std::int64_t e = 0; e < col.size(); ++e)
        for (std::string_view s : col.values<std::string_view>(e)) all.emplace_back(s);
    EXPECT_EQ(all, (std::vector<std::string>{"ab", "c", "DEF"}));
    EXPECT_EQ(col.get<std::string_view>(5, 0), "");

    qel::xvars singles(qel::xcode::f64);
    qel::xvar one(qel::xcode::f64);
    one.set(1.5);
    singles.add_var(one);
    one.set(2.5);
    singles.add_var(one);
    singles.add(2, 3.0);  // adds serve the multi form only
    EXPECT_EQ(singles.size(), 2);
    EXPECT_EQ(singles.entry_size(1), 0);  // single entries report 0
    EXPECT_EQ(singles.get<double>(1, 123), 2.5);  // pos ignored
    qel::xvar back(qel::xcode::f64);
    singles.fetch(0, back);
    EXPECT_EQ(back.get<double>(), 1.5);

    qel::xvar wrong(qel::xcode::f64, qel::form::multi);
    singles.add_var(wrong);  // another form: nothing
    EXPECT_EQ(singles.size(), 2);
}

TEST(CppXvars, Ownership) {
    qel::xvars a(qel::xcode::u32, qel::form::multi);
    a.add(0, 1);
    qel_xvars *raw = a.get();
    qel::xvars b;
    b = std::move(a);
    EXPECT_FALSE(a);  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(b.get(), raw);
    EXPECT_EQ(b.type(), 1u);
    EXPECT_EQ(b.multi(), 1);
    b.change(qel::xcode::u32, 1);  // same: entries stay
    EXPECT_EQ(b.size(), 1);
    b.change(qel::xcode::u32, 0);
    EXPECT_EQ(b.size(), 0);
    qel_xvars_free(b.release());
    EXPECT_FALSE(b);
    qel::xvars c = qel::xvars::adopt(qel_xvars_new(2, 0));
    EXPECT_EQ(c.type(), 2u);
}

}  // namespace
