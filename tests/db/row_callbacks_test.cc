// Row callbacks: NULL columns stay out of the map, later rows overwrite, rows append.
#include <gtest/gtest.h>

#include "db/row_callbacks.h"

namespace setvault_test {
namespace {

using KorvoSetvault::StoreRow;
using KorvoSetvault::StoreRows;

TEST(RowCallbacksTest, RowIntoMapSkipsNullsAndLaterRowsOverwrite) {
  char name_a[] = "A", name_b[] = "Value", one[] = "1", two[] = "2";
  char* names[] = {name_a, name_b};
  char* first[] = {one, nullptr};
  char* second[] = {two, nullptr};
  char* third[] = {nullptr, one};
  StoreRow row;
  EXPECT_EQ(KorvoSetvault::RowIntoMapCallback(&row, 2, first, names), 0);
  EXPECT_EQ(row, (StoreRow{{"A", "1"}}));
  EXPECT_EQ(KorvoSetvault::RowIntoMapCallback(&row, 2, second, names), 0);
  EXPECT_EQ(KorvoSetvault::RowIntoMapCallback(&row, 2, third, names), 0);
  // A NULL in a later row keeps the earlier text.
  EXPECT_EQ(row, (StoreRow{{"A", "2"}, {"Value", "1"}}));
}

TEST(RowCallbacksTest, RowAppendedMakesOneMapPerRowInOrder) {
  char name[] = "Identifier", a[] = "a", b[] = "b";
  char* names[] = {name};
  char* first[] = {a};
  char* second[] = {b};
  char* null_row[] = {nullptr};
  StoreRows rows = std::make_shared<std::vector<std::shared_ptr<StoreRow>>>();
  EXPECT_EQ(KorvoSetvault::RowAppendedCallback(&rows, 1, first, names), 0);
  EXPECT_EQ(KorvoSetvault::RowAppendedCallback(&rows, 1, null_row, names), 0);
  EXPECT_EQ(KorvoSetvault::RowAppendedCallback(&rows, 1, second, names), 0);
  ASSERT_EQ(rows->size(), 3u);
  EXPECT_EQ(*(*rows)[0], (StoreRow{{"Identifier", "a"}}));
  EXPECT_TRUE((*rows)[1]->empty());
  EXPECT_EQ(*(*rows)[2], (StoreRow{{"Identifier", "b"}}));
  EXPECT_NE((*rows)[0].get(), (*rows)[2].get());
}

}  // namespace
}  // namespace setvault_test
