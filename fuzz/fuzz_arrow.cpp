// Fuzz target for the Arrow importer: the input builds an Arrow array (formats, lengths, offsets, slices,
// bitmaps, children, dictionaries, views, buffer counts, released nodes), every buffer exactly as large as
// the array promises, so AddressSanitizer sees any read past a promise.  A failed import leaves the
// destination as it was; a successful one exports and imports back equal.
#include <qel_arrow.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "../tests/arrow/arrow_hand.h"
#include "fuzz_common.h"

namespace {

qel_schema *g_rec, *g_child;  // 20: a:4 b:7 c:6* d:21 e:21*; 21: x:5 y:7* z:1
qel_schema *resolver(void *, uint32_t type) { return type == 20 ? g_rec : type == 21 ? g_child : nullptr; }

using node = hand::col;

class builder {
 public:
  explicit builder(fz::Reader &r) : r_(r) {}

  // A node of `length` rows (after its offset), nested at most `depth` more;
  // a struct's children mostly named as the test schemas' members.
  std::unique_ptr<node> make(int64_t length, int depth) {
    static const char *kFormats[] = {"c", "C", "s", "S",  "i",  "I",  "l",  "L",    "f",  "g", "b",
                                     "z", "u", "Z", "vu", "+s", "+l", "+L", "+w:2", "+s", "n", "e"};
    static const char *kNames[] = {"a", "b", "c", "d", "e", "x", "y", "z", "value", "a.buf", "q"};
    auto n = std::make_unique<node>();
    n->format = kFormats[r_.pick(depth > 0 ? 22 : 15)];
    n->name = r_.of(kNames);
    const int64_t offset = r_.pick(4) == 0 ? r_.pick(5) : 0;
    const int64_t end = offset + std::max<int64_t>(length, 0);  // a negative length gets buffers for none
    const std::string &f = n->format;
    std::vector<int64_t> sizes;  // view data buffer sizes
    const bool with_nulls = r_.pick(3) == 0;
    n->bytes.push_back(with_nulls ? bytes(static_cast<size_t>((end + 7) / 8)) : std::vector<uint8_t>());
    if (f == "n") n->bytes.clear();
    const size_t width = f == "c" || f == "C" ? 1 : f == "s" || f == "S" ? 2 : f == "l" || f == "L" || f == "g" ? 8 : 4;
    if (f.size() == 1 && f != "z" && f != "u" && f != "Z" && f != "n") {
      n->bytes.push_back(bytes(f == "b" ? static_cast<size_t>((end + 7) / 8) : static_cast<size_t>(end) * width));
      if ((f == "c" || f == "C" || f == "i") && depth > 0 && r_.pick(3) == 0) {  // dictionary indexes
        for (uint8_t &b : n->bytes.back()) b = static_cast<uint8_t>(b % 5);
        n->dict = make(r_.pick(5), 0);
      }
    } else if (f == "z" || f == "u" || f == "Z") {
      int64_t data = 0;
      n->bytes.push_back(offsets(end, f == "Z", &data));
      n->bytes.push_back(bytes(static_cast<size_t>(data)));
    } else if (f == "vu") {
      const int64_t variadic = r_.pick(3);
      std::vector<uint8_t> views(static_cast<size_t>(end) * 16);
      for (int64_t i = 0; i < end; ++i) {
        const int32_t v[4] = {static_cast<int32_t>(r_.pick(24)) - 1, static_cast<int32_t>(r_.u32()),
                              static_cast<int32_t>(r_.pick(4)) - 1, static_cast<int32_t>(r_.pick(12)) - 1};
        std::memcpy(views.data() + i * 16, v, 16);
      }
      n->bytes.push_back(views);
      for (int64_t k = 0; k < variadic; ++k) {
        n->bytes.push_back(bytes(r_.pick(32)));
        sizes.push_back(static_cast<int64_t>(n->bytes.back().size()));
      }
      n->bytes.push_back(std::vector<uint8_t>(sizes.size() * 8));
      if (!sizes.empty()) std::memcpy(n->bytes.back().data(), sizes.data(), sizes.size() * 8);
    } else if (f == "+l" || f == "+L") {
      int64_t child = 0;
      n->bytes.push_back(offsets(end, f == "+L", &child));
      n->kids.push_back(make(child + (r_.pick(4) == 0 ? static_cast<int64_t>(r_.pick(3)) - 1 : 0), depth - 1));
    } else if (f == "+w:2") {
      n->kids.push_back(make(2 * end - (r_.pick(6) == 0 ? 1 : 0), depth - 1));
    } else if (f == "+s") {
      const unsigned kids = r_.pick(6);
      for (unsigned k = 0; k < kids; ++k) n->kids.push_back(make(end - (r_.pick(8) == 0 ? 1 : 0), depth - 1));
    }
    wire(*n, length, offset, with_nulls);
    return n;
  }

 private:
  std::vector<uint8_t> bytes(size_t n) {
    std::vector<uint8_t> out(n);
    for (uint8_t &b : out) b = r_.pick(4) == 0 ? r_.u8() : static_cast<uint8_t>('a' + r_.pick(3));
    return out;
  }

  // end + 1 offsets, mostly rising by small steps, sometimes falling or
  // negative; *limit gets the largest.
  std::vector<uint8_t> offsets(int64_t end, bool large, int64_t *limit) {
    std::vector<int64_t> o(static_cast<size_t>(end + 1));
    int64_t at = r_.pick(8) == 0 ? -1 : static_cast<int64_t>(r_.pick(3));
    for (int64_t &v : o) {
      v = at;
      at += r_.pick(10) == 0 ? -2 : static_cast<int64_t>(r_.pick(4));
    }
    *limit = 0;
    for (int64_t v : o) *limit = std::max(*limit, v);
    std::vector<uint8_t> out(o.size() * (large ? 8 : 4));
    for (size_t i = 0; i < o.size(); ++i) {
      const auto v32 = static_cast<int32_t>(o[i]);
      if (large) std::memcpy(out.data() + i * 8, &o[i], 8);
      else std::memcpy(out.data() + i * 4, &v32, 4);
    }
    return out;
  }

  void wire(node &n, int64_t length, int64_t offset, bool with_nulls) {
    // A wrong buffer count (not for views: their count is free, and their
    // last buffer must then hold the sizes, which no consumer can check).
    const bool miscount = r_.pick(16) == 0 && n.format != "vu", fewer = !n.bytes.empty() && r_.flag();
    if (miscount && !fewer) n.bytes.emplace_back();
    n.a.offset = offset;
    n.a.null_count = with_nulls ? -1 : 0;
    n.wire(length);
    if (miscount && fewer) --n.a.n_buffers;
    if (r_.pick(40) == 0) n.a.release = nullptr;
  }

  fz::Reader &r_;
};

const struct {
  uint32_t type;
  uint8_t multi;
} kShapes[] = {{20, 1}, {20, 1}, {21, 1}, {1, 1}, {4, 1}, {5, 1}, {6, 1}, {7, 1}, {20, 0}};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  if (g_rec != nullptr) return 0;
  g_rec = hand::schema("a:4 b:7 c:6* d:21 e:21*");
  g_child = hand::schema("x:5 y:7* z:1");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fz::Reader r(data, size);
  const auto &shape = kShapes[r.pick(sizeof kShapes / sizeof kShapes[0])];
  const unsigned flags =
      r.u8() & (QEL_ARROW_SKIP_NULLS | QEL_ARROW_ROUND_FLOATS | QEL_ARROW_SKIP_UNKNOWN | QEL_ARROW_CALLER_VALUES);
  builder b(r);
  std::unique_ptr<node> root = b.make(r.pick(9), 3);
  qel_var *dst = qel_var_new_x(shape.type, shape.multi, nullptr, resolver);
  if (shape.type == 4) qel_var_add_long(dst, 42);  // a destination holding a value already
  qel_var *before = qel_var_new_x(shape.type, shape.multi, nullptr, resolver);
  qel_var_copy(before, dst);
  qel_arrow_error err;
  const int rc = qel_arrow_import(dst, &root->s, &root->a, nullptr, resolver, flags, &err);
  FZ_CHECK(err.code == rc, "error code %d, result %d", err.code, rc);
  if (rc != QEL_ARROW_OK) {
    FZ_CHECK(rc >= QEL_ARROW_ERR_INVALID && rc <= QEL_ARROW_ERR_UNKNOWN, "import gave %d", rc);
    FZ_CHECK(std::memchr(err.message, '\0', sizeof err.message) != nullptr && err.message[0] != '\0', "no message");
    FZ_CHECK(qel_var_equal(dst, before), "failed import (%d: %s) changed the destination", rc, err.message);
  } else {  // what was read exports and reads back the same
    ArrowSchema s;
    ArrowArray a;
    const unsigned bufs = flags & QEL_ARROW_CALLER_VALUES;
    FZ_CHECK(qel_arrow_export_var(dst, bufs, &s, &a, &err) == QEL_ARROW_OK, "imported rows export: %s", err.message);
    qel_var_change(before, shape.type, static_cast<uint8_t>(shape.multi + 1));  // fresh, then back to the shape
    qel_var_change(before, shape.type, shape.multi);
    const int ri = qel_arrow_import(before, &s, &a, nullptr, resolver, bufs, &err);
    FZ_CHECK(ri == QEL_ARROW_OK && qel_var_equal(before, dst), "re-import gave %d (%s)", ri, err.message);
    s.release(&s);
    a.release(&a);
  }
  qel_var_free(before);
  qel_var_free(dst);
  return 0;
}

#ifndef QEL_FUZZ
QEL_MODEL_TEST(arrow)
#endif
