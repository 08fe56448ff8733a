// Two threads each build, fill, copy, sort, search and free their own
// variants (full and light, and a column set) while sharing one set of
// schemas and one resolver read-only.  Under ThreadSanitizer (the tsan
// preset) any hidden shared state (a static, a cache, a lazily built table)
// shows up as a data race; each thread also checks its own results.
#include <gtest/gtest.h>

#include <atomic>
#include <qel.hpp>
#include <string>
#include <thread>

namespace {

struct Shared {
  qel::schema outer, inner;  // 30: id, name, scores, tags, child, items; 31: value, label, codes
};

qel_schema *resolve(void *context, uint32_t type) {
  auto *s = static_cast<Shared *>(context);
  return type == 30 ? s->outer.get() : type == 31 ? s->inner.get() : nullptr;
}

// One thread's whole life: "" or the first wrong result.
std::string work(Shared *shared, uint64_t seed, std::atomic<int> *start) {
  start->fetch_add(1);
  while (start->load() < 2) std::this_thread::yield();
  uint64_t x = seed * 0x9E3779B97F4A7C15ull + 1;
  auto next = [&x] { return x ^= x << 13, x ^= x >> 7, x ^= x << 17; };
  for (int round = 0; round < 100; ++round) {
    qel::var rec = qel::var::make(30, 0, shared, resolve);
    const int64_t id = static_cast<int64_t>(seed) * 100000 + round;
    const std::string name = "thread" + std::to_string(seed) + "-" + std::to_string(round);
    rec["id"].set(id);
    rec["name"].set(name);
    const int n = 200 + static_cast<int>(next() % 200);
    for (int i = 0; i < n; ++i) {
      rec["scores"].add(static_cast<double>(next() % 50) - 25.0);
      rec["scores"].set_buf(-1, static_cast<uint64_t>(i));
      rec["tags"].add("t" + std::to_string(next() % 64));
      rec["child"]["codes"].add(static_cast<int64_t>(next() % 1000));
    }
    for (int i = 0; i < 4; ++i)
      if (rec["items"].add_new().schema().get() != shared->inner.get()) return "add_new";
    qel::var copy = rec.clone();
    qel_var_qsort(copy["scores"].get(), 1);
    qel_var_qsort(copy["tags"].get(), 0);
    qel_var_qsort(copy["child"]["codes"].get(), 1);
    for (int64_t i = 1; i < n; ++i) {
      if (copy["scores"].get<double>(i - 1) > copy["scores"].get<double>(i)) return "double order";
      if (copy["tags"].get<std::string_view>(i - 1) < copy["tags"].get<std::string_view>(i)) return "string order";
      if (copy["child"]["codes"].get<int64_t>(i - 1) > copy["child"]["codes"].get<int64_t>(i)) return "integer order";
      if (rec["scores"].get_buf(i) != static_cast<uint64_t>(i)) return "original changed";
    }
    for (int64_t i = 0; i < n; ++i)  // every caller value still travels with its value
      if (rec["scores"].get<double>(static_cast<int64_t>(copy["scores"].get_buf(i))) != copy["scores"].get<double>(i))
        return "caller value separated from its value";
    const int64_t probe = copy["child"]["codes"].get<int64_t>(n / 2);
    if (copy["child"]["codes"].get<int64_t>(copy["child"]["codes"].bfind(probe)) != probe) return "bfind";
    if (copy["id"].get<int64_t>() != id || copy["name"].get<std::string_view>() != name || copy["items"].size() != 4)
      return "copy";
    qel::var twin(30);  // member-less: takes the source's keys wholesale
    twin.copy_from(rec);
    qel::var again = qel::var::make(30, 0, shared, resolve);  // the same keys: copied member by member
    again.copy_from(twin);
    if (again["id"].get<int64_t>() != id ||
        again["tags"].get<std::string_view>(0) != rec["tags"].get<std::string_view>(0))
      return "copies of one shape";
    qel::xvars col(qel::xcode::f64, qel::form::multi);
    qel::xvar row(qel::xcode::f64, qel::form::multi);
    for (int r = 0; r < 16; ++r) {
      row.shrink(0);
      for (int k = 0; k <= r; ++k) row.add(static_cast<double>(r * 100 + k));
      col.add_var(row);
    }
    for (int r = 0; r < 16; ++r) {
      col.fetch(r, row);
      if (row.size() != r + 1 || row.get<double>(r) != static_cast<double>(r * 100 + r)) return "column set";
    }
  }
  return "";
}

TEST(Threads, TwoThreadsShareOneSchemaReadOnly) {
  Shared shared;
  shared.outer.add("id", 4).add("name", 7).add("scores", 6, 1).add("tags", 8, 1).add("child", 31).add("items", 31, 1);
  shared.inner.add("value", 5).add("label", 8).add("codes", 1, 1);
  std::atomic<int> start{0};
  std::string r1, r2;
  std::thread t1([&] { r1 = work(&shared, 1, &start); });
  std::thread t2([&] { r2 = work(&shared, 2, &start); });
  t1.join();
  t2.join();
  EXPECT_EQ(r1, "");
  EXPECT_EQ(r2, "");
  EXPECT_EQ(shared.outer.size(), 6);
}

}  // namespace
