// Key-value accessors, the boot-mode flag and the upgrade context, with their exact failure
// messages.
#include "db/key_value.h"

#include "db/upgrade_ctx.h"
#include "dbstore/db_store_fixture.h"
#include "setvault/exceptions.h"
#include "support/expect_error.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

class KeyValueTest : public StoreTest {
 protected:
  // Makes every write to the key-value table fail.
  void RefuseWrites() {
    ASSERT_EQ(RunSql(Db(Conn()),
                     "CREATE TRIGGER NoWrites BEFORE INSERT ON KeyValue "
                     "BEGIN SELECT RAISE(ABORT, 'refused'); END"),
              SQLITE_OK);
  }
  // Makes every read of the key-value table fail.
  void RemoveTable() { ASSERT_EQ(RunSql(Db(Conn()), "DROP TABLE KeyValue"), SQLITE_OK); }
};

TEST_F(KeyValueTest, GetReturnsWhatSetStoredAndFailuresNameTheKey) {
  EXPECT_EQ(KorvoSetvault::GetKeyValue("BOOT_INFO"), "");
  KorvoSetvault::SetKeyValue("BOOT_INFO", "{\"type\":2}");
  EXPECT_EQ(KorvoSetvault::GetKeyValue("BOOT_INFO"), "{\"type\":2}");
  // Stored in the store's file, visible to other connections.
  EXPECT_EQ(QueryText(Db(OtherConn()), "SELECT Value FROM KeyValue WHERE Key = 'BOOT_INFO'"),
            "{\"type\":2}");
  RefuseWrites();
  ExpectError([] { KorvoSetvault::SetKeyValue("NOTIFY_NEXD", "true"); }, 2000,
              "Failed to write KV table for key: NOTIFY_NEXD");
  RemoveTable();
  ExpectError([] { KorvoSetvault::GetKeyValue("NOTIFY_NEXD"); }, 2000,
              "Failed to read KV table for key: NOTIFY_NEXD");
}

TEST_F(KeyValueTest, MissingStoreThrows1002WithThePath) {
  dir_.WriteFile("plain", "x");
  std::string path = dir_.File("plain/store.db");
  KorvoSetvault::SetStorePath(path);
  const std::string message = "Cannot open the configuration store database " + path;
  ExpectError([] { KorvoSetvault::GetKeyValue("IS_BOOT"); }, 1002, message);
  ExpectError([] { KorvoSetvault::SetKeyValue("IS_BOOT", "true"); }, 1002, message);
  ExpectError([] { KorvoSetvault::GetUpgradeCtx(); }, 1002, message);
}

TEST_F(KeyValueTest, RemediatedExactlyWhenBootModeIsOne) {
  auto conn = Conn();
  EXPECT_FALSE(KorvoSetvault::IsHostRemediated(conn));  // absent
  for (const char* other : {"0", "4", "01", "1 ", "true", ""}) {
    ASSERT_EQ(DBStore::WriteKeyValue("BOOT_MODE", other, conn), 0);
    EXPECT_FALSE(KorvoSetvault::IsHostRemediated(conn)) << other;
  }
  ASSERT_EQ(DBStore::WriteKeyValue("BOOT_MODE", "1", conn), 0);
  EXPECT_TRUE(KorvoSetvault::IsHostRemediated(conn));
  // Marking a reboot-required change ends the remediated reading.
  KorvoSetvault::MarkBootModeChanged(conn);
  EXPECT_EQ(KorvoSetvault::GetKeyValue("BOOT_MODE"), "4");
  EXPECT_FALSE(KorvoSetvault::IsHostRemediated(conn));
  RefuseWrites();
  ExpectError([&] { KorvoSetvault::MarkBootModeChanged(conn); }, 2000,
              "Failed to write BootMode to database.");
  RemoveTable();
  ExpectError([&] { KorvoSetvault::IsHostRemediated(conn); }, 2000,
              "Failed to read value from database.");
}

TEST_F(KeyValueTest, UpgradeContextIsTheStoredInteger) {
  EXPECT_EQ(KorvoSetvault::GetUpgradeCtx(), 0);
  ASSERT_EQ(DBStore::WriteKeyValue("UPGRADE_CTX", "2", Conn()), 0);
  EXPECT_EQ(KorvoSetvault::GetUpgradeCtx(), 2);
  ASSERT_EQ(DBStore::WriteKeyValue("UPGRADE_CTX", "0", OtherConn()), 0);
  EXPECT_EQ(KorvoSetvault::GetUpgradeCtx(), 0);
  LogCapture log(1);
  ASSERT_EQ(DBStore::WriteKeyValue("UPGRADE_CTX", "2x", Conn()), 0);
  EXPECT_EQ(KorvoSetvault::GetUpgradeCtx(), 0);
  EXPECT_EQ(log.CountStartingWith(1, "UPGRADE_CTX holds"), 1);
}

}  // namespace
}  // namespace setvault_test
