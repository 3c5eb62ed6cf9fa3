// The data of the library-beside-floor comparisons, shared by floor_table and
// instruction_counts so that both measure the same objects in the same store.
#include "floor_data.h"

#include <sqlite3.h>

#include <unordered_map>

#include "dbstore/db_store.h"
#include "floor_sql.h"
#include "setvault/host_setup.h"

namespace floor_bench {
namespace {

using KorvoSetvault::SetvaultObjectId;

constexpr char kStoredVital[] = R"({"uplinks":["nic0"]})";

void Insert(sqlite3* db, const SetvaultObjectId& id, const std::string& user, const char* vital,
            const char* cached, const char* autoconf) {
  static const char kSql[] =
      "INSERT INTO Config (Name, ConfigGroup, Component, Identifier, Version, UserValue, "
      "VitalValue, CachedValue, AutoConfValue) VALUES (?1, ?2, ?3, ?4, '1.0', ?5, ?6, ?7, ?8)";
  static std::unordered_map<sqlite3*, sqlite3_stmt*> statements;  // one per store, kept
  sqlite3_stmt*& stmt = statements[db];
  if (stmt == nullptr) stmt = PrepareOnce(db, kSql);
  BindType(stmt, 1, id);
  BindText(stmt, 4, id.instanceId);
  BindText(stmt, 5, user);
  const char* rest[] = {vital, cached, autoconf};
  for (int i = 0; i < 3; ++i) {
    if (rest[i]) {
      sqlite3_bind_text(stmt, 6 + i, rest[i], -1, SQLITE_STATIC);
    } else {
      sqlite3_bind_null(stmt, 6 + i);
    }
  }
  if (sqlite3_step(stmt) != SQLITE_DONE) Die("insert");
  sqlite3_reset(stmt);
}

}  // namespace

const char kHostVital[] =
    R"({"systemUuid":"4c4c4544-0042-3510-8052-b4c04f4e3232","installDate":"2026-01-15T08:30:00Z"})";
const char kHostCached[] =
    R"({"cpuModel":"Example CPU 7763 64-Core Processor","memoryBytes":549755813888,)"
    R"("bmc":{"address":"10.20.30.40","firmware":"2.18.1"}})";
const char kHostAuto[] =
    R"({"timezone":"Europe/Berlin","ntp":{"enabled":true,"servers":["0.pool.example.org",)"
    R"("1.pool.example.org"]}})";
const char kHostUser[] =
    R"({"hostname":"host-017.rack-04.dc1.example.org","powerPolicy":"performance",)"
    R"("ntp":{"servers":["ntp1.example.org","ntp2.example.org"]},)"
    R"("syslog":{"remoteHost":"logs.example.org","level":"info","rotation":{"sizeKiB":4096,"keep":8}}})";

const SetvaultObjectId kHost("host", "system", "korvo");

std::string Name(int i) { return "vs" + std::to_string(i); }

std::string SwitchJson(const std::string& name, int mtu) {
  return R"({"name":")" + name + R"(","mtu":)" + std::to_string(mtu) +
         R"(,"uplinks":["nic0","nic1"],"teaming":{"policy":"failover","notifySwitches":true},)"
         R"("portgroups":[{"name":"mgmt","vlanId":10,"activePorts":3},{"name":"vm","vlanId":20}]})";
}
std::string UpdateJson(const std::string& name, int mtu) {
  return R"({"name":")" + name + R"(","mtu":)" + std::to_string(mtu) +
         R"(,"teaming":{"notifySwitches":false}})";
}

std::shared_ptr<KorvoSetvault::SetvaultObject> MakeObject(const SetvaultObjectId& id,
                                                          const std::string& text) {
  auto object = std::make_shared<KorvoSetvault::SetvaultObject>(id);
  object->SetData(text.c_str());
  return object;
}

SetvaultObjectId SwitchId(int i) { return SetvaultObjectId("vswitch", "net", "korvo", Name(i)); }

void MakeStore(const std::string& path, int switches) {
  KorvoSetvault::SetStorePath(path);
  auto conn = DBStore::GetConnection(DBStore::kConfigStore, true);
  // A store file is made by its first write; the rows below are written by hand.
  if (!conn || DBStore::CheckStore(conn, true) != 0) Die("cannot open " + path);
  sqlite3* db = DBStore::GetSqliteHandle(*conn);
  Exec(db, "BEGIN");
  Insert(db, kHost, kHostUser, kHostVital, kHostCached, kHostAuto);
  for (int i = 0; i < switches; ++i) {
    Insert(db, SwitchId(i), SwitchJson(Name(i), 1500), kStoredVital, nullptr, nullptr);
  }
  Exec(db, "COMMIT");
}

sqlite3* OpenHandConnection(const std::string& path) {
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
    Die("open " + path);
  }
  Exec(db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL");
  sqlite3_busy_timeout(db, DBStore::kBusyTimeoutMs);
  return db;
}

}  // namespace floor_bench
