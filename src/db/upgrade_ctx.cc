#include "db/upgrade_ctx.h"

#include <cerrno>
#include <cstdlib>
#include <string>

#include "dbstore/db_store.h"
#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "setvault/logger.h"

namespace KorvoSetvault {
namespace {

int ParseContext(const std::string& text) {
  if (text.empty()) return 0;
  errno = 0;
  char* end = nullptr;
  long value = std::strtol(text.c_str(), &end, 10);
  if (errno != 0 || end == text.c_str() || *end != '\0' || value < INT32_MIN || value > INT32_MAX) {
    SVLogger::Log(1, "UPGRADE_CTX holds \"%s\", not an integer; taken as 0", text.c_str());
    return 0;
  }
  return static_cast<int>(value);
}

}  // namespace

int GetUpgradeCtx() {
  std::shared_ptr<DBStore::StoreConnection> conn =
      DBStore::GetConnection(DBStore::kConfigStore, true);
  if (!conn) {
    ThrowException<SetvaultException, const char*>(SV_ERR_DB_FILE, GetStorePath().c_str());
  }
  std::string text;
  if (DBStore::ReadKeyValue("UPGRADE_CTX", &text, conn) != 0) {
    ThrowException<SetvaultException, const char*>(SV_ERR_GENERIC,
                                                   "Failed to read value from database.");
  }
  return ParseContext(text);
}

}  // namespace KorvoSetvault
