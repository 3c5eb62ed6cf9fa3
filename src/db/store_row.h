// Result rows of the persistence code.
#ifndef SETVAULT_SRC_DB_STORE_ROW_H_
#define SETVAULT_SRC_DB_STORE_ROW_H_

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace KorvoSetvault {

// One result row: column name (as written in the select list, aliases included) to the
// column's text. A column that is SQL NULL is absent.
using StoreRow = std::unordered_map<std::string, std::string>;

// A multi-row result, in the order the database delivered the rows.
using StoreRows = std::shared_ptr<std::vector<std::shared_ptr<StoreRow>>>;

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DB_STORE_ROW_H_
