#include "db/statement_binds.h"

namespace KorvoSetvault {

std::optional<std::string_view> Nullable(const std::optional<std::string>& text) {
  if (!text) return std::nullopt;
  return std::string_view(*text);
}

bool BindKeyAndVersion(const ConnectionPtr& conn, const DBStore::StmtPtr& stmt, int& index,
                       const SetvaultObjectId& id, const std::string& version) {
  using DBStore::internal::Bind;
  return Bind(conn, stmt, index, id.instanceId, false) == 0 &&
         Bind(conn, stmt, index, id.key, false) == 0 &&
         Bind(conn, stmt, index, id.group, false) == 0 &&
         Bind(conn, stmt, index, id.component, false) == 0 &&
         Bind(conn, stmt, index, version, false) == 0;
}

bool BindWhereKey(const ConnectionPtr& conn, const DBStore::StmtPtr& stmt, int& index,
                  const SetvaultObjectId& id) {
  using DBStore::internal::Bind;
  return Bind(conn, stmt, index, id.key, false) == 0 &&
         Bind(conn, stmt, index, id.group, false) == 0 &&
         Bind(conn, stmt, index, id.component, false) == 0 &&
         Bind(conn, stmt, index, id.instanceId, false) == 0;
}

bool BindParts(const ConnectionPtr& conn, const DBStore::StmtPtr& stmt, int& index,
               const SplitParts& parts) {
  using DBStore::internal::Bind;
  return Bind(conn, stmt, index, Nullable(parts.user)) == 0 &&
         Bind(conn, stmt, index, Nullable(parts.vital)) == 0 &&
         Bind(conn, stmt, index, Nullable(parts.cached)) == 0;
}

bool Execute(const ConnectionPtr& conn, const DBStore::StmtPtr& stmt) {
  return stmt && DBStore::ExecuteStmt(conn, stmt, nullptr, nullptr, DBStore::kBusyTimeoutMs) == 0;
}

bool ExecuteUnlessFailed(const ConnectionPtr& conn, const DBStore::StmtPtr& stmt) {
  return stmt && DBStore::ExecuteStmt(conn, stmt, nullptr, nullptr, DBStore::kBusyTimeoutMs) != 1;
}

}  // namespace KorvoSetvault
