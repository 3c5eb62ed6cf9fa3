#include "db/default_config_writes.h"

#include <optional>
#include <string_view>

#include "setvault/exceptions.h"

namespace KorvoSetvault {
namespace {

const char kDeleteAllDefaultsSql[] = "DELETE FROM DefaultConfig";
const KeyStatement3 kDeleteTypeDefaultsSql(
    "DELETE FROM DefaultConfig WHERE Name = ? AND ConfigGroup = ? AND Component = ?");
const char kInsertDefaultSql[] =
    "INSERT INTO DefaultConfig ( Identifier, Name, ConfigGroup, Component, Version, Value, "
    "VitalValue, CachedValue ) VALUES ( ?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8 )";

[[noreturn]] void Fail(const SetvaultObjectId& id) {
  DBStore::ThrowFailure(("Write default configuration failed: " + id.toString()).c_str());
}

bool Execute(const ConnectionPtr& conn, const DBStore::StmtPtr& stmt) {
  return stmt && DBStore::ExecuteStmt(conn, stmt, nullptr, nullptr, DBStore::kBusyTimeoutMs) == 0;
}

DBStore::NullableSV Nullable(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  return std::string_view(*text);
}

void InsertDefault(const DefaultConfigRow& row, const ConnectionPtr& conn) {
  using DBStore::internal::Bind;
  DBStore::StmtPtr stmt =
      DBStore::internal::Prepare(conn, kInsertDefaultSql, DBStore::kBusyTimeoutMs);
  int index = 1;
  const bool bound = stmt && Bind(conn, stmt, index, row.id.instanceId, false) == 0 &&
                     Bind(conn, stmt, index, row.id.key, false) == 0 &&
                     Bind(conn, stmt, index, row.id.group, false) == 0 &&
                     Bind(conn, stmt, index, row.id.component, false) == 0 &&
                     Bind(conn, stmt, index, row.version, false) == 0 &&
                     Bind(conn, stmt, index, Nullable(row.parts.user)) == 0 &&
                     Bind(conn, stmt, index, Nullable(row.parts.vital)) == 0 &&
                     Bind(conn, stmt, index, Nullable(row.parts.cached)) == 0;
  if (!bound || !Execute(conn, stmt)) Fail(row.id);
}

}  // namespace

void ReplaceDefaultConfigInternal(const std::vector<SetvaultObjectId>& types, bool replaceAll,
                                  const std::vector<DefaultConfigRow>& rows,
                                  const ConnectionPtr& conn) {
  if (replaceAll) {
    if (!Execute(conn, DBStore::internal::Prepare(conn, kDeleteAllDefaultsSql,
                                                  DBStore::kBusyTimeoutMs))) {
      DBStore::ThrowFailure("Write default configuration failed: DefaultConfig");
    }
  } else {
    for (const SetvaultObjectId& type : types) {
      if (!Execute(conn, kDeleteTypeDefaultsSql.PrepareAndBind(conn, type.key, type.group,
                                                               type.component))) {
        Fail(type);
      }
    }
  }
  for (const DefaultConfigRow& row : rows) InsertDefault(row, conn);
}

}  // namespace KorvoSetvault
