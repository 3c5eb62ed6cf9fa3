// Instance ids and values holding quotes, semicolons, SQL, printf directives, control and
// multi-byte characters are stored and read back byte for byte by every write operation.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "store/store_fixture.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

using KorvoSetvault::FilterSpecObject;

const std::vector<std::string>& HostileTexts() {
  static const std::vector<std::string> texts = {
      "it's",
      "say \"hi\"",
      "a; DROP TABLE Config; --",
      "x' OR '1'='1",
      "'); DELETE FROM Config WHERE ('1'='1",
      "%s%n%d%%",
      "back\\slash\\x00\\xff",
      "\x01\x02\x1f\x7f tab\there",
      "line\r\nbreak",
      "caf\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x94\x91",
      "{\"json\":[1,2]}",
      std::string(1000, 'L') + ";",
  };
  return texts;
}

SetvaultObjectId Datastore(const std::string& label) {
  return SetvaultObjectId("datastore", "storage", "korvo", label);
}

class StoreHostileValuesTest : public WriteStoreTest {
 protected:
  // A datastore named `label` whose device is `device`, built through the typed setters.
  static std::shared_ptr<SetvaultObject> Store(const std::string& label,
                                               const std::string& device) {
    auto object = std::make_shared<SetvaultObject>(Datastore(label));
    object->SetValue("device", std::string_view(device));
    return object;
  }
  std::string StoredDevice(const std::string& label) {
    auto stored = store_->Get(Datastore(label));
    if (!stored) return "<none>";
    std::string device;
    EXPECT_EQ(stored->GetValue("device", &device), 1);
    std::string stored_label;
    EXPECT_EQ(stored->GetValue("label", &stored_label), 1);
    EXPECT_EQ(stored_label, label);
    EXPECT_EQ(stored->GetSetvaultObjectId().instanceId, label);
    return device;
  }
};

TEST_F(StoreHostileValuesTest, SetAndGetKeepEveryByte) {
  for (const std::string& text : HostileTexts()) {
    store_->Set(Store(text, text), kExternal);
    EXPECT_EQ(StoredDevice(text), text);
    EXPECT_EQ(Column(Datastore(text), "Identifier"), text);
    EXPECT_EQ(store_->GetRevision(Datastore(text)), 1);
  }
  // Nothing was executed as SQL: exactly one row per id, and the table is still there.
  EXPECT_EQ(RowCount(Datastore("")), static_cast<int>(HostileTexts().size()));
  std::vector<std::string> ids = store_->GetInstanceIds(Datastore(""));
  std::sort(ids.begin(), ids.end());
  std::vector<std::string> expected = HostileTexts();
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(ids, expected);
}

TEST_F(StoreHostileValuesTest, InstanceWritesUpdatesAndDeletesKeepEveryByte) {
  std::vector<std::shared_ptr<SetvaultObject>> objects;
  for (const std::string& text : HostileTexts()) objects.push_back(Store(text, "dev"));
  store_->SetInstances(objects, kExternal);
  for (const std::string& text : HostileTexts()) {
    auto update = std::make_shared<SetvaultObject>(Datastore(text));
    update->SetValue("device", std::string_view(text + "!"));
    store_->Update(update, kExternal);
    EXPECT_EQ(StoredDevice(text), text + "!");
  }
  auto cached = std::make_shared<SetvaultObject>(Datastore(HostileTexts()[1]));
  cached->SetValue("capacityBytes", 7);
  store_->SetCachedData(cached);
  EXPECT_EQ(StoredDevice(HostileTexts()[1]), HostileTexts()[1] + "!");

  // A filter on a hostile value selects exactly its instance.
  const std::string& victim = HostileTexts()[4];
  auto filter = std::make_shared<FilterSpecObject>(Datastore(""));
  filter->SetValue("device", std::string_view(victim + "!"));
  ASSERT_EQ(store_->GetInstances(filter).size(), 1u);
  store_->DeleteInstances(filter);
  EXPECT_EQ(StoredDevice(victim), "<none>");
  EXPECT_EQ(RowCount(Datastore("")), static_cast<int>(HostileTexts().size()) - 1);

  store_->Delete(Datastore(HostileTexts()[2]));
  EXPECT_EQ(StoredDevice(HostileTexts()[2]), "<none>");
  EXPECT_EQ(StoredDevice(HostileTexts()[3]), HostileTexts()[3] + "!");
  EXPECT_EQ(RowCount(Datastore("")), static_cast<int>(HostileTexts().size()) - 2);
}

// Ids and values that could not be stored faithfully (a NUL byte in an instance id
// once read back cut, yielding a second row on rewrite; invalid UTF-8 was stored
// verbatim) are refused where they enter, with their error, and nothing is written.
TEST_F(StoreHostileValuesTest, UnstorableIdsAndValuesAreRefusedAndNothingIsWritten) {
  using KorvoSetvault::InvalidArgumentException;
  LogCapture log(0);
  const std::string nul_id("vs\0b", 4);
  const std::string kNulId = "Instance id cannot contain a NUL byte";
  const std::string kBadId = "Instance id must be valid UTF-8";
  const std::string kBadText = "String value is not valid UTF-8";
  auto fresh = [] { return std::make_shared<SetvaultObject>(Datastore("d0")); };
  struct Case {
    const char* name;
    std::function<void()> call;
    int code;
    std::string message;
  };
  const Case cases[] = {
      {"Set, NUL in id", [&] { store_->Set(Store(nul_id, "d"), kExternal); }, 2000, kNulId},
      {"SetInstances, NUL in the second id",
       [&] {
         store_->SetInstances({Store("ok", "d"), Store(nul_id, "d")}, kExternal);
       },
       2000, kNulId},
      {"Update, id not UTF-8", [&] { store_->Update(Store("\xff", "d"), kExternal); }, 2000,
       kBadId},
      {"SetCachedData, overlong id", [&] { store_->SetCachedData(Store("\xc0\xaf", "d")); }, 2000,
       kBadId},
      {"Get, NUL in id", [&] { store_->Get(Datastore(nul_id)); }, 2000, kNulId},
      {"SetData, value not UTF-8", [&] { Object(Datastore("d0"), "{\"device\": \"\xff\"}"); }, 1080,
       "Invalid JSON text at offset 12: Invalid encoding in string."},
      {"SetData, nested too deep",
       [&] { Object(Datastore("d0"), std::string(600, '[') + std::string(600, ']')); }, 1080,
       "Invalid JSON text at offset 512: arrays and objects nested deeper than 512 levels."},
      {"SetValue, truncated sequence", [&] { fresh()->SetValue("device", "caf\xc3"); }, 2000,
       kBadText},
      {"SetValue, list element",
       [&] {
         fresh()->SetValue("tags", std::vector<std::string>{"ok", "\xed\xa0\x80"});
       },
       2000, kBadText},
      {"SetValue, member name", [&] { fresh()->SetValue("\xfe", 1); }, 2000,
       "Member name is not valid UTF-8"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string message = ExpectThrow<KorvoSetvault::SetvaultException>(c.call, c.code);
    EXPECT_EQ(message, c.message);
  }

  // A value built as a JSON value skips the setters; the write refuses it with
  // the pointer of the bad text.
  KorvoSetvault::JsonDocument scratch;
  auto object = Store("d1", "d");
  object->SetValueEx("device", KorvoSetvault::JsonValue("\xff\xfe", scratch.GetAllocator()));
  try {
    store_->Set(object, kExternal);
    ADD_FAILURE() << "invalid UTF-8 stored";
  } catch (const KorvoSetvault::ValidationException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1089);
    ASSERT_FALSE(e.GetErrors().empty());
    EXPECT_EQ(e.GetErrors()[0].path, "/device");
    EXPECT_EQ(e.GetErrors()[0].message, "Text is not valid UTF-8.");
  }
  EXPECT_EQ(RowCount(Datastore("")), 0);
}

TEST_F(StoreHostileValuesTest, FailureMessagesShowHostileIdsVerbatim) {
  LogCapture log(0);
  const std::string id = "%s%n%d'\"";
  ASSERT_EQ(RunSql(Db(),
                   "CREATE TRIGGER NoDelete BEFORE DELETE ON Config "
                   "BEGIN SELECT RAISE(ABORT, 'refused'); END"),
            SQLITE_OK);
  store_->Set(Store(id, "d"), kExternal);
  const std::string message =
      ExpectThrow<KorvoSetvault::SetvaultException>([&] { store_->Delete(Datastore(id)); }, 2000);
  EXPECT_EQ(message, "Delete failed: " + Datastore(id).toString());
  EXPECT_NE(message.find(id), std::string::npos);
}

}  // namespace
}  // namespace setvault_test
