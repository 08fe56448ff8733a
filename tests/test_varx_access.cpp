// Capacity and reset, keyed insertion, raw buffer access and member shortcuts
// of the full variant, through the exported interface.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "varx_test_util.h"

namespace {

using namespace varx_test;

constexpr int64_t kInt64Min = std::numeric_limits<int64_t>::min();

int64_t capacity_of(const qel_var *v) {
  switch (qel_var_type(v)) {
    case 4: case 6: return v->data.arrayx.capacity;
    case 7: case 8: return v->data.array.capacity;
    default: return v->data.arrayd.capacity;
  }
}

// A multi variant of `type` holding the values 10, 11, ..., caller value k on entry k.
var_ptr filled(uint32_t type, int64_t n) {
  var_ptr v = make(type, 1);
  for (int64_t k = 0; k < n; ++k) {
    if (type == 7 || type == 8) {
      const std::string s = std::to_string(10 + k);
      qel_var_add_string(v.get(), s.data(), static_cast<int64_t>(s.size()));
    } else {
      qel_var_add_long(v.get(), 10 + k);
    }
    qel_var_set_buf(v.get(), k, static_cast<uint64_t>(k));
  }
  return v;
}

bool record_has_members(qel_var *v) {
  void *cursor = nullptr;
  for (qel_hash_entry *e = qel_hash_entry_first(&v->data.members, &cursor); e != nullptr;
       e = qel_hash_entry_next(&v->data.members, &cursor, e))
    if (e->value != nullptr) return true;
  return false;
}

// ---- capacity and reset ----

TEST(VarShrink, SingleValuesBecomeZeroAndKeepTheirBuf) {
  var_ptr i = make(1, 0), d = make(6, 0);
  qel_var_set_integer(i.get(), 0, 7);
  qel_var_set_double(d.get(), 0, -3.5);
  qel_var_set_buf(i.get(), 0, 41);
  qel_var_set_buf(d.get(), 0, 42);
  qel_var_shrink(i.get(), 5);
  qel_var_shrink(d.get(), 5);
  EXPECT_EQ(qel_var_get_integer(i.get(), 0), 0);
  EXPECT_EQ(d->data.bits64, 0u);
  EXPECT_EQ(qel_var_get_buf(i.get(), 0), 41u);
  EXPECT_EQ(qel_var_get_buf(d.get(), 0), 42u);

  var_ptr s = make(7, 0);
  qel_var_set_string(s.get(), 0, "hello", 5);
  qel_var_shrink(s.get(), 2);
  EXPECT_EQ(string_at(s.get(), 0), "he");
}

TEST(VarShrink, CutsAndClearsArraysOfEveryValueClass) {
  for (const uint32_t type : {1u, 4u, 5u, 6u, 7u}) {
    var_ptr v = filled(type, 10);
    qel_var_shrink(v.get(), 3);
    ASSERT_EQ(qel_var_size(v.get()), 3) << type;
    EXPECT_EQ(bufs(v.get()), (std::vector<uint64_t>{0, 1, 2})) << type;
    if (type == 7)
      EXPECT_EQ(string_at(v.get(), 2), "12");
    else
      EXPECT_EQ(qel_var_get_long(v.get(), 2), 12) << type;

    // Raising the count again exposes the old entries, untouched.
    qel_var_shrink(v.get(), 10);
    ASSERT_EQ(qel_var_size(v.get()), 10) << type;
    EXPECT_EQ(qel_var_get_buf(v.get(), 9), 9u) << type;
    if (type == 7)
      EXPECT_EQ(string_at(v.get(), 9), "19");
    else
      EXPECT_EQ(qel_var_get_long(v.get(), 9), 19) << type;

    // Never past the capacity.
    const int64_t cap = capacity_of(v.get());
    qel_var_shrink(v.get(), cap + 4);
    EXPECT_EQ(qel_var_size(v.get()), cap) << type;

    qel_var_shrink(v.get(), 0);
    EXPECT_EQ(qel_var_size(v.get()), 0) << type;
  }
}

TEST(VarShrink, RaisingTheCountOverGrownStorageShowsZeros) {
  for (const uint32_t type : {2u, 4u, 5u, 6u, 8u}) {
    var_ptr v = filled(type, 2);
    qel_var_expand(v.get(), 16);
    ASSERT_GE(capacity_of(v.get()), 16) << type;
    qel_var_shrink(v.get(), 16);
    ASSERT_EQ(qel_var_size(v.get()), 16) << type;
    for (int64_t k = 2; k < 16; ++k) {
      EXPECT_EQ(qel_var_get_buf(v.get(), k), 0u) << type << " entry " << k;
      if (type == 8)
        EXPECT_EQ(string_at(v.get(), k), "") << k;
      else
        EXPECT_EQ(qel_var_get_long(v.get(), k), 0) << type << " entry " << k;
    }
    if (type == 8)
      EXPECT_EQ(string_at(v.get(), 1), "11");
    else
      EXPECT_EQ(qel_var_get_long(v.get(), 1), 11) << type;
  }
}

TEST(VarShrink, NegativeCountChangesNothing) {
  var_ptr v = filled(4, 5);
  qel_var_shrink(v.get(), -1);
  EXPECT_EQ(qel_var_size(v.get()), 5);
  var_ptr r = make(12, 1);
  qel_var_add_new(r.get());
  qel_var_shrink(r.get(), -3);
  EXPECT_EQ(qel_var_size(r.get()), 1);
  var_ptr s = make(7, 0);
  qel_var_set_string(s.get(), 0, "keep", 4);
  qel_var_shrink(s.get(), -1);
  EXPECT_EQ(string_at(s.get(), 0), "keep");
}

TEST(VarShrink, FreesRecordElementsAndMembers) {
  var_ptr array = make(12, 1);
  var_ptr inner = make(7, 1);
  qel_var_add_string(inner.get(), "owned", 5);
  for (int k = 0; k < 4; ++k) qel_var_add_var_x(array.get(), inner.get());
  qel_var_shrink(array.get(), 5);  // any n frees every element
  EXPECT_EQ(qel_var_size(array.get()), 0);
  EXPECT_NE(qel_var_add_new(array.get()), nullptr);  // still usable
  EXPECT_EQ(qel_var_size(array.get()), 1);

  var_ptr rec = make(12, 0);
  qel_var_set_val(rec.get(), "a", 1, inner.get());
  qel_var_set_val(rec.get(), "b", 1, inner.get());
  qel_var_shrink(rec.get(), 3);
  EXPECT_EQ(qel_var_get_val(rec.get(), "a", 1), nullptr);
  EXPECT_FALSE(record_has_members(rec.get()));
  // The name can be used again.
  qel_var_set_val(rec.get(), "a", 1, inner.get());
  qel_var *a = qel_var_get_val(rec.get(), "a", 1);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(string_at(a, 0), "owned");
}

TEST(VarZero, ClearsSingleValuesOnly) {
  var_ptr f = make(5, 0);
  qel_var_set_float(f.get(), 0, -2.5f);
  qel_var_set_buf(f.get(), 0, 3);
  qel_var_zero(f.get());
  EXPECT_EQ(f->data.bits32, 0u);  // +0.0, not -0.0
  EXPECT_EQ(qel_var_get_buf(f.get(), 0), 3u);

  var_ptr l = make(4, 0);
  qel_var_set_long(l.get(), 0, -9);
  qel_var_zero(l.get());
  EXPECT_EQ(qel_var_get_long(l.get(), 0), 0);

  var_ptr s = make(8, 0);
  qel_var_set_string(s.get(), 0, "secret", 6);
  const int64_t cap = qel_var_buf_size(s.get());
  qel_var_zero(s.get());
  EXPECT_EQ(qel_var_buf_len(s.get()), 0);
  EXPECT_EQ(qel_var_buf_size(s.get()), cap);
  const char *bytes = static_cast<const char *>(qel_var_buffer(s.get()));
  for (int64_t k = 0; k < cap; ++k) ASSERT_EQ(bytes[k], 0) << k;

  var_ptr a = filled(6, 3);
  qel_var_zero(a.get());
  EXPECT_EQ(qel_var_size(a.get()), 3);
  EXPECT_EQ(qel_var_get_double(a.get(), 2), 12.0);

  var_ptr rec = make(12, 0), one = make(1, 0);
  qel_var_set_val(rec.get(), "m", 1, one.get());
  qel_var_zero(rec.get());
  EXPECT_NE(qel_var_get_val(rec.get(), "m", 1), nullptr);
}

TEST(VarExpand, ReservesRoomWhereThereIsStorage) {
  for (const uint32_t type : {3u, 4u, 5u, 6u, 7u}) {
    var_ptr v = filled(type, 2);
    qel_var_expand(v.get(), 100);
    EXPECT_GE(capacity_of(v.get()), 100) << type;
    EXPECT_EQ(qel_var_size(v.get()), 2) << type;
    EXPECT_EQ(qel_var_get_buf(v.get(), 1), 1u) << type;
  }
  var_ptr s = make(7, 0);
  qel_var_set_string(s.get(), 0, "ab", 2);
  qel_var_expand(s.get(), 64);
  EXPECT_GE(qel_var_buf_size(s.get()), 64);
  EXPECT_EQ(string_at(s.get(), 0), "ab");

  var_ptr l = make(4, 0);
  qel_var_set_long(l.get(), 0, 123);
  qel_var_expand(l.get(), 64);
  EXPECT_EQ(qel_var_get_long(l.get(), 0), 123);
  var_ptr r = make(12, 1);
  const int64_t before = r->data.vars.capacity;
  qel_var_expand(r.get(), 64);
  EXPECT_EQ(r->data.vars.capacity, before);
}

TEST(VarTrim, TrimsASingleStringOnly) {
  var_ptr s = make(7, 0);
  qel_var_set_string(s.get(), 0, " \t hi there \n", -1);
  qel_var_set_buf(s.get(), 0, 5);
  qel_var_trim(s.get());
  EXPECT_EQ(string_at(s.get(), 0), "hi there");
  EXPECT_EQ(qel_var_get_buf(s.get(), 0), 5u);
  qel_var_trim(s.get());
  EXPECT_EQ(string_at(s.get(), 0), "hi there");

  var_ptr empty = make(8, 0);
  qel_var_trim(empty.get());
  EXPECT_EQ(qel_var_buf_len(empty.get()), 0);

  var_ptr a = make(7, 1);
  qel_var_add_string(a.get(), "  x  ", -1);
  qel_var_trim(a.get());
  EXPECT_EQ(string_at(a.get(), 0), "  x  ");
}

// ---- raw buffer access ----

TEST(VarBuffer, SingleValuesExposeTheirBytes) {
  var_ptr f = make(5, 0);
  qel_var_set_float(f.get(), 0, 1.0f);
  ASSERT_NE(qel_var_buffer(f.get()), nullptr);
  uint32_t bits = 0;
  std::memcpy(&bits, qel_var_buffer(f.get()), 4);
  EXPECT_EQ(bits, 0x3F800000u);
  EXPECT_EQ(qel_var_buf_size(f.get()), 4);
  EXPECT_EQ(qel_var_buf_len(f.get()), 4);

  var_ptr l = make(4, 0);
  const int64_t x = -1234567890123;
  std::memcpy(qel_var_buffer(l.get()), &x, 8);  // writing through it changes the value
  EXPECT_EQ(qel_var_get_long(l.get(), 0), x);
  EXPECT_EQ(qel_var_buf_size(l.get()), 8);
  EXPECT_EQ(qel_var_buf_len(l.get()), 8);

  var_ptr s = make(7, 0);
  qel_var_set_string(s.get(), 0, "bytes", 5);
  EXPECT_EQ(qel_var_buf_len(s.get()), 5);
  EXPECT_GE(qel_var_buf_size(s.get()), 5);
  const char *text = nullptr;
  int64_t len = 0;
  qel_var_get_string(s.get(), 0, &text, &len);
  EXPECT_EQ(qel_var_buffer(s.get()), text);
}

TEST(VarBuffer, ArraysAndRecordsExposeNothing) {
  var_ptr records = make(12, 1);
  qel_var_add_new(records.get());
  for (qel_var *v : {filled(1, 2).release(), filled(4, 2).release(), filled(7, 2).release(), records.release()}) {
    const uint32_t type = qel_var_type(v);
    EXPECT_EQ(qel_var_buffer(v), nullptr) << type;
    EXPECT_EQ(qel_var_buf_size(v), 0) << type;
    EXPECT_EQ(qel_var_buf_len(v), 0) << type;
    qel_var_free(v);
  }
  for (const uint32_t type : {0u, 12u}) {
    var_ptr r = make(type, 0);
    EXPECT_EQ(qel_var_buffer(r.get()), nullptr);
    EXPECT_EQ(qel_var_buf_size(r.get()), 0);
    EXPECT_EQ(qel_var_buf_len(r.get()), 0);
  }
}

TEST(VarCallerValue, SingleVariantsIgnoreTheIndex) {
  for (const uint32_t type : {1u, 6u, 8u, 12u, 0u}) {
    var_ptr v = make(type, 0);
    qel_var_set_buf(v.get(), 99, 7);
    EXPECT_EQ(qel_var_get_buf(v.get(), 0), 7u) << type;
    EXPECT_EQ(qel_var_get_buf(v.get(), -4), 7u) << type;
  }
}

TEST(VarCallerValue, NegativeIndexMeansTheLastEntry) {
  for (const uint32_t type : {2u, 4u, 7u}) {
    var_ptr v = filled(type, 3);
    EXPECT_EQ(qel_var_get_buf(v.get(), -1), 2u);
    qel_var_set_buf(v.get(), -5, 99);
    EXPECT_EQ(bufs(v.get()), (std::vector<uint64_t>{0, 1, 99})) << type;
  }
}

TEST(VarCallerValue, EmptyArraysHaveNoLastEntry) {
  for (const uint32_t type : {3u, 6u, 8u}) {
    var_ptr v = make(type, 1);
    qel_var_expand(v.get(), 4);
    qel_var_set_buf(v.get(), -1, 5);
    EXPECT_EQ(qel_var_get_buf(v.get(), -1), 0u) << type;
    EXPECT_EQ(qel_var_get_buf(v.get(), 0), 0u) << type;  // nothing was written anywhere
    EXPECT_EQ(qel_var_size(v.get()), 0) << type;
  }
}

TEST(VarCallerValue, EntriesUpToTheCapacityAreReachable) {
  for (const uint32_t type : {9u, 6u, 7u}) {
    var_ptr v = filled(type, 3);
    qel_var_expand(v.get(), 8);
    const int64_t cap = capacity_of(v.get());
    ASSERT_GE(cap, 8);
    qel_var_set_buf(v.get(), 5, 55);
    EXPECT_EQ(qel_var_get_buf(v.get(), 5), 55u) << type;
    qel_var_set_buf(v.get(), cap - 1, 66);
    EXPECT_EQ(qel_var_get_buf(v.get(), cap - 1), 66u) << type;
    qel_var_set_buf(v.get(), cap, 77);  // out of the storage: nothing
    EXPECT_EQ(qel_var_get_buf(v.get(), cap), 0u) << type;
    EXPECT_EQ(qel_var_size(v.get()), 3) << type;
    // Raising the count shows the caller value written beyond it.
    qel_var_shrink(v.get(), 6);
    EXPECT_EQ(qel_var_get_buf(v.get(), 5), 55u) << type;
  }
}

TEST(VarCallerValue, RecordArraysHaveNone) {
  var_ptr r = make(12, 1);
  qel_var_add_new(r.get());
  qel_var_set_buf(r.get(), 0, 9);
  EXPECT_EQ(qel_var_get_buf(r.get(), 0), 0u);
  EXPECT_EQ(qel_var_get_buf(r.get(), -1), 0u);
}

// ---- keyed insertion ----

TEST(VarKeyedInsert, GivesBackTheCallerValueSetOnTheFoundEntry) {
  // Numeric keys, by class; set_buf on the index find gives is what comes back.
  for (const uint32_t type : {1u, 4u, 5u, 6u}) {
    var_ptr v = make(type, 1);
    for (int64_t x = 0; x < 50; ++x) EXPECT_EQ(qel_var_add_long_x(v.get(), x * 3), 0u);
    ASSERT_EQ(qel_var_size(v.get()), 50);
    for (int64_t x = 0; x < 50; ++x) {
      int64_t at = -1;
      if (type == 1) {
        const auto key = static_cast<uint32_t>(x * 3);
        at = qel_var_find(v.get(), &key, 0);
      } else if (type == 4) {
        const int64_t key = x * 3;
        at = qel_var_find(v.get(), &key, 0);
      } else if (type == 5) {
        const uint32_t key = float_bits(static_cast<float>(x * 3));
        at = qel_var_find(v.get(), &key, 0);
      } else {
        const int64_t key = double_bits(static_cast<double>(x * 3));
        at = qel_var_find(v.get(), &key, 0);
      }
      ASSERT_EQ(at, x) << type;
      qel_var_set_buf(v.get(), at, 1000 + static_cast<uint64_t>(x));
    }
    for (int64_t x = 49; x >= 0; --x)
      EXPECT_EQ(qel_var_add_integer_x(v.get(), x * 3), 1000 + static_cast<uint64_t>(x)) << type;
    EXPECT_EQ(qel_var_add_double_x(v.get(), 6.0), 1002u) << type;
    EXPECT_EQ(qel_var_add_float_x(v.get(), 9.0f), 1003u) << type;
    EXPECT_EQ(qel_var_size(v.get()), 50) << type;
  }

  var_ptr s = make(7, 1);
  for (const char *x : {"red", "green", "blue"}) EXPECT_EQ(qel_var_add_string_x(s.get(), x, -1), 0u);
  qel_var_set_buf(s.get(), qel_var_find(s.get(), "green", 5), 22);
  EXPECT_EQ(qel_var_add_string_x(s.get(), "green", -1), 22u);
  EXPECT_EQ(qel_var_add_string_x(s.get(), "gree", 4), 0u);  // a new key
  EXPECT_EQ(qel_var_size(s.get()), 4);
}

TEST(VarKeyedInsert, FindsEntriesAddedOrMovedOtherwise) {
  // Plain adds, a direct count change and a sort all precede the keyed insert.
  var_ptr v = make(2, 1);
  for (const int64_t x : {5, 6, 7, 8}) qel_var_add_integer(v.get(), x);
  qel_var_set_buf(v.get(), 2, 70);
  EXPECT_EQ(qel_var_add_integer_x(v.get(), 7), 70u);
  qel_var_shrink(v.get(), 2);
  EXPECT_EQ(qel_var_add_integer_x(v.get(), 7), 0u);  // 7 was cut off: added anew
  EXPECT_EQ(qel_var_size(v.get()), 3);
  qel_var_set_buf(v.get(), 0, 50);
  qel_var_qsort(v.get(), 0);
  EXPECT_EQ(qel_var_add_integer_x(v.get(), 5), 50u);
  EXPECT_EQ(qel_var_size(v.get()), 3);
}

TEST(VarKeyedInsert, ConvertsLikeThePlainAdders) {
  var_ptr u = make(2, 1);
  qel_var_add_integer_x(u.get(), -1);
  EXPECT_EQ(qel_var_get_integer(u.get(), 0), 0xFFFFFFFF);
  var_ptr d = make(6, 1);
  qel_var_add_integer_x(d.get(), -1);
  EXPECT_EQ(qel_var_get_double(d.get(), 0), -1.0);

  var_ptr l = make(4, 1);
  qel_var_add_float_x(l.get(), 2.9f);
  qel_var_add_float_x(l.get(), -2.9f);
  qel_var_add_float_x(l.get(), std::nanf(""));
  qel_var_add_double_x(l.get(), 1e300);
  EXPECT_EQ(qel_var_get_long(l.get(), 0), 2);
  EXPECT_EQ(qel_var_get_long(l.get(), 1), -2);
  EXPECT_EQ(qel_var_get_long(l.get(), 2), kInt64Min);
  EXPECT_EQ(qel_var_size(l.get()), 3);  // 1e300 truncates to the same key as the NaN

  var_ptr i = make(1, 1);
  qel_var_add_float_x(i.get(), std::nanf(""));
  qel_var_add_double_x(i.get(), -3.7);
  EXPECT_EQ(qel_var_get_integer(i.get(), 0), 0);
  EXPECT_EQ(qel_var_get_integer(i.get(), 1), 0xFFFFFFFD);

  var_ptr f = make(5, 1);
  qel_var_add_double_x(f.get(), 0.1);
  qel_var_add_double_x(f.get(), 1e300);
  qel_var_add_long_x(f.get(), 16777217);
  EXPECT_EQ(f->data.arrayd.entries[0].value, float_bits(0.1f));
  EXPECT_EQ(qel_var_get_float(f.get(), 1), std::numeric_limits<float>::infinity());
  EXPECT_EQ(qel_var_get_float(f.get(), 2), 16777216.0f);

  var_ptr g = make(6, 1);
  qel_var_add_float_x(g.get(), 0.1f);
  EXPECT_EQ(qel_var_get_double(g.get(), 0), static_cast<double>(0.1f));

  // The long and the integer adder are one.
  var_ptr a = make(3, 1), b = make(3, 1);
  for (const int64_t x : {int64_t{1} << 40, int64_t{-5}, int64_t{1} << 40}) {
    EXPECT_EQ(qel_var_add_integer_x(a.get(), x), qel_var_add_long_x(b.get(), x));
  }
  EXPECT_EQ(qel_var_cmp(a.get(), b.get()), 0);
  EXPECT_EQ(qel_var_size(a.get()), 2);
}

TEST(VarKeyedInsert, DoesNothingWhereItDoesNotServe) {
  var_ptr single = make(1, 0);
  qel_var_set_integer(single.get(), 0, 4);
  qel_var_set_buf(single.get(), 0, 8);
  EXPECT_EQ(qel_var_add_integer_x(single.get(), 9), 0u);
  EXPECT_EQ(qel_var_add_double_x(single.get(), 9), 0u);
  EXPECT_EQ(qel_var_get_integer(single.get(), 0), 4);

  var_ptr strings = make(7, 1);
  EXPECT_EQ(qel_var_add_integer_x(strings.get(), 1), 0u);
  EXPECT_EQ(qel_var_add_float_x(strings.get(), 1), 0u);
  EXPECT_EQ(qel_var_size(strings.get()), 0);

  var_ptr ints = make(1, 1);
  EXPECT_EQ(qel_var_add_string_x(ints.get(), "1", 1), 0u);
  EXPECT_EQ(qel_var_size(ints.get()), 0);

  for (const uint32_t type : {0u, 12u}) {
    var_ptr r = make(type, 1);
    EXPECT_EQ(qel_var_add_long_x(r.get(), 1), 0u);
    EXPECT_EQ(qel_var_add_string_x(r.get(), "x", 1), 0u);
    EXPECT_EQ(qel_var_size(r.get()), 0);
  }

  // A single string variant does not even measure the (absent) bytes.
  var_ptr s = make(8, 0);
  EXPECT_EQ(qel_var_add_string_x(s.get(), nullptr, -1), 0u);
}

TEST(VarKeyedInsert, NullStringIsTheEmptyKey) {
  var_ptr v = make(8, 1);
  qel_var_add_string_x(v.get(), nullptr, -1);
  ASSERT_EQ(qel_var_size(v.get()), 1);
  EXPECT_EQ(string_at(v.get(), 0), "");
  qel_var_set_buf(v.get(), 0, 3);
  EXPECT_EQ(qel_var_add_string_x(v.get(), "", 0), 3u);
  EXPECT_EQ(qel_var_size(v.get()), 1);
}

// ---- member shortcuts ----

TEST(VarMembers, SetValCreatesThenOverwritesInPlace) {
  var_ptr rec = make(12, 0);
  var_ptr src = make(7, 1);
  qel_var_add_string(src.get(), "one", 3);
  qel_var_set_val(rec.get(), "tags", 4, src.get());
  qel_var *tags = qel_var_get_val(rec.get(), "tags", 4);
  ASSERT_NE(tags, nullptr);
  EXPECT_NE(tags, src.get());
  EXPECT_EQ(qel_var_type(tags), 7u);
  EXPECT_NE(qel_var_multi(tags), 0);
  EXPECT_EQ(qel_var_schema(tags), nullptr);
  EXPECT_EQ(string_at(tags, 0), "one");

  // A deep copy: later changes to src do not reach the member.
  qel_var_add_string(src.get(), "two", 3);
  EXPECT_EQ(qel_var_size(tags), 1);

  // Same name again: the same member, overwritten.
  qel_var_set_val(rec.get(), "tags", 4, src.get());
  EXPECT_EQ(qel_var_get_val(rec.get(), "tags", 4), tags);
  EXPECT_EQ(qel_var_size(tags), 2);

  // Another type code re-forms the member.
  var_ptr number = make(6, 0);
  qel_var_set_double(number.get(), 0, 2.5);
  qel_var_set_val(rec.get(), "tags", 4, number.get());
  qel_var *now = qel_var_get_val(rec.get(), "tags", 4);
  ASSERT_NE(now, nullptr);
  EXPECT_EQ(qel_var_type(now), 6u);
  EXPECT_EQ(qel_var_get_double(now, 0), 2.5);

  // Names are exact bytes with their length.
  EXPECT_EQ(qel_var_get_val(rec.get(), "tag", 3), nullptr);
  EXPECT_EQ(qel_var_get_val(rec.get(), "tagsX", 4), now);
}

TEST(VarMembers, OnlyRecordCodesTenAndUpAreServed) {
  var_ptr src = make(1, 0);
  qel_var_set_integer(src.get(), 0, 3);

  var_ptr code0 = make(0, 0);
  qel_var_set_val(code0.get(), "m", 1, src.get());
  EXPECT_EQ(qel_hash_get(&code0->data.members, "m", 1), nullptr);
  EXPECT_EQ(qel_var_get_val(code0.get(), "m", 1), nullptr);
  EXPECT_EQ(qel_var_get_var_x(code0.get(), 0), nullptr);
  qel_var_set_var_x(code0.get(), 0, src.get());
  EXPECT_EQ(qel_var_type(code0.get()), 0u);

  var_ptr code0_array = make(0, 1);
  EXPECT_EQ(qel_var_add_new(code0_array.get()), nullptr);
  qel_var_add_var_x(code0_array.get(), src.get());
  EXPECT_EQ(qel_var_size(code0_array.get()), 0);

  for (const uint32_t type : {1u, 5u, 7u, 9u}) {
    for (const uint8_t multi : {uint8_t{0}, uint8_t{1}}) {
      var_ptr v = make(type, multi);
      qel_var_set_val(v.get(), "m", 1, src.get());
      EXPECT_EQ(qel_var_get_val(v.get(), "m", 1), nullptr);
      EXPECT_EQ(qel_var_add_new(v.get()), nullptr);
      qel_var_add_var_x(v.get(), src.get());
      qel_var_set_var_x(v.get(), 0, src.get());
      EXPECT_EQ(qel_var_get_var_x(v.get(), 0), nullptr);
      EXPECT_EQ(qel_var_type(v.get()), type);
      EXPECT_EQ(qel_var_size(v.get()), 0);
    }
  }
}

TEST(VarMembers, SingleRecordShortcuts) {
  var_ptr rec = make(12, 0);
  EXPECT_EQ(qel_var_add_new(rec.get()), nullptr);
  var_ptr src = make(1, 0);
  qel_var_add_var_x(rec.get(), src.get());
  EXPECT_FALSE(record_has_members(rec.get()));
  EXPECT_EQ(qel_var_get_var_x(rec.get(), 7), rec.get());

  // set_var_x copies into the record itself, whatever the index.
  var_ptr other = make(12, 0), value = make(4, 0);
  qel_var_set_long(value.get(), 0, 77);
  qel_var_set_val(other.get(), "id", 2, value.get());
  qel_var_set_var_x(rec.get(), 3, other.get());
  qel_var *id = qel_var_get_val(rec.get(), "id", 2);
  ASSERT_NE(id, nullptr);
  EXPECT_EQ(qel_var_get_long(id, 0), 77);
  EXPECT_NE(id, qel_var_get_val(other.get(), "id", 2));

  // The record array form of get_val is NULL.
  var_ptr array = make(12, 1);
  qel_var_add_new(array.get());
  EXPECT_EQ(qel_var_get_val(array.get(), "id", 2), nullptr);
  qel_var_set_val(array.get(), "id", 2, value.get());
  EXPECT_EQ(qel_var_size(array.get()), 1);
}

TEST(VarMembers, RecordArrayShortcuts) {
  qel_schema *schema = qel_var_schema_new();
  qel_var_schema_add(schema, "id", 2, 4, 0);
  {
    var_ptr array = make(40, 1);
    array->schema = schema;
    qel_var *first = qel_var_add_new(array.get());
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(qel_var_type(first), 40u);
    EXPECT_EQ(qel_var_multi(first), 0);
    EXPECT_EQ(qel_var_schema(first), schema);
    EXPECT_FALSE(record_has_members(first));  // members are not created
    EXPECT_EQ(qel_var_size(array.get()), 1);
    EXPECT_EQ(qel_var_get_var_x(array.get(), 0), first);

    var_ptr src = make(1, 0);
    qel_var_set_integer(src.get(), 0, 31);
    qel_var_add_var_x(array.get(), src.get());
    ASSERT_EQ(qel_var_size(array.get()), 2);
    qel_var *second = qel_var_get_var_x(array.get(), 1);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(qel_var_type(second), 1u);
    EXPECT_EQ(qel_var_get_integer(second, 0), 31);

    // set_var_x overwrites an element; an index past the end does nothing.
    var_ptr rec = make(40, 0), value = make(4, 0);
    qel_var_set_long(value.get(), 0, -8);
    qel_var_set_val(rec.get(), "id", 2, value.get());
    qel_var_set_var_x(array.get(), 0, rec.get());
    EXPECT_EQ(qel_var_get_var_x(array.get(), 0), first);
    ASSERT_NE(qel_var_get_val(first, "id", 2), nullptr);
    EXPECT_EQ(qel_var_get_long(qel_var_get_val(first, "id", 2), 0), -8);
    qel_var_set_var_x(array.get(), 2, rec.get());
    EXPECT_EQ(qel_var_size(array.get()), 2);
    EXPECT_EQ(qel_var_get_var_x(array.get(), 2), nullptr);
    EXPECT_EQ(qel_var_get_var_x(array.get(), -1), nullptr);

    // Elements filled through set_val are owned by the array (freed with it).
    qel_var *third = qel_var_add_new(array.get());
    qel_var_set_val(third, "id", 2, value.get());
    qel_var_set_val(third, "more", 4, src.get());
    EXPECT_EQ(qel_var_size(array.get()), 3);
  }
  qel_var_schema_free(schema);
}

TEST(VarMembers, NonRecordVariantsGiveNullFromGetVarX) {
  var_ptr d = make(6, 0);
  EXPECT_EQ(qel_var_get_var_x(d.get(), 7), nullptr);
  var_ptr top = make(0xFFFFFFFFu, 0);  // the largest code is a record code
  EXPECT_EQ(qel_var_get_var_x(top.get(), 0), top.get());
}

}  // namespace
