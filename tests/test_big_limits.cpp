// The 32-bit limits, at full size: a string pool reaching 4 GiB and a column
// set reaching 2^32 values are refused without corrupting what they hold.
//
// These tests need several GiB of memory and tens of seconds, so they run
// only with QEL_BIG=1 in the environment (GTEST_SKIP otherwise):
//   QEL_BIG=1 build/test/tests/test_big_limits
// A column set of 2^32 values needs 64 GiB for its entries alone; that test
// runs for real only on a machine with enough memory, and a second test
// reaches the same boundary with the value array placed in a reserved,
// untouched 64 GiB address range.
#include <gtest/gtest.h>
#include <qel.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr int64_t kMiB = int64_t{1} << 20;
constexpr int64_t kChunk = 256 * kMiB;
constexpr int64_t k4GiB = int64_t{1} << 32;

class BigLimits : public ::testing::Test {
 protected:
  void SetUp() override {
    const char *big = std::getenv("QEL_BIG");
    if (big == nullptr || std::strcmp(big, "1") != 0) GTEST_SKIP() << "set QEL_BIG=1 to run (needs about 12 GiB)";
  }
};

// The bytes of string k: a pattern that any shift or overwrite changes.
void fill(std::vector<char> &buf, int64_t len, int k) {
  buf.resize(static_cast<size_t>(len));
  for (int64_t i = 0; i < len; ++i) buf[static_cast<size_t>(i)] = static_cast<char>((i * 131 + k * 7) % 251);
}

bool holds(const char *p, int64_t len, int64_t want_len, int k, std::vector<char> &scratch) {
  if (len != want_len || p == nullptr) return false;
  fill(scratch, want_len, k);
  return std::memcmp(p, scratch.data(), static_cast<size_t>(want_len)) == 0;
}

// A read-only range of zero bytes of the given size that costs no memory.
struct Reserved {
  void *p = MAP_FAILED;
  size_t size = 0;
  Reserved(size_t n, int prot) : size(n) { p = mmap(nullptr, n, prot, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0); }
  ~Reserved() {
    if (p != MAP_FAILED) munmap(p, size);
  }
  Reserved(const Reserved &) = delete;
  Reserved &operator=(const Reserved &) = delete;
};

// ---------------------------------------------------------------- qel_array

TEST_F(BigLimits, StringPoolReaching4GiBIsRefusedAndKeepsItsStrings) {
  std::vector<char> buf, scratch;
  qel_array a;
  qel_array_init(&a, 0);
  for (int k = 0; k < 15; ++k) {  // 15 x 256 MiB = 3840 MiB
    fill(buf, kChunk, k);
    qel_array_append(&a, buf.data(), kChunk, static_cast<uint32_t>(k));
  }
  fill(buf, kChunk - kMiB, 15);  // up to 4 GiB - 1 MiB: still fits
  qel_array_append(&a, buf.data(), kChunk - kMiB, 15);
  ASSERT_EQ(a.count, 16);
  ASSERT_EQ(a.pool.length, k4GiB - kMiB);

  // Past 4 GiB: an append, a string of 4 GiB, a set that cannot be placed,
  // and an append of a whole array into a pool that cannot take it.
  fill(buf, 2 * kMiB, 16);
  qel_array_append(&a, buf.data(), 2 * kMiB, 16);
  EXPECT_EQ(a.count, 16);
  EXPECT_EQ(a.pool.length, k4GiB - kMiB);
  {
    Reserved zeros(static_cast<size_t>(k4GiB), PROT_READ);
    ASSERT_NE(zeros.p, MAP_FAILED);
    qel_array b;
    qel_array_init(&b, 0);
    qel_array_append(&b, static_cast<const char *>(zeros.p), k4GiB, 1);
    EXPECT_EQ(b.count, 0) << "a string of 4 GiB was stored";
    EXPECT_EQ(b.pool.length, 0);
    qel_array_term(&b);
  }
  {
    qel_array c;
    qel_array_init(&c, 0);
    fill(buf, 2 * kMiB, 17);
    qel_array_append(&c, buf.data(), 2 * kMiB, 17);
    qel_array_append_array(&c, &a);  // 2 MiB + (4 GiB - 1 MiB): refused whole
    EXPECT_EQ(c.count, 1);
    EXPECT_EQ(c.pool.length, 2 * kMiB);
    qel_array_term(&c);
  }
  // Sets that cannot be placed below 4 GiB (no dead bytes to reclaim): the
  // pool's spare capacity beyond 4 GiB must not be used, or the second one's
  // offset would not fit in 32 bits.
  fill(buf, 300 * kMiB, 18);
  qel_array_set_at(&a, 15, buf.data(), 300 * kMiB, 18);
  fill(buf, 301 * kMiB, 18);
  qel_array_set_at(&a, 14, buf.data(), 301 * kMiB, 18);
  EXPECT_EQ(a.count, 16);
  EXPECT_LT(a.pool.length, k4GiB) << "the pool passed 4 GiB";
  fill(buf, kMiB, 19);
  qel_array_set_at(&a, 0, buf.data(), kMiB, 19);  // fits in entry 0's own bytes

  for (int k = 0; k < 16; ++k) {
    const char *p = nullptr;
    int64_t len = -1;
    const uint32_t tag = qel_array_get_at(&a, k, &p, &len);
    if (k == 0) {
      EXPECT_TRUE(holds(p, len, kMiB, 19, scratch)) << "entry 0 after its set";
      EXPECT_EQ(tag, 19u);
    } else {
      EXPECT_TRUE(holds(p, len, k == 15 ? kChunk - kMiB : kChunk, k, scratch)) << "entry " << k << " corrupted";
      EXPECT_EQ(tag, static_cast<uint32_t>(k));
    }
  }
  qel_array_term(&a);
}

// ---------------------------------------------------------------- column set pool

TEST_F(BigLimits, ColumnSetStringPoolReaching4GiBIsRefusedWhole) {
  std::vector<char> buf, scratch;
  qel_xvars *xs = qel_xvars_new(5, 1);
  for (int k = 0; k < 15; ++k) {
    fill(buf, kChunk, k);
    qel_xvars_add_string(xs, k, buf.data(), kChunk);  // one new entry each
  }
  fill(buf, kChunk - kMiB, 15);
  qel_xvars_add_string(xs, 15, buf.data(), kChunk - kMiB);
  ASSERT_EQ(qel_xvars_size(xs), 16);
  const int64_t pool = xs->data.array.pool.length;
  ASSERT_EQ(pool, k4GiB - kMiB);

  fill(buf, 2 * kMiB, 16);
  qel_xvars_add_string(xs, 16, buf.data(), 2 * kMiB);  // a new entry past 4 GiB
  EXPECT_EQ(qel_xvars_size(xs), 16);
  qel_xvars_add_string(xs, 15, buf.data(), 2 * kMiB);  // the last entry, past 4 GiB
  EXPECT_EQ(qel_xvars_get_size(xs, 15), 1);

  qel_xvar *x = qel_xvar_new(5, 1);  // two strings of 1 MiB: refused whole
  fill(buf, kMiB, 20);
  qel_xvar_add_string(x, buf.data(), kMiB);
  qel_xvar_add_string(x, buf.data(), kMiB);
  qel_xvars_add_var(xs, x);
  EXPECT_EQ(qel_xvars_size(xs), 16);
  EXPECT_EQ(xs->data.array.count, 16);
  EXPECT_EQ(xs->data.array.pool.length, pool);

  fill(buf, 300 * kMiB, 21);
  qel_xvars_set_string(xs, 15, 0, buf.data(), 300 * kMiB);  // cannot be placed below 4 GiB
  fill(buf, 301 * kMiB, 21);
  qel_xvars_set_string(xs, 14, 0, buf.data(), 301 * kMiB);
  EXPECT_LT(xs->data.array.pool.length, k4GiB) << "the pool passed 4 GiB";

  for (int k = 0; k < 16; ++k) {
    const char *p = nullptr;
    int64_t len = -1;
    qel_xvars_get_string(xs, k, 0, &p, &len);
    EXPECT_TRUE(holds(p, len, k == 15 ? kChunk - kMiB : kChunk, k, scratch)) << "entry " << k << " corrupted";
  }

  // A light variant whose own pool is nearly full cannot take an entry either.
  qel_xvar_shrink(x, 0);
  for (int k = 0; k < 15; ++k) {
    fill(buf, kChunk, 30 + k);
    qel_xvar_add_string(x, buf.data(), kChunk);
  }
  ASSERT_EQ(qel_xvar_size(x), 15);
  qel_xvars_fetch_var(xs, 3, x);  // 3840 MiB + 256 MiB > 4 GiB - 1: refused whole
  EXPECT_EQ(qel_xvar_size(x), 15);
  fill(buf, kChunk, 40);
  qel_xvar_add_string(x, buf.data(), kChunk);  // and the light variant's own append too
  EXPECT_EQ(qel_xvar_size(x), 15);
  for (int k = 0; k < 15; ++k) {
    const char *p = nullptr;
    int64_t len = -1;
    qel_xvar_get_string(x, k, &p, &len);
    EXPECT_TRUE(holds(p, len, kChunk, 30 + k, scratch)) << "light variant entry " << k << " corrupted";
  }
  qel_xvar_free(x);
  qel_xvars_free(xs);
}

// ---------------------------------------------------------------- 2^32 values

// Appends to a column set that holds `held` values (2^32 - 3) and checks the
// boundary: three more values are refused whole, two are taken, then no more.
void check_value_boundary(qel_xvars *xs, int64_t held) {
  const int64_t entries = qel_xvars_size(xs);
  qel_xvar *x = qel_xvar_new(1, 1);
  for (int i = 0; i < 3; ++i) qel_xvar_add_integer(x, 100 + i);
  qel_xvars_add_var(xs, x);  // would make 2^32: refused whole
  EXPECT_EQ(qel_xvars_size(xs), entries);
  EXPECT_EQ(xs->data.arrayd.count, held);
  qel_xvar_shrink(x, 2);
  qel_xvars_add_var(xs, x);  // 2^32 - 1 in all: taken
  ASSERT_EQ(qel_xvars_size(xs), entries + 1);
  EXPECT_EQ(xs->data.arrayd.count, held + 2);
  EXPECT_EQ(qel_xvars_get_size(xs, entries), 2);
  EXPECT_EQ(qel_xvars_get_integer(xs, entries, 1), 101);
  qel_xvars_add_integer(xs, entries, 7);      // into the last entry: refused
  qel_xvars_add_integer(xs, entries + 1, 7);  // a new entry: refused
  qel_xvar_shrink(x, 0);
  qel_xvar_add_integer(x, 5);
  qel_xvars_add_var(xs, x);
  EXPECT_EQ(qel_xvars_size(xs), entries + 1);
  EXPECT_EQ(qel_xvars_get_size(xs, entries), 2);
  EXPECT_EQ(xs->data.arrayd.count, held + 2);
  // The first values are intact.
  EXPECT_EQ(qel_xvars_get_integer(xs, 0, 0), 1);
  EXPECT_EQ(qel_xvars_get_integer(xs, 0, 2), 3);
  qel_xvar_free(x);
}

TEST_F(BigLimits, ColumnSetReaching2To32ValuesIsRefused) {
  // 2^32 entries of 16 bytes: 64 GiB, plus a light variant of 32 GiB to
  // fill it from, plus room to grow.
  const int64_t phys = static_cast<int64_t>(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGESIZE);
  if (phys < 128 * (int64_t{1} << 30))
    GTEST_SKIP() << "needs 128 GiB of memory, this machine has " << (phys >> 30)
                 << " GiB; ColumnSetValueBoundaryInReservedRange covers the boundary";
  qel_xvars *xs = qel_xvars_new(1, 1);
  qel_xvar *x = qel_xvar_new(1, 1);
  for (int i = 1; i <= 3; ++i) qel_xvar_add_integer(x, i);
  qel_xvars_add_var(xs, x);
  // Fill up to 2^32 - 3 values with one whole light variant of 2^31 values,
  // then one of the rest (the light variant's count is raised over zeros).
  const int64_t big = int64_t{1} << 31;
  qel_xvar_shrink(x, 0);
  qel_arrayd_expand(&x->data.arrayd, big);
  qel_xvar_shrink(x, big);
  ASSERT_EQ(qel_xvar_size(x), big);
  qel_xvars_add_var(xs, x);
  qel_xvar_shrink(x, big - 6);
  qel_xvars_add_var(xs, x);
  qel_xvar_free(x);
  ASSERT_EQ(xs->data.arrayd.count, k4GiB - 3);
  check_value_boundary(xs, k4GiB - 3);
  qel_xvars_free(xs);
}

TEST_F(BigLimits, ColumnSetValueBoundaryInReservedRange) {
  // The same boundary without 64 GiB of memory: the value array is moved to
  // a reserved range of 2^32 + 16 entries that is only touched where values
  // are written, and its count is set to 2^32 - 3 as if it had been filled.
  // (The column set only ever sees a larger array; the original block is put
  // back before it is freed.)
  qel_xvars *xs = qel_xvars_new(1, 1);
  qel_xvar *x = qel_xvar_new(1, 1);
  for (int i = 1; i <= 3; ++i) qel_xvar_add_integer(x, i);
  qel_xvars_add_var(xs, x);
  qel_xvar_free(x);
  ASSERT_EQ(xs->data.arrayd.count, 3);

  const int64_t slots = k4GiB + 16;
  Reserved range(static_cast<size_t>(slots) * sizeof(qel_arrayd_entry), PROT_READ | PROT_WRITE);
  ASSERT_NE(range.p, MAP_FAILED);
  qel_arrayd saved = xs->data.arrayd;
  auto *entries = static_cast<qel_arrayd_entry *>(range.p);
  std::memcpy(entries, saved.entries, 3 * sizeof *entries);
  xs->data.arrayd.entries = entries;
  xs->data.arrayd.capacity = slots;
  xs->data.arrayd.count = k4GiB - 3;
  xs->index.entries[0].buf = static_cast<uint64_t>(k4GiB - 3);  // entry 0 holds them all

  check_value_boundary(xs, k4GiB - 3);

  xs->data.arrayd = saved;
  qel_xvars_free(xs);
}

}  // namespace
