// NextBootStoreImpl: the next-boot store behind the NextBootStore interface.
// Like the store that made it, it holds nothing but its share of the
// database connection; each operation checks its arguments, looks the type's
// schema up, refuses types not tagged for the next boot, validates and runs
// one persistence function (each write in a transaction of its own).
#ifndef SETVAULT_SRC_STORE_NEXT_BOOT_STORE_H_
#define SETVAULT_SRC_STORE_NEXT_BOOT_STORE_H_

#include <memory>
#include <vector>

#include "dbstore/db_store.h"
#include "setvault/setvault_store.h"

namespace KorvoSetvault {

class NextBootStoreImpl final : public NextBootStore {
 public:
  explicit NextBootStoreImpl(std::shared_ptr<DBStore::StoreConnection> connection);
  ~NextBootStoreImpl();

  std::shared_ptr<SetvaultObject> Get(const SetvaultObjectId& id) override;
  void Set(std::shared_ptr<SetvaultObject> object) override;
  void Delete(const SetvaultObjectId& id) override;
  void Reset(const SetvaultObjectId& id) override;
  void SetInstances(std::vector<std::shared_ptr<SetvaultObject>> objects) override;
  std::vector<std::shared_ptr<SetvaultObject>> GetInstances(
      const std::shared_ptr<FilterSpecObject>& filter) override;
  void DeleteInstances(const std::shared_ptr<FilterSpecObject>& filter) override;

 private:
  std::shared_ptr<DBStore::StoreConnection> connection_;
};

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_STORE_NEXT_BOOT_STORE_H_
