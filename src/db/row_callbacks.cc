#include "db/row_callbacks.h"

namespace KorvoSetvault {

int RowIntoMapCallback(void* context, int count, char** texts, char** names) {
  StoreRow& row = *static_cast<StoreRow*>(context);
  for (int i = 0; i < count; ++i) {
    if (texts[i] != nullptr) row[names[i]] = texts[i];
  }
  return 0;
}

int RowAppendedCallback(void* context, int count, char** texts, char** names) {
  StoreRows& rows = *static_cast<StoreRows*>(context);
  auto row = std::make_shared<StoreRow>();
  RowIntoMapCallback(row.get(), count, texts, names);
  rows->push_back(std::move(row));
  return 0;
}

}  // namespace KorvoSetvault
