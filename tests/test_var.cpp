// The full variant by hand where the model driver cannot state it better:
// the conversion table at its edges (the drivers' reference conversions
// answer to it, in every family and form), copies and appends between a
// record and its own members, refused names and strings, and the checked
// preconditions of Debug and sanitizer builds.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include "test_support.h"

namespace {

using namespace qel_test;

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

}  // namespace
