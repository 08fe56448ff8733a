// Randomised comparison of a column set against a plain model (a vector of
// entries, each a vector of values with caller values), for every type code
// with storage and both forms, over mixed whole-entry and value operations.
#include <gtest/gtest.h>
#include <qel.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "xvar_test_util.h"

using namespace qel_test;

namespace {

struct Item {
  uint64_t num = 0;  // u32 value, int64 bits, float bits or double bits
  std::string str;
  uint64_t buf = 0;
  bool operator==(const Item &) const = default;
};
using Entry = std::vector<Item>;

class ColumnModel : public ::testing::TestWithParam<std::tuple<uint32_t, uint8_t>> {
 protected:
  uint32_t type_ = std::get<0>(GetParam());
  uint8_t multi_ = std::get<1>(GetParam());
  std::mt19937_64 rng_{0x5eed0000u + std::get<0>(GetParam()) * 16u + std::get<1>(GetParam())};
  std::vector<Entry> model_;

  uint64_t below(uint64_t n) { return std::uniform_int_distribution<uint64_t>(0, n - 1)(rng_); }
  int64_t between(int64_t lo, int64_t hi) { return std::uniform_int_distribution<int64_t>(lo, hi)(rng_); }

  // A value that the column's type keeps exactly (no NaN: compared by value too).
  Item random_item() {
    Item it;
    switch (type_) {
      case 1: it.num = static_cast<uint32_t>(rng_()); break;
      case 2: it.num = rng_(); break;
      case 3: {
        float f;
        do f = std::bit_cast<float>(static_cast<uint32_t>(rng_())); while (std::isnan(f));
        it.num = std::bit_cast<uint32_t>(f);
        break;
      }
      case 4: {
        double d;
        do d = std::bit_cast<double>(rng_()); while (std::isnan(d));
        it.num = std::bit_cast<uint64_t>(d);
        break;
      }
      default: {
        const size_t n = below(13);
        for (size_t i = 0; i < n; ++i) it.str.push_back(static_cast<char>(below(256)));
      }
    }
    return it;
  }

  float as_float(const Item &it) const { return std::bit_cast<float>(static_cast<uint32_t>(it.num)); }
  double as_double(const Item &it) const { return std::bit_cast<double>(it.num); }

  // Writes through the caller kinds that keep the value exact, chosen at random.
  void add_to_xvar(qel_xvar *x, const Item &it) {
    const bool alt = below(2);
    switch (type_) {
      case 1: alt ? qel_xvar_add_double(x, static_cast<double>(it.num)) : qel_xvar_add_integer(x, static_cast<int64_t>(it.num)); break;
      case 2: qel_xvar_add_long(x, static_cast<int64_t>(it.num)); break;
      case 3: alt ? qel_xvar_add_double(x, static_cast<double>(as_float(it))) : qel_xvar_add_float(x, as_float(it)); break;
      case 4: qel_xvar_add_double(x, as_double(it)); break;
      default: qel_xvar_add_string(x, it.str.data(), static_cast<int64_t>(it.str.size()));
    }
  }
  void set_single_xvar(qel_xvar *x, const Item &it) {
    switch (type_) {
      case 1: qel_xvar_set_long(x, 0, static_cast<int64_t>(it.num)); break;
      case 2: qel_xvar_set_integer(x, 0, static_cast<int64_t>(it.num)); break;
      case 3: qel_xvar_set_float(x, 0, as_float(it)); break;
      case 4: qel_xvar_set_double(x, 0, as_double(it)); break;
      default: qel_xvar_set_string(x, 0, it.str.data(), static_cast<int64_t>(it.str.size()));
    }
  }
  void add_to_column(qel_xvars *xs, int64_t entry, const Item &it) {
    const bool alt = below(2);
    switch (type_) {
      case 1: alt ? qel_xvars_add_double(xs, entry, static_cast<double>(it.num)) : qel_xvars_add_integer(xs, entry, static_cast<int64_t>(it.num)); break;
      case 2: alt ? qel_xvars_add_integer(xs, entry, static_cast<int64_t>(it.num)) : qel_xvars_add_long(xs, entry, static_cast<int64_t>(it.num)); break;
      case 3: alt ? qel_xvars_add_double(xs, entry, static_cast<double>(as_float(it))) : qel_xvars_add_float(xs, entry, as_float(it)); break;
      case 4: qel_xvars_add_double(xs, entry, as_double(it)); break;
      default: qel_xvars_add_string(xs, entry, it.str.data(), static_cast<int64_t>(it.str.size()));
    }
  }
  void set_in_column(qel_xvars *xs, int64_t entry, int64_t pos, const Item &it) {
    const bool alt = below(2);
    switch (type_) {
      case 1: alt ? qel_xvars_set_double(xs, entry, pos, static_cast<double>(it.num)) : qel_xvars_set_integer(xs, entry, pos, static_cast<int64_t>(it.num)); break;
      case 2: qel_xvars_set_long(xs, entry, pos, static_cast<int64_t>(it.num)); break;
      case 3: alt ? qel_xvars_set_double(xs, entry, pos, static_cast<double>(as_float(it))) : qel_xvars_set_float(xs, entry, pos, as_float(it)); break;
      case 4: qel_xvars_set_double(xs, entry, pos, as_double(it)); break;
      default: qel_xvars_set_string(xs, entry, pos, it.str.data(), static_cast<int64_t>(it.str.size()));
    }
  }
  // Reads through every caller kind that is exact for the type, and checks they agree.
  Item get_from_column(const qel_xvars *xs, int64_t entry, int64_t pos) {
    Item it;
    switch (type_) {
      case 1:
        it.num = static_cast<uint64_t>(qel_xvars_get_integer(xs, entry, pos));
        EXPECT_EQ(qel_xvars_get_double(xs, entry, pos), static_cast<double>(it.num));
        break;
      case 2: it.num = static_cast<uint64_t>(qel_xvars_get_long(xs, entry, pos)); break;
      case 3:
        it.num = std::bit_cast<uint32_t>(qel_xvars_get_float(xs, entry, pos));
        EXPECT_EQ(qel_xvars_get_double(xs, entry, pos), static_cast<double>(as_float(it)));
        break;
      case 4: it.num = std::bit_cast<uint64_t>(qel_xvars_get_double(xs, entry, pos)); break;
      default: {
        const char *p = nullptr;
        int64_t n = -1;
        qel_xvars_get_string(xs, entry, pos, &p, &n);
        EXPECT_GE(n, 0);
        if (p && n > 0) it.str.assign(p, static_cast<size_t>(n));
      }
    }
    it.buf = qel_xvars_get_buf(xs, entry, pos);
    return it;
  }
  Item get_from_xvar(const qel_xvar *x, int64_t index) {
    Item it;
    switch (type_) {
      case 1: it.num = static_cast<uint64_t>(qel_xvar_get_integer(x, index)); break;
      case 2: it.num = static_cast<uint64_t>(qel_xvar_get_long(x, index)); break;
      case 3: it.num = std::bit_cast<uint32_t>(qel_xvar_get_float(x, index)); break;
      case 4: it.num = std::bit_cast<uint64_t>(qel_xvar_get_double(x, index)); break;
      default: {
        const char *p = nullptr;
        int64_t n = 0;
        qel_xvar_get_string(x, index, &p, &n);
        if (p && n > 0) it.str.assign(p, static_cast<size_t>(n));
      }
    }
    if (multi_) it.buf = qel_xvar_get_buf(x, index);
    return it;
  }

  // Entry and position arguments, mostly valid, sometimes just outside.
  int64_t pick_entry() { return between(-1, static_cast<int64_t>(model_.size())); }
  int64_t pick_pos(int64_t entry) {
    const int64_t n = entry >= 0 && entry < static_cast<int64_t>(model_.size())
                          ? static_cast<int64_t>(model_[static_cast<size_t>(entry)].size()) : 1;
    return between(-2, n);
  }
  // The model's value at (entry, pos) under the column's addressing, or NULL.
  Item *model_at(int64_t entry, int64_t pos) {
    if (entry < 0 || entry >= static_cast<int64_t>(model_.size())) return nullptr;
    Entry &e = model_[static_cast<size_t>(entry)];
    if (!multi_) return &e[0];
    if (pos < 0 || pos >= static_cast<int64_t>(e.size())) return nullptr;
    return &e[static_cast<size_t>(pos)];
  }

  void op_add_var(qel_xvars *xs) {
    const bool mismatch = below(20) == 0;
    Xvar x = make_xvar(type_, mismatch ? static_cast<uint8_t>(multi_ ? 0 : 1) : multi_);
    Entry e;
    if (multi_ && !mismatch) {
      const uint64_t n = below(9);
      for (uint64_t i = 0; i < n; ++i) {
        Item it = random_item();
        add_to_xvar(x.get(), it);
        if (below(2)) {
          it.buf = rng_();
          qel_xvar_set_buf(x.get(), -1, it.buf);
        }
        e.push_back(it);
      }
    } else {
      Item it = random_item();
      set_single_xvar(x.get(), it);
      qel_xvar_set_buf(x.get(), 0, rng_());  // a single's caller value is not kept
      e.push_back(it);
    }
    qel_xvars_add_var(xs, x.get());
    if (!mismatch) model_.push_back(e);
  }

  void op_add(qel_xvars *xs) {
    const int64_t size = static_cast<int64_t>(model_.size());
    const uint64_t roll = below(20);
    const int64_t entry = roll < 12 ? size : roll < 19 ? size - 1 : between(-2, size + 2);
    const Item it = random_item();
    add_to_column(xs, entry, it);
    if (!multi_) return;
    if (entry == size) model_.push_back(Entry{it});
    else if (size > 0 && entry == size - 1) model_.back().push_back(it);
  }

  void op_set(qel_xvars *xs) {
    const int64_t entry = pick_entry();
    const int64_t pos = pick_pos(entry);
    const Item it = random_item();
    set_in_column(xs, entry, pos, it);
    if (Item *m = model_at(entry, pos)) *m = it;  // buf cleared as well
  }

  void op_set_buf(qel_xvars *xs) {
    const int64_t entry = pick_entry();
    const int64_t pos = pick_pos(entry);
    const uint64_t value = rng_();
    qel_xvars_set_buf(xs, entry, pos, value);
    if (!multi_ || entry < 0 || entry >= static_cast<int64_t>(model_.size())) return;
    Entry &e = model_[static_cast<size_t>(entry)];
    const int64_t p = pos < 0 ? static_cast<int64_t>(e.size()) - 1 : pos;
    if (p >= 0 && p < static_cast<int64_t>(e.size())) e[static_cast<size_t>(p)].buf = value;
  }

  void check_get(const qel_xvars *xs, int64_t entry, int64_t pos) {
    const Item *m = model_at(entry, pos);
    Item want = m ? *m : Item{};
    if (!multi_) want.buf = 0;
    if (multi_ && m == nullptr && entry >= 0 && entry < static_cast<int64_t>(model_.size()) && pos < 0 &&
        !model_[static_cast<size_t>(entry)].empty())
      want.buf = model_[static_cast<size_t>(entry)].back().buf;  // a negative pos reaches the last buf
    const Item got = get_from_column(xs, entry, pos);
    EXPECT_EQ(got.num, want.num) << "entry " << entry << " pos " << pos;
    EXPECT_EQ(got.str, want.str) << "entry " << entry << " pos " << pos;
    EXPECT_EQ(got.buf, want.buf) << "entry " << entry << " pos " << pos;
  }

  void check_fetch(const qel_xvars *xs, qel_xvar *out, int64_t entry) {
    const int64_t before = qel_xvar_size(out);
    qel_xvars_fetch_var(xs, entry, out);
    EXPECT_EQ(qel_xvars_get_size(xs, entry),
              multi_ && entry >= 0 && entry < static_cast<int64_t>(model_.size())
                  ? static_cast<int64_t>(model_[static_cast<size_t>(entry)].size()) : 0);
    if (entry < 0 || entry >= static_cast<int64_t>(model_.size())) {
      EXPECT_EQ(qel_xvar_size(out), before);
      return;
    }
    const Entry &e = model_[static_cast<size_t>(entry)];
    if (!multi_) {
      Item want = e[0];
      want.buf = 0;
      EXPECT_EQ(get_from_xvar(out, 0), want) << "entry " << entry;
      EXPECT_EQ(qel_xvar_get_buf(out, 0), 0xB0Fu);  // the light variant's own, untouched
      return;
    }
    ASSERT_EQ(qel_xvar_size(out), static_cast<int64_t>(e.size())) << "entry " << entry;
    for (size_t k = 0; k < e.size(); ++k)
      EXPECT_EQ(get_from_xvar(out, static_cast<int64_t>(k)), e[k]) << "entry " << entry << " pos " << k;
  }

  void check_all(const qel_xvars *xs, qel_xvar *out) {
    ASSERT_EQ(qel_xvars_size(xs), static_cast<int64_t>(model_.size()));
    int64_t start = 0;
    for (size_t i = 0; i < model_.size(); ++i) {
      const int64_t entry = static_cast<int64_t>(i);
      EXPECT_EQ(int64_t{xs->index.entries[i].value}, start) << "entries lie back to back";
      start += static_cast<int64_t>(model_[i].size());
      for (size_t k = 0; k < model_[i].size(); ++k) check_get(xs, entry, static_cast<int64_t>(k));
      check_fetch(xs, out, entry);
    }
  }
};

TEST_P(ColumnModel, MatchesAVectorOfVectors) {
  Xvars xs = make_xvars(type_, multi_);
  Xvar out = make_xvar(type_, multi_);
  if (!multi_) qel_xvar_set_buf(out.get(), 0, 0xB0F);
  for (int step = 0; step < 4000; ++step) {
    const uint64_t op = below(100);
    if (op < 22) op_add_var(xs.get());
    else if (op < 42) op_add(xs.get());
    else if (op < 54) op_set(xs.get());
    else if (op < 66) { const int64_t e = pick_entry(); check_get(xs.get(), e, pick_pos(e)); }
    else if (op < 76) op_set_buf(xs.get());
    else if (op < 98) check_fetch(xs.get(), out.get(), pick_entry());
    else if (op < 99) check_all(xs.get(), out.get());
    else if (below(4) == 0) {
      qel_xvars_shrink(xs.get());
      model_.clear();
    }
    if (HasFailure()) FAIL() << "after step " << step;
  }
  check_all(xs.get(), out.get());
}

INSTANTIATE_TEST_SUITE_P(AllTypesBothForms, ColumnModel,
                         ::testing::Combine(::testing::Values(1u, 2u, 3u, 4u, 5u),
                                            ::testing::Values(uint8_t{0}, uint8_t{1})),
                         [](const auto &param_info) {
                           return "type" + std::to_string(std::get<0>(param_info.param)) +
                                  (std::get<1>(param_info.param) ? "_multi" : "_single");
                         });

}  // namespace
