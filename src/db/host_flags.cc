#include "db/host_flags.h"

#include <string>

#include "dbstore/db_store.h"
#include "document/json_parse.h"
#include "setvault/exceptions.h"
#include "setvault/host_setup.h"

namespace KorvoSetvault {
namespace {

const char kIsBootKey[] = "IS_BOOT";
const char kNotifyKey[] = "NOTIFY_NEXD";
const char kBootInfoKey[] = "BOOT_INFO";
const char kBootInfoType[] = "type";
const char kTrue[] = "true";

std::shared_ptr<DBStore::StoreConnection> OwnConnection() {
  auto conn = DBStore::GetConnection(DBStore::kConfigStore, true);
  if (!conn) ThrowException<SetvaultException, const char*>(SV_ERR_DB_FILE, GetStorePath().c_str());
  return conn;
}

}  // namespace

bool IsBoot() {
  std::string value;
  if (DBStore::ReadKeyValue(kIsBootKey, &value, OwnConnection()) != 0) {
    DBStore::ThrowFailure("Failed to read value from database.");
  }
  return value == kTrue;
}

bool IsNexdNotificationEnabled() {
  auto conn = DBStore::GetConnection(DBStore::kConfigStore, true);
  if (!conn) return false;
  std::string value;
  if (DBStore::ReadKeyValue(kNotifyKey, &value, conn) != 0) return false;
  return value == kTrue;
}

int GetBootInfo() {
  std::string text;
  JsonDocument info;
  if (DBStore::ReadKeyValue(kBootInfoKey, &text, OwnConnection()) != 0 ||
      !ParseJsonText(text, info)) {
    DBStore::ThrowFailure("Failed to read BOOT_INFO database.");
  }
  if (info.IsObject()) {
    auto type = info.FindMember(kBootInfoType);
    if (type != info.MemberEnd() && type->value.IsInt()) return type->value.GetInt();
  }
  ThrowException<SetvaultException, const char*>(SV_ERR_JSON,
                                                 "BOOT_INFO has no integer member \"type\"");
}

}  // namespace KorvoSetvault
