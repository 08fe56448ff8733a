// The 32-bit limits at full size: a string pool reaching 4 GiB and a column
// set reaching 2^32 values are refused without corrupting what they hold.
// They need about 12 GiB and tens of seconds, so they run only with QEL_BIG=1:
//   QEL_BIG=1 build/test/tests/test_big_limits
// 2^32 values would need 64 GiB of entries: that boundary is reached with the
// value array placed in a reserved range.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <qel.hpp>
#include <vector>

namespace {

constexpr int64_t kMiB = int64_t{1} << 20, kChunk = 256 * kMiB, k4GiB = int64_t{1} << 32;

class BigLimits : public ::testing::Test {
 protected:
  void SetUp() override {
    const char *big = std::getenv("QEL_BIG");
    if (big == nullptr || std::strcmp(big, "1") != 0) GTEST_SKIP() << "set QEL_BIG=1 to run (needs about 12 GiB)";
  }
};

// The bytes of string k: a pattern that any shift or overwrite changes.
const char *fill(std::vector<char> &buf, int64_t len, int k) {
  buf.resize(static_cast<size_t>(len));
  for (int64_t i = 0; i < len; ++i) buf[static_cast<size_t>(i)] = static_cast<char>((i * 131 + k * 7) % 251);
  return buf.data();
}

bool holds(std::string_view s, int64_t want_len, int k) {
  std::vector<char> want;
  return static_cast<int64_t>(s.size()) == want_len && s == std::string_view(fill(want, want_len, k), s.size());
}

// An address range of the given size that costs no memory until touched.
struct Reserved {
  void *p;
  size_t size;
  Reserved(size_t n, int prot) : size(n) {
    p = mmap(nullptr, n, prot, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  }
  ~Reserved() {
    if (p != MAP_FAILED) munmap(p, size);
  }
};

TEST_F(BigLimits, StringPoolReaching4GiBIsRefusedAndKeepsItsStrings) {
  std::vector<char> buf;
  qel_array a, c;
  qel_array_init(&a, 0);
  for (int k = 0; k < 16; ++k) {  // 15 x 256 MiB, then up to 4 GiB - 1 MiB: still fits
    const int64_t len = k == 15 ? kChunk - kMiB : kChunk;
    qel_array_append(&a, fill(buf, len, k), len, static_cast<uint32_t>(k));
  }
  ASSERT_EQ(a.pool.length, k4GiB - kMiB);
  qel_array_append(&a, fill(buf, 2 * kMiB, 16), 2 * kMiB, 16);  // past 4 GiB
  EXPECT_EQ(a.count, 16);
  EXPECT_EQ(a.pool.length, k4GiB - kMiB);
  {
    Reserved zeros(static_cast<size_t>(k4GiB), PROT_READ);  // a string of 4 GiB
    qel_array_init(&c, 0);
    qel_array_append(&c, static_cast<const char *>(zeros.p), k4GiB, 1);
    EXPECT_EQ(c.count, 0);
    qel_array_append(&c, fill(buf, 2 * kMiB, 17), 2 * kMiB, 17);
    qel_array_append_array(&c, &a);  // 2 MiB + (4 GiB - 1 MiB): refused whole
    EXPECT_EQ(c.count, 1);
    EXPECT_EQ(c.pool.length, 2 * kMiB);
    qel_array_term(&c);
  }
  // Sets that cannot be placed below 4 GiB must not use the spare capacity
  // beyond it (the second one's offset would not fit in 32 bits).
  qel_array_set_at(&a, 15, fill(buf, 300 * kMiB, 18), 300 * kMiB, 18);
  qel_array_set_at(&a, 14, fill(buf, 301 * kMiB, 18), 301 * kMiB, 18);
  EXPECT_LT(a.pool.length, k4GiB);
  qel_array_set_at(&a, 0, fill(buf, kMiB, 19), kMiB, 19);  // fits in entry 0's own bytes
  for (int k = 0; k < 16; ++k) {
    const char *p = nullptr;
    int64_t len = -1;
    EXPECT_EQ(qel_array_get_at(&a, k, &p, &len), k == 0 ? 19u : static_cast<uint32_t>(k));
    EXPECT_TRUE(holds({p, static_cast<size_t>(len)},
                      k == 0    ? kMiB
                      : k == 15 ? kChunk - kMiB
                                : kChunk,
                      k ? k : 19))
        << k;
  }
  qel_array_term(&a);
}

TEST_F(BigLimits, ColumnSetStringPoolReaching4GiBIsRefusedWhole) {
  std::vector<char> buf;
  qel::xvars xs(qel::xcode::bytes, qel::form::multi);
  for (int k = 0; k < 16; ++k) {  // one new entry each, up to 4 GiB - 1 MiB
    const int64_t len = k == 15 ? kChunk - kMiB : kChunk;
    qel_xvars_add_string(xs.get(), k, fill(buf, len, k), len);
  }
  ASSERT_EQ(xs.get()->data.array.pool.length, k4GiB - kMiB);
  qel_xvars_add_string(xs.get(), 16, fill(buf, 2 * kMiB, 16), 2 * kMiB);  // a new entry past 4 GiB
  qel_xvars_add_string(xs.get(), 15, buf.data(), 2 * kMiB);               // the last entry past 4 GiB
  EXPECT_EQ(xs.size(), 16);
  EXPECT_EQ(xs.entry_size(15), 1);
  qel::xvar x(qel::xcode::bytes, qel::form::multi);  // two strings of 1 MiB: refused whole
  x.add(std::string_view(fill(buf, kMiB, 20), kMiB));
  x.add(std::string_view(buf.data(), kMiB));
  xs.add_var(x);
  EXPECT_EQ(xs.size(), 16);
  EXPECT_EQ(xs.get()->data.array.count, 16);
  EXPECT_EQ(xs.get()->data.array.pool.length, k4GiB - kMiB);
  qel_xvars_set_string(xs.get(), 15, 0, fill(buf, 300 * kMiB, 21), 300 * kMiB);  // cannot be placed below 4 GiB
  qel_xvars_set_string(xs.get(), 14, 0, fill(buf, 301 * kMiB, 21), 301 * kMiB);
  EXPECT_LT(xs.get()->data.array.pool.length, k4GiB);
  for (int k = 0; k < 16; ++k)
    EXPECT_TRUE(holds(xs.get<std::string_view>(k, 0), k == 15 ? kChunk - kMiB : kChunk, k)) << k;
  // A light variant whose own pool is nearly full cannot take an entry either.
  x.shrink(0);
  for (int k = 0; k < 15; ++k) x.add(std::string_view(fill(buf, kChunk, 30 + k), kChunk));
  ASSERT_EQ(x.size(), 15);
  xs.fetch(3, x);  // 3840 MiB + 256 MiB: refused whole
  x.add(std::string_view(fill(buf, kChunk, 40), kChunk));
  EXPECT_EQ(x.size(), 15);
  for (int k = 0; k < 15; ++k) EXPECT_TRUE(holds(x.get<std::string_view>(k), kChunk, 30 + k)) << "light variant " << k;
}

// Holding `held` = 2^32 - 3 values: three more are refused whole, two are
// taken, then no more (into the last entry or a new one).
void check_value_boundary(qel_xvars *xs, int64_t held) {
  const int64_t entries = qel_xvars_size(xs);
  qel::xvar x(qel::xcode::u32, qel::form::multi);
  x.add_all({100, 101, 102});
  qel_xvars_add_var(xs, x.get());
  EXPECT_EQ(qel_xvars_size(xs), entries);
  x.shrink(2);
  qel_xvars_add_var(xs, x.get());
  ASSERT_EQ(qel_xvars_size(xs), entries + 1);
  EXPECT_EQ(xs->data.arrayd.count, held + 2);
  EXPECT_EQ(qel_xvars_get_integer(xs, entries, 1), 101);
  qel_xvars_add_integer(xs, entries, 7);
  qel_xvars_add_integer(xs, entries + 1, 7);
  x.shrink(0);
  x.add(5);
  qel_xvars_add_var(xs, x.get());
  EXPECT_EQ(qel_xvars_size(xs), entries + 1);
  EXPECT_EQ(qel_xvars_get_size(xs, entries), 2);
  EXPECT_EQ(xs->data.arrayd.count, held + 2);
  EXPECT_EQ(qel_xvars_get_integer(xs, 0, 0), 1);
  EXPECT_EQ(qel_xvars_get_integer(xs, 0, 2), 3);
}

TEST_F(BigLimits, ColumnSetValueBoundaryInReservedRange) {
  // The value array moves to a reserved range of 2^32 + 16 entries, touched
  // only where values are written, and its count is set as if filled; the
  // original block is put back before the column set is freed.
  qel::xvars xs(qel::xcode::u32, qel::form::multi);
  qel::xvar x(qel::xcode::u32, qel::form::multi);
  x.add_all({1, 2, 3});
  xs.add_var(x);
  Reserved range(static_cast<size_t>(k4GiB + 16) * sizeof(qel_arrayd_entry), PROT_READ | PROT_WRITE);
  ASSERT_NE(range.p, MAP_FAILED);
  qel_xvars *p = xs.get();
  const qel_arrayd saved = p->data.arrayd;
  std::memcpy(range.p, saved.entries, 3 * sizeof(qel_arrayd_entry));
  p->data.arrayd.entries = static_cast<qel_arrayd_entry *>(range.p);
  p->data.arrayd.capacity = k4GiB + 16;
  p->data.arrayd.count = k4GiB - 3;
  p->index.entries[0].buf = static_cast<uint64_t>(k4GiB - 3);  // entry 0 holds them all
  check_value_boundary(p, k4GiB - 3);
  p->data.arrayd = saved;
}

}  // namespace
