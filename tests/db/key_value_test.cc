// Key-value accessors, the boot flags and the upgrade context, with their exact failure
// messages.
#include "db/key_value.h"

#include <unistd.h>

#include "db/host_flags.h"
#include "db/upgrade_ctx.h"
#include "dbstore/db_store_fixture.h"
#include "setvault/exceptions.h"
#include "support/expect_error.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::ExpectError;
using setvault_test::RunSql;

class KeyValueTest : public setvault_test::StoreTest {
 protected:
  // Makes every write to the key-value table fail.
  void RefuseWrites() {
    ASSERT_EQ(RunSql(Db(conn_),
                     "CREATE TRIGGER NoWrites BEFORE INSERT ON KeyValue BEGIN "
                     "SELECT RAISE(ABORT, 'refused'); END"),
              SQLITE_OK);
  }
  // Makes every read of the key-value table fail.
  void RemoveTable() { ASSERT_EQ(RunSql(Db(conn_), "DROP TABLE KeyValue"), SQLITE_OK); }
};

TEST_F(KeyValueTest, NeverWrittenStoreReadsEmptyAndFailuresNameTheKey) {
  // A store never written holds no key, and reading does not create it.
  SetStorePath(dir_.File("new/store.db"));
  EXPECT_EQ(GetKeyValue("BOOT_INFO"), "");
  EXPECT_NE(access(dir_.File("new").c_str(), F_OK), 0);
  SetStorePath(store_path_);
  RefuseWrites();
  ExpectError([] { SetKeyValue("NOTIFY_NEXD", "true"); }, 2000,
              "Failed to write KV table for key: NOTIFY_NEXD");
  RemoveTable();
  ExpectError([] { GetKeyValue("NOTIFY_NEXD"); }, 2000,
              "Failed to read KV table for key: NOTIFY_NEXD");
  ExpectError([] { IsBoot(); }, 2000, "Failed to read value from database.");
}

TEST_F(KeyValueTest, MissingStoreThrows1002WithThePath) {
  dir_.WriteFile("plain", "x");
  std::string path = dir_.File("plain/store.db");
  SetStorePath(path);
  const std::string message = "Cannot open the configuration store database " + path;
  ExpectError([] { GetKeyValue("IS_BOOT"); }, 1002, message);
  ExpectError([] { SetKeyValue("IS_BOOT", "true"); }, 1002, message);
  ExpectError([] { GetUpgradeCtx(); }, 1002, message);
  ExpectError([] { IsBoot(); }, 1002, message);
}

// Remediated exactly when BOOT_MODE is "1", booting exactly when IS_BOOT is "true".
TEST_F(KeyValueTest, HostFlagsHoldOnlyForTheirExactText) {
  EXPECT_FALSE(IsHostRemediated(conn_) || IsBoot() || GetUpgradeCtx() != 0);  // absent
  for (const char* other : {"0", "4", "01", "1 ", "TRUE", "true ", ""}) {
    ASSERT_EQ(DBStore::WriteKeyValue("BOOT_MODE", other, conn_), 0);
    ASSERT_EQ(DBStore::WriteKeyValue("IS_BOOT", other, conn_), 0);
    EXPECT_FALSE(IsHostRemediated(conn_) || IsBoot()) << other;
  }
  ASSERT_EQ(DBStore::WriteKeyValue("BOOT_MODE", "1", conn_), 0);
  ASSERT_EQ(DBStore::WriteKeyValue("IS_BOOT", "true", conn_), 0);
  EXPECT_TRUE(IsHostRemediated(conn_) && IsBoot());
  // The upgrade context is the stored integer; other text reads as 0 and is logged.
  ASSERT_EQ(DBStore::WriteKeyValue("UPGRADE_CTX", "2", conn_), 0);
  EXPECT_EQ(GetUpgradeCtx(), 2);
  setvault_test::LogCapture log(1);
  ASSERT_EQ(DBStore::WriteKeyValue("UPGRADE_CTX", "2x", conn_), 0);
  EXPECT_EQ(GetUpgradeCtx(), 0);
  EXPECT_EQ(log.CountStartingWith(1, "UPGRADE_CTX holds"), 1);
  RefuseWrites();
  ExpectError([&] { MarkBootModeChanged(conn_); }, 2000, "Failed to write BootMode to database.");
  RemoveTable();
  ExpectError([&] { IsHostRemediated(conn_); }, 2000, "Failed to read value from database.");
}

}  // namespace
}  // namespace KorvoSetvault
