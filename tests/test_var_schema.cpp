// Schemas: members by name with a packed type code and multi byte.
#include <gtest/gtest.h>
#include <qel.h>

#include <cstdint>
#include <string>

namespace {

struct Schema : ::testing::Test {
  qel_schema *s = qel_var_schema_new();
  uint32_t type = 0xDEAD;
  uint8_t multi = 0xAB;
  void TearDown() override { qel_var_schema_free(s); }
};

TEST_F(Schema, FindOnAnEmptySchemaLeavesTheOutputs) {
  EXPECT_EQ(qel_var_schema_size(s), 0);
  EXPECT_EQ(qel_var_schema_find(s, "id", 2, &type, &multi), -1);
  EXPECT_EQ(type, 0xDEADu);
  EXPECT_EQ(multi, 0xAB);
}

TEST_F(Schema, FindReturnsTheFirstMemberOfExactlyThatName) {
  qel_var_schema_add(s, "idx", 3, 6, 0);
  qel_var_schema_add(s, "id", 2, 4, 0);
  qel_var_schema_add(s, "id", 2, 7, 1);
  EXPECT_EQ(qel_var_schema_size(s), 3);
  EXPECT_EQ(qel_var_schema_find(s, "id", 2, &type, &multi), 1);
  EXPECT_EQ(type, 4u);
  EXPECT_EQ(multi, 0);
  EXPECT_EQ(qel_var_schema_find(s, "idx", 3, &type, &multi), 0);
  EXPECT_EQ(type, 6u);
  EXPECT_EQ(qel_var_schema_find(s, "i", 1, &type, &multi), -1);
  EXPECT_EQ(qel_var_schema_find(s, "idxx", 4, &type, &multi), -1);
  // Names are bytes with a length: no terminator needed, zero bytes allowed.
  qel_var_schema_add(s, "a\0b", 3, 9, 0);
  EXPECT_EQ(qel_var_schema_find(s, "a\0b", 3, &type, &multi), 3);
  EXPECT_EQ(qel_var_schema_find(s, "a", 1, &type, &multi), -1);
}

TEST_F(Schema, TagPacksSixteenBitCodeAndSignExtendedMulti) {
  const struct { uint32_t type; uint8_t multi; uint32_t tag; uint32_t type_back; } rows[] = {
      {70000, 0, 4464, 4464},          {4, 1, 0x00010004, 4},        {7, 0xFF, 0xFFFF0007, 7},
      {20, 0x7F, 0x007F0014, 20},      {20, 0x80, 0xFF800014, 20},   {0xFFFFFFFF, 2, 0x0002FFFF, 0xFFFF},
  };
  for (const auto &r : rows) {
    const std::string name = std::to_string(r.tag);
    qel_var_schema_add(s, name.data(), static_cast<int64_t>(name.size()), r.type, r.multi);
    const int at = qel_var_schema_find(s, name.data(), static_cast<int64_t>(name.size()), &type, &multi);
    ASSERT_GE(at, 0);
    EXPECT_EQ(type, r.type_back);
    EXPECT_EQ(multi, r.multi);
    const char *bytes = nullptr;
    int64_t length = 0;
    EXPECT_EQ(qel_array_get_at(s, at, &bytes, &length), r.tag) << r.type;
  }
}

TEST_F(Schema, GetAtOutsideTheMembersGivesNoName) {
  qel_var_schema_add(s, "a", 1, 4, 0);
  for (int64_t bad : {int64_t{-1}, int64_t{1}, int64_t{100}}) {
    const char *name = "junk";
    int64_t length = 4;
    qel_var_schema_get_at(s, bad, &name, &length, &type, &multi);
    EXPECT_EQ(name, nullptr);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(type, 0xDEADu);
    EXPECT_EQ(multi, 0xAB);
  }
}

TEST_F(Schema, GetAtOfAZeroTagGivesOnlyTheName) {
  qel_var_schema_add(s, "rec", 3, 0, 0);
  qel_var_schema_add(s, "arr", 3, 5, 0xFF);
  const char *name = nullptr;
  int64_t length = 0;
  qel_var_schema_get_at(s, 0, &name, &length, &type, &multi);
  EXPECT_EQ(std::string(name, static_cast<size_t>(length)), "rec");
  EXPECT_EQ(type, 0xDEADu);
  EXPECT_EQ(multi, 0xAB);
  qel_var_schema_get_at(s, 1, &name, &length, &type, &multi);
  EXPECT_EQ(std::string(name, static_cast<size_t>(length)), "arr");
  EXPECT_EQ(type, 5u);
  EXPECT_EQ(multi, 0xFF);
}

TEST_F(Schema, SetAtChangesTypeAndFormButNotTheName) {
  qel_var_schema_add(s, "a", 1, 4, 0);
  qel_var_schema_add(s, "b", 1, 6, 0);
  qel_var_schema_set_at(s, 1, 7, 1);
  EXPECT_EQ(qel_var_schema_find(s, "b", 1, &type, &multi), 1);
  EXPECT_EQ(type, 7u);
  EXPECT_EQ(multi, 1);
  qel_var_schema_set_at(s, 2, 9, 9);
  qel_var_schema_set_at(s, -1, 9, 9);
  EXPECT_EQ(qel_var_schema_size(s), 2);
  EXPECT_EQ(qel_var_schema_find(s, "a", 1, &type, &multi), 0);
  EXPECT_EQ(type, 4u);
  EXPECT_EQ(multi, 0);
  const char *name = nullptr;
  int64_t length = 0;
  qel_var_schema_get_at(s, 1, &name, &length, &type, &multi);
  EXPECT_EQ(std::string(name, static_cast<size_t>(length)), "b");
}

TEST(SchemaNull, AddAndFreeAcceptNull) {
  qel_var_schema_add(nullptr, "a", 1, 4, 0);
  qel_var_schema_free(nullptr);
}

TEST(SchemaUse, AChangeAffectsOnlyRecordsMadeAfterwards) {
  qel_schema *s = qel_var_schema_new();
  qel_var_schema_add(s, "a", 1, 4, 0);
  qel_var *before = qel_var_new_x(12, 0, s, nullptr);
  qel_var_schema_add(s, "b", 1, 6, 0);
  qel_var_schema_set_at(s, 0, 7, 0);
  qel_var *after = qel_var_new_x(12, 0, s, nullptr);
  const char *name = nullptr;
  int64_t length = 0;
  uint32_t type = 0;
  uint8_t multi = 0;
  qel_var_schema_get_at(s, 0, &name, &length, &type, &multi);
  auto *a_before = static_cast<qel_var *>(qel_hash_get(&before->data.members, "a", 1));
  auto *a_after = static_cast<qel_var *>(qel_hash_get(&after->data.members, "a", 1));
  ASSERT_NE(a_before, nullptr);
  ASSERT_NE(a_after, nullptr);
  EXPECT_EQ(qel_var_type(a_before), 4u);
  EXPECT_EQ(qel_var_type(a_after), 7u);
  EXPECT_EQ(qel_hash_get(&before->data.members, "b", 1), nullptr);
  EXPECT_NE(qel_hash_get(&after->data.members, "b", 1), nullptr);
  qel_var_free(before);
  qel_var_free(after);
  qel_var_schema_free(s);
}

}  // namespace
