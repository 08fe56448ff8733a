// The string array (qel_array): pool handling, tags, bounds, keyed insert,
// searches and the stable byte-order sort.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "qel_std.h"
#include "qel_std_internal.h"

namespace {

class StringArray : public ::testing::Test {
protected:
  qel_array a{};
  qel_array b{};
  void SetUp() override {
    qel_array_init(&a, 0);
    qel_array_init(&b, 0);
  }
  void TearDown() override {
    qel_array_term(&a);
    qel_array_term(&b);
  }
  static void add(qel_array *x, const std::string &s, uint32_t tag = 0) {
    qel_array_append(x, s.data(), static_cast<int64_t>(s.size()), tag);
  }
  static std::string at(const qel_array *x, int64_t i) {
    const char *p = nullptr;
    int64_t n = -1;
    qel_array_get_at(x, i, &p, &n);
    return p == nullptr ? std::string("<null>") : std::string(p, static_cast<size_t>(n));
  }
  static std::vector<std::string> all(const qel_array *x) {
    std::vector<std::string> out;
    for (int64_t i = 0; i < x->count; i++) out.push_back(at(x, i));
    return out;
  }
  // Every entry below capacity lies inside the pool's bytes in use.
  static void expect_entries_inside_pool(const qel_array *x) {
    for (int64_t i = 0; i < x->capacity; i++)
      ASSERT_LE(int64_t{x->entries[i].offset} + x->entries[i].length, x->pool.length) << i;
  }
};

TEST_F(StringArray, AppendGetTagsAndZeroLength) {
  add(&a, "alpha", 0xdeadbeefu);
  add(&a, "", 7);
  add(&a, std::string("a\0b", 3), 0x10000u);
  ASSERT_EQ(a.count, 3);
  EXPECT_EQ(all(&a), (std::vector<std::string>{"alpha", "", std::string("a\0b", 3)}));
  const char *p = nullptr;
  int64_t n = -1;
  EXPECT_EQ(qel_array_get_at(&a, 0, &p, &n), 0xdeadbeefu);
  EXPECT_EQ(a.entries[0].buf, 0xdeadbeefu); // zero-extended
  EXPECT_EQ(qel_array_get_at(&a, 1, &p, &n), 7u);
  EXPECT_NE(p, nullptr);
  EXPECT_EQ(n, 0);
  EXPECT_EQ(a.entries[2].offset, 5u); // offset = pool length before the copy
  qel_array_update_at(&a, 2, 0xffff0001u);
  EXPECT_EQ(qel_array_get_at(&a, 2, &p, &n), 0xffff0001u);
  EXPECT_EQ(std::string(p, static_cast<size_t>(n)), std::string("a\0b", 3));
}

TEST_F(StringArray, OutOfRangeAndRefusedInput) {
  add(&a, "x", 1);
  const char *p = "junk";
  int64_t n = 99;
  for (int64_t bad : {int64_t{-1}, int64_t{1}, INT64_MIN, INT64_MAX}) {
    p = "junk";
    n = 99;
    EXPECT_EQ(qel_array_get_at(&a, bad, &p, &n), 0u);
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(n, 0);
    qel_array_set_at(&a, bad, "y", 1, 2);
    qel_array_update_at(&a, bad, 2);
  }
  // Negative length, NULL bytes with a length, and 4 GiB or more: refused
  // without reading the bytes.
  qel_array_append(&a, "abc", -1, 0);
  qel_array_append(&a, nullptr, 3, 0);
  qel_array_append(&a, "abc", int64_t{1} << 32, 0);
  qel_array_set_at(&a, 0, "abc", -2, 9);
  qel_array_set_at(&a, 0, "abc", int64_t{1} << 32, 9);
  EXPECT_EQ(all(&a), std::vector<std::string>{"x"});
  EXPECT_EQ(a.entries[0].buf, 1u);
  EXPECT_EQ(a.pool.length, 1);
  EXPECT_EQ(qel_array_find_index(&a, "x", -1), -1);
  qel_array_append(&a, nullptr, 0, 4); // the empty string is fine
  EXPECT_EQ(a.count, 2);
  // A keyed insert of a refused string stores nothing but still gives an entry.
  qel_array_entry *e = qel_array_entry_insert(&a, "abc", -5);
  ASSERT_NE(e, nullptr);
  e->buf = 5;
  EXPECT_EQ(a.count, 2);
  expect_entries_inside_pool(&a);
}

TEST_F(StringArray, AppendFromOwnPoolWhilePoolMoves) {
  add(&a, "0123456789abcdef");
  for (int round = 0; round < 12; round++) {
    const char *p;
    int64_t n;
    const int64_t last = a.count - 1;
    qel_array_get_at(&a, last, &p, &n);
    const std::string expect = at(&a, last);
    // The whole pool so far, then the last string: both read from the pool.
    qel_array_append(&a, a.pool.bytes, a.pool.length, 0);
    qel_array_get_at(&a, last, &p, &n);
    qel_array_append(&a, p, n, 0);
    ASSERT_EQ(at(&a, a.count - 1), expect);
  }
  std::string whole = at(&a, 0);
  EXPECT_EQ(at(&a, 1), whole);
  EXPECT_EQ(at(&a, 2), whole);
  qel_array_append_array(&a, &a);
  const int64_t half = a.count / 2;
  for (int64_t i = 0; i < half; i++) ASSERT_EQ(at(&a, half + i), at(&a, i));
}

TEST_F(StringArray, SetAtInPlaceAndFromOwnPool) {
  add(&a, "hello world", 1);
  add(&a, "xyz", 2);
  const int64_t pool = a.pool.length;
  qel_array_set_at(&a, 0, "bye", 3, 5); // fits: overwritten in place
  EXPECT_EQ(a.pool.length, pool);
  EXPECT_EQ(all(&a), (std::vector<std::string>{"bye", "xyz"}));
  EXPECT_EQ(a.entries[0].buf, 5u);
  // Its own tail as the new value (overlapping source).
  const char *p;
  int64_t n;
  qel_array_get_at(&a, 0, &p, &n);
  qel_array_set_at(&a, 0, p + 1, 2, 0);
  EXPECT_EQ(at(&a, 0), "ye");
  // A longer string taken from the pool, repeatedly, as the pool grows.
  for (int i = 0; i < 20; i++) {
    std::string both = at(&a, 0) + at(&a, 1);
    qel_array_append(&a, both.data(), static_cast<int64_t>(both.size()), 0);
    qel_array_get_at(&a, a.count - 1, &p, &n);
    qel_array_set_at(&a, 1, p, n, 9);
    ASSERT_EQ(at(&a, 1), both);
  }
  expect_entries_inside_pool(&a);
}

TEST_F(StringArray, RepeatedSetAtKeepsPoolBounded) {
  for (int i = 0; i < 100; i++) add(&a, std::string("item").append(std::to_string(i)), static_cast<uint32_t>(i));
  std::mt19937 rng(1);
  int64_t max_capacity = 0;
  for (int round = 0; round < 20000; round++) {
    const auto i = static_cast<int64_t>(rng() % 100);
    std::string s(rng() % 64, static_cast<char>('a' + round % 26));
    qel_array_set_at(&a, i, s.data(), static_cast<int64_t>(s.size()), static_cast<uint32_t>(round));
    ASSERT_EQ(at(&a, i), s);
    max_capacity = std::max(max_capacity, a.pool.capacity);
  }
  // 100 strings of at most 63 bytes: live bytes stay under 6300.
  EXPECT_LT(max_capacity, 40000);
  for (int i = 0; i < 100; i++) EXPECT_LT(a.entries[i].offset, a.pool.length);
}

TEST_F(StringArray, CompactionKeepsStringsAndClearsEntriesBeyondCount) {
  for (int i = 0; i < 10; i++) add(&a, std::string(100, static_cast<char>('0' + i)), static_cast<uint32_t>(i));
  a.count = 6; // entries 6..9 stay in storage, beyond the count
  a.entries[a.capacity - 1].buf = 77;
  for (int round = 0; round < 200; round++) {
    std::string s(static_cast<size_t>(101 + round), 'z');
    qel_array_set_at(&a, 2, s.data(), static_cast<int64_t>(s.size()), 0);
  }
  EXPECT_EQ(at(&a, 2), std::string(300, 'z'));
  EXPECT_EQ(at(&a, 5), std::string(100, '5'));
  EXPECT_EQ(a.entries[5].buf, 5u);
  EXPECT_LT(a.pool.capacity, 4000); // about 40 KB were set over time
  EXPECT_EQ(a.entries[7].length, 0u); // compaction dropped strings beyond count
  expect_entries_inside_pool(&a);
  EXPECT_EQ(a.entries[a.capacity - 1].buf, 77u); // caller values stay
  a.count = a.capacity; // exposed entries read as empty strings
  EXPECT_EQ(at(&a, a.capacity - 1), "");
}

TEST_F(StringArray, ReadersSurviveEntriesPointingOutsideThePool) {
  add(&a, "abc");
  a.entries[0].offset = 2;
  a.entries[0].length = 1000;
  EXPECT_EQ(at(&a, 0), "");
  EXPECT_EQ(qel_array_find_index(&a, "", 0), 0);
  add(&a, "b");
  qel_array_qsort(&a, 1);
  qel_array_set_at(&a, 0, "longer string", 13, 0);
  EXPECT_EQ(qel_array_find_index(&a, "longer string", 13), 0);
}

TEST_F(StringArray, ExpandDirectFillCloneAndRemoveAll) {
  add(&a, "keep");
  qel_array_expand(&a, 40);
  ASSERT_GE(a.capacity, 40);
  expect_entries_inside_pool(&a);
  // Fill entries in place the way a column copy does: pool bytes appended
  // through the stream, then offset, length and buf written directly.
  for (int k = 0; k < 40; k++) {
    std::string s(1, 'v');
    s += std::to_string(k);
    a.entries[k].offset = static_cast<uint32_t>(a.pool.length);
    qel_stream_append(&a.pool, s.data(), static_cast<int64_t>(s.size()));
    a.entries[k].length = static_cast<uint32_t>(s.size());
    a.entries[k].buf = static_cast<uint64_t>(k);
  }
  a.count = 40;
  add(&a, "after", 1);
  EXPECT_EQ(a.count, 41);
  EXPECT_EQ(at(&a, 39), "v39");
  EXPECT_EQ(at(&a, 40), "after");

  add(&b, "old contents");
  qel_array_clone(&a, 0, &b, 0, 0);
  EXPECT_EQ(all(&b), all(&a));
  for (int64_t i = 0; i < b.count; i++) EXPECT_EQ(b.entries[i].buf, a.entries[i].buf);
  expect_entries_inside_pool(&b);

  qel_array_remove_all(&a);
  EXPECT_EQ(a.count, 0);
  expect_entries_inside_pool(&a);
  a.count = a.capacity;
  EXPECT_EQ(at(&a, 0), "");
  a.count = 0;
  add(&a, "fresh");
  EXPECT_EQ(all(&a), std::vector<std::string>{"fresh"});
}

TEST_F(StringArray, FindAndBfindReturnLowestIndex) {
  for (const char *s : {"pear", "apple", "pear", "", "apple"}) add(&a, s);
  EXPECT_EQ(qel_array_find_index(&a, "pear", 4), 0);
  EXPECT_EQ(qel_array_find_index(&a, "apple", 5), 1);
  EXPECT_EQ(qel_array_find_index(&a, "", 0), 3);
  EXPECT_EQ(qel_array_find_index(&a, "pea", 3), -1);
  qel_array_qsort(&a, 1); // "" apple apple pear pear
  EXPECT_EQ(qel_array_bfind_index(&a, "", 0), 0);
  EXPECT_EQ(qel_array_bfind_index(&a, "apple", 5), 1);
  EXPECT_EQ(qel_array_bfind_index(&a, "pear", 4), 3);
  EXPECT_EQ(qel_array_bfind_index(&a, "appl", 4), -1);
  EXPECT_EQ(qel_array_bfind_index(&a, "zzz", 3), -1);
  EXPECT_EQ(qel_array_bfind_index(&a, "pear", -1), -1);
}

// A random string from a small alphabet with shared prefixes of every length,
// so that chunks tie often and refinement runs deep.
std::string random_string(std::mt19937_64 &rng, int kind) {
  static const std::string prefixes[] = {"", "a", "abcdefg", "abcdefgh", "abcdefghi", std::string(40, 'q'),
                                         std::string("\0\0\0", 3)};
  std::string s = prefixes[rng() % 7];
  size_t extra = kind == 0 ? rng() % 4 : rng() % 24;
  for (size_t i = 0; i < extra; i++) s.push_back(kind == 2 ? static_cast<char>(rng() % 256) : "\0ab\xff"[rng() % 4]);
  return s;
}

TEST_F(StringArray, SortMatchesStableSortBothDirections) {
  std::mt19937_64 rng(7);
  auto byte_less = [](const std::string &x, const std::string &y) {
    return qel_mem_cmp(x.data(), static_cast<int64_t>(x.size()), y.data(), static_cast<int64_t>(y.size())) < 0;
  };
  for (size_t n : {0u, 1u, 2u, 5u, 100u, 128u, 129u, 1000u, 6000u}) {
    for (int kind : {0, 1, 2}) {
      for (int flag : {1, 0}) {
        qel_array_remove_all(&a);
        std::vector<std::pair<std::string, uint64_t>> expect;
        for (size_t i = 0; i < n; i++) {
          std::string s = random_string(rng, kind);
          add(&a, s, static_cast<uint32_t>(i));
          expect.emplace_back(s, i);
        }
        // Set a few strings so the pool is not in entry order.
        for (size_t i = 0; i < n / 10; i++) {
          const size_t k = rng() % n;
          std::string s = random_string(rng, kind) + "tail";
          qel_array_set_at(&a, static_cast<int64_t>(k), s.data(), static_cast<int64_t>(s.size()), static_cast<uint32_t>(k));
          expect[k].first = s;
        }
        std::stable_sort(expect.begin(), expect.end(), [&](const auto &x, const auto &y) {
          return flag != 0 ? byte_less(x.first, y.first) : byte_less(y.first, x.first);
        });
        qel_array_qsort(&a, flag);
        ASSERT_EQ(a.count, static_cast<int64_t>(n));
        for (size_t i = 0; i < n; i++) {
          ASSERT_EQ(at(&a, static_cast<int64_t>(i)), expect[i].first) << "n=" << n << " kind=" << kind << " flag=" << flag;
          ASSERT_EQ(a.entries[i].buf, expect[i].second) << "n=" << n << " kind=" << kind << " flag=" << flag;
        }
        if (flag != 0)
          for (size_t i = 0; i < n; i += 7) {
            const std::string &s = expect[i].first;
            const int64_t first = std::find_if(expect.begin(), expect.end(), [&](const auto &x) { return x.first == s; }) - expect.begin();
            ASSERT_EQ(qel_array_bfind_index(&a, s.data(), static_cast<int64_t>(s.size())), first);
          }
      }
    }
  }
}

TEST_F(StringArray, SortOfLongIdenticalStrings) {
  const std::string big(20000, 'm');
  for (int i = 0; i < 300; i++) add(&a, big, static_cast<uint32_t>(i));
  add(&a, big + "a", 1000);
  add(&a, big.substr(1), 1001);
  qel_array_qsort(&a, 0);
  EXPECT_EQ(a.entries[0].buf, 1000u);
  for (int i = 0; i < 300; i++) ASSERT_EQ(a.entries[1 + i].buf, static_cast<uint64_t>(i));
  EXPECT_EQ(a.entries[301].buf, 1001u);
}

// ---------------------------------------------------------------- keyed insert

TEST_F(StringArray, EntryInsertIsUniqueAndKeepsInsertionOrder) {
  std::mt19937_64 rng(9);
  std::vector<std::string> seen;
  for (int i = 0; i < 4000; i++) {
    std::string s = random_string(rng, i % 3);
    qel_array_entry *e = qel_array_entry_insert(&a, s.data(), static_cast<int64_t>(s.size()));
    ASSERT_NE(e, nullptr);
    auto it = std::find(seen.begin(), seen.end(), s);
    if (it == seen.end()) {
      ASSERT_EQ(e->buf, 0u);
      seen.push_back(s);
      e->buf = seen.size();
      it = seen.end() - 1;
    }
    ASSERT_EQ(e - a.entries, it - seen.begin());
    ASSERT_EQ(at(&a, e - a.entries), s);
  }
  EXPECT_EQ(a.count, static_cast<int64_t>(seen.size()));
}

TEST_F(StringArray, EntryInsertAfterAppendsSortsSetsAndDirectChanges) {
  auto ins = [this](const std::string &s) {
    return qel_array_entry_insert(&a, s.data(), static_cast<int64_t>(s.size())) - a.entries;
  };
  EXPECT_EQ(ins("m"), 0);
  add(&a, "k"); // plain appends keep the index
  add(&a, "k");
  EXPECT_EQ(ins("k"), 1);
  EXPECT_EQ(ins("m"), 0);
  qel_array_qsort(&a, 1); // k k m
  EXPECT_EQ(ins("m"), 2);
  EXPECT_EQ(ins("k"), 0);
  qel_array_set_at(&a, 0, "q", 1, 0); // q k m
  EXPECT_EQ(ins("q"), 0);
  EXPECT_EQ(ins("k"), 1);
  a.count = 1; // cut directly: k and m gone
  EXPECT_EQ(ins("m"), 1);
  EXPECT_EQ(a.count, 2);
  // Entries refilled in place after expand, at the same count.
  qel_array_expand(&a, 2);
  a.entries[1] = a.entries[0]; // both "q"
  EXPECT_EQ(ins("q"), 0);
  EXPECT_EQ(ins("m"), 2);
  qel_array_append_array(&a, &a);
  EXPECT_EQ(ins("m"), 2);
  EXPECT_EQ(ins("new"), 6);
  qel_array_remove_all(&a);
  EXPECT_EQ(ins("q"), 0);
  // A string from the array's own pool.
  const char *p;
  int64_t n;
  qel_array_get_at(&a, 0, &p, &n);
  EXPECT_EQ(qel_array_entry_insert(&a, p, n) - a.entries, 0);
  EXPECT_EQ(a.count, 1);
}

} // namespace
