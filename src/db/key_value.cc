#include "db/key_value.h"

#include "db/statements.h"
#include "setvault/exceptions.h"
#include "setvault/host_setup.h"

namespace KorvoSetvault {
namespace {

std::shared_ptr<DBStore::StoreConnection> OwnConnection() {
  std::shared_ptr<DBStore::StoreConnection> conn =
      DBStore::GetConnection(DBStore::kConfigStore, true);
  if (!conn) {
    ThrowException<SetvaultException, const char*>(SV_ERR_DB_FILE, GetStorePath().c_str());
  }
  return conn;
}

[[noreturn]] void ThrowGeneric(const std::string& message) {
  DBStore::ThrowFailure(message.c_str());
}

}  // namespace

std::string GetKeyValue(const std::string& key) {
  std::shared_ptr<DBStore::StoreConnection> conn = OwnConnection();
  std::string value;
  if (DBStore::ReadKeyValue(key, &value, conn) != 0) {
    ThrowGeneric("Failed to read KV table for key: " + key);
  }
  return value;
}

void SetKeyValue(const std::string& key, const std::string& value) {
  std::shared_ptr<DBStore::StoreConnection> conn = OwnConnection();
  if (DBStore::WriteKeyValue(key, value, conn) != 0) {
    ThrowGeneric("Failed to write KV table for key: " + key);
  }
}

bool IsHostRemediated(const std::shared_ptr<DBStore::StoreConnection>& conn) {
  std::string mode;
  if (DBStore::ReadKeyValue(kBootModeKey, &mode, conn) != 0) {
    ThrowGeneric("Failed to read value from database.");
  }
  return !mode.empty() && mode == kBootModeRemediated;
}

void MarkBootModeChanged(const std::shared_ptr<DBStore::StoreConnection>& conn) {
  if (DBStore::WriteKeyValue(kBootModeKey, kBootModeChanged, conn) != 0) {
    ThrowGeneric("Failed to write BootMode to database.");
  }
}

}  // namespace KorvoSetvault
