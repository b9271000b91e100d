#include "core/linked_lists.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tolvenra::linked_lists {
namespace {

TEST(IntList, KeepsTheOrderOfInsertionAndAnswersQueries) {
  error_type err;
  int_list list;
  EXPECT_EQ(int_list_length(list), 0);
  EXPECT_EQ(int_list_ordinal(3, list), -1);
  EXPECT_EQ(int_list_value(1, list), 0);
  for (const int32 value : {7, 3, 9, 3}) ASSERT_EQ(int_list_add(value, list, err), 0);
  EXPECT_EQ(int_list_length(list), 4);
  EXPECT_EQ(int_list_ordinal(3, list), 4);  // the first from the head is the newest
  EXPECT_EQ(int_list_ordinal(7, list), 1);
  EXPECT_EQ(int_list_ordinal(5, list), 0);
  EXPECT_EQ(int_list_value(3, list), 9);
  EXPECT_EQ(int_list_value(5, list), 0);
  array<int32, 1> values = vector_of<int32>({1});
  ASSERT_EQ(int_list_to_array(values, list, err), 0);
  EXPECT_EQ(values, vector_of<int32>({7, 3, 9, 3}));
  EXPECT_FALSE(err_occurred(err));
}

TEST(IntList, AnEmptyListCannotBecomeAnArray) {
  error_type err;
  array<int32, 1> values;
  EXPECT_EQ(int_list_to_array(values, int_list{}, err), -1);
  EXPECT_EQ(lines_of(err),
            (std::vector<std::string>{"Unable to allocate array for empty list.",
                                      "OCCURRED IN: int_list_to_array in MOD linked_lists"}));
}

TEST(IntList, LongListsAreReleasedWithoutRecursion) {
  error_type err;
  int_list list;
  for (int32 k = 0; k < 300000; ++k) ASSERT_EQ(int_list_add(k, list, err), 0);
  array<int32, 1> values;
  ASSERT_EQ(int_list_to_array(values, list, err), 0);
  EXPECT_EQ(values(300000), 299999);
}

}  // namespace
}  // namespace tolvenra::linked_lists
