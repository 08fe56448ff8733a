// Integer value arrays (qel_arrayd, qel_arrayx): growth, bounds, bulk
// operations, keyed insert, searches and the stable sorts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "qel_std.h"
#include "qel_std_internal.h"

namespace {

// One set of operations per array kind, so every test runs on both.
struct D {
  using A = qel_arrayd;
  using E = qel_arrayd_entry;
  using V = uint32_t;
  static void init(A *a) { qel_arrayd_init(a, 0); }
  static void term(A *a) { qel_arrayd_term(a); }
  static void append(A *a, V v, uint64_t b) { qel_arrayd_append(a, v, b); }
  static void append_array(A *d, const A *s) { qel_arrayd_append_array(d, s); }
  static void clone(const A *s, A *d) { qel_arrayd_clone(s, 0, d, 0, 0); }
  static void expand(A *a, int64_t n) { qel_arrayd_expand(a, n); }
  static void remove_all(A *a) { qel_arrayd_remove_all(a); }
  static int get_at(const A *a, int64_t i, V *o) { return qel_arrayd_get_at(a, i, o); }
  static void set_at(A *a, int64_t i, V v, uint64_t b) { qel_arrayd_set_at(a, i, v, b); }
  static int64_t find(const A *a, V v) { return qel_arrayd_find_index(a, v); }
  static int64_t bfind(const A *a, V v) { return qel_arrayd_bfind_index(a, v); }
  static E *insert(A *a, V v) { return qel_arrayd_entry_insert(a, v); }
  static void sort(A *a, int f) { qel_arrayd_qsort(a, f); }
  // Values spanning the whole unsigned range, so that order must be unsigned.
  static V wide(uint64_t r) { return static_cast<V>(r); }
  static bool before(V x, V y) { return x < y; }
};

struct X {
  using A = qel_arrayx;
  using E = qel_arrayx_entry;
  using V = int64_t;
  static void init(A *a) { qel_arrayx_init(a, 0); }
  static void term(A *a) { qel_arrayx_term(a); }
  static void append(A *a, V v, uint64_t b) { qel_arrayx_append(a, v, b); }
  static void append_array(A *d, const A *s) { qel_arrayx_append_array(d, s); }
  static void clone(const A *s, A *d) { qel_arrayx_clone(s, 0, d, 0, 0); }
  static void expand(A *a, int64_t n) { qel_arrayx_expand(a, n); }
  static void remove_all(A *a) { qel_arrayx_remove_all(a); }
  static int get_at(const A *a, int64_t i, V *o) { return qel_arrayx_get_at(a, i, o); }
  static void set_at(A *a, int64_t i, V v, uint64_t b) { qel_arrayx_set_at(a, i, v, b); }
  static int64_t find(const A *a, V v) { return qel_arrayx_find_index(a, v); }
  static int64_t bfind(const A *a, V v) { return qel_arrayx_bfind_index(a, v); }
  static E *insert(A *a, V v) { return qel_arrayx_entry_insert(a, v); }
  static void sort(A *a, int f) { qel_arrayx_qsort(a, f); }
  // Values of both signs, so that order must be signed.
  static V wide(uint64_t r) { return static_cast<V>(r); }
  static bool before(V x, V y) { return x < y; }
};

template <typename K>
class ValueArray : public ::testing::Test {
protected:
  typename K::A a{};
  typename K::A b{};
  void SetUp() override {
    K::init(&a);
    K::init(&b);
  }
  void TearDown() override {
    K::term(&a);
    K::term(&b);
  }
  // Every entry as (value, buf).
  std::vector<std::pair<typename K::V, uint64_t>> contents(const typename K::A &x) {
    std::vector<std::pair<typename K::V, uint64_t>> out;
    for (int64_t i = 0; i < x.count; i++) out.emplace_back(x.entries[i].value, x.entries[i].buf);
    return out;
  }
};

using Kinds = ::testing::Types<D, X>;
TYPED_TEST_SUITE(ValueArray, Kinds);

TYPED_TEST(ValueArray, GrowthZeroFillsEveryEntryUpToCapacity) {
  using K = TypeParam;
  for (uint64_t i = 0; i < 1000; i++) {
    K::append(&this->a, static_cast<typename K::V>(i + 1), i + 7);
    ASSERT_EQ(this->a.count, static_cast<int64_t>(i + 1));
    ASSERT_LE(this->a.count, this->a.capacity);
    for (int64_t k = this->a.count; k < this->a.capacity; k++) {
      ASSERT_EQ(this->a.entries[k].value, 0);
      ASSERT_EQ(this->a.entries[k].buf, 0u);
    }
  }
  // Raising count directly exposes zeros, and the next append goes behind.
  const int64_t cap = this->a.capacity;
  ASSERT_GT(cap, 1000);
  this->a.count = cap;
  typename K::V v = 99;
  EXPECT_EQ(K::get_at(&this->a, cap - 1, &v), 1);
  EXPECT_EQ(v, 0);
  K::append(&this->a, 5, 6);
  EXPECT_EQ(this->a.count, cap + 1);
  EXPECT_EQ(this->a.entries[cap].value, 5);
  EXPECT_EQ(this->a.entries[999].value, 1000);
}

TYPED_TEST(ValueArray, ExpandThenDirectWrites) {
  using K = TypeParam;
  K::append(&this->a, 1, 1);
  K::expand(&this->a, 50);
  ASSERT_GE(this->a.capacity, 50);
  EXPECT_EQ(this->a.count, 1);
  EXPECT_EQ(this->a.entries[0].value, 1);
  for (int64_t k = 1; k < this->a.capacity; k++) EXPECT_EQ(this->a.entries[k].buf, 0u);
  for (int64_t k = 0; k < 50; k++) {
    this->a.entries[k].value = static_cast<typename K::V>(100 + k);
    this->a.entries[k].buf = static_cast<uint64_t>(k);
  }
  this->a.count = 50;
  K::append(&this->a, 7, 8);
  ASSERT_EQ(this->a.count, 51);
  EXPECT_EQ(this->a.entries[50].value, 7);
  EXPECT_EQ(this->a.entries[49].value, 149);
  // Expanding below the capacity keeps everything.
  K::expand(&this->a, 3);
  K::expand(&this->a, -4);
  EXPECT_EQ(this->a.count, 51);
  EXPECT_EQ(this->a.entries[10].value, 110);
}

TYPED_TEST(ValueArray, OutOfRangeReadsAndWrites) {
  using K = TypeParam;
  K::append(&this->a, 10, 1);
  K::append(&this->a, 20, 2);
  typename K::V v = 77;
  EXPECT_EQ(K::get_at(&this->a, 1, &v), 1);
  EXPECT_EQ(v, 20);
  for (int64_t bad : {int64_t{-1}, int64_t{2}, INT64_MIN, INT64_MAX}) {
    v = 77;
    EXPECT_EQ(K::get_at(&this->a, bad, &v), 0);
    EXPECT_EQ(v, 0);
    K::set_at(&this->a, bad, 5, 5);
  }
  // An index below capacity but not below count is not in use either.
  ASSERT_GT(this->a.capacity, 2);
  K::set_at(&this->a, 2, 5, 5);
  EXPECT_EQ(this->a.entries[2].value, 0);
  K::set_at(&this->a, 0, 11, 12);
  EXPECT_EQ(this->contents(this->a), (std::vector<std::pair<typename K::V, uint64_t>>{{11, 12}, {20, 2}}));
}

TYPED_TEST(ValueArray, AppendArrayCloneAndRemoveAll) {
  using K = TypeParam;
  for (int i = 0; i < 5; i++) K::append(&this->a, static_cast<typename K::V>(i), static_cast<uint64_t>(i) * 10);
  K::append_array(&this->a, &this->a); // appending itself doubles it
  ASSERT_EQ(this->a.count, 10);
  EXPECT_EQ(this->a.entries[7].value, 2);
  EXPECT_EQ(this->a.entries[7].buf, 20u);

  K::append(&this->b, 42, 1);
  K::clone(&this->a, &this->b);
  EXPECT_EQ(this->contents(this->b), this->contents(this->a));
  for (int64_t k = this->b.count; k < this->b.capacity; k++) EXPECT_EQ(this->b.entries[k].value, 0);

  K::remove_all(&this->a);
  EXPECT_EQ(this->a.count, 0);
  K::append(&this->a, 3, 3);
  EXPECT_EQ(this->a.count, 1);
  EXPECT_EQ(K::find(&this->a, 3), 0);
}

TYPED_TEST(ValueArray, FindReturnsLowestIndex) {
  using K = TypeParam;
  for (int v : {5, 3, 5, 3, 9}) K::append(&this->a, static_cast<typename K::V>(v), 0);
  EXPECT_EQ(K::find(&this->a, 5), 0);
  EXPECT_EQ(K::find(&this->a, 3), 1);
  EXPECT_EQ(K::find(&this->a, 9), 4);
  EXPECT_EQ(K::find(&this->a, 4), -1);
  K::sort(&this->a, 1); // 3 3 5 5 9
  EXPECT_EQ(K::bfind(&this->a, 3), 0);
  EXPECT_EQ(K::bfind(&this->a, 5), 2);
  EXPECT_EQ(K::bfind(&this->a, 9), 4);
  EXPECT_EQ(K::bfind(&this->a, 4), -1);
  EXPECT_EQ(K::bfind(&this->a, 10), -1);
  EXPECT_EQ(K::bfind(&this->a, 0), -1);
}

TYPED_TEST(ValueArray, BfindAfterSortOfManyDuplicates) {
  using K = TypeParam;
  std::mt19937_64 rng(3);
  for (int i = 0; i < 3000; i++) K::append(&this->a, K::wide(rng() % 40 * 0x0123456789abcdefULL), 0);
  K::sort(&this->a, 1);
  for (uint64_t k = 0; k < 41; k++) {
    const typename K::V v = K::wide(k * 0x0123456789abcdefULL);
    int64_t expect = -1;
    for (int64_t i = 0; i < this->a.count && expect < 0; i++)
      if (this->a.entries[i].value == v) expect = i;
    EXPECT_EQ(K::bfind(&this->a, v), expect) << k;
  }
}

// Sorting against std::stable_sort on the same (value, buf) pairs.
TYPED_TEST(ValueArray, SortMatchesStableSortBothDirections) {
  using K = TypeParam;
  std::mt19937_64 rng(11);
  for (size_t n : {0u, 1u, 2u, 3u, 7u, 47u, 48u, 49u, 100u, 1000u, 20000u}) {
    for (int spread : {0, 1, 2}) {
      for (int flag : {1, 0, -3}) {
        K::remove_all(&this->a);
        for (size_t i = 0; i < n; i++) {
          uint64_t r = rng();
          // Wide values, many duplicates, or small values (skipped radix passes).
          typename K::V v = spread == 0 ? K::wide(r) : spread == 1 ? K::wide(r % 5) : K::wide(r % 300);
          K::append(&this->a, v, i);
        }
        auto expect = this->contents(this->a);
        const bool ascending = flag != 0;
        std::stable_sort(expect.begin(), expect.end(), [ascending](const auto &x, const auto &y) {
          return ascending ? K::before(x.first, y.first) : K::before(y.first, x.first);
        });
        K::sort(&this->a, flag);
        ASSERT_EQ(this->contents(this->a), expect) << "n=" << n << " spread=" << spread << " flag=" << flag;
      }
    }
  }
}

TEST(ValueArrayOrder, UnsignedForArraydSignedForArrayx) {
  qel_arrayd d;
  qel_arrayd_init(&d, 0);
  for (uint32_t v : {0x80000000u, 1u, 0xffffffffu, 0u}) qel_arrayd_append(&d, v, 0);
  qel_arrayd_qsort(&d, 1);
  EXPECT_EQ(d.entries[0].value, 0u);
  EXPECT_EQ(d.entries[1].value, 1u);
  EXPECT_EQ(d.entries[2].value, 0x80000000u);
  EXPECT_EQ(d.entries[3].value, 0xffffffffu);
  qel_arrayd_term(&d);

  qel_arrayx x;
  qel_arrayx_init(&x, 0);
  for (int64_t v : {int64_t{5}, INT64_MIN, int64_t{-1}, INT64_MAX, int64_t{0}}) qel_arrayx_append(&x, v, 0);
  qel_arrayx_qsort(&x, 0);
  const int64_t expect[] = {INT64_MAX, 5, 0, -1, INT64_MIN};
  for (int i = 0; i < 5; i++) EXPECT_EQ(x.entries[i].value, expect[i]);
  qel_arrayx_term(&x);
}

// ---------------------------------------------------------------- keyed insert

TYPED_TEST(ValueArray, EntryInsertIsUniqueAndKeepsInsertionOrder) {
  using K = TypeParam;
  std::mt19937_64 rng(5);
  std::vector<typename K::V> seen;
  for (int i = 0; i < 5000; i++) {
    typename K::V v = K::wide(rng() % 700);
    typename K::E *e = K::insert(&this->a, v);
    ASSERT_NE(e, nullptr);
    ASSERT_EQ(e->value, v);
    if (std::find(seen.begin(), seen.end(), v) == seen.end()) {
      seen.push_back(v);
      ASSERT_EQ(e->buf, 0u);
      e->buf = seen.size();
    }
    ASSERT_EQ(e - this->a.entries, std::find(seen.begin(), seen.end(), v) - seen.begin());
  }
  ASSERT_EQ(this->a.count, static_cast<int64_t>(seen.size()));
  for (size_t i = 0; i < seen.size(); i++) EXPECT_EQ(this->a.entries[i].buf, i + 1);
}

TYPED_TEST(ValueArray, EntryInsertFindsLowestAfterPlainAppends) {
  using K = TypeParam;
  K::insert(&this->a, 1);
  K::append(&this->a, 2, 20); // index updated
  K::append(&this->a, 2, 21); // duplicate appended plainly
  K::append(&this->a, 1, 22);
  EXPECT_EQ(K::insert(&this->a, 2) - this->a.entries, 1);
  EXPECT_EQ(K::insert(&this->a, 1) - this->a.entries, 0);
  K::append_array(&this->a, &this->a);
  EXPECT_EQ(this->a.count, 8);
  EXPECT_EQ(K::insert(&this->a, 2) - this->a.entries, 1);
  EXPECT_EQ(K::insert(&this->a, 3) - this->a.entries, 8);
  EXPECT_EQ(this->a.count, 9);
}

TYPED_TEST(ValueArray, EntryInsertAfterSortsSetsAndRemoveAll) {
  using K = TypeParam;
  for (int v : {30, 10, 20}) K::insert(&this->a, static_cast<typename K::V>(v));
  K::sort(&this->a, 1);
  EXPECT_EQ(K::insert(&this->a, 10) - this->a.entries, 0);
  EXPECT_EQ(K::insert(&this->a, 30) - this->a.entries, 2);
  K::set_at(&this->a, 0, 40, 0); // 40 20 30
  EXPECT_EQ(K::insert(&this->a, 40) - this->a.entries, 0);
  EXPECT_EQ(K::insert(&this->a, 10) - this->a.entries, 3);
  K::clone(&this->a, &this->b);
  EXPECT_EQ(K::insert(&this->b, 10) - this->b.entries, 3);
  K::remove_all(&this->a);
  EXPECT_EQ(K::insert(&this->a, 20) - this->a.entries, 0);
  EXPECT_EQ(this->a.count, 1);
}

TYPED_TEST(ValueArray, EntryInsertAfterDirectCountChangesAndExpand) {
  using K = TypeParam;
  for (int v : {1, 2, 3, 4}) K::insert(&this->a, static_cast<typename K::V>(v));
  // Count cut directly: 3 and 4 are gone and must be inserted anew.
  this->a.count = 2;
  EXPECT_EQ(K::insert(&this->a, 3) - this->a.entries, 2);
  EXPECT_EQ(K::insert(&this->a, 4) - this->a.entries, 3);
  // Count raised directly over entries written below capacity.
  this->a.entries[4].value = 9;
  this->a.count = 5;
  EXPECT_EQ(K::insert(&this->a, 9) - this->a.entries, 4);
  EXPECT_EQ(K::insert(&this->a, 4) - this->a.entries, 3);
  // Count cut and raised back to the value the index describes: still right.
  this->a.count = 1;
  this->a.count = 5;
  EXPECT_EQ(K::insert(&this->a, 3) - this->a.entries, 2);
  EXPECT_EQ(K::insert(&this->a, 1) - this->a.entries, 0);
  EXPECT_EQ(this->a.count, 5);
  // Expand, then refill every entry in place at the same count.
  K::expand(&this->a, 5);
  for (int64_t k = 0; k < 5; k++) this->a.entries[k].value = static_cast<typename K::V>(50 + k);
  EXPECT_EQ(K::insert(&this->a, 52) - this->a.entries, 2);
  EXPECT_EQ(K::insert(&this->a, 1) - this->a.entries, 5);
  EXPECT_EQ(this->a.count, 6);
  // A sort made by the variant library itself drops the index first.
  std::swap(this->a.entries[0], this->a.entries[5]);
  qel_detail::drop_lookup(&this->a);
  EXPECT_EQ(K::insert(&this->a, 1) - this->a.entries, 0);
  EXPECT_EQ(K::insert(&this->a, 50) - this->a.entries, 5);
}

// The inline paths of the shared header are what the exported functions run.
TEST(ValueArrayInline, HeaderPathsMatchExports) {
  qel_arrayx a;
  qel_arrayx_init(&a, 0);
  for (int64_t i = 0; i < 100; i++) qel_detail::append(&a, -i, static_cast<uint64_t>(i));
  EXPECT_EQ(a.count, 100);
  int64_t v = 1;
  EXPECT_EQ(qel_detail::get_at(&a, 99, &v), 1);
  EXPECT_EQ(v, -99);
  EXPECT_EQ(qel_detail::get_at(&a, 100, &v), 0);
  EXPECT_EQ(v, 0);
  qel_detail::set_at(&a, 3, 7, 8);
  EXPECT_EQ(qel_arrayx_find_index(&a, 7), 3);
  EXPECT_EQ(qel_arrayx_entry_insert(&a, -50)->buf, 50u);
  EXPECT_NE(a.priv_lookup, nullptr);
  qel_detail::append(&a, 1234, 0); // keeps the index, which must know 1234
  EXPECT_EQ(qel_arrayx_entry_insert(&a, 1234) - a.entries, 100);
  qel_arrayx_term(&a);
  EXPECT_EQ(a.entries, nullptr);
  EXPECT_EQ(a.priv_lookup, nullptr);
}

} // namespace
