// Row callbacks: NULL columns stay out of the map, later rows overwrite, rows append.
#include "db/row_callbacks.h"

#include <gtest/gtest.h>

namespace setvault_test {
namespace {

using KorvoSetvault::StoreRow;

TEST(RowCallbacksTest, NullsStayOutLaterRowsOverwriteAndEachRowAppends) {
  char name_a[] = "A", name_b[] = "Value", one[] = "1", two[] = "2";
  char* names[] = {name_a, name_b};
  char* rows[][2] = {{one, nullptr}, {two, nullptr}, {nullptr, one}};
  StoreRow row;
  KorvoSetvault::StoreRows appended = std::make_shared<std::vector<std::shared_ptr<StoreRow>>>();
  for (char** texts : rows) {
    EXPECT_EQ(KorvoSetvault::RowIntoMapCallback(&row, 2, texts, names), 0);
    EXPECT_EQ(KorvoSetvault::RowAppendedCallback(&appended, 2, texts, names), 0);
  }
  // A NULL in a later row keeps the earlier text.
  EXPECT_EQ(row, (StoreRow{{"A", "2"}, {"Value", "1"}}));
  ASSERT_EQ(appended->size(), 3u);
  EXPECT_EQ(*(*appended)[0], (StoreRow{{"A", "1"}}));
  EXPECT_EQ(*(*appended)[2], (StoreRow{{"Value", "1"}}));
}

}  // namespace
}  // namespace setvault_test
