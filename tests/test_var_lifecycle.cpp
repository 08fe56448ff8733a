// Full variant: the record, its storage classes and its lifecycle.
#include <gtest/gtest.h>
#include <qel.h>

#include <cstdint>

#include "var_test_util.h"

namespace {

enum class cls { u32, f32, i64, f64, bytes, record };

// What each type code stores, seen only through the public accessors.
cls observed_class(uint32_t code) {
  qel_var *v = qel_var_new(code, 0);
  qel_var_set_long(v, 0, -1);
  const int64_t as_long = qel_var_get_long(v, 0);
  const double as_double = qel_var_get_double(v, 0);
  qel_var_set_string(v, 0, "x", 1);
  const std::string s = vt::str(v);
  qel_var_free(v);
  if (s == "x") return cls::bytes;
  if (as_long == 4294967295) return cls::u32;
  if (as_long == -1 && as_double == -1.0) {
    qel_var *w = qel_var_new(code, 0);
    qel_var_set_double(w, 0, 0.5);
    const double half = qel_var_get_double(w, 0);
    qel_var_free(w);
    if (half == 0.5) return code == 5 ? cls::f32 : cls::f64;
    return cls::i64;
  }
  return cls::record;
}

TEST(VarLifecycle, EveryTypeCodeHasItsStorageClass) {
  const struct { uint32_t code; cls expected; } table[] = {
      {0, cls::record}, {1, cls::u32},   {2, cls::u32},     {3, cls::u32},          {4, cls::i64},
      {5, cls::f32},    {6, cls::f64},   {7, cls::bytes},   {8, cls::bytes},        {9, cls::u32},
      {10, cls::record}, {11, cls::record}, {65535, cls::record}, {0xFFFFFFFFu, cls::record},
  };
  for (const auto &row : table) EXPECT_EQ(observed_class(row.code), row.expected) << "code " << row.code;
}

TEST(VarLifecycle, NewRecordWithoutSchemaHasNoMembers) {
  qel_var *v = qel_var_new(12, 0);
  EXPECT_EQ(qel_var_type(v), 12u);
  EXPECT_EQ(qel_var_multi(v), 0);
  EXPECT_EQ(qel_var_schema(v), nullptr);
  EXPECT_EQ(qel_var_size(v), 0);
  EXPECT_TRUE(vt::member_names(v).empty());
  qel_var_free(v);
}

TEST(VarLifecycle, FreshSingleValuesAreZeroWithZeroBuf) {
  for (uint32_t code = 1; code <= 9; ++code) {
    qel_var *v = qel_var_new(code, 0);
    EXPECT_EQ(qel_var_get_long(v, 0), 0) << code;
    EXPECT_EQ(qel_var_get_double(v, 0), 0.0) << code;
    EXPECT_EQ(v->buf, 0u) << code;
    const char *text = "junk";
    int64_t length = 9;
    qel_var_get_string(v, 0, &text, &length);
    EXPECT_EQ(length, 0) << code;
    if (code != 7 && code != 8) {
      EXPECT_EQ(text, nullptr) << code;
    }
    qel_var_free(v);
  }
}

TEST(VarLifecycle, SizeIsZeroForEverySingleAndTheCountForArrays) {
  qel_var *s = qel_var_new(7, 0);
  qel_var_set_string(s, 0, "hello", 5);
  EXPECT_EQ(qel_var_size(s), 0);
  qel_var_free(s);

  const uint32_t codes[] = {1, 4, 5, 6, 7, 12};
  for (uint32_t code : codes) {
    qel_var *a = qel_var_new(code, 1);
    EXPECT_EQ(qel_var_size(a), 0) << code;
    if (code == 7) {
      qel_var_add_string(a, "a", 1);
      qel_var_add_string(a, "b", 1);
    } else if (code == 12) {
      vt::push_element(a, qel_var_new(12, 0));
      vt::push_element(a, qel_var_new(12, 0));
    } else {
      qel_var_add_long(a, 1);
      qel_var_add_long(a, 2);
    }
    EXPECT_EQ(qel_var_size(a), 2) << code;
    qel_var_free(a);
  }
}

TEST(VarLifecycle, MultiByteIsKeptAndReadSignExtended) {
  qel_var *v = qel_var_new(4, 0xFF);
  EXPECT_EQ(qel_var_multi(v), -1);
  EXPECT_EQ(v->multi, 0xFF);
  qel_var_add_long(v, 3);  // the array form
  EXPECT_EQ(qel_var_size(v), 1);
  qel_var_free(v);

  qel_var *w = qel_var_new(4, 0x7F);
  EXPECT_EQ(qel_var_multi(w), 127);
  qel_var_free(w);
}

TEST(VarLifecycle, ChangeToTheSamePairKeepsTheValue) {
  qel_var *v = qel_var_new(4, 1);
  qel_var_add_long(v, 10);
  qel_var_add_long(v, 20);
  qel_var_change(v, 4, 1);
  ASSERT_EQ(qel_var_size(v), 2);
  EXPECT_EQ(qel_var_get_long(v, 1), 20);

  // Another nonzero multi byte is another pair: the array starts empty.
  qel_var_change(v, 4, 2);
  EXPECT_EQ(qel_var_size(v), 0);
  EXPECT_EQ(qel_var_multi(v), 2);
  qel_var_free(v);

  qel_var *s = qel_var_new(8, 0);
  qel_var_set_string(s, 0, "keep", 4);
  qel_var_change(s, 8, 0);
  EXPECT_EQ(vt::str(s), "keep");
  qel_var_change(s, 7, 0);  // another code of the same class still re-forms
  EXPECT_EQ(vt::str(s), "");
  qel_var_free(s);
}

TEST(VarLifecycle, ChangeReleasesTheOldStorageAndResetsBuf) {
  qel_var *v = qel_var_new(7, 0);
  qel_var_set_string(v, 0, "a string that is released on change", -1);
  v->buf = 99;
  qel_var_change(v, 6, 0);
  EXPECT_EQ(qel_var_type(v), 6u);
  EXPECT_EQ(qel_var_get_double(v, 0), 0.0);
  EXPECT_EQ(v->buf, 0u);

  // Releasing a single value clears buf; the array form leaves it alone.
  v->buf = 5;
  qel_var_change(v, 6, 1);
  EXPECT_EQ(v->buf, 0u);
  v->buf = 5;
  qel_var_add_double(v, 1.5);
  qel_var_change(v, 12, 1);
  EXPECT_EQ(v->buf, 5u);
  EXPECT_EQ(qel_var_size(v), 0);
  qel_var_free(v);
}

TEST(VarLifecycle, ChangeKeepsTheSchemaAndBuildsItsMembersWithoutSchemas) {
  qel_schema *inner = qel_var_schema_new();
  qel_var_schema_add(inner, "x", 1, 4, 0);
  qel_schema *s = qel_var_schema_new();
  qel_var_schema_add(s, "n", 1, 4, 0);
  qel_var_schema_add(s, "child", 5, 21, 0);

  qel_var *v = qel_var_new(6, 0);
  v->schema = s;  // a record built later by change takes it
  qel_var_change(v, 20, 0);
  EXPECT_EQ(qel_var_schema(v), s);
  ASSERT_NE(vt::member(v, "n"), nullptr);
  qel_var *child = vt::member(v, "child");
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(qel_var_type(child), 21u);
  EXPECT_EQ(qel_var_schema(child), nullptr);
  EXPECT_TRUE(vt::member_names(child).empty());

  qel_var_change(v, 4, 0);
  EXPECT_EQ(qel_var_schema(v), s);
  qel_var_free(v);
  qel_var_schema_free(s);
  qel_var_schema_free(inner);
}

// Run under AddressSanitizer or valgrind: every member and element is freed.
TEST(VarLifecycle, FreeingReleasesWholeTrees) {
  qel_schema *leaf = qel_var_schema_new();
  qel_var_schema_add(leaf, "name", 4, 7, 0);
  qel_var_schema_add(leaf, "list", 4, 8, 1);
  qel_var_schema_add(leaf, "nums", 4, 6, 1);

  qel_var *root = qel_var_new(30, 0);
  qel_var *arr = vt::add_member(root, "items", qel_var_new(31, 1));
  for (int i = 0; i < 3; ++i) {
    qel_var *e = qel_var_new_x(31, 0, leaf, nullptr);
    qel_var_set_string(vt::member(e, "name"), 0, "element", -1);
    qel_var_add_string(vt::member(e, "list"), "x", 1);
    qel_var_add_double(vt::member(e, "nums"), 2.0);
    vt::push_element(arr, e);
  }
  qel_var *nested = vt::add_member(root, "nested", qel_var_new(32, 0));
  vt::add_member(nested, "deep", qel_var_new_x(33, 0, leaf, nullptr));
  vt::add_member(root, "gone", nullptr);  // an entry without a member is skipped
  qel_var_free(root);
  qel_var_free(nullptr);
  qel_var_schema_free(leaf);
}

TEST(VarLifecycle, LargestTypeCodeIsARecord) {
  qel_var *v = qel_var_new(0xFFFFFFFFu, 0);
  qel_var_set_long(v, 0, 7);
  qel_var_add_long(v, 7);
  EXPECT_EQ(qel_var_get_long(v, 0), 0);
  vt::add_member(v, "m", qel_var_new(4, 0));
  EXPECT_EQ(qel_var_size(v), 0);
  qel_var_free(v);
}

}  // namespace
