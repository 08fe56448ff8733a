// Hand-written cases for what the model drivers cannot state better: the
// conversion table at its edges (the drivers' reference conversions answer
// to it), the golden orders of the float sorts, schema tags, the resolver's
// order, self-nesting and the depth limit, copies and appends between a
// record and its own members, find after keyed adds, and the C++ layer's
// compile-time contract, resolvers and ordering.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <qel.hpp>
#include <string>
#include <tuple>
#include <vector>

#include "internal/qel_var_internal.h"  // the library's storage classes are the C++ layer's
#include "print_var.h"

namespace {

constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr unsigned kMaxBuildDepth = 256;  // records nested by one construction, at most

std::vector<uint64_t> bufs(qel::var_cref v) {
  std::vector<uint64_t> out;
  for (int64_t i = 0; i < v.size(); ++i) out.push_back(v.get_buf(i));
  return out;
}

std::vector<std::string> names(qel::var_cref v) {
  std::vector<std::string> out;
  for (auto m : v.members()) out.emplace_back(m.name);
  return out;
}

// ---- conversions: one table, checked in the full variant (both forms), the
// light variant and the column set

struct Read {
  int64_t i, l;
  float f;
  double d;
};

Read through_var(uint32_t code, bool multi, int kind, int64_t n, double in) {
  qel::var v(code, multi);
  qel_var *p = v.get();
  const int64_t at = multi ? 1 : 0;
  if (multi) v.add_all({0, 0, 0});
  if (kind == 0) qel_var_set_integer(p, at, n);
  if (kind == 1) qel_var_set_long(p, at, n);
  if (kind == 2) qel_var_set_float(p, at, static_cast<float>(in));
  if (kind == 3) qel_var_set_double(p, at, in);
  return {qel_var_get_integer(p, at), qel_var_get_long(p, at), qel_var_get_float(p, at), qel_var_get_double(p, at)};
}

// Into a light variant, read back from it or from a column set it went into.
Read through_xvar(uint32_t code, bool columns, int kind, int64_t n, double in) {
  qel::xvar x(code, 1);
  qel_xvar *p = x.get();
  if (kind == 0) qel_xvar_add_integer(p, n);
  if (kind == 1) qel_xvar_add_long(p, n);
  if (kind == 2) qel_xvar_add_float(p, static_cast<float>(in));
  if (kind == 3) qel_xvar_add_double(p, in);
  qel::xvars xs(code, 1);
  xs.add_var(x);
  qel_xvars *s = xs.get();
  if (columns)
    return {qel_xvars_get_integer(s, 0, 0), qel_xvars_get_long(s, 0, 0), qel_xvars_get_float(s, 0, 0),
            qel_xvars_get_double(s, 0, 0)};
  return {qel_xvar_get_integer(p, 0), qel_xvar_get_long(p, 0), qel_xvar_get_float(p, 0), qel_xvar_get_double(p, 0)};
}

TEST(Convert, TableEdgesInEveryFamilyAndForm) {
  const float f01 = 0.1f, fmax = std::numeric_limits<float>::max(), finf = std::numeric_limits<float>::infinity();
  const float fmin63 = -9223372036854775808.0f;
  const int64_t p53 = int64_t{1} << 53;
  const struct {
    uint32_t code;
    int kind;  // 0 integer, 1 long (both take n), 2 float, 3 double (take in)
    int64_t n;
    double in;
    int64_t i;
    float f;
    double d;
  } rows[] = {
      // 32-bit integer codes: modulo 2^32, read back unsigned; floating truncates through int64
      {1, 0, -1, 0, 4294967295, 4294967296.0f, 4294967295.0},
      {9, 1, (int64_t{1} << 32) + 5, 0, 5, 5.0f, 5.0},
      {2, 1, kMin, 0, 0, 0.0f, 0.0},
      {3, 1, std::numeric_limits<int64_t>::max(), 0, 4294967295, 4294967296.0f, 4294967295.0},
      {2, 2, 0, -2.75, 0xFFFFFFFE, 4294967296.0f, 4294967294.0},
      {3, 3, 0, kNaN, 0, 0.0f, 0.0},
      {2, 3, 0, 4294967296.0 + 7.9, 7, 7.0f, 7.0},
      {1, 3, 0, -0.99, 0, 0.0f, 0.0},
      // float code: nearest float, ties to even; beyond the range an infinity
      {5, 0, 16777219, 0, 16777220, 16777220.0f, 16777220.0},
      {5, 3, 0, 0.1, 0, f01, static_cast<double>(f01)},
      {5, 3, 0, -2.5, -2, -2.5f, -2.5},
      {5, 3, 0, 1e300, kMin, finf, kInf},
      {5, 3, 0, -1e300, kMin, -finf, -kInf},
      {5, 3, 0, 3.4028235e38, kMin, fmax, static_cast<double>(fmax)},  // just above FLT_MAX: rounds down
      {5, 3, 0, 0x1.ffffffp127, kMin, finf, kInf},                     // FLT_MAX + half an ulp: up
      {5, 3, 0, kNaN, kMin, std::numeric_limits<float>::quiet_NaN(), kNaN},
      {5, 2, 0, 9.3e18, kMin, 9.3e18f, static_cast<double>(9.3e18f)},
      // 64-bit integer code
      {4, 2, 0, -2.75, -2, -2.0f, -2.0},
      {4, 3, 0, kNaN, kMin, fmin63, -9223372036854775808.0},
      {4, 3, 0, 9223372036854775808.0, kMin, fmin63, -9223372036854775808.0},
      {4, 3, 0, -9223372036854775808.0, kMin, fmin63, -9223372036854775808.0},
      {4, 3, 0, 9223372036854774784.0, 9223372036854774784, 9223372036854775808.0f, 9223372036854774784.0},
      {4, 0, p53 + 1, 0, p53 + 1, 9007199254740992.0f, 9007199254740992.0},  // tie to even
      {4, 1, 16777217, 0, 16777217, 16777216.0f, 16777217.0},
      // double code
      {6, 2, 0, 0.1, 0, f01, static_cast<double>(f01)},  // exact widening
      {6, 3, 0, kNaN, kMin, std::numeric_limits<float>::quiet_NaN(), kNaN},
      {6, 3, 0, 1e300, kMin, finf, 1e300},
      {6, 3, 0, 1e-50, 0, 0.0f, 1e-50},
      {6, 1, p53 + 3, 0, p53 + 4, 9007199254740996.0f, 9007199254740996.0},
      {6, 1, std::numeric_limits<int64_t>::max(), 0, kMin, 9223372036854775808.0f, 9223372036854775808.0},
  };
  auto same = [](double a, double b) {
    return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b) || (std::isnan(a) && std::isnan(b));
  };
  for (const auto &r : rows) {
    const uint32_t xcode = r.code == 4 ? 2 : r.code == 5 ? 3 : r.code == 6 ? 4 : 1;
    for (int form = 0; form < 4; ++form) {
      const Read got = form < 2 ? through_var(r.code, form == 1, r.kind, r.n, r.in)
                                : through_xvar(xcode, form == 3, r.kind, r.n, r.in);
      const std::string where = "code " + std::to_string(r.code) + " kind " + std::to_string(r.kind) + " in " +
                                std::to_string(r.in) + "/" + std::to_string(r.n) + " form " + std::to_string(form);
      EXPECT_EQ(got.i, r.i) << where;
      EXPECT_EQ(got.l, r.i) << where;
      EXPECT_TRUE(same(got.f, r.f)) << where << " float " << got.f;
      EXPECT_TRUE(same(got.d, r.d)) << where << " double " << got.d;
    }
  }
  // A negative zero and a NaN payload are stored as they come.
  qel::var d(6, 1);
  d.add(std::bit_cast<double>(uint64_t{0x7FF8000000000123}));
  d.add(-0.0);
  EXPECT_EQ(std::bit_cast<uint64_t>(d.get<double>(0)), 0x7FF8000000000123u);
  EXPECT_TRUE(std::signbit(d.get<double>(1)));
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

struct Resolver {
  std::vector<uint32_t> calls;
  std::vector<std::pair<uint32_t, qel_schema *>> map;
  static qel_schema *resolve(void *context, uint32_t type) {
    auto *self = static_cast<Resolver *>(context);
    self->calls.push_back(type);
    for (const auto &[code, schema] : self->map)
      if (code == type) return schema;
    return nullptr;
  }
};

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

// ---- a record and its own members as source and destination

TEST(Aliasing, CopyAndAppendBetweenARecordAndItsMembers) {
  qel::schema a, b;
  a.add("id", 4).add("child", 41);
  b.add("x", 6).add("name", 8);
  Resolver r;
  r.map = {{40, a.get()}, {41, b.get()}};
  auto build = [&](int64_t id) {
    qel::var v = qel::var::make(40, 0, &r, Resolver::resolve);
    v["id"].set(id);
    v["child"]["x"].set(static_cast<double>(id) + 0.5);
    v["child"]["name"].set("n" + std::to_string(id));
    return v;
  };
  {  // into a record from one of its own members: re-formed, which frees the member
    qel::var t = build(8);
    qel_var_copy(t.get(), t["child"].get());
    EXPECT_EQ(t.type(), 41u);
    EXPECT_EQ(t["x"].get<double>(), 8.5);
    EXPECT_EQ(t["name"].get<std::string_view>(), "n8");
  }
  {  // into a member from the record holding it: the record as it was
    qel::var t = build(9);
    qel::var_ref child = t["child"];
    qel_var_copy(child.get(), t.get());
    EXPECT_EQ(t["child"].get(), child.get());
    EXPECT_EQ(child["id"].get<int64_t>(), 9);
    EXPECT_EQ(child["child"]["name"].get<std::string_view>(), "n9");
    EXPECT_EQ(child["child"].type(), 41u);
  }
  {  // append of a record onto itself, into its member, and from its member
    qel::var t = build(5);
    qel_var_append(t.get(), t.get());
    ASSERT_EQ(t.size(), 1);
    EXPECT_EQ(t[0]["child"]["x"].get<double>(), 5.5);
    qel::var u = build(6);
    qel_var_append(u.get(), u["child"].get());
    ASSERT_EQ(u.type(), 41u);
    EXPECT_EQ(u[0]["x"].get<double>(), 6.5);
    qel::var w = build(7);
    qel::var_ref wc = w["child"];
    qel_var_append(wc.get(), w.get());
    ASSERT_EQ(wc.size(), 1);
    EXPECT_EQ(wc[0]["id"].get<int64_t>(), 7);
    EXPECT_EQ(wc[0]["child"].type(), 41u);
  }
  {  // the same record code: members overwritten by name from inside the tree
    qel::var u(50), inner(50), n(4);
    n.set(5);
    inner.set_member("a", n);
    u.set_member("a", inner);
    qel_var_copy(u.get(), u["a"].get());
    EXPECT_EQ(u["a"].type(), 4u);
    EXPECT_EQ(u["a"].get<int64_t>(), 5);
  }
}

// A source inside the destination, or holding it, gives what an independent
// copy of it would (the model driver states this; here the cases it reaches
// rarely): a member left without members, copied or appended into its record,
// brings none of its schema's; a record array appended to an array inside its
// own element brings its elements as they were before the append.
TEST(Aliasing, InsideActsAsAnIndependentCopy) {
  qel::schema self;
  self.add("n", 4).add("child", 12).add("list", 12, 1);
  Resolver r;
  r.map = {{12, self.get()}};
  qel::var t = qel::var::make(12, 0, &r, Resolver::resolve);
  t["n"].set(int64_t{5});
  ASSERT_TRUE(names(t["child"]).empty());
  qel_var_copy(t.get(), t["child"].get());
  EXPECT_EQ(t["n"].get<int64_t>(), 5);
  EXPECT_EQ(names(t), (std::vector<std::string>{"n", "child", "list"}));
  qel_var_append(t.get(), t["child"].get());
  ASSERT_EQ(t.size(), 1);
  EXPECT_TRUE(names(t[0]).empty());
  EXPECT_EQ(t.schema().get(), self.get());

  t.add_new();
  t[1].set_member("list", qel::var(12, 1));
  qel_var_append(t[1]["list"].get(), t.get());
  ASSERT_EQ(t[1]["list"].size(), 2);
  EXPECT_EQ(t[1]["list"][1]["list"].size(), 0);
}

// ---- entries and counts written directly, as qel_std.h allows

TEST(DirectWrites, StaleKeyedIndexAndCountsOutsideTheStorage) {
  // Keyed 1, 2, 3; cut, entry 2 rewritten to 9, raised back: the index still
  // names entry 2 for 3, which the entry contradicts, so it is rebuilt.
  qel_arrayd d;
  qel_arrayd_init(&d, 0);
  qel_arrayd_expand(&d, 8);
  for (uint32_t v : {1u, 2u, 3u}) qel_arrayd_entry_insert(&d, v);
  d.count = 2;
  d.entries[2].value = 9;
  d.count = 3;
  EXPECT_EQ(qel_arrayd_entry_insert(&d, 3) - d.entries, 3);
  EXPECT_EQ(qel_arrayd_entry_insert(&d, 9) - d.entries, 2);
  qel_arrayd_term(&d);
  // Strings: entry 1 pointed at "be" of the pool "abef".
  qel_array s;
  qel_array_init(&s, 0);
  for (const char *x : {"ab", "ef"}) qel_array_entry_insert(&s, x, 2);
  s.count = 1;
  s.entries[1].offset = 1;
  s.count = 2;
  EXPECT_EQ(qel_array_entry_insert(&s, "ef", 2) - s.entries, 2);
  EXPECT_EQ(qel_array_entry_insert(&s, "be", 2) - s.entries, 1);
  s.count = -1;  // a count outside 0..capacity reads as the nearest end
  EXPECT_EQ(qel_array_entry_insert(&s, "z", 1) - s.entries, 0);
  qel_array_term(&s);

  qel::var f(qel::code::f32, qel::form::multi), empty(qel::code::f32, qel::form::multi);
  f.add_all({2.0f, 1.0f});
  qel_arrayd &fa = f.get()->data.arrayd;
  fa.count = -1;
  EXPECT_EQ(f.size(), 0);
  EXPECT_EQ(qel_var_cmp(f.get(), empty.get()), 0);
  fa.count = fa.capacity + 1;  // 2, 1, then zeros
  EXPECT_EQ(f.size(), fa.capacity);
  f.sort();
  EXPECT_EQ(f.get<float>(fa.capacity - 1), 2.0f);
  f.set_buf(-1, 9);  // the last entry in use
  EXPECT_EQ(f.get_buf(fa.capacity - 1), 9u);
  qel::xvar x(qel::xcode::i64, qel::form::multi);
  x.add(1);
  qel_arrayx &xa = x.get()->data.arrayx;
  xa.count = xa.capacity + 2;
  EXPECT_EQ(x.size(), xa.capacity);
  EXPECT_EQ(x.get<int64_t>(xa.capacity), 0);
  qel::xvars xs(qel::xcode::i64, qel::form::multi);
  qel_xvars_add_var(xs.get(), x.get());
  EXPECT_EQ(qel_xvars_get_size(xs.get(), 0), xa.capacity);
}

TEST(Refused, NamesAndStringsChangeNothing) {
  qel::var rec(12), src(qel::code::i64);
  qel_var_set_val(rec.get(), nullptr, 3, src.get());  // the leak check sees the rest
  qel_var_set_val(rec.get(), "x", -1, src.get());
  EXPECT_TRUE(rec.members().empty());
  qel::var s(qel::code::bytes, qel::form::multi);
  s.expand(4);
  s.set_buf(0, 77);  // past the count, below the capacity
  EXPECT_EQ(qel_var_add_string_x(s.get(), nullptr, 5), 0u);
  EXPECT_EQ(s.get_buf(0), 77u);
}

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

#ifdef QEL_CHECK_REQUIRES
// Debug and sanitizer builds stop a call that breaks what the header requires.
TEST(RequiresDeathTest, NullObjectsStopTheCall) {
  EXPECT_DEATH(qel_var_free(nullptr), "qel_var_free requires var != nullptr");
  EXPECT_DEATH(qel_var_copy(qel::var(qel::code::i64).get(), nullptr), "qel_var_copy requires src != nullptr");
  EXPECT_DEATH(qel_var_schema_size(nullptr), "qel_var_schema_size requires schema != nullptr");
  EXPECT_DEATH(qel_xvar_free(nullptr), "qel_xvar_free requires v != nullptr");
  EXPECT_DEATH(qel_xvars_size(nullptr), "qel_xvars_size requires xs != nullptr");
}
#endif

TEST(Cpp, FailedComparisonsPrintVariantsAsJson) {
  qel::var x(qel::code::f64, qel::form::multi), s(qel::code::bytes);
  x.add_all({1.5, std::numeric_limits<double>::infinity()});
  s.set(std::string_view("a\xff", 2));
  EXPECT_EQ(testing::PrintToString(x), "[1.5,null]");
  EXPECT_EQ(testing::PrintToString(qel::var_cref(s)), R"("a\u00ff")");
  EXPECT_EQ(testing::PrintToString(static_cast<const qel_var *>(nullptr)), "(null qel_var)");
}

}  // namespace
