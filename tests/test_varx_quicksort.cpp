// The float and double quicksort driven directly on hand-built entry arrays:
// the fixed orders of equal values and NaNs, the selection pass, the
// partition, and large arrays.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "internal/qel_float_sort.h"

namespace {

template <typename F>
struct kind;
template <>
struct kind<float> {
  using entry = qel_arrayd_entry;
  static entry make(float v, uint64_t buf) { return entry{std::bit_cast<uint32_t>(v), buf}; }
};
template <>
struct kind<double> {
  using entry = qel_arrayx_entry;
  static entry make(double v, uint64_t buf) { return entry{std::bit_cast<int64_t>(v), buf}; }
};

template <typename F>
using entries = std::vector<typename kind<F>::entry>;

// Entries holding `values`, caller value k for entry k.
template <typename F>
entries<F> build(const std::vector<double> &values) {
  entries<F> out(values.size());
  for (size_t k = 0; k < values.size(); ++k) out[k] = kind<F>::make(static_cast<F>(values[k]), k);
  return out;
}

template <typename F>
F value(const typename kind<F>::entry &e) {
  return std::bit_cast<F>(e.value);
}

template <typename F>
std::vector<uint64_t> bufs(const entries<F> &a) {
  std::vector<uint64_t> out;
  for (const auto &e : a) out.push_back(e.buf);
  return out;
}

template <typename F>
void sort(entries<F> &a, bool ascending) {
  if (ascending)
    qel::fsort::quicksort<F, true>(a.data(), static_cast<int64_t>(a.size()));
  else
    qel::fsort::quicksort<F, false>(a.data(), static_cast<int64_t>(a.size()));
}

// The algorithm written out a second time as plainly as possible, reading
// the pivot through its index at every test; the goldens below pin it down.
template <typename F>
void model_sort(entries<F> &a, bool asc) {
  auto v = [&](int64_t k) { return value<F>(a[static_cast<size_t>(k)]); };
  auto after = [&](int64_t x, int64_t y) { return asc ? v(x) > v(y) : v(x) < v(y); };
  auto at_or_before = [&](int64_t x, int64_t y) { return asc ? v(x) <= v(y) : v(x) >= v(y); };
  auto equal = [&](int64_t x, int64_t y) { return v(x) == v(y); };
  auto swap = [&](int64_t x, int64_t y) { std::swap(a[static_cast<size_t>(x)], a[static_cast<size_t>(y)]); };
  const auto n = static_cast<int64_t>(a.size());
  if (n < 2) return;
  std::vector<std::pair<int64_t, int64_t>> stack;
  int64_t lo = 0, hi = n - 1;
  for (;;) {
    const int64_t size = hi - lo + 1;
    bool next = false;
    if (size <= 8) {
      for (int64_t e = hi; e > lo; --e) {
        int64_t m = lo;
        for (int64_t p = lo + 1; p <= e; ++p)
          if (after(p, m)) m = p;
        swap(m, e);
      }
    } else {
      int64_t mid = lo + size / 2;
      if (after(lo, mid)) swap(lo, mid);
      if (after(lo, hi)) swap(lo, hi);
      if (after(mid, hi)) swap(mid, hi);
      int64_t i = lo, j = hi;
      for (;;) {
        if (mid > i) {
          ++i;
          while (i < mid && at_or_before(i, mid)) ++i;
        }
        if (mid <= i) {
          ++i;
          while (i <= hi && at_or_before(i, mid)) ++i;
        }
        --j;
        while (j > mid && after(j, mid)) --j;
        if (j < i) break;
        swap(i, j);
        if (mid == j) mid = i;
      }
      ++j;
      if (mid < j) {
        --j;
        while (j > mid && equal(j, mid)) --j;
      }
      if (mid >= j) {
        --j;
        while (j > lo && equal(j, mid)) --j;
      }
      if (j - lo >= hi - i) {
        if (lo < j) stack.emplace_back(lo, j);
        if (i < hi) lo = i, next = true;
      } else {
        if (i < hi) stack.emplace_back(i, hi);
        if (lo < j) hi = j, next = true;
      }
    }
    if (next) continue;
    if (stack.empty()) return;
    lo = stack.back().first;
    hi = stack.back().second;
    stack.pop_back();
  }
}

// Every caller value k still sits with value k of `original`, exactly once.
template <typename F>
void expect_same_entries(const entries<F> &sorted, const entries<F> &original) {
  ASSERT_EQ(sorted.size(), original.size());
  std::vector<unsigned char> seen(original.size(), 0);
  size_t bad = sorted.size();
  for (size_t k = 0; k < sorted.size() && bad == sorted.size(); ++k) {
    const auto &e = sorted[k];
    if (e.buf >= original.size() || seen[e.buf] || e.value != original[e.buf].value) bad = k;
    else seen[e.buf] = 1;
  }
  EXPECT_EQ(bad, sorted.size()) << "entry " << bad << " is lost, doubled or holds another value";
}

// No neighbour pair sorts the wrong way round (by the sort's own test).
template <typename F>
void expect_ordered(const entries<F> &a, bool asc) {
  size_t bad = 0;
  for (size_t k = 1; k < a.size() && bad == 0; ++k) {
    const F x = value<F>(a[k - 1]), y = value<F>(a[k]);
    if (asc ? x > y : x < y) bad = k;
  }
  EXPECT_EQ(bad, 0u) << "entries " << bad - 1 << " and " << bad << " are out of order";
}

template <typename F>
class QuickSort : public ::testing::Test {};
using FloatKinds = ::testing::Types<float, double>;
TYPED_TEST_SUITE(QuickSort, FloatKinds);

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TYPED_TEST(QuickSort, GoldenOrdersOfEqualValues) {
  const std::vector<double> v{3, 1, 3, 2, 3, 1, 2, 3, 1, 2};
  for (const bool asc : {true, false}) {
    auto a = build<TypeParam>(v);
    sort<TypeParam>(a, asc);
    const std::vector<uint64_t> want = asc ? std::vector<uint64_t>{1, 8, 5, 3, 6, 9, 7, 2, 0, 4}
                                           : std::vector<uint64_t>{7, 2, 4, 0, 3, 9, 6, 8, 5, 1};
    EXPECT_EQ(bufs<TypeParam>(a), want) << (asc ? "ascending" : "descending");
  }
}

TYPED_TEST(QuickSort, NaNExamples) {
  auto a = build<TypeParam>({kNaN, 3, 1});
  sort<TypeParam>(a, true);
  EXPECT_EQ(bufs<TypeParam>(a), (std::vector<uint64_t>{2, 1, 0}));  // 1, 3, NaN

  auto b = build<TypeParam>({3, kNaN, 1});
  sort<TypeParam>(b, true);
  EXPECT_EQ(bufs<TypeParam>(b), (std::vector<uint64_t>{1, 2, 0}));  // NaN, 1, 3
  EXPECT_TRUE(std::isnan(value<TypeParam>(b[0])));
}

TYPED_TEST(QuickSort, NineEntriesArePartitionedOnce) {
  // A selection pass over all nine would leave 1 3 6 2 8 4 0 7 5 (ascending).
  const std::vector<double> v{5, 1, 4, 1, 5, 9, 2, 6, 5};
  auto a = build<TypeParam>(v);
  sort<TypeParam>(a, true);
  EXPECT_EQ(bufs<TypeParam>(a), (std::vector<uint64_t>{1, 3, 6, 2, 4, 0, 8, 7, 5}));
  auto d = build<TypeParam>(v);
  sort<TypeParam>(d, false);
  EXPECT_EQ(bufs<TypeParam>(d), (std::vector<uint64_t>{5, 7, 0, 4, 8, 2, 6, 1, 3}));
}

TYPED_TEST(QuickSort, ShortArraysUseTheSelectionPass) {
  // Fewer than two entries: untouched.
  auto none = build<TypeParam>({});
  sort<TypeParam>(none, true);
  EXPECT_TRUE(none.empty());
  auto one = build<TypeParam>({kNaN});
  sort<TypeParam>(one, false);
  EXPECT_EQ(one[0].buf, 0u);

  // Two equal entries: the pass picks the lower index and exchanges it to the end.
  for (const bool asc : {true, false}) {
    auto two = build<TypeParam>({7, 7});
    sort<TypeParam>(two, asc);
    EXPECT_EQ(bufs<TypeParam>(two), (std::vector<uint64_t>{1, 0}));
  }
  auto eight = build<TypeParam>({2, 1, 2, 1, 2, 1, 2, 1});
  sort<TypeParam>(eight, true);
  EXPECT_EQ(bufs<TypeParam>(eight), (std::vector<uint64_t>{1, 5, 3, 7, 4, 6, 2, 0}));

  // Every array of 2..8 entries over three values (and a NaN at the
  // largest size) matches the plain transcription, both directions.
  for (size_t n = 2; n <= 8; ++n) {
    std::vector<double> v(n, 0.0);
    size_t combos = 1;
    for (size_t k = 0; k < n; ++k) combos *= 3;
    for (size_t c = 0; c < combos; ++c) {
      size_t x = c;
      for (size_t k = 0; k < n; ++k, x /= 3) v[k] = static_cast<double>(x % 3);
      if (n == 8) v[c % 8] = kNaN;
      for (const bool asc : {true, false}) {
        auto got = build<TypeParam>(v);
        auto want = got;
        sort<TypeParam>(got, asc);
        model_sort<TypeParam>(want, asc);
        ASSERT_EQ(bufs<TypeParam>(got), bufs<TypeParam>(want)) << "n=" << n << " combo " << c;
      }
    }
  }
}

TYPED_TEST(QuickSort, ComparesAsNumbersNotBits) {
  // -1.0 has the larger bit pattern; zeros of both signs are equal.
  auto a = build<TypeParam>({0.5, -1.0, -0.0, 0.0, -2.5, 3.0, -0.0, 1e30, -1e30, 0.25});
  const auto original = a;
  sort<TypeParam>(a, true);
  expect_ordered<TypeParam>(a, true);
  expect_same_entries<TypeParam>(a, original);
  EXPECT_EQ(value<TypeParam>(a[0]), static_cast<TypeParam>(-1e30));
  EXPECT_EQ(value<TypeParam>(a[2]), TypeParam(-1.0));
  EXPECT_EQ(value<TypeParam>(a[3]), TypeParam(0.0));
  EXPECT_EQ(value<TypeParam>(a[9]), static_cast<TypeParam>(1e30));
}

TYPED_TEST(QuickSort, MatchesThePlainTranscriptionOnRandomArrays) {
  std::mt19937_64 rng(42);
  for (int round = 0; round < 300; ++round) {
    const size_t n = rng() % 3000;
    const int distinct = 1 + static_cast<int>(rng() % 20);
    std::vector<double> v(n);
    for (auto &x : v) {
      const auto r = static_cast<int>(rng() % static_cast<uint64_t>(distinct + 2));
      x = r == distinct ? kNaN : r == distinct + 1 ? -0.0 : r - distinct / 2;
    }
    for (const bool asc : {true, false}) {
      auto got = build<TypeParam>(v);
      auto want = got;
      sort<TypeParam>(got, asc);
      model_sort<TypeParam>(want, asc);
      ASSERT_EQ(bufs<TypeParam>(got), bufs<TypeParam>(want)) << "round " << round << " n=" << n;
    }
  }
}

TYPED_TEST(QuickSort, RandomArraysSortLikeStdSort) {
  std::mt19937_64 rng(7);
  std::uniform_real_distribution<double> dist(-1e6, 1e6);
  for (const size_t n : {9u, 10u, 17u, 100u, 1000u, 65537u}) {
    std::vector<double> v(n);
    for (auto &x : v) x = dist(rng);
    for (const bool asc : {true, false}) {
      auto a = build<TypeParam>(v);
      const auto original = a;
      sort<TypeParam>(a, asc);
      expect_same_entries<TypeParam>(a, original);
      std::vector<TypeParam> want;
      for (const auto &e : original) want.push_back(value<TypeParam>(e));
      if (asc)
        std::sort(want.begin(), want.end());
      else
        std::sort(want.begin(), want.end(), std::greater<>());
      for (size_t k = 0; k < n; ++k) ASSERT_EQ(value<TypeParam>(a[k]), want[k]) << "n=" << n << " at " << k;
    }
  }
}

TYPED_TEST(QuickSort, MillionEntriesWithFewDistinctValues) {
  constexpr size_t n = 1000000;
  std::mt19937_64 rng(2024);
  for (const int distinct : {1, 3}) {
    std::vector<double> v(n);
    for (auto &x : v) x = static_cast<double>(rng() % static_cast<uint64_t>(distinct)) * 0.5 - 2.0;
    for (const bool asc : {true, false}) {
      auto a = build<TypeParam>(v);
      const auto original = a;
      sort<TypeParam>(a, asc);
      expect_ordered<TypeParam>(a, asc);
      expect_same_entries<TypeParam>(a, original);
    }
  }
}

TYPED_TEST(QuickSort, PresortedOrReversedArrays) {
  constexpr size_t n = 200000;
  std::vector<double> up(n), down(n);
  for (size_t k = 0; k < n; ++k) {
    up[k] = static_cast<double>(k);
    down[k] = static_cast<double>(n - k);
  }
  for (const auto *v : {&up, &down}) {
    for (const bool asc : {true, false}) {
      auto a = build<TypeParam>(*v);
      const auto original = a;
      sort<TypeParam>(a, asc);
      expect_ordered<TypeParam>(a, asc);
      expect_same_entries<TypeParam>(a, original);
    }
  }
}

}  // namespace
