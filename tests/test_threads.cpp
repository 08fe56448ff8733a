// Two threads each build, fill, copy, sort, search and free their own
// variants (full and light, and a column set) while sharing one set of
// schemas and one resolver read-only.  Run under ThreadSanitizer (the tsan
// preset) this shows that the library keeps no hidden shared state: every
// static, cache or lazily built table would show up as a data race.  Each
// thread also checks its own results, so interference shows up as wrong
// values even without the sanitizer.
#include <gtest/gtest.h>
#include <qel.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr uint32_t kOuter = 30;  // record: id, name, scores, tags, child, items
constexpr uint32_t kInner = 31;  // record: value, label, codes

struct Shared {
  qel_schema *outer = nullptr;
  qel_schema *inner = nullptr;
};

qel_schema *resolve(void *context, uint32_t type) {
  const auto *shared = static_cast<const Shared *>(context);
  if (type == kOuter) return shared->outer;
  if (type == kInner) return shared->inner;
  return nullptr;
}

// A small deterministic generator per thread.
struct Rng {
  uint64_t s;
  uint64_t next() {
    s ^= s << 13;
    s ^= s >> 7;
    s ^= s << 17;
    return s;
  }
};

std::string fail(const char *what, int round) { return std::string(what) + " (round " + std::to_string(round) + ")"; }

std::string str_of(const qel_var *v, int64_t i) {
  const char *p = nullptr;
  int64_t n = 0;
  qel_var_get_string(v, i, &p, &n);
  return p ? std::string(p, static_cast<size_t>(n)) : std::string("<null>");
}

// One thread's whole life: returns "" or a description of the first wrong result.
std::string work(const Shared *shared, uint64_t seed, int rounds, std::atomic<int> *start) {
  // Start both threads' work at the same moment.
  start->fetch_add(1);
  while (start->load() < 2) std::this_thread::yield();

  Rng rng{seed * 0x9E3779B97F4A7C15ull + 1};
  for (int round = 0; round < rounds; ++round) {
    qel_var *rec = qel_var_new_x(kOuter, 0, const_cast<Shared *>(shared), resolve);
    if (qel_var_schema(rec) != shared->outer) return fail("outer schema not resolved", round);

    const int64_t id = static_cast<int64_t>(seed) * 100000 + round;
    qel_var_set_long(qel_var_get_val(rec, "id", 2), 0, id);
    const std::string name = "thread" + std::to_string(seed) + "-" + std::to_string(round);
    qel_var_set_string(qel_var_get_val(rec, "name", 4), 0, name.c_str(), -1);

    qel_var *scores = qel_var_get_val(rec, "scores", 6);
    qel_var *tags = qel_var_get_val(rec, "tags", 4);
    const int n = 200 + static_cast<int>(rng.next() % 200);
    for (int i = 0; i < n; ++i) {
      qel_var_add_double(scores, static_cast<double>(rng.next() % 50) - 25.0);
      qel_var_set_buf(scores, -1, static_cast<uint64_t>(i));
      const std::string t = "t" + std::to_string(rng.next() % 64);
      qel_var_add_string(tags, t.data(), static_cast<int64_t>(t.size()));
    }

    qel_var *child = qel_var_get_val(rec, "child", 5);
    if (child == nullptr || qel_var_schema(child) != shared->inner) return fail("child record not built", round);
    qel_var_set_float(qel_var_get_val(child, "value", 5), 0, 1.5f);
    qel_var *codes = qel_var_get_val(child, "codes", 5);
    for (int i = 0; i < n; ++i) qel_var_add_integer(codes, static_cast<int64_t>(rng.next() % 1000));

    qel_var *items = qel_var_get_val(rec, "items", 5);
    for (int i = 0; i < 4; ++i) {
      qel_var *item = qel_var_add_new(items);
      if (item == nullptr || qel_var_schema(item) != shared->inner) return fail("add_new", round);
      qel_var *label = qel_var_new(8, 0);
      qel_var_set_string(label, 0, name.c_str(), -1);
      qel_var_set_val(item, "label", 5, label);
      qel_var_free(label);
    }

    // A deep copy into a fresh variant, then sorts on the copy only.
    qel_var *copy = qel_var_new(0, 0);
    qel_var_copy(copy, rec);
    qel_var *cscores = qel_var_get_val(copy, "scores", 6);
    qel_var *ctags = qel_var_get_val(copy, "tags", 4);
    qel_var *ccodes = qel_var_get_val(qel_var_get_val(copy, "child", 5), "codes", 5);
    if (cscores == nullptr || ctags == nullptr || ccodes == nullptr) return fail("copy lost members", round);
    qel_var_qsort(cscores, 1);
    qel_var_qsort(ctags, 0);
    qel_var_qsort(ccodes, 1);
    if (qel_var_size(cscores) != n || qel_var_size(ctags) != n || qel_var_size(ccodes) != n)
      return fail("sizes after sort", round);
    for (int64_t i = 1; i < n; ++i) {
      if (qel_var_get_double(cscores, i - 1) > qel_var_get_double(cscores, i)) return fail("double order", round);
      if (str_of(ctags, i - 1) < str_of(ctags, i)) return fail("string order", round);
      if (qel_var_get_integer(ccodes, i - 1) > qel_var_get_integer(ccodes, i)) return fail("integer order", round);
    }
    // Every caller value still travels with its value.
    for (int64_t i = 0; i < n; ++i) {
      const uint64_t b = qel_var_get_buf(cscores, i);
      if (b >= static_cast<uint64_t>(n) || qel_var_get_double(scores, static_cast<int64_t>(b)) != qel_var_get_double(cscores, i))
        return fail("caller value separated from its value", round);
    }
    // The original is untouched by the sorts of the copy.
    for (int64_t i = 0; i < n; ++i)
      if (qel_var_get_buf(scores, i) != static_cast<uint64_t>(i)) return fail("original changed", round);
    const int64_t probe = qel_var_get_integer(ccodes, n / 2);
    const int64_t at = qel_var_bfind(ccodes, &probe, 0);
    if (at < 0 || qel_var_get_integer(ccodes, at) != probe) return fail("bfind after sort", round);
    if (qel_var_get_long(qel_var_get_val(copy, "id", 2), 0) != id) return fail("id in copy", round);
    if (str_of(qel_var_get_val(copy, "name", 4), 0) != name) return fail("name in copy", round);
    if (qel_var_size(qel_var_get_val(copy, "items", 5)) != 4) return fail("items in copy", round);

    // Light variants and a column set of this thread.
    qel_xvars *col = qel_xvars_new(4, 1);
    qel_xvar *row = qel_xvar_new(4, 1);
    for (int r = 0; r < 16; ++r) {
      qel_xvar_shrink(row, 0);
      for (int k = 0; k <= r; ++k) qel_xvar_add_double(row, static_cast<double>(r * 100 + k));
      qel_xvars_add_var(col, row);
    }
    for (int r = 0; r < 16; ++r) {
      qel_xvars_fetch_var(col, r, row);
      if (qel_xvar_size(row) != r + 1 || qel_xvar_get_double(row, r) != static_cast<double>(r * 100 + r))
        return fail("column set round trip", round);
    }
    qel_xvar_free(row);
    qel_xvars_free(col);

    qel_var_free(copy);
    qel_var_free(rec);
  }
  return std::string();
}

std::vector<std::string> schema_dump(const qel_schema *s) {
  std::vector<std::string> out;
  for (int64_t i = 0; i < qel_var_schema_size(s); ++i) {
    const char *name = nullptr;
    int64_t len = 0;
    uint32_t type = 0;
    uint8_t multi = 0;
    qel_var_schema_get_at(s, i, &name, &len, &type, &multi);
    out.push_back(std::string(name, static_cast<size_t>(len)) + "/" + std::to_string(type) + "/" + std::to_string(multi));
  }
  return out;
}

TEST(Threads, TwoThreadsShareOneSchemaReadOnly) {
  Shared shared;
  shared.outer = qel_var_schema_new();
  shared.inner = qel_var_schema_new();
  qel_var_schema_add(shared.outer, "id", 2, 4, 0);
  qel_var_schema_add(shared.outer, "name", 4, 7, 0);
  qel_var_schema_add(shared.outer, "scores", 6, 6, 1);
  qel_var_schema_add(shared.outer, "tags", 4, 8, 1);
  qel_var_schema_add(shared.outer, "child", 5, kInner, 0);
  qel_var_schema_add(shared.outer, "items", 5, kInner, 1);
  qel_var_schema_add(shared.inner, "value", 5, 5, 0);
  qel_var_schema_add(shared.inner, "label", 5, 8, 0);
  qel_var_schema_add(shared.inner, "codes", 5, 1, 1);
  const auto outer_before = schema_dump(shared.outer), inner_before = schema_dump(shared.inner);

  std::atomic<int> start{0};
  std::string result1, result2;
  constexpr int kRounds = 100;
  std::thread t1([&] { result1 = work(&shared, 1, kRounds, &start); });
  std::thread t2([&] { result2 = work(&shared, 2, kRounds, &start); });
  t1.join();
  t2.join();
  EXPECT_EQ(result1, "");
  EXPECT_EQ(result2, "");
  EXPECT_EQ(schema_dump(shared.outer), outer_before);
  EXPECT_EQ(schema_dump(shared.inner), inner_before);
  qel_var_schema_free(shared.outer);
  qel_var_schema_free(shared.inner);
}

}  // namespace
