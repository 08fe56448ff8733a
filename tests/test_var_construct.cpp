// Full variant: construction through a schema resolver, and the guards
// against schemas that nest without end.
#include <gtest/gtest.h>
#include <qel.h>

#include <cstdint>
#include <vector>

#include "internal/qel_var_internal.h"
#include "var_test_util.h"

namespace {

// A resolver context that records every call.
struct Resolver {
  std::vector<uint32_t> calls;
  std::vector<void *> contexts;
  std::vector<std::pair<uint32_t, qel_schema *>> map;
  qel_schema *other = nullptr;  // what non-mapped codes get

  static qel_schema *resolve(void *context, uint32_t type) {
    auto *self = static_cast<Resolver *>(context);
    self->calls.push_back(type);
    self->contexts.push_back(context);
    for (const auto &[code, schema] : self->map)
      if (code == type) return schema;
    return self->other;
  }
};

// Schemas of the record life: 20 = {id:4, tags:7 multi, child:21}, 21 = S2.
struct Fixture : ::testing::Test {
  qel_schema *s = qel_var_schema_new();
  qel_schema *s2 = qel_var_schema_new();
  int marker = 0;
  Resolver r;

  void SetUp() override {
    qel_var_schema_add(s, "id", 2, 4, 0);
    qel_var_schema_add(s, "tags", 4, 7, 1);
    qel_var_schema_add(s, "child", 5, 21, 0);
    qel_var_schema_add(s2, "a", 1, 1, 0);
    qel_var_schema_add(s2, "b", 1, 6, 0);
    qel_var_schema_add(s2, "c", 1, 8, 0xFF);
    r.map = {{20, s}, {21, s2}};
    r.other = reinterpret_cast<qel_schema *>(&marker);
  }
  void TearDown() override {
    qel_var_schema_free(s);
    qel_var_schema_free(s2);
  }
};

using VarConstruct = Fixture;

TEST(VarConstructPlain, WithoutResolverTheContextIsTheSchema) {
  int x = 0;
  qel_var *v = qel_var_new_x(5, 0, &x, nullptr);
  EXPECT_EQ(qel_var_schema(v), reinterpret_cast<qel_schema *>(&x));
  EXPECT_EQ(qel_var_get_float(v, 0), 0.0f);
  qel_var_free(v);
}

TEST_F(VarConstruct, ResolverIsCalledDepthFirstInSchemaOrder) {
  qel_var *v = qel_var_new_x(20, 0, &r, Resolver::resolve);
  EXPECT_EQ(r.calls, (std::vector<uint32_t>{20, 4, 7, 21, 1, 6, 8}));
  for (void *c : r.contexts) EXPECT_EQ(c, &r);

  EXPECT_EQ(qel_var_schema(v), s);
  qel_var *id = vt::member(v, "id");
  ASSERT_NE(id, nullptr);
  EXPECT_EQ(qel_var_type(id), 4u);
  EXPECT_EQ(qel_var_get_long(id, 0), 0);
  EXPECT_EQ(qel_var_schema(id), r.other);  // every member keeps the resolver's answer

  qel_var *tags = vt::member(v, "tags");
  ASSERT_NE(tags, nullptr);
  EXPECT_EQ(qel_var_type(tags), 7u);
  EXPECT_EQ(qel_var_multi(tags), 1);
  EXPECT_EQ(qel_var_size(tags), 0);

  qel_var *child = vt::member(v, "child");
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(qel_var_schema(child), s2);
  EXPECT_EQ(vt::member_names(child), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(vt::member(child, "c")->multi, 0xFF);  // the schema's multi byte arrives unchanged
  EXPECT_EQ(qel_var_type(vt::member(child, "b")), 6u);
  qel_var_free(v);
}

TEST_F(VarConstruct, RecordArrayAsksOnceAndHasNoElements) {
  qel_var *v = qel_var_new_x(20, 1, &r, Resolver::resolve);
  EXPECT_EQ(r.calls, (std::vector<uint32_t>{20}));
  EXPECT_EQ(qel_var_schema(v), s);
  EXPECT_EQ(qel_var_size(v), 0);
  qel_var_free(v);
}

TEST_F(VarConstruct, ChangeToTheSamePairCallsNoResolver) {
  qel_var *v = qel_var_new_x(20, 0, &r, Resolver::resolve);
  qel_var_set_long(vt::member(v, "id"), 0, 42);
  r.calls.clear();
  qel_var_change_x(v, 20, 0, &r, Resolver::resolve);
  EXPECT_TRUE(r.calls.empty());
  EXPECT_EQ(qel_var_get_long(vt::member(v, "id"), 0), 42);
  qel_var_free(v);
}

TEST_F(VarConstruct, ChangeFromFloatBuildsTheRecordAndResetsBuf) {
  qel_var *v = qel_var_new(5, 0);
  qel_var_set_float(v, 0, 1.5f);
  v->buf = 77;
  qel_var_change_x(v, 20, 0, &r, Resolver::resolve);
  EXPECT_EQ(r.calls, (std::vector<uint32_t>{20, 4, 7, 21, 1, 6, 8}));
  EXPECT_EQ(v->buf, 0u);
  EXPECT_EQ(qel_var_schema(v), s);
  EXPECT_EQ(vt::member_names(v), (std::vector<std::string>{"id", "tags", "child"}));

  // And back: the record's members are released (no leak) and the code
  // changes; without a resolver the context becomes the schema.
  qel_var_change_x(v, 6, 1, nullptr, nullptr);
  EXPECT_EQ(qel_var_schema(v), nullptr);
  EXPECT_EQ(qel_var_size(v), 0);
  qel_var_free(v);
}

TEST_F(VarConstruct, WithoutResolverEveryMemberGetsTheContext) {
  qel_schema *flat = qel_var_schema_new();
  qel_var_schema_add(flat, "n", 1, 4, 0);
  qel_var_schema_add(flat, "s", 1, 7, 0);
  qel_var_schema_add(flat, "l", 1, 6, 1);
  qel_var *v = qel_var_new_x(20, 0, flat, nullptr);
  for (const char *name : {"n", "s", "l"}) {
    ASSERT_NE(vt::member(v, name), nullptr) << name;
    EXPECT_EQ(qel_var_schema(vt::member(v, name)), flat) << name;
  }
  qel_var_free(v);
  qel_var_schema_free(flat);
}

TEST_F(VarConstruct, SiblingsOfOneSchemaAreBothBuilt) {
  // Two members of code 21 are not on each other's path: both get S2's members.
  qel_schema *pair = qel_var_schema_new();
  qel_var_schema_add(pair, "left", 4, 21, 0);
  qel_var_schema_add(pair, "right", 5, 21, 0);
  r.map.push_back({22, pair});
  qel_var *v = qel_var_new_x(22, 0, &r, Resolver::resolve);
  EXPECT_EQ(vt::member_names(vt::member(v, "left")).size(), 3u);
  EXPECT_EQ(vt::member_names(vt::member(v, "right")).size(), 3u);
  qel_var_free(v);
  qel_var_schema_free(pair);
}

TEST(VarConstructNesting, SchemaNestingIntoItselfDirectly) {
  qel_schema *s = qel_var_schema_new();
  qel_var_schema_add(s, "n", 1, 4, 0);
  qel_var_schema_add(s, "self", 4, 12, 0);
  qel_var_schema_add(s, "many", 4, 12, 1);  // an array of itself nests nothing

  // Without a resolver every member gets S itself.
  qel_var *v = qel_var_new_x(12, 0, s, nullptr);
  qel_var *self = vt::member(v, "self");
  ASSERT_NE(self, nullptr);
  EXPECT_EQ(qel_var_schema(self), s);
  EXPECT_TRUE(vt::member_names(self).empty());
  EXPECT_EQ(qel_var_size(vt::member(v, "many")), 0);
  qel_var_free(v);

  // Re-forming and copying build members without context: no nesting either.
  qel_var *w = qel_var_new(4, 0);
  w->schema = s;
  qel_var_change(w, 12, 0);
  EXPECT_EQ(vt::member_names(w).size(), 3u);
  qel_var_free(w);
  qel_var_schema_free(s);
}

TEST(VarConstructNesting, SchemaNestingIntoItselfThroughTheResolver) {
  qel_schema *a = qel_var_schema_new();
  qel_schema *b = qel_var_schema_new();
  qel_var_schema_add(a, "b", 1, 13, 0);
  qel_var_schema_add(a, "x", 1, 4, 0);
  qel_var_schema_add(b, "a", 1, 12, 0);
  qel_var_schema_add(b, "y", 1, 6, 0);
  Resolver r;
  r.map = {{12, a}, {13, b}};

  qel_var *v = qel_var_new_x(12, 0, &r, Resolver::resolve);
  // 12 -> A{b: B{a: A (no members), y}, x}
  EXPECT_EQ(r.calls, (std::vector<uint32_t>{12, 13, 12, 6, 4}));
  qel_var *vb = vt::member(v, "b");
  ASSERT_NE(vb, nullptr);
  qel_var *vba = vt::member(vb, "a");
  ASSERT_NE(vba, nullptr);
  EXPECT_EQ(qel_var_schema(vba), a);
  EXPECT_TRUE(vt::member_names(vba).empty());
  EXPECT_NE(vt::member(vb, "y"), nullptr);
  EXPECT_NE(vt::member(v, "x"), nullptr);
  qel_var_free(v);
  qel_var_schema_free(a);
  qel_var_schema_free(b);
}

// Hands out a fresh schema {level:4, next:30} for every record it is asked for.
struct Endless {
  std::vector<qel_schema *> made;
  static qel_schema *resolve(void *context, uint32_t type) {
    if (type != 30) return nullptr;
    auto *self = static_cast<Endless *>(context);
    qel_schema *s = qel_var_schema_new();
    qel_var_schema_add(s, "level", 5, 4, 0);
    qel_var_schema_add(s, "next", 4, 30, 0);
    self->made.push_back(s);
    return s;
  }
  ~Endless() {
    for (qel_schema *s : made) qel_var_schema_free(s);
  }
};

TEST(VarConstructNesting, DepthIsBoundedForResolversThatNeverRepeat) {
  Endless e;
  qel_var *v = qel_var_new_x(30, 0, &e, Endless::resolve);
  unsigned with_members = 0;
  const qel_var *p = v;
  while (vt::member(p, "next") != nullptr) {
    ++with_members;
    p = vt::member(p, "next");
  }
  EXPECT_EQ(with_members, qel::kMaxBuildDepth);
  EXPECT_NE(qel_var_schema(p), nullptr);  // the last one has its schema, no members
  EXPECT_TRUE(vt::member_names(p).empty());
  EXPECT_EQ(e.made.size(), qel::kMaxBuildDepth + 1);

  // The deep tree copies and frees like any other.  The copy of the last
  // record is made from its schema, so it gains that schema's members (whose
  // own schemas are NULL: one level more, no further).
  qel_var *copy = qel_var_new(1, 0);
  qel_var_copy(copy, v);
  std::string why;
  EXPECT_TRUE(vt::same_tree(copy, v, &why, true)) << why;
  const qel_var *q = copy;
  unsigned levels = 0;
  for (; q != nullptr; q = vt::member(q, "next")) ++levels;
  EXPECT_EQ(levels, qel::kMaxBuildDepth + 2);
  qel_var_free(copy);
  qel_var_free(v);
}

TEST(VarConstructNesting, DuplicateMemberNamesLeakNothing) {
  qel_schema *s = qel_var_schema_new();
  qel_var_schema_add(s, "id", 2, 4, 0);
  qel_var_schema_add(s, "id", 2, 7, 0);
  qel_var *v = qel_var_new_x(12, 0, s, nullptr);
  qel_var *id = vt::member(v, "id");
  ASSERT_NE(id, nullptr);
  EXPECT_TRUE(qel_var_type(id) == 4 || qel_var_type(id) == 7);
  qel_var_free(v);
  qel_var_schema_free(s);
}

}  // namespace
