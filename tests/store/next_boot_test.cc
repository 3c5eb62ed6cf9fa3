// Next-boot staging and boot confirmation through the public API on a real store file: the
// boot cycle of a host, the refusal while the host is remediated, the guards that run before
// any statement, and writes that leave nothing behind when a statement fails.
#include <functional>

#include "model/setvault_object_impl.h"
#include "setvault/setvault.h"
#include "store/store_fixture.h"
#include "support/thrown.h"

namespace KorvoSetvault {
namespace {

using setvault_test::ExpectError;
using setvault_test::ExpectThrow;
using setvault_test::kExternal;
using setvault_test::kHost;
using setvault_test::Objects;
using setvault_test::RunSql;
using setvault_test::WriteStoreTest;

SetvaultObjectId Device(const std::string& address) {
  return SetvaultObjectId("pciPassthrough", "hvcore", "korvo", address);
}
const SetvaultObjectId kScheduler("cpuScheduler", "hvcore", "korvo");
const SetvaultObjectId kOptions("options", "hvcore", "korvo");
const SetvaultObjectId kDevices = Device("");
const SetvaultObjectId kGone("gone", "x", "y");  // a type no schema describes

std::shared_ptr<SetvaultObject> DeviceObject(const std::string& address, bool enabled) {
  return CreateObject(Device(address), R"({"address":")" + address + R"(","enabled":)" +
                                           (enabled ? "true" : "false") + "}");
}
// An object of a type the schema store does not know.
std::shared_ptr<SetvaultObject> SchemaLess(const SetvaultObjectId& id) {
  SetvaultObjectImpl::Parts parts;
  parts.id = id;
  return std::make_shared<SetvaultObject>(std::make_shared<SetvaultObjectImpl>(std::move(parts)));
}
std::shared_ptr<FilterSpecObject> DeviceFilter(const char* json) {
  auto filter = std::make_shared<FilterSpecObject>(kDevices);
  filter->SetData(json);
  return filter;
}

class NextBootTest : public WriteStoreTest {
 protected:
  void SetUp() override {
    WriteStoreTest::SetUp();
    next_boot_ = store_->GetNextBootStore();
  }

  // The staged actions, one "identifier|action|value|vital|version|" line per row, in key order.
  std::string Staged() {
    return Rows(
        "SELECT Identifier, BootAction, Value, VitalValue, Version FROM DesiredUserConfig "
        "ORDER BY Name, Identifier");
  }

  std::shared_ptr<NextBootStore> next_boot_;
};

TEST_F(NextBootTest, BootCycleOfAHost) {
  // Staging: a singleton, instances (the vital member split off) and their deletions.
  next_boot_->Set(CreateObject(kScheduler, R"({"reservedCores":2})"));
  store_->Set(DeviceObject("0000:01:00.0", false), kExternal);  // stored, disabled now
  auto staged_b = DeviceObject("0000:02:00.0", true);
  staged_b->SetValue("deviceId", "10de:1eb8");
  next_boot_->SetInstances(
      {DeviceObject("0000:01:00.0", true), staged_b, DeviceObject("0000:03:00.0", false)});
  // A filter matches the value each instance has at the next boot: 01 is staged enabled.
  next_boot_->DeleteInstances(DeviceFilter(R"({"enabled":false})"));
  next_boot_->Delete(kScheduler);
  EXPECT_EQ(Staged(),
            "|DELETE|-|-|1.1|\n"
            "0000:01:00.0|SET|{\"address\":\"0000:01:00.0\",\"enabled\":true}|-||\n"
            "0000:02:00.0|SET|{\"address\":\"0000:02:00.0\",\"enabled\":true}|"
            "{\"deviceId\":\"10de:1eb8\"}||\n"
            "0000:03:00.0|DELETE_INSTANCE|-|-|1.2|\n");
  EXPECT_EQ(next_boot_->Get(kScheduler), nullptr);
  EXPECT_EQ(setvault_test::Ids(next_boot_->GetInstances(DeviceFilter(R"({"enabled":true})"))),
            (std::vector<std::string>{"0000:01:00.0", "0000:02:00.0"}));
  next_boot_->Reset(kDevices);
  EXPECT_EQ(Staged(), "|DELETE|-|-|1.1|\n");

  // The boot type as the host's start-up code writes it.
  SetKeyValue("BOOT_INFO", R"({"type":3,"reason":"upgrade"})");
  EXPECT_EQ(GetBootInfo(), 3);
  // While remediated, the kernel options read shows what is staged for the next boot.
  next_boot_->Set(CreateObject(kOptions, R"({"logLevel":"error"})"));
  SetKeyValue("BOOT_MODE", "1");
  EXPECT_EQ(Data(GetKernelOptions(kOptions)), R"({"logLevel":"error"})");
}

TEST_F(NextBootTest, PartialConfirmationOfAnUnconfirmedValueAndItsRefusals) {
  // A user value written during an upgrade waits unconfirmed (Success 0).
  SetKeyValue("UPGRADE_CTX", "2");
  store_->Set(Object(kHost, R"({"hostname":"h1","timezone":"UTC"})"), kExternal);
  SetKeyValue("UPGRADE_CTX", "0");
  ASSERT_EQ(Column(kHost, "Success"), "0");
  EXPECT_EQ(Data(GetDesiredUserConfig(kHost, kDesiredWithAllParts)),
            R"({"hostname":"h1","timezone":"UTC"})");

  const std::string before = Snapshot();
  ExpectError([&] { SetPartialBootStatus(Object(kHost, R"({"hostname":"h2"})")); }, 2000,
              "partial config being restored is not part of desired config");
  ExpectError([&] { SetPartialBootStatus(Object(kScheduler, R"({"reservedCores":1})")); }, 2000,
              "desired config is empty");
  ExpectThrow<SetvaultException>([&] { SetPartialBootStatus(SchemaLess(kGone)); }, 1037);
  EXPECT_EQ(Snapshot(), before);

  SetPartialBootStatus(Object(kHost, R"({"hostname":"h1"})"));
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"h1"})");
  EXPECT_EQ(Column(kHost, "Success"), "1");
  EXPECT_EQ(Column(kHost, "DesiredValue"), R"({"hostname":"h1","timezone":"UTC"})");
}

// Every next-boot write: refused while the host is remediated; undone whole when its last
// statement fails (the boot-mode mark of a set or delete, a row of a reset); on success a set or
// delete marks the change, clearing the staged actions does not. Nothing is left behind.
TEST_F(NextBootTest, EveryWriteIsRefusedWhileRemediatedAndUndoneWhenItFails) {
  next_boot_->SetInstances({DeviceObject("0000:01:00.0", true)});
  next_boot_->Set(CreateObject(kScheduler, R"({"reservedCores":4})"));
  store_->Set(DeviceObject("0000:01:00.0", false), kExternal);
  const std::pair<std::string, std::function<void()>> writes[] = {
      {"Set", [&] { next_boot_->Set(CreateObject(kScheduler, R"({"numaBalancing":true})")); }},
      {"SetInstances", [&] { next_boot_->SetInstances({DeviceObject("0000:05:00.0", true)}); }},
      {"Delete", [&] { next_boot_->Delete(kScheduler); }},
      {"DeleteInstances", [&] { next_boot_->DeleteInstances(DeviceFilter("{}")); }},
      {"Reset", [&] { next_boot_->Reset(kDevices); }},
  };
  for (const auto& [name, call] : writes) {
    SCOPED_TRACE(name);
    const bool reset = name == "Reset";
    SetKeyValue("BOOT_MODE", "1");
    std::string before = Snapshot();
    ExpectError(call, 2000,
                "Korvo host is being remediated by QCM, cannot set next-boot configuration.");
    EXPECT_EQ(Snapshot(), before);
    SetKeyValue("BOOT_MODE", "0");
    before = Snapshot();
    Fault(reset ? "DELETE ON DesiredUserConfig WHEN OLD.Identifier = '0000:01:00.0'"
                : "INSERT ON KeyValue");
    ExpectError(call, 2000,
                reset ? "Failed to clear RebootRequired config for svoId: " + kDevices.toString()
                      : "Failed to write BootMode to database.");
    EXPECT_EQ(Snapshot(), before);
    DropFault();
    call();
    EXPECT_EQ(GetKeyValue("BOOT_MODE"), reset ? "0" : "4");
  }
}

TEST_F(NextBootTest, FailedConfirmationLeavesTheStoreAsItWas) {
  // Confirmation: clearing the desired value is the last of three writes.
  UpdateKernelOptions(CreateObject(kOptions, R"({"iommu":true})"));
  const std::string staged = Snapshot();
  Fault("UPDATE OF DesiredValue ON Config WHEN NEW.DesiredValue IS NULL");
  ExpectError([&] { SetPartialBootStatus(CreateObject(kOptions, R"({"iommu":true})")); }, 2000,
              "DeleteDesiredValue: Failed to delete DesiredValue for given svoId.");
  ExpectError([&] { SetBootStatus(kOptions, true); }, 2000,
              "SetBootStatus: Failed to mark success status for given svoId.");
  EXPECT_EQ(Snapshot(), staged);
  DropFault();
  Fault("INSERT ON Config");
  ExpectError(
      [&] { UpdateKernelOptions(CreateObject(kOptions, R"({"hugePages":2})")); }, 2000,
      "Database call to update Kernel options configuration failed for: " + kOptions.toString());
  EXPECT_EQ(Snapshot(), staged);
  EXPECT_NE(sqlite3_get_autocommit(Db()), 0);  // no transaction left open
}

TEST_F(NextBootTest, RefusalsComeBeforeAnyStatement) {
  const std::string untagged =
      "API should only be invoked for configurations tagged @rebootRequiredSetvault.";
  auto vswitches = std::make_shared<FilterSpecObject>(setvault_test::Vswitch(""));
  const Objects mixed = {DeviceObject("0000:01:00.0", true), CreateObject(kScheduler, "{}")};
  setvault_test::StatementTrace trace(Db());
  setvault_test::ExpectRefusals({
      {[&] { next_boot_->Get(kHost); }, 2000, untagged},
      {[&] { next_boot_->Set(Object(kHost, R"({"hostname":"h"})")); }, 2000, untagged},
      {[&] { next_boot_->Delete(kHost); }, 2000, untagged},
      {[&] { next_boot_->Reset(kHost); }, 2000, untagged},
      {[&] { next_boot_->SetInstances({Switch("vs0", 1500)}); }, 2000, untagged},
      {[&] { next_boot_->GetInstances(vswitches); }, 2000, untagged},
      {[&] { next_boot_->DeleteInstances(vswitches); }, 2000, untagged},
      {[&] { next_boot_->Set(CreateObject(kScheduler, "{}")); }, 2000,
       "Empty object cannot be set for configurations tagged @rebootRequiredSetvault."},
      {[&] { next_boot_->Set(CreateObject(kScheduler, R"({"reservedCores":-1})")); }, 1089, ""},
      {[&] { next_boot_->SetInstances(mixed); }, 1062, ""},
      {[&] { next_boot_->SetInstances({nullptr}); }, 1061, ""},
      // Each staged instance is validated.
      {[&] { next_boot_->SetInstances({Object(Device("0000:09:00.0"), R"({"enabled":"yes"})")}); },
       1089, ""},
      {[&] { next_boot_->Get(kDevices); }, 2000, "Non-Singleton object should contain instanceId"},
      {[&] { next_boot_->Reset(kGone); }, 1037, ""},
  });
  // Empty pointers are not refusals: nothing happens.
  next_boot_->Set(nullptr);
  EXPECT_TRUE(next_boot_->GetInstances(nullptr).empty());
  next_boot_->DeleteInstances(nullptr);
  SetPartialBootStatus(nullptr);
  EXPECT_EQ(trace.statements(), std::vector<std::string>{});
}

TEST_F(NextBootTest, HostFunctionsReportBadInputClearly) {
  // A stored kernel options value the schema no longer accepts: the merged value fails inside
  // the transaction with every finding, not as a bare transaction failure.
  RunSql(Db(),
         "INSERT INTO Config (Name, ConfigGroup, Component, Identifier, Version, DesiredValue) "
         "VALUES ('options', 'hvcore', 'korvo', '', '1.0', '{\"hugePages\":-5}')");
  try {
    UpdateKernelOptions(CreateObject(kOptions, R"({"iommu":true})"));
    ADD_FAILURE() << "no exception";
  } catch (const ValidationException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1089);
    ASSERT_EQ(e.GetErrors().size(), 1u);
    EXPECT_EQ(e.GetErrors()[0].path, "/hugePages");
  }
  UpdateKernelOptions(CreateObject(kOptions, "{}"));  // nothing to stage: no write at all
  EXPECT_EQ(Column(kOptions, "DesiredValue"), R"({"hugePages":-5})");
  const std::string options_only = "API should only be invoked for Kernel options configuration.";
  ExpectError<ValidationException>([] { UpdateKernelOptions(CreateObject(kScheduler, "{}")); },
                                   2000, options_only);
  for (const auto& id : {kScheduler, SetvaultObjectId("Options", "hvcore", "korvo")}) {
    ExpectError<ValidationException>([&] { GetKernelOptions(id); }, 2000, options_only);
  }

  SetKeyValue("IS_BOOT", "true");
  ExpectError<ValidationException>(
      [] { UpdateKernelOptions(CreateObject(kOptions, R"({"iommu":true})")); }, 2000,
      "API cannot be invoked with EXTERNAL context during boot");
  EXPECT_EQ(Column(kOptions, "DesiredValue"), R"({"hugePages":-5})");

  for (const char* text : {"", "not json", "{\"type\":"}) {
    SetKeyValue("BOOT_INFO", text);
    ExpectError([] { GetBootInfo(); }, 2000, "Failed to read BOOT_INFO database.");
  }
  for (const char* text : {"[3]", "{\"type\":\"3\"}", "{\"kind\":3}"}) {
    SetKeyValue("BOOT_INFO", text);
    ExpectThrow<SetvaultException>([] { GetBootInfo(); }, 1082);
  }
  EXPECT_EQ(GetSchemaVersion(kDevices), "1.2");
  EXPECT_EQ(GetSchemaVersion(kGone), "");
  EXPECT_EQ(CreateObject(Device("0000:07:00.0"), R"({"enabled":true})", 7ul)->GetRevision(), 7);
  EXPECT_EQ(CreateObject(kScheduler, "{}")->GetRevision(), -1);
  ExpectThrow<InvalidArgumentException>([] { CreateObject(kScheduler, "{"); }, 1080);
  ExpectThrow<SetvaultException>([] { CreateObject(kGone, "{}"); }, 1037);
}

}  // namespace
}  // namespace KorvoSetvault
