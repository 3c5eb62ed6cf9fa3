// Raw row reads for bulk export.
#include "db/config_reads.h"

#include "setvault/exceptions.h"
#include "setvault/logger.h"

namespace KorvoSetvault {
namespace {

const KeyStatement3 kDefaultMapListSql(
    "SELECT Value, Identifier, Version FROM DefaultConfig WHERE Name = ? AND ConfigGroup = ? AND "
    "Component = ?");
const KeyStatement4 kDefaultMapListOneSql(
    "SELECT Value, Identifier, Version FROM DefaultConfig WHERE Name = ? AND ConfigGroup = ? AND "
    "Component = ? AND Identifier = ?");

// "%1$s" stands for the value expression, twice.
const char kConfirmedContentsSql[] =
    "SELECT Name, %1$s as Value, AutoConfValue, Component, Identifier, Version, ConfigGroup, "
    "CreationTime, ModifiedTime, Revision FROM Config WHERE Success=1 AND %1$s IS NOT NULL";
const char kContentsSql[] =
    "SELECT Name, %1$s as Value, AutoConfValue, Component, Identifier, Version, ConfigGroup, "
    "CreationTime, ModifiedTime, Revision FROM Config WHERE %1$s IS NOT NULL";

const char kSharedConfigurationSql[] =
    "SELECT Component, ConfigGroup, Name, Identifier, CASE WHEN DesiredValue is NULL THEN "
    "UserValue ELSE DesiredValue END AS Value FROM Config WHERE (Component, ConfigGroup, Name) IN "
    "( SELECT Component, ConfigGroup, Name from ss.SmartnicSchema WHERE "
    "ss.SmartnicSchema.ValueType = \"korvo-shared\" )";

const char kDesiredUserValueExpression[] = "CASE Success WHEN 0 THEN UserValue ELSE DesiredValue END";

// `format` with every "%1$s" replaced by `expression`.
std::string ExpandPositional(const char* format, const std::string& expression) {
  std::string text = format;
  const std::string marker = "%1$s";
  for (size_t at = text.find(marker); at != std::string::npos;
       at = text.find(marker, at + expression.size())) {
    text.replace(at, marker.size(), expression);
  }
  return text;
}

}  // namespace

StoreRows GetDefaultUserConfigMapList(const SetvaultObjectId& id, const ConnectionPtr& conn) {
  if (id.instanceId.empty()) return ReadStoreRows(id, conn, kDefaultMapListSql);
  DBStore::StmtPtr stmt =
      kDefaultMapListOneSql.PrepareAndBind(conn, id.key, id.group, id.component, id.instanceId);
  return ReadAllRows(conn, stmt);
}

StoreRows GetStoreContentsInternalST(const std::string& column, const ConnectionPtr& conn,
                                     bool flag) {
  const char* format = !flag && column == "UserValue" ? kConfirmedContentsSql : kContentsSql;
  const std::string sql = ExpandPositional(format, column);
  DBStore::StmtPtr stmt = DBStore::internal::Prepare(conn, sql, DBStore::kBusyTimeoutMs);
  return ReadAllRows(conn, stmt);
}

StoreRows GetUserConfigContents(const ConnectionPtr& conn) {
  return GetStoreContentsInternalST("UserValue", conn, false);
}

StoreRows GetDesiredUserConfigContents(const ConnectionPtr& conn) {
  return GetStoreContentsInternalST(kDesiredUserValueExpression, conn, true);
}

StoreRows GetSmartnicConfiguration(const ConnectionPtr& conn) {
  if (DBStore::AttachSchemaStore(conn) != 0) {
    DBStore::ThrowFailure("Failed to attach schema store");
  }
  // Detach on every path, the failing read included.
  struct Detacher {
    const ConnectionPtr& conn;
    ~Detacher() {
      if (DBStore::DetachSchemaStore(conn) != 0) SVLogger::Log(0, "Failed to detach schema store");
    }
  } detacher{conn};
  DBStore::StmtPtr stmt =
      DBStore::internal::Prepare(conn, kSharedConfigurationSql, DBStore::kBusyTimeoutMs);
  return ReadAllRows(conn, stmt);
}

}  // namespace KorvoSetvault
