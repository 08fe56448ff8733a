// A tree as deep as callers can build it is freed, copied (also from inside
// itself), appended, compared, checked for equality, written as JSON and shrunk on a thread
// with a 256 KiB stack: no walk may recurse once per level.  Under the asan
// preset every frame takes several times more stack, so a recursion a few
// thousand levels deep fails there.
#include <pthread.h>
#include <qel.h>
#include <qel_json.h>

#include <gtest/gtest.h>

#if __has_include(<valgrind/valgrind.h>)
#include <valgrind/valgrind.h>
#else
#define RUNNING_ON_VALGRIND 0
#endif

namespace {

// A record, a record array, a record, ...: 10^6 levels, 10^5 under valgrind
// (whose own stack is large; it looks for leaks and bad accesses here).
int levels_wanted() { return RUNNING_ON_VALGRIND ? 100000 : 1000000; }
const int kLevels = levels_wanted();

// Requires a tree of deep_tree's shape: its innermost record; levels counts
// the records and arrays above it.
qel_var *innermost(qel_var *v, int &levels) {
  levels = 0;
  while (qel_var *array = qel_var_get_val(v, "a", 1)) {
    v = qel_var_get_var_x(array, 0);
    levels += 2;
  }
  return v;
}

// kLevels of records and record arrays built with the member calls, each
// record's array made by set_val and its one element by add_new; the
// innermost record holds a code-4 member "n" = 7.
qel_var *deep_tree() {
  qel_var *root = qel_var_new(12, 0);
  qel_var *array = qel_var_new(13, 1);
  qel_var *cur = root;
  for (int level = 0; level < kLevels; level += 2) {
    qel_var_set_val(cur, "a", 1, array);
    cur = qel_var_add_new(qel_var_get_val(cur, "a", 1));
  }
  qel_var *n = qel_var_new(4, 0);
  qel_var_set_long(n, 0, 7);
  qel_var_set_val(cur, "n", 1, n);
  qel_var_free(n);
  qel_var_free(array);
  return root;
}

struct outcome {
  int copy_equal = -1, changed_equal = -1, cmp = -1, appended_equal = -1, levels_after_inner_copy = -1;
  int64_t inner_value = -1, shrunk_members = -1, json_length = -1;
  int json_rc = -1;
};

void *walk_deep_tree(void *arg) {
  auto *out = static_cast<outcome *>(arg);
  qel_var *tree = deep_tree();
  qel_stream text;
  qel_stream_init(&text);
  out->json_rc = qel_json_write(tree, &text, 0);
  out->json_length = text.length;
  qel_stream_term(&text);
  qel_var *copy = qel_var_new(12, 0);
  qel_var_copy(copy, tree);
  out->copy_equal = qel_var_equal(copy, tree);
  int levels = 0;
  qel_var_set_long(qel_var_get_val(innermost(copy, levels), "n", 1), 0, 8);
  out->changed_equal = qel_var_equal(tree, copy);
  out->cmp = qel_var_cmp(tree, copy);
  qel_var_change(tree, 4, 0);  // releases the whole tree in place
  qel_var_free(tree);

  qel_var *list = qel_var_new(12, 1);
  qel_var_append(list, copy);
  out->appended_equal = qel_var_equal(qel_var_get_var_x(list, 0), copy);
  qel_var_free(list);

  // The first element's tree copied into the tree that holds it: one record
  // and one array fewer.
  qel_var_copy(copy, qel_var_get_var_x(qel_var_get_val(copy, "a", 1), 0));
  out->inner_value = qel_var_get_long(qel_var_get_val(innermost(copy, levels), "n", 1), 0);
  out->levels_after_inner_copy = levels;

  qel_var_shrink(copy, 0);
  out->shrunk_members = qel_var_get_val(copy, "a", 1) == nullptr ? qel_var_member_count(copy) : -1;
  qel_var_free(copy);
  return nullptr;
}

TEST(Deep, WalksNeedNoStackPerLevel) {
  pthread_attr_t attr;
  ASSERT_EQ(pthread_attr_init(&attr), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attr, 256 * 1024), 0);
  outcome out;
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &attr, walk_deep_tree, &out), 0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  pthread_attr_destroy(&attr);
  EXPECT_EQ(out.copy_equal, 1);
  EXPECT_EQ(out.changed_equal, 0);
  EXPECT_EQ(out.cmp, 0);  // records compare equal whatever their members
  EXPECT_EQ(out.appended_equal, 1);
  EXPECT_EQ(out.inner_value, 8);
  EXPECT_EQ(out.levels_after_inner_copy, kLevels - 2);
  EXPECT_EQ(out.shrunk_members, 1);
  EXPECT_EQ(out.json_rc, QEL_JSON_OK);
  EXPECT_EQ(out.json_length, int64_t{kLevels} / 2 * 8 +
                                 7);  // {"a":[ ... ]} per pair, {"n":7} inside  // the name stays, without its member
}

}  // namespace
