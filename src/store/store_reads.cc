// The read operations of the store.
#include <cstdlib>

#include "db/config_reads.h"
#include "db/host_flags.h"
#include "db/upgrade_ctx.h"
#include "dbstore/path_watch.h"
#include "store/api_log.h"
#include "store/next_boot_store.h"
#include "store/revision_check.h"
#include "store/setvault_impl.h"
#include "validation/guards.h"
#include "validation/schema_validation.h"

namespace KorvoSetvault {
namespace {

const KeyStatement3 kRevisionsOfTypeSql(
    "SELECT Identifier, Revision FROM Config WHERE Name = ? AND ConfigGroup = ? AND "
    "Component = ?");
const KeyStatement3 kInstanceIdsSql(
    "SELECT Identifier FROM Config WHERE Name = ? AND ConfigGroup = ? AND Component = ?");

// Row callbacks of the revision and instance-id queries.
int AppendRevision(void* context, int count, char** texts, char** names) {
  std::pair<std::string, int> entry("", 0);
  for (int i = 0; i < count; ++i) {
    if (texts[i] == nullptr) continue;
    const std::string_view name(names[i]);
    if (name == "Identifier") entry.first = texts[i];
    if (name == "Revision") entry.second = static_cast<int>(std::strtol(texts[i], nullptr, 10));
  }
  static_cast<std::vector<std::pair<std::string, int>>*>(context)->push_back(std::move(entry));
  return 0;
}

int AppendFirstColumn(void* context, int count, char** texts, char** /*names*/) {
  if (count > 0) {
    static_cast<std::vector<std::string>*>(context)->emplace_back(texts[0] ? texts[0] : "");
  }
  return 0;
}

}  // namespace

std::shared_ptr<SetvaultObject> SetvaultImpl::Get(const SetvaultObjectId& id) {
  DBStore::internal::OneLookPerCall look;  // at the schema and store files
  LogApiCall(kReadCallPriority, "Get", id, 1);
  auto schema = LookUpSchema(id);
  ValidateSvoId(id, schema);
  return GetInternal(id, ReadConnection(), schema);
}

std::map<std::string, std::string> SetvaultImpl::MemberOrigins(const SetvaultObjectId& id) {
  LogApiCall(kReadCallPriority, "GetMemberOrigins", id, 1);
  auto schema = LookUpSchema(id);
  ValidateSvoId(id, schema);
  return GetMemberOriginsInternal(id, ReadConnection(), schema);
}

std::map<std::string, std::string> GetMemberOrigins(const SetvaultObjectId& id) {
  return SetvaultImpl(GetDBStore(DBStore::kConfigStore, true)).MemberOrigins(id);
}

std::shared_ptr<SetvaultObject> SetvaultImpl::GetDefaultConfig(const SetvaultObjectId& id) {
  LogApiCall(kReadCallPriority, "GetDefaultConfig", id, 1);
  auto schema = LookUpSchema(id);
  ValidateSvoId(id, schema);
  return GetDefaultConfigInternal(id, ReadConnection(), schema);
}

std::vector<std::shared_ptr<SetvaultObject>> SetvaultImpl::GetDefaultConfigInstances(
    const std::shared_ptr<FilterSpecObject>& filter) {
  if (IsNull(filter, "GetDefaultConfigInstances")) return {};
  LogApiCall(kReadCallPriority, "GetDefaultConfigInstances", filter->GetSetvaultObjectId(), 1);
  auto schema = LookUpSchema(filter->GetSetvaultObjectId());
  ValidateSvoIdInstances(filter, schema);
  return GetDefaultConfigInstancesInternal(filter, ReadConnection(), schema);
}

std::vector<std::shared_ptr<SetvaultObject>> SetvaultImpl::GetInstances(
    const std::shared_ptr<FilterSpecObject>& filter) {
  DBStore::internal::OneLookPerCall look;  // at the schema and store files
  if (IsNull(filter, "GetInstances")) return {};
  LogApiCall(kReadCallPriority, "GetInstances", filter->GetSetvaultObjectId(), 1);
  auto schema = LookUpSchema(filter->GetSetvaultObjectId());
  ValidateSvoIdInstances(filter, schema);
  return GetConfigInstancesInternal(filter, ReadConnection(), schema);
}

std::vector<std::string> SetvaultImpl::GetInstanceIds(const SetvaultObjectId& id) {
  LogApiCall(kReadCallPriority, "GetInstanceIds", id, 1);
  ValidateSvoIdInstances(id, LookUpSchema(id));
  std::vector<std::string> ids;
  const auto& connection = ReadConnection();
  DBStore::StmtPtr stmt =
      kInstanceIdsSql.PrepareAndBind(connection, id.key, id.group, id.component);
  if (DBStore::ExecuteStmt(connection, stmt, AppendFirstColumn, &ids, DBStore::kBusyTimeoutMs) ==
      1) {
    DBStore::ThrowFailure("GetInstanceIds failed");
  }
  return ids;
}

int SetvaultImpl::GetRevision(const SetvaultObjectId& id) {
  LogApiCall(kReadCallPriority, "GetRevision", id, 1);
  ValidateSvoId(id, LookUpSchema(id));
  return ReadStoredRevision(id, ReadConnection());
}

std::vector<std::pair<std::string, int>> SetvaultImpl::GetInstancesRevision(
    const SetvaultObjectId& id) {
  LogApiCall(kReadCallPriority, "GetInstancesRevision", id, 1);
  ValidateSvoIdInstances(id, LookUpSchema(id));
  std::vector<std::pair<std::string, int>> revisions;
  const auto& connection = ReadConnection();
  DBStore::StmtPtr stmt =
      id.instanceId.empty()
          ? kRevisionsOfTypeSql.PrepareAndBind(connection, id.key, id.group, id.component)
          : kRevisionOfInstanceSql.PrepareAndBind(connection, id.key, id.group, id.component,
                                                  id.instanceId);
  if (DBStore::ExecuteStmt(connection, stmt, AppendRevision, &revisions, DBStore::kBusyTimeoutMs) ==
      1) {
    DBStore::ThrowFailure("GetRevision command failed");
  }
  return revisions;
}

std::vector<ErrorInfo> SetvaultImpl::Validate(std::shared_ptr<SetvaultObject> object) {
  std::vector<ErrorInfo> errors;
  if (IsNull(object, "Validate")) return errors;
  LogApiCall(kWriteCallPriority, "Validate", object->GetSetvaultObjectId(), 1);
  ValidateSVO(LookUpSchema(object->GetSetvaultObjectId()), object, errors);
  return errors;
}

const std::shared_ptr<DBStore::StoreConnection>& SetvaultImpl::ReadConnection() const {
  if (DBStore::CheckStore(connection_, false) != 0) {
    throw SetvaultException(SV_ERR_GENERIC, "Failed to connect to database",
                            DBStore::FailureOf(connection_));
  }
  return connection_;
}

std::shared_ptr<NextBootStore> SetvaultImpl::GetNextBootStore() {
  if (GetUpgradeCtx() != 0 || IsBoot()) {
    throw ValidationException(SV_ERR_GENERIC,
                              "NextBootStore is not supported during the upgrade or boot phase");
  }
  return std::make_shared<NextBootStoreImpl>(connection_);
}

}  // namespace KorvoSetvault
