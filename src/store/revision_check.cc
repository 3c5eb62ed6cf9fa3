#include "store/revision_check.h"

#include <cstdlib>

#include "setvault/exceptions.h"

namespace KorvoSetvault {

const KeyStatement4 kRevisionOfInstanceSql(
    "SELECT Identifier, Revision FROM Config WHERE Name = ? AND ConfigGroup = ? AND "
    "Component = ? AND Identifier = ?");

namespace {

const KeyStatement4 kRaiseRevisionSql(
    "UPDATE Config SET Revision = Revision + 1 WHERE Name = ? AND ConfigGroup = ? AND "
    "Component = ? AND Identifier = ?");

// Row callback: keeps the "Revision" column of the (last) row.
int StoreRevision(void* context, int count, char** texts, char** names) {
  for (int i = 0; i < count; ++i) {
    if (std::string_view(names[i]) == "Revision" && texts[i] != nullptr) {
      *static_cast<int*>(context) = static_cast<int>(std::strtol(texts[i], nullptr, 10));
    }
  }
  return 0;
}

SetvaultObjectId InstanceOf(const SetvaultObjectId& type, const std::string& instance) {
  return SetvaultObjectId(type.key, type.group, type.component, instance);
}

}  // namespace

int ReadStoredRevision(const SetvaultObjectId& id, const ConnectionPtr& conn) {
  int revision = -1;
  DBStore::StmtPtr stmt =
      kRevisionOfInstanceSql.PrepareAndBind(conn, id.key, id.group, id.component, id.instanceId);
  if (DBStore::ExecuteStmt(conn, stmt, StoreRevision, &revision, DBStore::kBusyTimeoutMs) == 1) {
    DBStore::ThrowFailure("GetRevision command failed", DBStore::FailureOf(conn));
  }
  return revision;
}

void RequireRevision(const SetvaultObjectId& id, int expected, const ConnectionPtr& conn) {
  const int stored = ReadStoredRevision(id, conn);
  if (stored != expected) throw RevisionConflictException(id.toString(), expected, stored);
}

void RequireRevisions(const SetvaultObjectId& type, const std::map<std::string, int>& expected,
                      const ConnectionPtr& conn) {
  for (const auto& [instance, revision] : expected) {
    RequireRevision(InstanceOf(type, instance), revision, conn);
  }
}

void RaiseRevision(const SetvaultObjectId& id, const ConnectionPtr& conn) {
  DBStore::StmtPtr stmt =
      kRaiseRevisionSql.PrepareAndBind(conn, id.key, id.group, id.component, id.instanceId);
  if (DBStore::ExecuteStmt(conn, stmt, nullptr, nullptr, DBStore::kBusyTimeoutMs) != 0) {
    throw SetvaultException(SV_ERR_GENERIC,
                            ("Failed to raise the revision of " + id.toString()).c_str());
  }
}

}  // namespace KorvoSetvault
