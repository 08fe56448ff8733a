// Full variant: deep copy and append, including variants that overlap.
#include <gtest/gtest.h>
#include <qel.h>

#include <cstdint>
#include <string>
#include <vector>

#include "var_test_util.h"

namespace {

using vt::member;
using vt::str;

// A resolver over four nested record codes:
//   40 {id:4, name:7, tags:8 multi, child:41}
//   41 {x:6, child:42, list:43 multi}
//   42 {s:7, child:43}
//   43 {v:1, w:5}
struct Tree : ::testing::Test {
  qel_schema *s40 = qel_var_schema_new(), *s41 = qel_var_schema_new();
  qel_schema *s42 = qel_var_schema_new(), *s43 = qel_var_schema_new();

  static qel_schema *resolve(void *context, uint32_t type) {
    auto *t = static_cast<Tree *>(context);
    switch (type) {
      case 40: return t->s40;
      case 41: return t->s41;
      case 42: return t->s42;
      case 43: return t->s43;
      default: return nullptr;
    }
  }

  void SetUp() override {
    qel_var_schema_add(s40, "id", 2, 4, 0);
    qel_var_schema_add(s40, "name", 4, 7, 0);
    qel_var_schema_add(s40, "tags", 4, 8, 1);
    qel_var_schema_add(s40, "child", 5, 41, 0);
    qel_var_schema_add(s41, "x", 1, 6, 0);
    qel_var_schema_add(s41, "child", 5, 42, 0);
    qel_var_schema_add(s41, "list", 4, 43, 1);
    qel_var_schema_add(s42, "s", 1, 7, 0);
    qel_var_schema_add(s42, "child", 5, 43, 0);
    qel_var_schema_add(s43, "v", 1, 1, 0);
    qel_var_schema_add(s43, "w", 1, 5, 0);
  }
  void TearDown() override {
    for (qel_schema *s : {s40, s41, s42, s43}) qel_var_schema_free(s);
  }

  // A filled 4-level tree; `seed` varies every value.
  qel_var *build(int seed) {
    qel_var *root = qel_var_new_x(40, 0, this, resolve);
    root->buf = static_cast<uint64_t>(seed) + 1000;
    qel_var_set_long(member(root, "id"), 0, seed);
    qel_var_set_string(member(root, "name"), 0, ("root" + std::to_string(seed)).c_str(), -1);
    qel_var_add_string(member(root, "tags"), "a", 1);
    qel_var_add_string(member(root, "tags"), "b", 1);
    qel_var *l2 = member(root, "child");
    qel_var_set_double(member(l2, "x"), 0, seed + 0.5);
    for (int i = 0; i < 2; ++i) {
      qel_var *e = qel_var_new_x(43, 0, this, resolve);
      qel_var_set_integer(member(e, "v"), 0, seed * 10 + i);
      vt::push_element(member(l2, "list"), e);
    }
    qel_var *l3 = member(l2, "child");
    qel_var_set_string(member(l3, "s"), 0, "third", -1);
    qel_var *l4 = member(l3, "child");
    qel_var_set_integer(member(l4, "v"), 0, seed + 4);
    qel_var_set_float(member(l4, "w"), 0, 0.25f);
    member(l4, "w")->buf = 44;
    return root;
  }
};

using VarCopy = Tree;
using VarAppend = Tree;

// ---- copy ----

TEST(VarCopyValues, SingleStringGetsItsOwnBytesAndBuf) {
  qel_var *src = qel_var_new(7, 0);
  qel_var_set_string(src, 0, "bytes", 5);
  src->buf = 17;
  qel_var *dst = qel_var_new(7, 0);
  qel_var_set_string(dst, 0, "previous contents", -1);
  qel_var_copy(dst, src);
  qel_var_set_string(src, 0, "other", 5);
  EXPECT_EQ(str(dst), "bytes");
  EXPECT_EQ(dst->buf, 17u);
  qel_var_free(src);
  qel_var_free(dst);
}

TEST(VarCopyValues, ReformTakesTypeMultiAndSchemaOfTheSource) {
  int a = 0, b = 0;
  qel_var *src = qel_var_new_x(4, 0, &a, nullptr);
  qel_var_set_long(src, 0, -9);
  src->buf = 3;
  qel_var *dst = qel_var_new_x(4, 1, &b, nullptr);
  qel_var_add_long(dst, 1);
  qel_var_copy(dst, src);
  EXPECT_EQ(qel_var_multi(dst), 0);
  EXPECT_EQ(qel_var_get_long(dst, 0), -9);
  EXPECT_EQ(dst->buf, 3u);
  EXPECT_EQ(qel_var_schema(dst), reinterpret_cast<qel_schema *>(&a));

  // Same code and multi byte: dst keeps its schema.
  qel_var *same = qel_var_new_x(4, 0, &b, nullptr);
  qel_var_copy(same, src);
  EXPECT_EQ(qel_var_schema(same), reinterpret_cast<qel_schema *>(&b));
  EXPECT_EQ(qel_var_get_long(same, 0), -9);

  // Multi bytes are compared whole.
  qel_var *m2 = qel_var_new(6, 2);
  qel_var_add_double(m2, 1.5);
  qel_var *m1 = qel_var_new(6, 1);
  m1->buf = 8;
  qel_var_copy(m1, m2);
  EXPECT_EQ(qel_var_multi(m1), 2);
  EXPECT_EQ(qel_var_get_double(m1, 0), 1.5);
  EXPECT_EQ(m1->buf, 8u);  // an array's own buf is not copied
  for (qel_var *v : {src, dst, same, m1, m2}) qel_var_free(v);
}

TEST(VarCopyValues, ArraysAreClonedWithTheirCallerValues) {
  qel_var *src = qel_var_new(8, 1);
  qel_var_add_string(src, "x", 1);
  qel_var_add_string(src, "yy", 2);
  src->data.array.entries[1].buf = 99;
  qel_var *dst = qel_var_new(8, 1);
  for (int i = 0; i < 5; ++i) qel_var_add_string(dst, "old", 3);
  qel_var_copy(dst, src);
  ASSERT_EQ(qel_var_size(dst), 2);
  EXPECT_EQ(str(dst, 1), "yy");
  EXPECT_EQ(dst->data.array.entries[1].buf, 99u);
  qel_var_free(src);
  qel_var_free(dst);
}

TEST(VarCopyValues, MembersAreMatchedByName) {
  // src {x, y}, dst {y, z}: dst ends with x, y (overwritten) and z (untouched).
  qel_var *src = qel_var_new(12, 0);
  qel_var_set_long(vt::add_member(src, "x", qel_var_new(4, 0)), 0, 1);
  qel_var_set_string(vt::add_member(src, "y", qel_var_new(7, 0)), 0, "from src", -1);
  qel_var *dst = qel_var_new(12, 0);
  qel_var *old_y = vt::add_member(dst, "y", qel_var_new(4, 0));
  qel_var_set_long(old_y, 0, 2);
  qel_var_set_long(vt::add_member(dst, "z", qel_var_new(4, 0)), 0, 3);
  qel_var_copy(dst, src);
  EXPECT_EQ(vt::member_names(dst).size(), 3u);
  EXPECT_EQ(qel_var_get_long(member(dst, "x"), 0), 1);
  EXPECT_EQ(member(dst, "y"), old_y);  // the member is copied into, not replaced
  EXPECT_EQ(qel_var_type(old_y), 7u);
  EXPECT_EQ(str(old_y), "from src");
  EXPECT_EQ(qel_var_get_long(member(dst, "z"), 0), 3);
  qel_var_free(src);
  qel_var_free(dst);
}

TEST_F(VarCopy, TreeIntoAFreshVariant) {
  qel_var *src = build(1);
  qel_var *dst = qel_var_new(12, 0);  // no schema, no members
  qel_var_copy(dst, src);
  std::string why;
  EXPECT_TRUE(vt::same_tree(dst, src, &why)) << why;
  EXPECT_FALSE(vt::share_nodes(dst, src));
  EXPECT_EQ(qel_var_schema(dst), s40);

  // Independent: changing the source deep down leaves the copy.
  qel_var_set_integer(member(member(member(member(src, "child"), "child"), "child"), "v"), 0, 777);
  qel_var_add_string(member(src, "tags"), "c", 1);
  EXPECT_FALSE(vt::same_tree(dst, src));
  EXPECT_EQ(qel_var_get_integer(member(member(member(member(dst, "child"), "child"), "child"), "v"), 0), 5);
  EXPECT_EQ(qel_var_size(member(dst, "tags")), 2);
  qel_var_free(src);
  EXPECT_EQ(str(member(dst, "name")), "root1");
  qel_var_free(dst);
}

TEST_F(VarCopy, TreeIntoAnExistingRecordWithOtherMembers) {
  qel_var *src = build(2);
  qel_var *dst = build(3);
  qel_var_set_long(vt::add_member(dst, "extra", qel_var_new(4, 0)), 0, 99);
  qel_var *l2 = member(dst, "child");
  vt::add_member(l2, "extra2", qel_var_new(7, 1));
  qel_var_copy(dst, src);

  EXPECT_EQ(qel_var_get_long(member(dst, "extra"), 0), 99);
  EXPECT_EQ(member(dst, "child"), l2);
  EXPECT_NE(member(l2, "extra2"), nullptr);
  EXPECT_EQ(qel_var_get_long(member(dst, "id"), 0), 2);
  EXPECT_EQ(dst->buf, 1002u);
  EXPECT_EQ(qel_var_get_double(member(l2, "x"), 0), 2.5);
  qel_var *list = member(l2, "list");
  ASSERT_EQ(qel_var_size(list), 2);
  EXPECT_EQ(qel_var_get_integer(member(vt::element(list, 1), "v"), 0), 21);
  qel_var *l4 = member(member(l2, "child"), "child");
  EXPECT_EQ(qel_var_get_integer(member(l4, "v"), 0), 6);
  EXPECT_EQ(member(l4, "w")->buf, 44u);
  EXPECT_FALSE(vt::share_nodes(dst, src));

  // Without the extras the two trees are equal.
  qel_var *plain = build(9);
  qel_var_copy(plain, src);
  EXPECT_TRUE(vt::same_tree(plain, src));
  for (qel_var *v : {src, dst, plain}) qel_var_free(v);
}

TEST_F(VarCopy, RecordArraysAreCopiedElementByElement) {
  qel_var *src = qel_var_new_x(40, 1, this, resolve);
  vt::push_element(src, build(4));
  vt::push_element(src, build(5));
  qel_var *dst = qel_var_new(40, 1);
  for (int i = 0; i < 5; ++i) vt::push_element(dst, build(6));
  qel_var_copy(dst, src);
  ASSERT_EQ(qel_var_size(dst), 2);
  EXPECT_TRUE(vt::same_tree(dst, src));
  EXPECT_FALSE(vt::share_nodes(dst, src));
  EXPECT_EQ(qel_var_schema(vt::element(dst, 1)), s40);
  EXPECT_EQ(qel_var_schema(dst), nullptr);  // same code and multi: its own schema stays
  qel_var_free(src);
  qel_var_free(dst);
}

TEST_F(VarCopy, OntoItselfChangesNothing) {
  qel_var *t = build(7);
  qel_var *ref = build(7);
  qel_var_copy(t, t);
  EXPECT_TRUE(vt::same_tree(t, ref));
  qel_var *s = qel_var_new(7, 0);
  qel_var_set_string(s, 0, "same", -1);
  qel_var_copy(s, s);
  EXPECT_EQ(str(s), "same");
  for (qel_var *v : {t, ref, s}) qel_var_free(v);
}

TEST_F(VarCopy, IntoARecordFromOneOfItsOwnMembers) {
  qel_var *t = build(8);
  qel_var *expected = build(8);
  qel_var *child = member(t, "child");
  qel_var_copy(t, child);  // t is re-formed, which frees child
  EXPECT_TRUE(vt::same_tree(t, member(expected, "child")));

  // The same code: members are overwritten by name from inside the tree.
  qel_var *u = qel_var_new(50, 0);
  qel_var *inner = vt::add_member(u, "a", qel_var_new(50, 0));
  qel_var_set_long(vt::add_member(inner, "a", qel_var_new(4, 0)), 0, 5);
  qel_var_copy(u, inner);
  EXPECT_EQ(qel_var_type(member(u, "a")), 4u);
  EXPECT_EQ(qel_var_get_long(member(u, "a"), 0), 5);
  for (qel_var *v : {t, expected, u}) qel_var_free(v);
}

TEST_F(VarCopy, IntoAMemberFromTheRecordHoldingIt) {
  qel_var *t = build(9);
  qel_var *snapshot = build(9);
  qel_var *child = member(t, "child");
  qel_var_copy(child, t);  // copies t as it was before the call
  EXPECT_EQ(member(t, "child"), child);
  EXPECT_EQ(qel_var_type(child), 40u);
  EXPECT_EQ(qel_var_get_long(member(child, "id"), 0), 9);
  EXPECT_TRUE(vt::same_tree(member(child, "child"), member(snapshot, "child")));

  // The same code: a member of the same record code.
  qel_var *u = qel_var_new(50, 0);
  qel_var *inner = vt::add_member(u, "a", qel_var_new(50, 0));
  qel_var_set_long(vt::add_member(u, "n", qel_var_new(4, 0)), 0, 1);
  qel_var_copy(inner, u);
  EXPECT_EQ(qel_var_get_long(member(inner, "n"), 0), 1);
  ASSERT_NE(member(inner, "a"), nullptr);
  EXPECT_TRUE(vt::member_names(member(inner, "a")).empty());
  for (qel_var *v : {t, snapshot, u}) qel_var_free(v);
}

// ---- append ----

TEST(VarAppendValues, SingleIntoSingleLeavesAnArrayOfOne) {
  qel_var *src = qel_var_new(1, 0);
  qel_var_set_integer(src, 0, 5);
  src->buf = 4;
  qel_var *dst = qel_var_new(1, 0);
  qel_var_set_integer(dst, 0, 9);
  qel_var_append(dst, src);
  EXPECT_EQ(qel_var_multi(dst), 1);
  ASSERT_EQ(qel_var_size(dst), 1);
  EXPECT_EQ(qel_var_get_integer(dst, 0), 5);
  EXPECT_EQ(dst->data.arrayd.entries[0].buf, 0u);  // caller values are not carried
  qel_var_free(src);
  qel_var_free(dst);
}

TEST(VarAppendValues, ArraysAppendInOrderWithoutCallerValues) {
  qel_var *src = qel_var_new(6, 1);
  qel_var *dst = qel_var_new(6, 3);
  for (double d : {3.0, 4.0, 5.0}) qel_var_add_double(src, d);
  src->data.arrayx.entries[0].buf = 7;
  qel_var_add_double(dst, 1.0);
  qel_var_add_double(dst, 2.0);
  dst->schema = reinterpret_cast<qel_schema *>(dst);
  qel_var_append(dst, src);
  ASSERT_EQ(qel_var_size(dst), 5);
  for (int64_t i = 0; i < 5; ++i) EXPECT_EQ(qel_var_get_double(dst, i), static_cast<double>(i + 1));
  EXPECT_EQ(dst->data.arrayx.entries[2].buf, 0u);
  EXPECT_EQ(qel_var_multi(dst), 3);  // an array of the same code keeps its multi byte
  EXPECT_EQ(qel_var_schema(dst), reinterpret_cast<qel_schema *>(dst));
  qel_var_free(src);
  qel_var_free(dst);
}

TEST(VarAppendValues, AnotherCodeReformsDst) {
  qel_var *src = qel_var_new(5, 0);
  qel_var_set_float(src, 0, 0.5f);
  qel_var *dst = qel_var_new(6, 1);
  qel_var_add_double(dst, 1.0);
  qel_var_append(dst, src);
  EXPECT_EQ(qel_var_type(dst), 5u);
  ASSERT_EQ(qel_var_size(dst), 1);
  EXPECT_EQ(qel_var_get_float(dst, 0), 0.5f);
  qel_var_free(src);
  qel_var_free(dst);
}

TEST(VarAppendValues, StringsSingleAndArray) {
  qel_var *one = qel_var_new(8, 0);
  qel_var_set_string(one, 0, "one", -1);
  qel_var *many = qel_var_new(8, 1);
  qel_var_add_string(many, "two", -1);
  qel_var_add_string(many, "three", -1);
  qel_var *dst = qel_var_new(8, 0);
  qel_var_append(dst, one);
  qel_var_append(dst, many);
  ASSERT_EQ(qel_var_size(dst), 3);
  EXPECT_EQ(str(dst, 0), "one");
  EXPECT_EQ(str(dst, 2), "three");
  for (qel_var *v : {one, many, dst}) qel_var_free(v);
}

TEST(VarAppendValues, OntoItselfDoubles) {
  qel_var *v = qel_var_new(4, 1);
  for (int64_t n = 0; n < 50; ++n) qel_var_add_long(v, n);
  qel_var_append(v, v);
  ASSERT_EQ(qel_var_size(v), 100);
  for (int64_t i = 0; i < 100; ++i) EXPECT_EQ(qel_var_get_long(v, i), i % 50);

  qel_var *s = qel_var_new(7, 1);
  for (int i = 0; i < 40; ++i) qel_var_add_string(s, std::to_string(i).c_str(), -1);
  qel_var_append(s, s);
  ASSERT_EQ(qel_var_size(s), 80);
  EXPECT_EQ(str(s, 79), "39");

  // A single variant appended to itself becomes an array of its former value.
  qel_var *one = qel_var_new(7, 0);
  qel_var_set_string(one, 0, "alone", -1);
  qel_var_append(one, one);
  ASSERT_EQ(qel_var_size(one), 1);
  EXPECT_EQ(str(one, 0), "alone");
  for (qel_var *x : {v, s, one}) qel_var_free(x);
}

TEST(VarAppendValues, FromAMemberOfDst) {
  qel_var *rec = qel_var_new(12, 0);
  qel_var_set_long(vt::add_member(rec, "id", qel_var_new(4, 0)), 0, 31);
  qel_var_append(rec, member(rec, "id"));
  EXPECT_EQ(qel_var_type(rec), 4u);
  ASSERT_EQ(qel_var_size(rec), 1);
  EXPECT_EQ(qel_var_get_long(rec, 0), 31);
  qel_var_free(rec);
}

TEST_F(VarAppend, RecordsBecomeNewElements) {
  qel_var *dst = qel_var_new(40, 0);  // single: re-formed into an empty array
  qel_var *a = build(1);
  qel_var_append(dst, a);
  EXPECT_EQ(qel_var_multi(dst), 1);
  EXPECT_EQ(qel_var_schema(dst), s40);
  ASSERT_EQ(qel_var_size(dst), 1);
  EXPECT_TRUE(vt::same_tree(vt::element(dst, 0), a));
  EXPECT_FALSE(vt::share_nodes(dst, a));

  qel_var *arr = qel_var_new(40, 1);
  vt::push_element(arr, build(2));
  vt::push_element(arr, build(3));
  qel_var_append(dst, arr);
  ASSERT_EQ(qel_var_size(dst), 3);
  EXPECT_EQ(qel_var_get_long(member(vt::element(dst, 0), "id"), 0), 1);
  EXPECT_TRUE(vt::same_tree(vt::element(dst, 2), vt::element(arr, 1)));

  qel_var_append(dst, dst);  // doubles
  ASSERT_EQ(qel_var_size(dst), 6);
  EXPECT_TRUE(vt::same_tree(vt::element(dst, 4), vt::element(dst, 1)));
  EXPECT_NE(vt::element(dst, 4), vt::element(dst, 1));

  qel_var_append(dst, vt::element(dst, 0));  // one of its own elements
  ASSERT_EQ(qel_var_size(dst), 7);
  EXPECT_TRUE(vt::same_tree(vt::element(dst, 6), a));
  for (qel_var *v : {dst, a, arr}) qel_var_free(v);
}

TEST_F(VarAppend, SingleRecordOntoItselfAndIntoItsMember) {
  qel_var *t = build(5);
  qel_var *ref = build(5);
  qel_var_append(t, t);
  ASSERT_EQ(qel_var_size(t), 1);
  EXPECT_TRUE(vt::same_tree(vt::element(t, 0), ref));

  qel_var *u = build(6);
  qel_var *child = member(u, "child");
  qel_var_append(u, child);  // u holds child; re-forming u frees it
  EXPECT_EQ(qel_var_type(u), 41u);
  ASSERT_EQ(qel_var_size(u), 1);
  EXPECT_EQ(qel_var_get_double(member(vt::element(u, 0), "x"), 0), 6.5);

  qel_var *w = build(7);
  qel_var *wc = member(w, "child");
  qel_var_append(wc, w);  // into a member, from the record holding it
  EXPECT_EQ(qel_var_type(wc), 40u);
  ASSERT_EQ(qel_var_size(wc), 1);
  EXPECT_EQ(qel_var_get_long(member(vt::element(wc, 0), "id"), 0), 7);
  EXPECT_EQ(qel_var_type(member(vt::element(wc, 0), "child")), 41u);  // w as it was
  for (qel_var *v : {t, ref, u, w}) qel_var_free(v);
}

}  // namespace
