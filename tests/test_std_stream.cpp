// qel_stream, qel_string, the comparisons and the pointer array.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "qel_std.h"

namespace {

std::string text(const qel_stream &s) { return std::string(s.bytes, static_cast<size_t>(s.length)); }
std::string text(const qel_string &s) { return std::string(s.bytes, static_cast<size_t>(s.length)); }

TEST(Stream, CopyAppendCloneAndAliasing) {
  qel_stream s;
  qel_stream_init(&s);
  EXPECT_EQ(s.length, 0);
  qel_stream_copy(&s, "hello", 5);
  qel_stream_append(&s, " world", 6);
  EXPECT_EQ(text(s), "hello world");
  for (int i = 0; i < 10; i++) qel_stream_append(&s, s.bytes, s.length); // own bytes, buffer moves
  EXPECT_EQ(s.length, 11 * 1024);
  EXPECT_EQ(std::string(s.bytes + 11 * 1000, 11), "hello world");
  qel_stream_copy(&s, s.bytes + 6, 5); // overlapping copy
  EXPECT_EQ(text(s), "world");
  // Bad lengths change nothing.
  qel_stream_append(&s, "x", -1);
  qel_stream_append(&s, nullptr, 4);
  qel_stream_copy(&s, "x", -3);
  EXPECT_EQ(text(s), "world");
  qel_stream d;
  qel_stream_init(&d);
  qel_stream_clone(&s, &d);
  EXPECT_EQ(text(d), "world");
  qel_stream_clone(&d, &d);
  EXPECT_EQ(text(d), "world");
  qel_stream_term(&d);
  qel_stream_term(&s);
  EXPECT_EQ(s.bytes, nullptr);
}

TEST(Stream, ExpandZeroAndShrink) {
  qel_stream s;
  qel_stream_init(&s);
  qel_stream_copy(&s, "abcdef", 6);
  qel_stream_expand(&s, 100);
  ASSERT_GE(s.capacity, 100);
  EXPECT_EQ(text(s), "abcdef");
  for (int64_t i = 6; i < s.capacity; i++) ASSERT_EQ(s.bytes[i], 0); // growth zero-fills
  qel_stream_zero(&s, 2, 3);
  EXPECT_EQ(s.length, 2);
  EXPECT_EQ(std::memcmp(s.bytes, "ab\0\0\0f", 6), 0);
  qel_stream_copy(&s, "abcdef", 6);
  qel_stream_zero(&s, 0, s.capacity); // what a variant's zero does
  EXPECT_EQ(s.length, 0);
  for (int64_t i = 0; i < s.capacity; i++) ASSERT_EQ(s.bytes[i], 0);
  qel_stream_copy(&s, "abcdef", 6);
  qel_stream_zero(&s, 4, INT64_MAX); // clipped to the capacity
  qel_stream_zero(&s, -1, 2);        // refused
  qel_stream_zero(&s, 1, -2);        // refused
  EXPECT_EQ(text(s), "abcd");
  qel_stream_shrink(&s, 10);
  EXPECT_EQ(s.length, 4);
  qel_stream_shrink(&s, 3);
  EXPECT_EQ(text(s), "abc");
  qel_stream_shrink(&s, -5);
  EXPECT_EQ(s.length, 0);
  qel_stream_term(&s);
}

TEST(Stream, SwapStringTouchesOnlyTheExchangedFields) {
  qel_stream s;
  qel_stream_init(&s);
  qel_stream_copy(&s, "  padded text \t\n", 16);
  struct {
    qel_string str;
    unsigned char guard[16];
  } local;
  std::memset(&local, 0xa5, sizeof local); // never initialised, as a caller has it
  char *bytes = s.bytes;
  const int64_t capacity = s.capacity;
  qel_stream_swap_string(&s, &local.str);
  EXPECT_EQ(local.str.bytes, bytes);
  qel_string_trim(&local.str);
  qel_stream_swap_string(&s, &local.str);
  EXPECT_EQ(text(s), "padded text");
  EXPECT_EQ(s.bytes, bytes);
  EXPECT_EQ(s.capacity, capacity);
  const unsigned char *raw = reinterpret_cast<const unsigned char *>(&local);
  for (size_t i = 0; i < sizeof local; i++) ASSERT_EQ(raw[i], 0xa5) << i;
  qel_stream_term(&s);
}

TEST(String, CopyShrinkTrim) {
  qel_string s;
  qel_string_init(&s);
  qel_string_trim(&s); // empty: nothing to do
  for (const auto &[in, out] : std::vector<std::pair<std::string, std::string>>{
           {" \t\r\n\v\fa b\f\v\n\r\t ", "a b"}, {"   ", ""}, {"x", "x"}, {"", ""}, {"\x01 y \xa0", "\x01 y \xa0"}}) {
    qel_string_copy(&s, in.data(), static_cast<int64_t>(in.size()));
    qel_string_trim(&s);
    EXPECT_EQ(text(s), out) << in;
  }
  qel_string_copy(&s, "abcdef", 6);
  qel_string_shrink(&s, 2);
  EXPECT_EQ(text(s), "ab");
  qel_string_shrink(&s, 50);
  EXPECT_EQ(text(s), "ab");
  qel_string_shrink(&s, -1);
  EXPECT_EQ(s.length, 0);
  qel_string_term(&s);
}

TEST(Compare, CharCompareAndMemCmp) {
  qel_char_view v{"name", 4};
  EXPECT_EQ(qel_char_compare(&v, "name", 4), 0);
  EXPECT_NE(qel_char_compare(&v, "Name", 4), 0);
  EXPECT_NE(qel_char_compare(&v, "names", 5), 0);
  EXPECT_NE(qel_char_compare(&v, "nam", 3), 0);
  EXPECT_NE(qel_char_compare(&v, "name", -1), 0);
  qel_char_view empty{nullptr, 0};
  EXPECT_EQ(qel_char_compare(&empty, "", 0), 0);

  EXPECT_EQ(qel_mem_cmp("abc", 3, "abc", 3), 0);
  EXPECT_LT(qel_mem_cmp("ab", 2, "abc", 3), 0); // shorter first
  EXPECT_GT(qel_mem_cmp("abc", 3, "ab", 2), 0);
  EXPECT_LT(qel_mem_cmp("a\x01", 2, "a\xff", 2), 0); // unsigned bytes
  EXPECT_GT(qel_mem_cmp("\x80", 1, "\x7f", 1), 0);
  EXPECT_LT(qel_mem_cmp("ab", 2, std::string("ab\0", 3).data(), 3), 0);
  EXPECT_EQ(qel_mem_cmp(nullptr, 0, "", 0), 0);
  EXPECT_LT(qel_mem_cmp("x", -4, "a", 1), 0); // negative length counts as empty
}

int destroyed[4];
void destroy(void *p) { ++*static_cast<int *>(p); }

TEST(PointerArray, AppendGetFreeAll) {
  qel_arrays a;
  qel_arrays_init(&a, 0);
  for (int round = 0; round < 2; round++) {
    for (int i = 0; i < 4; i++) qel_arrays_append(&a, &destroyed[i]);
    EXPECT_EQ(a.count, 4);
    EXPECT_EQ(qel_arrays_get_at(&a, 3), &destroyed[3]);
    EXPECT_EQ(qel_arrays_get_at(&a, 4), nullptr);
    EXPECT_EQ(qel_arrays_get_at(&a, -1), nullptr);
    qel_arrays_free_all(&a, destroy);
    EXPECT_EQ(a.count, 0);
    EXPECT_EQ(qel_arrays_get_at(&a, 0), nullptr);
  }
  for (int i = 0; i < 4; i++) EXPECT_EQ(destroyed[i], 2);
  qel_arrays_append(&a, &destroyed[0]);
  EXPECT_EQ(a.count, 1);
  qel_arrays_free_all(&a, nullptr);
  EXPECT_EQ(destroyed[0], 2);
  qel_arrays_term(&a);

  void *block = qel_malloc(0);
  EXPECT_NE(block, nullptr);
  qel_free(block);
  qel_free(nullptr);
}

} // namespace
