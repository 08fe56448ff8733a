// qel_hash: byte-exact keys, duplicate keys, insertion-order walks.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "qel_std.h"
#include "qel_std_internal.h"

namespace {

class Hash : public ::testing::Test {
protected:
  qel_hash h{};
  qel_hash other{};
  int values[8] = {};
  void SetUp() override {
    qel_hash_init(&h, 1, 0);
    qel_hash_init(&other, 1, 0);
  }
  void TearDown() override {
    qel_hash_term(&h);
    qel_hash_term(&other);
  }
  static qel_hash_entry *put(qel_hash *x, const std::string &k, void *v) {
    return qel_hash_insert(x, k.data(), static_cast<int64_t>(k.size()), v);
  }
  static void *get(const qel_hash *x, const std::string &k) {
    return qel_hash_get(x, k.data(), static_cast<int64_t>(k.size()));
  }
  static std::string key_of(const qel_hash *x, const qel_hash_entry *e) {
    return std::string(x->key_pool + e->key_offset, e->key_length);
  }
  // Every entry of a walk as (key, value).
  static std::vector<std::pair<std::string, void *>> walk(qel_hash *x) {
    std::vector<std::pair<std::string, void *>> out;
    void *cursor;
    for (qel_hash_entry *e = qel_hash_entry_first(x, &cursor); e != nullptr; e = qel_hash_entry_next(x, &cursor, e))
      out.emplace_back(key_of(x, e), e->value);
    return out;
  }
};

TEST_F(Hash, KeysMatchByteForByte) {
  put(&h, "ab", &values[0]);
  put(&h, "abc", &values[1]);
  put(&h, std::string("a\0c", 3), &values[2]);
  put(&h, "", &values[3]);
  EXPECT_EQ(get(&h, "ab"), &values[0]);
  EXPECT_EQ(get(&h, "abc"), &values[1]);
  EXPECT_EQ(get(&h, std::string("a\0c", 3)), &values[2]);
  EXPECT_EQ(get(&h, "a"), nullptr);
  EXPECT_EQ(get(&h, "ABC"), nullptr);
  EXPECT_EQ(get(&h, ""), &values[3]);
  EXPECT_EQ(qel_hash_get(&h, nullptr, 0), &values[3]);
  EXPECT_EQ(qel_hash_get(&h, "ab", -1), nullptr);
  EXPECT_EQ(qel_hash_get(&other, "ab", 2), nullptr);
  // Refused keys change nothing.
  EXPECT_EQ(qel_hash_insert(&h, "zz", -2, &values[4]), nullptr);
  EXPECT_EQ(qel_hash_insert(&h, nullptr, 2, &values[4]), nullptr);
  EXPECT_EQ(walk(&h).size(), 4u);
}

TEST_F(Hash, DuplicateKeys) {
  // A NULL value is taken over by the next insert of the same key.
  qel_hash_entry *first = put(&h, "k", nullptr);
  EXPECT_EQ(put(&h, "k", &values[0]), first);
  EXPECT_EQ(walk(&h).size(), 1u);
  // A non-NULL value is kept; the newest entry is the one found.
  put(&h, "x", &values[5]);
  put(&h, "k", &values[1]);
  EXPECT_EQ(get(&h, "k"), &values[1]);
  auto w = walk(&h);
  ASSERT_EQ(w.size(), 3u);
  EXPECT_EQ(w[0], (std::pair<std::string, void *>("k", &values[0])));
  EXPECT_EQ(w[1], (std::pair<std::string, void *>("x", &values[5])));
  EXPECT_EQ(w[2], (std::pair<std::string, void *>("k", &values[1])));
  // Nulling the newest lets the next insert reuse it.
  void *cursor;
  qel_hash_entry *e = qel_hash_entry_first(&h, &cursor);
  e = qel_hash_entry_next(&h, &cursor, e);
  e = qel_hash_entry_next(&h, &cursor, e);
  e->value = nullptr;
  EXPECT_EQ(get(&h, "k"), nullptr);
  EXPECT_EQ(put(&h, "k", &values[2]), e);
  EXPECT_EQ(walk(&h).size(), 3u);
}

TEST_F(Hash, WalkVisitsEachOnceWhileValuesAreNulled) {
  put(&h, "one", &values[0]);
  put(&h, "two", &values[1]);
  put(&h, "three", &values[2]);
  std::set<qel_hash_entry *> visited;
  void *cursor;
  int steps = 0;
  for (qel_hash_entry *e = qel_hash_entry_first(&h, &cursor); e != nullptr; e = qel_hash_entry_next(&h, &cursor, e)) {
    ASSERT_LT(++steps, 10);
    visited.insert(e);
    e->value = nullptr;
  }
  EXPECT_EQ(visited.size(), 3u);
  for (const char *k : {"one", "two", "three"}) EXPECT_EQ(get(&h, k), nullptr);
  EXPECT_EQ(put(&h, "two", &values[3])->value, &values[3]);
  EXPECT_EQ(walk(&h).size(), 3u);
}

TEST_F(Hash, WalkSurvivesInsertsIntoAnotherHash) {
  for (int i = 0; i < 200; i++) put(&h, "key" + std::to_string(i), &values[i % 8]);
  void *cursor;
  int n = 0;
  for (qel_hash_entry *e = qel_hash_entry_first(&h, &cursor); e != nullptr; e = qel_hash_entry_next(&h, &cursor, e)) {
    ASSERT_EQ(key_of(&h, e), "key" + std::to_string(n));
    // Copy the key straight out of h's pool into the other hash.
    qel_hash_insert(&other, h.key_pool + e->key_offset, e->key_length, e->value);
    n++;
  }
  EXPECT_EQ(n, 200);
  for (int i = 0; i < 200; i++) ASSERT_EQ(get(&other, "key" + std::to_string(i)), &values[i % 8]);
}

TEST_F(Hash, ManyKeysAndKeysFromOwnPool) {
  std::vector<int> store(5000);
  for (int i = 0; i < 5000; i++) put(&h, std::to_string(i * 7919), &store[static_cast<size_t>(i)]);
  for (int i = 0; i < 5000; i++) ASSERT_EQ(get(&h, std::to_string(i * 7919)), &store[static_cast<size_t>(i)]);
  EXPECT_EQ(get(&h, "-1"), nullptr);
  // Inserting a key that lives in the pool itself while the pool grows.
  // Entries may move while h grows: only the cursor is kept across inserts.
  void *cursor;
  qel_hash_entry *e = qel_hash_entry_first(&h, &cursor);
  for (int i = 0; i < 3000; i++) {
    const uint32_t offset = e->key_offset;
    const uint32_t length = e->key_length;
    put(&h, key_of(&h, e) + "#", &values[1]);
    qel_hash_insert(&h, h.key_pool + offset, length, &values[2]);
    e = qel_hash_entry_next(&h, &cursor, nullptr);
  }
  EXPECT_EQ(get(&h, "0#"), &values[1]);
  EXPECT_EQ(get(&h, "0"), &values[2]);
  EXPECT_EQ(get(&h, std::to_string(2999 * 7919)), &values[2]);
  EXPECT_EQ(get(&h, std::to_string(3000 * 7919)), &store[3000]);
  EXPECT_EQ(walk(&h).size(), 11000u);
}

TEST_F(Hash, WalkWithoutCursorAndEmptyHash) {
  void *cursor = &values[0];
  EXPECT_EQ(qel_hash_entry_first(&h, &cursor), nullptr);
  put(&h, "a", &values[0]);
  put(&h, "b", &values[1]);
  qel_hash_entry *e = qel_hash_entry_first(&h, nullptr);
  e = qel_hash_entry_next(&h, nullptr, e);
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->value, &values[1]);
  EXPECT_EQ(qel_hash_entry_next(&h, nullptr, e), nullptr);
  // The inline lookup of the shared header finds the same entry.
  EXPECT_EQ(qel_detail::hash_find(&h, "b", 1), e);
  qel_hash_term(&h);
  EXPECT_EQ(get(&h, "a"), nullptr);
  EXPECT_EQ(qel_hash_entry_first(&h, &cursor), nullptr);
}

} // namespace
