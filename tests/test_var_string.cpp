// Full variant: byte strings, and moving values from variant to variant.
#include <gtest/gtest.h>
#include <qel.h>

#include <cstdint>
#include <string>

#include "var_test_util.h"

namespace {

using vt::str;

// ---- strings ----

TEST(VarString, AddAppendsCopiesToArraysOnly) {
  qel_var *a = qel_var_new(7, 1);
  qel_var_add_string(a, nullptr, -1);  // measured: one empty element
  EXPECT_EQ(qel_var_size(a), 1);
  EXPECT_EQ(str(a, 0), "");
  char buffer[] = "abc";
  qel_var_add_string(a, buffer, -1);
  qel_var_add_string(a, "x\0y", 3);  // zero bytes are bytes
  buffer[0] = 'Z';                    // the variant holds its own copy
  ASSERT_EQ(qel_var_size(a), 3);
  EXPECT_EQ(str(a, 1), "abc");
  EXPECT_EQ(str(a, 2), std::string("x\0y", 3));

  qel_var *s = qel_var_new(7, 0);
  qel_var_add_string(s, nullptr, -1);
  qel_var_add_string(s, "abc", 3);
  EXPECT_EQ(str(s), "");
  EXPECT_EQ(qel_var_size(s), 0);
  qel_var_free(s);
  qel_var_free(a);
}

TEST(VarString, SetMeasuresAndIgnoresTheIndexWhenSingle) {
  qel_var *v = qel_var_new(8, 0);
  qel_var_set_string(v, 9, "abc", -1);
  const char *text = nullptr;
  int64_t length = 0;
  qel_var_get_string(v, 4, &text, &length);
  EXPECT_EQ(length, 3);
  EXPECT_EQ(std::string(text, 3), "abc");
  qel_var_set_string(v, 0, nullptr, -1);
  EXPECT_EQ(str(v), "");
  qel_var_set_string(v, 0, "de", 2);
  qel_var_set_string(v, 0, nullptr, 5);  // unreadable bytes: nothing changes
  EXPECT_EQ(str(v), "de");
  qel_var_free(v);
}

TEST(VarString, ArrayElementsAreReplacedInPlace) {
  qel_var *a = qel_var_new(8, 1);
  for (const char *t : {"one", "two", "three"}) qel_var_add_string(a, t, -1);
  qel_var_set_string(a, 1, "TWO!", -1);
  qel_var_set_string(a, 3, "past the end", -1);
  qel_var_set_string(a, -1, "negative", -1);
  ASSERT_EQ(qel_var_size(a), 3);
  EXPECT_EQ(str(a, 0), "one");
  EXPECT_EQ(str(a, 1), "TWO!");
  EXPECT_EQ(str(a, 2), "three");
  EXPECT_EQ(a->data.array.entries[1].buf, 0u);  // stored with tag 0
  const char *text = "junk";
  int64_t length = 5;
  qel_var_get_string(a, 3, &text, &length);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(length, 0);
  qel_var_free(a);
}

TEST(VarString, OtherCodesHaveNoStrings) {
  for (uint32_t code : {1u, 4u, 5u, 6u, 0u, 12u}) {
    for (uint8_t multi : {uint8_t{0}, uint8_t{1}}) {
      qel_var *v = qel_var_new(code, multi);
      qel_var_set_long(v, 0, 5);
      qel_var_set_string(v, 0, "abc", 3);
      qel_var_add_string(v, "abc", 3);
      const char *text = "junk";
      int64_t length = 9;
      qel_var_get_string(v, 0, &text, &length);
      EXPECT_EQ(text, nullptr) << code;
      EXPECT_EQ(length, 0) << code;
      EXPECT_EQ(qel_var_size(v), 0) << code;
      if (code == 4 && multi == 0) {
        EXPECT_EQ(qel_var_get_long(v, 0), 5);
      }
      qel_var_free(v);
    }
  }
}

TEST(VarString, BytesFromTheVariantsOwnStorage) {
  // Single: a piece of its own string, short and long (past any stack buffer).
  for (size_t n : {size_t{12}, size_t{5000}}) {
    std::string value(n, 'a');
    for (size_t i = 0; i < n; ++i) value[i] = static_cast<char>('a' + i % 26);
    qel_var *v = qel_var_new(7, 0);
    qel_var_set_string(v, 0, value.data(), static_cast<int64_t>(n));
    const char *text = nullptr;
    int64_t length = 0;
    qel_var_get_string(v, 0, &text, &length);
    qel_var_set_string(v, 0, text + 2, length - 2);
    EXPECT_EQ(str(v), value.substr(2)) << n;
    qel_var_get_string(v, 0, &text, &length);
    qel_var_set_string(v, 0, text, length);  // itself, whole
    EXPECT_EQ(str(v), value.substr(2)) << n;
    qel_var_free(v);
  }

  // Array: adding an element's bytes again and again while the pool grows.
  qel_var *a = qel_var_new(7, 1);
  qel_var_add_string(a, "seed-string", -1);
  for (int i = 0; i < 200; ++i) {
    const char *text = nullptr;
    int64_t length = 0;
    qel_var_get_string(a, i, &text, &length);
    qel_var_add_string(a, text, length);
  }
  ASSERT_EQ(qel_var_size(a), 201);
  EXPECT_EQ(str(a, 200), "seed-string");
  const char *text = nullptr;
  int64_t length = 0;
  qel_var_get_string(a, 0, &text, &length);
  qel_var_set_string(a, 100, text + 5, length - 5);
  EXPECT_EQ(str(a, 100), "string");
  qel_var_free(a);
}

// ---- variant to variant ----

TEST(VarMove, AddVarAppendsASingleValueUnchanged) {
  qel_var *src = qel_var_new(1, 0);
  qel_var_set_integer(src, 0, 0xFFFFFFFF);
  qel_var *dst = qel_var_new(1, 1);
  qel_var_add_var(dst, src);
  ASSERT_EQ(qel_var_size(dst), 1);
  EXPECT_EQ(qel_var_get_integer(dst, 0), 0xFFFFFFFF);

  qel_var *fs = qel_var_new(5, 0);
  qel_var_set_float(fs, 0, 0.1f);
  qel_var *fa = qel_var_new(5, 1);
  qel_var_add_var(fa, fs);
  EXPECT_EQ(qel_var_get_float(fa, 0), 0.1f);

  qel_var *ss = qel_var_new(8, 0);
  qel_var_set_string(ss, 0, "text", 4);
  qel_var *sa = qel_var_new(8, 1);
  qel_var_add_var(sa, ss);
  qel_var_add_var(sa, ss);
  ASSERT_EQ(qel_var_size(sa), 2);
  EXPECT_EQ(str(sa, 1), "text");
  for (qel_var *v : {src, dst, fs, fa, ss, sa}) qel_var_free(v);
}

TEST(VarMove, AddVarNeedsAnArrayOfTheSameCode) {
  qel_var *a1 = qel_var_new(1, 1);
  qel_var *v2 = qel_var_new(2, 0);
  qel_var_set_integer(v2, 0, 3);
  qel_var_add_var(a1, v2);
  EXPECT_EQ(qel_var_size(a1), 0);
  qel_var *s1 = qel_var_new(1, 0);
  qel_var_set_integer(s1, 0, 8);
  qel_var_add_var(s1, a1);
  EXPECT_EQ(qel_var_get_integer(s1, 0), 8);
  qel_var *r = qel_var_new(12, 1);
  qel_var *rs = qel_var_new(12, 0);
  qel_var_add_var(r, rs);
  EXPECT_EQ(qel_var_size(r), 0);
  for (qel_var *v : {a1, v2, s1, r, rs}) qel_var_free(v);
}

TEST(VarMove, AddVarAppendsWholeArraysWithTheirCallerValues) {
  qel_var *dst = qel_var_new(6, 1);
  qel_var *src = qel_var_new(6, 1);
  qel_var_add_double(dst, 1);
  qel_var_add_double(dst, 2);
  for (double d : {3.0, 4.0, 5.0}) qel_var_add_double(src, d);
  src->data.arrayx.entries[2].buf = 55;
  qel_var_add_var(dst, src);
  ASSERT_EQ(qel_var_size(dst), 5);
  for (int64_t i = 0; i < 5; ++i) EXPECT_EQ(qel_var_get_double(dst, i), static_cast<double>(i + 1));
  EXPECT_EQ(dst->data.arrayx.entries[4].buf, 55u);

  // Onto itself: doubled, in order, for every array kind.
  qel_var_add_var(src, src);
  ASSERT_EQ(qel_var_size(src), 6);
  EXPECT_EQ(qel_var_get_double(src, 3), 3.0);
  EXPECT_EQ(qel_var_get_double(src, 5), 5.0);
  EXPECT_EQ(src->data.arrayx.entries[5].buf, 55u);

  qel_var *u = qel_var_new(3, 1);
  qel_var_add_integer(u, 7);
  qel_var_add_integer(u, 8);
  qel_var_add_var(u, u);
  EXPECT_EQ(qel_var_size(u), 4);
  EXPECT_EQ(qel_var_get_integer(u, 2), 7);
  qel_var *s = qel_var_new(7, 1);
  qel_var_add_string(s, "p", 1);
  qel_var_add_string(s, "q", 1);
  qel_var_add_var(s, s);
  qel_var_add_var(s, s);
  ASSERT_EQ(qel_var_size(s), 8);
  EXPECT_EQ(str(s, 6), "p");
  EXPECT_EQ(str(s, 7), "q");
  for (qel_var *v : {dst, src, u, s}) qel_var_free(v);
}

TEST(VarMove, SetVarStoresTheFirstValueOfTheSource) {
  qel_var *src = qel_var_new(5, 1);
  qel_var_add_float(src, 2.5f);
  qel_var_add_float(src, 9.0f);
  qel_var *dst = qel_var_new(5, 1);
  for (int i = 0; i < 3; ++i) qel_var_add_float(dst, 0);
  qel_var_set_var(dst, 1, src);
  EXPECT_EQ(qel_var_get_float(dst, 1), 2.5f);
  EXPECT_EQ(qel_var_get_float(dst, 0), 0.0f);

  qel_var *single = qel_var_new(5, 0);
  qel_var_set_var(single, 7, src);  // single dst ignores the index
  EXPECT_EQ(qel_var_get_float(single, 0), 2.5f);
  qel_var *other = qel_var_new(6, 0);
  qel_var_set_double(other, 0, 1.0);
  qel_var_set_var(other, 0, src);  // codes differ
  EXPECT_EQ(qel_var_get_double(other, 0), 1.0);

  // An empty source array gives what its element 0 reads: 0.
  qel_var *empty = qel_var_new(5, 1);
  qel_var_set_var(dst, 1, empty);
  EXPECT_EQ(qel_var_get_float(dst, 1), 0.0f);

  // Strings, also within one array.
  qel_var *sa = qel_var_new(7, 1);
  qel_var_add_string(sa, "first", -1);
  qel_var_add_string(sa, "second", -1);
  qel_var_set_var(sa, 1, sa);
  EXPECT_EQ(str(sa, 1), "first");
  qel_var *ss = qel_var_new(7, 0);
  qel_var_set_var(ss, 0, sa);
  EXPECT_EQ(str(ss), "first");
  qel_var_set_var(ss, 0, ss);
  EXPECT_EQ(str(ss), "first");
  for (qel_var *v : {src, dst, single, other, empty, sa, ss}) qel_var_free(v);
}

TEST(VarMove, GetVarMakesDstASingleOfTheSourceCode) {
  qel_var *src = qel_var_new(4, 1);
  for (int64_t n : {10, 20, 30}) qel_var_add_long(src, n);
  qel_var *dst = qel_var_new(7, 0);
  qel_var_set_string(dst, 0, "old", 3);
  dst->schema = reinterpret_cast<qel_schema *>(src);  // any value: kept, never read
  qel_var_get_var(src, 2, dst);
  EXPECT_EQ(qel_var_type(dst), 4u);
  EXPECT_EQ(qel_var_multi(dst), 0);
  EXPECT_EQ(qel_var_get_long(dst, 0), 30);
  EXPECT_EQ(qel_var_schema(dst), reinterpret_cast<qel_schema *>(src));

  qel_var_get_var(src, 5, dst);  // out of range reads 0
  EXPECT_EQ(qel_var_get_long(dst, 0), 0);

  qel_var *arr = qel_var_new(4, 1);  // an array dst of the same code is re-formed too
  qel_var_add_long(arr, 1);
  qel_var_get_var(src, 0, arr);
  EXPECT_EQ(qel_var_multi(arr), 0);
  EXPECT_EQ(qel_var_get_long(arr, 0), 10);
  for (qel_var *v : {src, dst, arr}) qel_var_free(v);
}

TEST(VarMove, GetVarCopiesStringBytes) {
  qel_var *src = qel_var_new(7, 0);
  qel_var_set_string(src, 0, "payload", -1);
  qel_var *dst = qel_var_new(1, 0);
  qel_var_get_var(src, 0, dst);
  qel_var_set_string(src, 0, "changed", -1);
  EXPECT_EQ(qel_var_type(dst), 7u);
  EXPECT_EQ(str(dst), "payload");
  qel_var_get_var(src, 0, dst);  // no re-form: replaced in place
  EXPECT_EQ(str(dst), "changed");
  qel_var_free(src);
  qel_var_free(dst);
}

TEST(VarMove, GetVarFromItsOwnStorage) {
  // The source is dst itself.
  qel_var *a = qel_var_new(7, 1);
  qel_var_add_string(a, "zero", -1);
  qel_var_add_string(a, std::string(600, 'k').c_str(), -1);
  qel_var_get_var(a, 1, a);
  EXPECT_EQ(qel_var_multi(a), 0);
  EXPECT_EQ(str(a), std::string(600, 'k'));
  qel_var_get_var(a, 0, a);
  EXPECT_EQ(str(a), std::string(600, 'k'));
  qel_var *n = qel_var_new(6, 1);
  qel_var_add_double(n, 1.25);
  qel_var_get_var(n, 0, n);
  EXPECT_EQ(qel_var_multi(n), 0);
  EXPECT_EQ(qel_var_get_double(n, 0), 1.25);

  // The source is a member of dst, which the re-form frees.
  qel_var *rec = qel_var_new(12, 0);
  qel_var *name = vt::add_member(rec, "name", qel_var_new(8, 0));
  qel_var_set_string(name, 0, "member bytes", -1);
  qel_var_get_var(name, 0, rec);
  EXPECT_EQ(qel_var_type(rec), 8u);
  EXPECT_EQ(str(rec), "member bytes");
  qel_var *rec2 = qel_var_new(12, 0);
  qel_var *num = vt::add_member(rec2, "n", qel_var_new(4, 0));
  qel_var_set_long(num, 0, -5);
  qel_var_get_var(num, 0, rec2);
  EXPECT_EQ(qel_var_get_long(rec2, 0), -5);
  for (qel_var *v : {a, n, rec, rec2}) qel_var_free(v);
}

TEST(VarMove, GetVarOfARecordCodeOnlyReforms) {
  qel_schema *s = qel_var_schema_new();
  qel_var_schema_add(s, "m", 1, 4, 0);
  qel_var *src = qel_var_new(15, 1);
  qel_var *dst = qel_var_new(4, 0);
  dst->schema = s;
  qel_var_get_var(src, 0, dst);
  EXPECT_EQ(qel_var_type(dst), 15u);
  EXPECT_EQ(qel_var_multi(dst), 0);
  EXPECT_EQ(vt::member_names(dst), (std::vector<std::string>{"m"}));
  qel_var_set_long(vt::member(dst, "m"), 0, 3);
  qel_var_get_var(src, 0, dst);  // already a single 15: unchanged
  EXPECT_EQ(qel_var_get_long(vt::member(dst, "m"), 0), 3);
  qel_var_free(src);
  qel_var_free(dst);
  qel_var_schema_free(s);
}

}  // namespace
