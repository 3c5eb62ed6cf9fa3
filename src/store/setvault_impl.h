// SetvaultImpl: the store behind the Setvault interface. It holds nothing
// but its share of the database connection; every operation checks its
// arguments, looks the type's schema up, validates and calls one persistence
// function with the connection.
#ifndef SETVAULT_SRC_STORE_SETVAULT_IMPL_H_
#define SETVAULT_SRC_STORE_SETVAULT_IMPL_H_

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "dbstore/db_store.h"
#include "model/setvault_object_impl.h"
#include "schema/schema_store.h"
#include "setvault/setvault_store.h"

namespace KorvoSetvault {

// The calling thread's connection (type 0). When none can be opened, throws
// SetvaultException 2000 "Failed to connect to database" if `mustConnect`,
// and returns an empty pointer otherwise.
std::shared_ptr<DBStore::StoreConnection> GetDBStore(DBStore::Type type, bool mustConnect);

class SetvaultImpl : public Setvault {
 public:
  explicit SetvaultImpl(std::shared_ptr<DBStore::StoreConnection> connection);
  ~SetvaultImpl() override;

  std::shared_ptr<NextBootStore> GetNextBootStore() override;
  std::shared_ptr<SetvaultObject> Get(const SetvaultObjectId& id) override;
  std::shared_ptr<SetvaultObject> GetDefaultConfig(const SetvaultObjectId& id) override;
  std::vector<std::shared_ptr<SetvaultObject>> GetDefaultConfigInstances(
      const std::shared_ptr<FilterSpecObject>& filter) override;
  std::vector<std::string> GetInstanceIds(const SetvaultObjectId& id) override;
  void Set(std::shared_ptr<SetvaultObject> object, const USERDATA_CONTEXT& context) override;
  void SetUserData(std::shared_ptr<SetvaultObject> object, const USERDATA_CONTEXT& context) override;
  void SetVitalData(std::shared_ptr<SetvaultObject> object) override;
  void SetCachedData(std::shared_ptr<SetvaultObject> object) override;
  void Update(std::shared_ptr<SetvaultObject> object, const USERDATA_CONTEXT& context) override;
  void Delete(const SetvaultObjectId& id) override;
  void DeleteInstances(const std::shared_ptr<FilterSpecObject>& filter) override;
  std::vector<std::shared_ptr<SetvaultObject>> GetInstances(
      const std::shared_ptr<FilterSpecObject>& filter) override;
  void SetInstances(std::vector<std::shared_ptr<SetvaultObject>> objects,
                    const USERDATA_CONTEXT& context) override;
  void SetUserDataInstances(std::vector<std::shared_ptr<SetvaultObject>> objects,
                            const USERDATA_CONTEXT& context) override;
  void SetCachedDataInstances(std::vector<std::shared_ptr<SetvaultObject>> objects) override;
  void SetVitalDataInstances(std::vector<std::shared_ptr<SetvaultObject>> objects) override;
  int GetRevision(const SetvaultObjectId& id) override;
  std::vector<std::pair<std::string, int>> GetInstancesRevision(const SetvaultObjectId& id) override;
  int BeginTransaction() override;
  int CommitTransaction() override;
  int CancelTransaction() noexcept override;
  std::vector<ErrorInfo> Validate(std::shared_ptr<SetvaultObject> object) override;
  void SetIfRevision(std::shared_ptr<SetvaultObject> object, int expectedRevision,
                     const USERDATA_CONTEXT& context) override;
  void UpdateIfRevision(std::shared_ptr<SetvaultObject> object, int expectedRevision,
                        const USERDATA_CONTEXT& context) override;
  void SetInstancesIfRevisions(std::vector<std::shared_ptr<SetvaultObject>> objects,
                               const std::map<std::string, int>& expectedRevisions,
                               const USERDATA_CONTEXT& context) override;

  // GetMemberOrigins (setvault_store.h) on this store's connection.
  std::map<std::string, std::string> MemberOrigins(const SetvaultObjectId& id);

  const std::shared_ptr<DBStore::StoreConnection>& connection() const { return connection_; }

 private:
  // The connection for a read: throws SetvaultException 2000 "Failed to connect to
  // database", with the path and cause as detail, when the store file does not exist (reads
  // never create it), cannot be opened, or was removed or replaced while in use.
  const std::shared_ptr<DBStore::StoreConnection>& ReadConnection() const;

  // The writes behind the plain and the conditional operations: `expected`
  // (none: unconditional) is the revision the caller read.
  void SetChecked(const char* operation, std::shared_ptr<SetvaultObject> object,
                  std::optional<int> expected, const USERDATA_CONTEXT& context);
  void UpdateChecked(const char* operation, std::shared_ptr<SetvaultObject> object,
                     std::optional<int> expected, const USERDATA_CONTEXT& context);
  void SetInstancesChecked(const char* operation,
                           std::vector<std::shared_ptr<SetvaultObject>> objects,
                           const std::map<std::string, int>* expected,
                           const USERDATA_CONTEXT& context);

  std::shared_ptr<DBStore::StoreConnection> connection_;
};

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_STORE_SETVAULT_IMPL_H_
