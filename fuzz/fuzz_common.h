// The one helper of the model drivers: an input reader that never fails,
// value pickers that favour collisions and limits, the reference conversions
// (written here independently of the library, so that the models do not
// inherit its mistakes), a model of a value array's entries up to its
// capacity, and the two ways a driver runs: as a libFuzzer target (QEL_FUZZ)
// or as a GoogleTest over fixed seeds and the committed corpus.
#ifndef QEL_FUZZ_COMMON_H
#define QEL_FUZZ_COMMON_H

#include <qel_std.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace fz {

// Reads the input front to back; past the end every read gives 0.
class Reader {
 public:
  Reader(const uint8_t *data, size_t size) : p_(data), n_(size) {}
  bool empty() const { return n_ == 0; }
  uint8_t u8() {
    if (n_ == 0) return 0;
    --n_;
    return *p_++;
  }
  uint16_t u16() { return static_cast<uint16_t>(u8() | (u8() << 8)); }
  uint32_t u32() { return u16() | (static_cast<uint32_t>(u16()) << 16); }
  uint64_t u64() { return u32() | (static_cast<uint64_t>(u32()) << 32); }
  unsigned pick(unsigned n) { return u8() % n; }
  bool flag() { return (u8() & 1) != 0; }
  template <class T, size_t N>
  T of(const T (&list)[N]) {
    return list[u8() % N];
  }

 private:
  const uint8_t *p_;
  size_t n_;
};

inline std::string g_input;  // the test's current input (a seed or a corpus file), for the failure message

[[noreturn]] inline void fail(const char *file, int line, const char *what, const char *detail) {
  std::fprintf(stderr, "\n*** model mismatch at %s:%d: %s\n    %s\n    input: %s\n", file, line, what, detail,
               g_input.c_str());
  std::fflush(stderr);
  std::abort();
}

// QEL_FUZZ_TRACE=1 prints every decoded operation (for minimised reproducers).
inline bool tracing() {
  static const bool on = std::getenv("QEL_FUZZ_TRACE") != nullptr;
  return on;
}

// One operation of a model driver under the name its traces print: a member
// of the Step that holds what the driver decoded before it, returning whether
// the model is checked whole afterwards (a read checks what it read).
template <class Step>
struct Operation {
  const char *name;
  bool (Step::*run)();
};

}  // namespace fz

#define FZ_TRACE(...)                                                                 \
  do {                                                                                \
    if (::fz::tracing()) std::fprintf(stderr, __VA_ARGS__), std::fputc('\n', stderr); \
  } while (0)

// FZ_CHECK(condition, printf-style detail...): a mismatch aborts, so libFuzzer
// keeps the input and the GoogleTest run fails.
#define FZ_CHECK(cond, ...)                                      \
  do {                                                           \
    if (!(cond)) {                                               \
      char fz_detail_[512];                                      \
      std::snprintf(fz_detail_, sizeof fz_detail_, __VA_ARGS__); \
      ::fz::fail(__FILE__, __LINE__, #cond, fz_detail_);         \
    }                                                            \
  } while (0)

namespace fz {

// ---- value pickers: mostly small values (equal keys are common), sometimes
// limits, sometimes raw bits

inline uint32_t pick_u32(Reader &r) {
  static const uint32_t kSpecial[] = {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 0x3F800000u, 0x7FC00000u};
  const uint8_t sel = r.u8();
  if (sel < 150) return sel % 8u;
  return sel < 220 ? kSpecial[sel % 7] : r.u32();
}

inline int64_t pick_i64(Reader &r) {
  static const int64_t kSpecial[] = {
      0, 1, -1, INT64_MAX, INT64_MIN, 0xFFFFFFFF, 1ll << 32, 0x3FF0ll << 48, 0x7FF8ll << 48, (1ll << 53) + 1};
  const uint8_t sel = r.u8();
  if (sel < 150) return static_cast<int64_t>(sel % 8u) - 2;
  return sel < 220 ? kSpecial[sel % 10] : static_cast<int64_t>(r.u64());
}

inline double pick_double(Reader &r) {
  constexpr double inf = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();
  static const double kSpecial[] = {0.0,     -0.0,           0.5,    -2.75,        2.9,    -2.9,
                                    0.1,     1e300,          -1e300, 4294967295.0, 0x1p32, 0x1p63,
                                    -0x1p63, 0x1.ffffffp127, inf,    -inf,         nan,    0x1p-1074};
  const uint8_t sel = r.u8();
  if (sel < 120) return static_cast<double>(static_cast<int>(sel % 8u) - 3);
  return sel < 220 ? kSpecial[sel % 18] : std::bit_cast<double>(r.u64());
}

// Nearest float, ties to even; beyond the float range an infinity.
inline float narrow(double d) {
  if (d >= 0x1.ffffffp127) return std::numeric_limits<float>::infinity();
  if (d <= -0x1.ffffffp127) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(d);
}

inline float pick_float(Reader &r) { return r.u8() < 200 ? narrow(pick_double(r)) : std::bit_cast<float>(r.u32()); }

// Short byte strings over a tiny alphabet (collisions, zero bytes, spaces),
// sometimes raw bytes.
inline std::string pick_string(Reader &r, size_t max_len = 8) {
  static const char kAlphabet[] = {'a', 'b', '\0', ' ', '\t', 'z', '\xff', 'a'};
  const uint8_t head = r.u8();
  std::string s(head % (max_len + 1), '\0');
  for (char &c : s) c = (head & 0xC0) == 0xC0 ? static_cast<char>(r.u8()) : kAlphabet[r.u8() % 8];
  return s;
}

// An index: mostly small, sometimes negative or far out of range.
inline int64_t pick_index(Reader &r, int64_t count) {
  static const int64_t kOdd[] = {-1, -2, INT64_MIN, INT64_MAX, 0x100000000ll, -0x100000000ll};
  const uint8_t sel = r.u8();
  if (sel < 160) return count > 0 ? static_cast<int64_t>(r.u8()) % (count + 2) : static_cast<int64_t>(r.u8() % 3);
  return sel < 230 ? kOdd[sel % 6] : static_cast<int64_t>(r.u64());
}

// ---- reference conversions between the caller's kinds and the four stored
// number kinds (bits of the stored value: 32-bit kinds in the low half)

enum class Num { none, u32, i64, f32, f64 };

// Round toward zero to int64; NaN and out-of-range give INT64_MIN.
inline int64_t truncate(double d) {
  if (!(d >= -9223372036854775808.0 && d < 9223372036854775808.0)) return INT64_MIN;
  return static_cast<int64_t>(d);
}
inline uint64_t low32(int64_t v) { return static_cast<uint32_t>(static_cast<uint64_t>(v)); }
inline uint64_t fbits(float f) { return std::bit_cast<uint32_t>(f); }
inline float bitsf(uint64_t b) { return std::bit_cast<float>(static_cast<uint32_t>(b)); }
inline uint64_t dbits(double d) { return std::bit_cast<uint64_t>(d); }
inline double bitsd(uint64_t b) { return std::bit_cast<double>(b); }

inline uint64_t store_int(Num k, int64_t v) {
  if (k == Num::u32 || k == Num::i64) return k == Num::u32 ? low32(v) : static_cast<uint64_t>(v);
  return k == Num::f32 ? fbits(static_cast<float>(v)) : k == Num::f64 ? dbits(static_cast<double>(v)) : 0;
}
inline uint64_t store_double(Num k, double d) {
  if (k == Num::u32 || k == Num::i64) return k == Num::u32 ? low32(truncate(d)) : static_cast<uint64_t>(truncate(d));
  return k == Num::f32 ? fbits(narrow(d)) : k == Num::f64 ? dbits(d) : 0;
}
inline uint64_t store_float(Num k, float f) { return store_double(k, static_cast<double>(f)); }
inline int64_t read_int(Num k, uint64_t b) {
  if (k == Num::u32 || k == Num::i64)
    return k == Num::u32 ? static_cast<int64_t>(b & 0xFFFFFFFFu) : static_cast<int64_t>(b);
  return k == Num::f32 ? truncate(static_cast<double>(bitsf(b))) : k == Num::f64 ? truncate(bitsd(b)) : 0;
}
inline float read_float(Num k, uint64_t b) {  // integers round once, straight to float
  if (k == Num::u32 || k == Num::i64)
    return k == Num::u32 ? static_cast<float>(static_cast<uint32_t>(b)) : static_cast<float>(static_cast<int64_t>(b));
  return k == Num::f32 ? bitsf(b) : k == Num::f64 ? narrow(bitsd(b)) : 0.0f;
}
inline double read_double(Num k, uint64_t b) {
  if (k == Num::u32 || k == Num::i64)
    return k == Num::u32 ? static_cast<double>(static_cast<uint32_t>(b)) : static_cast<double>(static_cast<int64_t>(b));
  return k == Num::f32 ? static_cast<double>(bitsf(b)) : k == Num::f64 ? bitsd(b) : 0.0;
}

// Equality of floating results by bits, except that any NaN equals any NaN
// (NaN payloads are not part of the contract of conversions).
inline bool same_float(float a, float b) { return (std::isnan(a) && std::isnan(b)) || fbits(a) == fbits(b); }
inline bool same_double(double a, double b) { return (std::isnan(a) && std::isnan(b)) || dbits(a) == dbits(b); }
inline bool same_value(Num k, uint64_t a, uint64_t b) {
  if (k == Num::f32) return same_float(bitsf(a), bitsf(b));
  if (k == Num::f64) return same_double(bitsd(a), bitsd(b));
  return a == b;
}

// A number in one of the caller's four kinds (0 integer, 1 long, 2 float,
// 3 double) and the bits it is stored as in kind k.
struct Number {
  unsigned kind;
  int64_t i;
  float f;
  double d;
  uint64_t bits(Num k) const { return kind < 2 ? store_int(k, i) : kind == 2 ? store_float(k, f) : store_double(k, d); }
};
inline Number pick_number(Reader &r) {
  Number n{r.pick(4), 0, 0.0f, 0.0};
  if (n.kind < 2) n.i = pick_i64(r);
  else if (n.kind == 2) n.f = pick_float(r);
  else n.d = pick_double(r);
  return n;
}

// The four readers of a stored value against the reference (k none: all 0).
inline void check_reads(Num k, uint64_t bits, int64_t gi, int64_t gl, float gf, double gd, const char *where) {
  FZ_CHECK(gi == read_int(k, bits) && gl == gi, "%s: integer/long reads %ld/%ld, model %ld", where, gi, gl,
           read_int(k, bits));
  FZ_CHECK(same_float(gf, read_float(k, bits)), "%s: float read %a, model %a", where, (double)gf,
           (double)read_float(k, bits));
  FZ_CHECK(same_double(gd, read_double(k, bits)), "%s: double read %a, model %a", where, gd, read_double(k, bits));
}

// Byte order of the string arrays: unsigned bytes, then the shorter first.
inline int bytes_order(const std::string &a, const std::string &b) {
  const int c = std::memcmp(a.data(), b.data(), std::min(a.size(), b.size()));
  if (c != 0) return c < 0 ? -1 : 1;
  return (a.size() > b.size()) - (a.size() < b.size());
}

inline int sign(int64_t v) { return (v > 0) - (v < 0); }

// ---- a value array's entries up to the capacity last seen

enum class St : uint8_t { known, zero, unknown };

struct Slot {
  St st = St::zero;
  uint64_t v = 0;  // the value's bits (numbers)
  std::string s;   // the bytes (strings)
  uint64_t buf = 0;
};

struct Arr {
  std::vector<Slot> slots;
  int64_t count = 0, cap = 0;
  bool sorted = true;  // ascending by the container's own order, as far as known

  Slot &at(int64_t i) { return slots[static_cast<size_t>(i)]; }
  const Slot &at(int64_t i) const { return slots[static_cast<size_t>(i)]; }
  // Entries above the count that the model knew may have been rewritten.
  void forget_above() {
    for (size_t i = static_cast<size_t>(count); i < slots.size(); ++i)
      if (slots[i].st == St::known) slots[i].st = St::unknown;
  }
  void push(uint64_t v, const std::string &s, uint64_t buf) {
    if (static_cast<int64_t>(slots.size()) <= count) slots.resize(static_cast<size_t>(count + 1));
    at(count++) = Slot{St::known, v, s, buf};
    sorted = false;
    forget_above();
  }
  void set(int64_t i, uint64_t v, const std::string &s, uint64_t buf) {
    at(i) = Slot{St::known, v, s, buf};
    sorted = false;
    forget_above();
  }
  int64_t lowest(uint64_t v, const std::string &s, bool bytes) const {
    for (int64_t i = 0; i < count; ++i)
      if (bytes ? slots[static_cast<size_t>(i)].s == s : slots[static_cast<size_t>(i)].v == v) return i;
    return -1;
  }
  void clear() { *this = Arr{}; }
};

inline Slot entry(const qel_arrayd &a, int64_t i) { return Slot{St::known, a.entries[i].value, {}, a.entries[i].buf}; }
inline Slot entry(const qel_arrayx &a, int64_t i) {
  return Slot{St::known, static_cast<uint64_t>(a.entries[i].value), {}, a.entries[i].buf};
}
inline Slot entry(const qel_array &a, int64_t i) {
  const qel_array_entry &e = a.entries[i];
  FZ_CHECK(static_cast<int64_t>(e.offset) + e.length <= a.pool.length, "string entry %ld outside the pool", i);
  return Slot{St::known, e.offset, std::string(a.pool.bytes ? a.pool.bytes + e.offset : "", e.length), e.buf};
}

// A slot of the model matches an entry (strings: bytes; numbers: bits).
inline bool same_slot(Num k, const Slot &want, const Slot &got) {
  return want.buf == got.buf && (k == Num::none ? want.s == got.s : same_value(k, want.v, got.v));
}

// Compares a value array with its model (k none: a string array) and follows
// its capacity: entries gained by growth are zero, older ones above the count
// are forgotten.
template <class A>
void check_array(const A &a, Arr &m, Num k, const char *where) {
  FZ_CHECK(a.count == m.count && a.capacity >= a.count, "%s: count %ld capacity %ld, model count %ld", where, a.count,
           a.capacity, m.count);
  if (a.capacity > m.cap) {
    m.slots.resize(std::max(m.slots.size(), static_cast<size_t>(a.capacity)));
    for (int64_t i = std::max(m.count, m.cap); i < a.capacity; ++i) m.at(i) = Slot{};
    for (int64_t i = m.count; i < m.cap; ++i)
      if (m.at(i).st == St::known) m.at(i).st = St::unknown;
  }
  m.cap = a.capacity;
  m.slots.resize(static_cast<size_t>(a.capacity));
  for (int64_t i = 0; i < a.capacity; ++i) {
    Slot &s = m.at(i);
    if (i < m.count) {
      const Slot got = entry(a, i);
      FZ_CHECK(same_slot(k, s, got), "%s[%ld]: %lx/%zu bytes/buf %lx, model %lx/%zu bytes/buf %lx", where, i, got.v,
               got.s.size(), got.buf, s.v, s.s.size(), s.buf);
      if (k != Num::none) s.v = got.v;  // NaN payloads as stored
    } else if (s.st == St::zero) {
      const Slot got = entry(a, i);
      FZ_CHECK(got.v == 0 && got.s.empty() && got.buf == 0, "%s[%ld]: entry above the count %ld not zero", where, i,
               m.count);
    }
  }
}

// Raises the model's count to n (up to the capacity) over what the array holds
// there: zero where it grew, unchanged where the model still knew the entry.
template <class A>
void expose(const A &a, Arr &m, Num k, int64_t n, const char *where) {
  for (int64_t i = m.count; i < n; ++i) {
    Slot got = entry(a, i);
    if (m.at(i).st == St::zero)
      FZ_CHECK(got.v == 0 && got.s.empty() && got.buf == 0, "%s: exposed entry %ld not zero", where, i);
    if (m.at(i).st == St::known)
      FZ_CHECK(same_slot(k, m.at(i), got), "%s: exposed entry %ld changed above the count", where, i);
    if (k == Num::none) got.v = 0;
    m.at(i) = got;
  }
  if (n > m.count) m.sorted = false;
  m.count = n;
}

// After a sort of a value array (k none: strings): the entries in order
// (order(x, y) < 0: x first; unchecked while a NaN is held) and the same as
// before, caller values along; the model takes the new order.
template <class A, class Order>
void check_sort(const A &a, Arr &m, Num k, bool up, Order order, const char *where) {
  std::vector<Slot> got;
  bool nan = false;
  for (int64_t i = 0; i < m.count; ++i) {
    got.push_back(entry(a, i));
    if (k == Num::none) got.back().v = 0;
    nan =
        nan || (k == Num::f32 && std::isnan(bitsf(got.back().v))) || (k == Num::f64 && std::isnan(bitsd(got.back().v)));
  }
  for (size_t i = 1; i < got.size() && !nan; ++i)
    FZ_CHECK(up ? order(got[i - 1], got[i]) <= 0 : order(got[i - 1], got[i]) >= 0, "%s: out of order at %zu", where, i);
  auto key = [](const Slot &s) { return std::make_tuple(s.v, s.s, s.buf); };
  std::vector<std::tuple<uint64_t, std::string, uint64_t>> before, after;
  for (size_t i = 0; i < got.size(); ++i) before.push_back(key(m.slots[i])), after.push_back(key(got[i]));
  std::sort(before.begin(), before.end());
  std::sort(after.begin(), after.end());
  FZ_CHECK(before == after, "%s: entries lost or changed", where);
  if (k != Num::f32 && k != Num::f64) {  // the container sorts are stable: every entry's place is known
    std::vector<Slot> want(m.slots.begin(), m.slots.begin() + m.count);
    std::stable_sort(want.begin(), want.end(),
                     [&](const Slot &x, const Slot &y) { return up ? order(x, y) < 0 : order(x, y) > 0; });
    for (size_t i = 0; i < got.size(); ++i)
      FZ_CHECK(same_slot(k, want[i], got[i]) && want[i].s == got[i].s, "%s: entry %zu not where a stable sort puts it",
               where, i);
  }
  std::copy(got.begin(), got.end(), m.slots.begin());
  m.sorted = (up && k != Num::f32 && k != Num::f64) || m.count < 2;
  m.forget_above();
}

// A string argument: bytes with an explicit length, a text measured by the
// library (negative length), NULL, or bytes that live in the library's own
// storage (possibly the destination's, which may move while it is copied).
struct Text {
  const char *ext = nullptr;  // bytes in the library's storage, or NULL
  bool own = false;           // the bytes are `owned`
  int64_t len = 0;
  std::string value;  // what the library should store
  std::string owned;
  const char *p() const { return own ? owned.c_str() : ext; }
};

// A tail of bytes p[0..n) (n > 0), or false when there are none.
inline bool inside(Reader &r, const char *p, int64_t n, Text &t) {
  if (n <= 0) return false;
  const int64_t off = r.u8() % n;
  t.ext = p + off;
  t.len = n - off;
  t.value.assign(t.ext, static_cast<size_t>(t.len));
  return true;
}

// A string argument from the input (how: 0 measured, 1 NULL, else bytes).
inline Text outside(Reader &r, unsigned how, bool allow_measure = true) {
  Text t;
  t.own = how != 1;
  if (how == 1) {
    t.len = allow_measure && r.flag() ? -1 : 0;
    return t;
  }
  t.owned = pick_string(r, how == 0 ? 12 : r.flag() ? 24 : 6);
  t.len = static_cast<int64_t>(t.owned.size());
  t.value = t.owned;
  if (how == 0 && allow_measure) {
    t.len = -1 - static_cast<int64_t>(r.u8() % 3);
    t.value = std::string(t.owned.c_str());  // up to the first zero byte
  }
  return t;
}

}  // namespace fz

#ifndef QEL_FUZZ
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

// The driver as a test: a few hundred inputs from fixed seeds (sizes from a
// few bytes to a few KiB), then every committed corpus input.
#define QEL_MODEL_TEST(Name) \
  TEST(Model, Name) { ::fz::run_model(QEL_CORPUS_DIR "/fuzz_" #Name); }

namespace fz {
inline void run_model(const char *corpus) {
  LLVMFuzzerInitialize(nullptr, nullptr);
  uint64_t x = 0x9E3779B97F4A7C15ull;
  auto next = [&x] {
    uint64_t z = (x += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  };
  for (int seed = 0; seed < 300; ++seed) {
    std::vector<uint8_t> in(8 + next() % (seed % 4 == 0 ? 8000 : 1500));
    for (uint8_t &b : in) b = static_cast<uint8_t>(next());
    g_input = "seed " + std::to_string(seed);
    LLVMFuzzerTestOneInput(in.data(), in.size());
  }
  for (const auto &f : std::filesystem::directory_iterator(corpus)) {
    g_input = f.path().string();
    std::ifstream s(f.path(), std::ios::binary);
    const std::vector<uint8_t> in((std::istreambuf_iterator<char>(s)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(in.data(), in.size());
  }
}
}  // namespace fz
#endif

#endif
