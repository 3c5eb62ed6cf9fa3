// Key-value accessors and the boot-mode flag, with their exact failure messages.
#include "db/key_value.h"
#include "dbstore/db_store_fixture.h"
#include "setvault/exceptions.h"
#include "support/expect_error.h"

namespace setvault_test {
namespace {

using KorvoSetvault::SetvaultException;

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

TEST_F(KeyValueTest, GetReturnsWhatSetStored) {
  EXPECT_EQ(KorvoSetvault::GetKeyValue("BOOT_INFO"), "");
  KorvoSetvault::SetKeyValue("BOOT_INFO", "{\"type\":2}");
  EXPECT_EQ(KorvoSetvault::GetKeyValue("BOOT_INFO"), "{\"type\":2}");
  // Stored in the store's file, visible to other connections.
  EXPECT_EQ(QueryText(Db(OtherConn()), "SELECT Value FROM KeyValue WHERE Key = 'BOOT_INFO'"),
            "{\"type\":2}");
}

TEST_F(KeyValueTest, MissingStoreThrows1002WithThePath) {
  dir_.WriteFile("plain", "x");
  std::string path = dir_.File("plain/store.db");
  KorvoSetvault::SetStorePath(path);
  const std::string message = "Cannot open the configuration store database " + path;
  ExpectError([] { KorvoSetvault::GetKeyValue("IS_BOOT"); }, 1002, message);
  ExpectError([] { KorvoSetvault::SetKeyValue("IS_BOOT", "true"); }, 1002, message);
}

TEST_F(KeyValueTest, FailedReadAndWriteNameTheKey) {
  RefuseWrites();
  ExpectError([] { KorvoSetvault::SetKeyValue("NOTIFY_NEXD", "true"); }, 2000,
              "Failed to write KV table for key: NOTIFY_NEXD");
  RemoveTable();
  ExpectError([] { KorvoSetvault::GetKeyValue("NOTIFY_NEXD"); }, 2000,
              "Failed to read KV table for key: NOTIFY_NEXD");
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
}

TEST_F(KeyValueTest, BootModeFailuresThrowTheirMessages) {
  auto conn = Conn();
  RefuseWrites();
  ExpectError([&] { KorvoSetvault::MarkBootModeChanged(conn); }, 2000,
              "Failed to write BootMode to database.");
  RemoveTable();
  ExpectError([&] { KorvoSetvault::IsHostRemediated(conn); }, 2000,
              "Failed to read value from database.");
}

}  // namespace
}  // namespace setvault_test
