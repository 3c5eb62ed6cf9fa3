// Every statement the library runs while serving a full round of store
// operations finds its rows through an index: EXPLAIN QUERY PLAN of each
// statement text shows no scan of a table for a key lookup.
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>

#include "db/config_reads.h"
#include "db/config_writes.h"
#include "model/setvault_object_impl.h"
#include "setvault/filter_spec_object.h"
#include "setvault/host_functions.h"
#include "store/store_fixture.h"

namespace setvault_test {
namespace {

using KorvoSetvault::FilterSpecObject;

// True for statements that look rows up by their key (the only kind that
// must not scan); whole-store content reads are meant to read every row.
bool IsKeyLookup(const std::string& sql) {
  for (const char* key : {"Name = ?", "Name=?", "Identifier = ?", "Key = ?", "Name = '"}) {
    if (sql.find(key) != std::string::npos) return true;
  }
  return false;
}

class StatementIndexTest : public WriteStoreTest {};

TEST_F(StatementIndexTest, EveryKeyLookupOfAWorkloadUsesAnIndex) {
  auto trace = std::make_unique<StatementTrace>(Db());

  const SetvaultObjectId vs0 = Vswitch("vs0");
  const SetvaultObjectId vswitches = Vswitch("");
  auto all_vswitches = std::make_shared<FilterSpecObject>(vswitches);
  store_->Set(Object(kHost, R"({"hostname": "h", "systemUuid": "u", "cpuModel": "c"})"), kExternal);
  store_->SetUserData(Object(kHost, R"({"hostname": "h2"})"), kExternal);
  store_->SetUserData(Object(kHost, R"({"hostname": "h3"})"), kAutoConfig);
  store_->SetVitalData(Object(kHost, R"({"systemUuid": "v"})"));
  store_->SetCachedData(Object(kHost, R"({"cpuModel": "x"})"));
  store_->Update(Object(kHost, R"({"timezone": "UTC"})"), kExternal);
  store_->Update(Object(kHost, R"({"timezone": "CET"})"), kAutoConfig);
  store_->Set(Switch("vs0", 9000), kExternal);
  store_->SetInstances({Switch("vs1", 1500), Switch("vs2", 9000)}, kExternal);
  store_->GetDefaultConfig(kHost);
  store_->GetRevision(kHost);
  store_->GetInstancesRevision(vswitches);
  store_->GetInstanceIds(vs0);
  auto filter = std::make_shared<FilterSpecObject>(vswitches);
  filter->SetValue("mtu", 1500);
  store_->GetInstances(filter);
  store_->GetDefaultConfigInstances(filter);
  store_->DeleteInstances(filter);
  store_->DeleteInstances(all_vswitches);
  // Next-boot staging, kernel options and boot confirmation.
  const SetvaultObjectId device("pciPassthrough", "hvcore", "korvo", "0000:01:00.0");
  auto next_boot = store_->GetNextBootStore();
  next_boot->Set(
      Object(SetvaultObjectId("cpuScheduler", "hvcore", "korvo"), R"({"reservedCores": 2})"));
  next_boot->SetInstances({Object(device, R"({"address": "0000:01:00.0", "enabled": true})")});
  next_boot->Get(device);
  auto devices =
      std::make_shared<FilterSpecObject>(SetvaultObjectId("pciPassthrough", "hvcore", "korvo"));
  next_boot->GetInstances(devices);
  next_boot->Reset(device);
  const SetvaultObjectId kernel("options", "hvcore", "korvo");
  KorvoSetvault::UpdateKernelOptions(Object(kernel, R"({"hugePages": 2, "iommu": true})"));
  KorvoSetvault::SetPartialBootStatus(Object(kernel, R"({"iommu": true})"));
  KorvoSetvault::SetBootStatus(kernel, true);
  KorvoSetvault::SetKeyValue("BOOT_MODE", "1");
  KorvoSetvault::GetKernelOptions(kernel);
  // Reads and column clears no public operation reaches yet.
  auto conn = DBStore::GetConnection(DBStore::kConfigStore, true);
  auto host_schema = KorvoSetvault::LookUpSchema(kHost);
  auto vswitch_schema = KorvoSetvault::LookUpSchema(vswitches);
  auto options_schema = KorvoSetvault::LookUpSchema(kernel);
  for (int flag : {0, 1}) {
    KorvoSetvault::GetDesiredInternal(kHost, conn, host_schema, flag);
    KorvoSetvault::GetDesiredUserConfigInstancesInternal(vswitches, conn, vswitch_schema, flag);
  }
  KorvoSetvault::GetCurrentConfigInternal(kHost, conn, host_schema);
  KorvoSetvault::GetDefaultUserConfigInternal(kHost, conn, host_schema);
  KorvoSetvault::GetDefaultUserConfigInstancesInternal(vswitches, conn, vswitch_schema);
  KorvoSetvault::GetDefaultUserConfigInstancesInternal(vs0, conn, vswitch_schema);
  KorvoSetvault::GetRebootRequiredConfigInternal(kernel, conn, options_schema);
  KorvoSetvault::GetRebootRequiredConfigInstancesInternal(all_vswitches, vswitch_schema, conn);
  KorvoSetvault::ReadRevisionMap(vswitches, conn);
  KorvoSetvault::DeleteUserConfigInstances(vswitches, conn);
  KorvoSetvault::DeleteVitalConfigInstances(vswitches, conn);
  KorvoSetvault::DeleteCachedConfigInstances(vswitches, conn);
  KorvoSetvault::DeleteAutoConfConfigInstances(vswitches, conn);
  const std::set<std::string> statements(trace->statements().begin(), trace->statements().end());
  trace.reset();  // the plans below are not part of the workload

  int key_lookups = 0;
  for (const std::string& sql : statements) {
    if (!IsKeyLookup(sql)) continue;
    ++key_lookups;
    const std::string plan = Rows("EXPLAIN QUERY PLAN " + sql);
    EXPECT_EQ(plan.find("SCAN"), std::string::npos) << sql << "\n  plan: " << plan;
    EXPECT_EQ(plan.find("<error"), std::string::npos) << sql << "\n  " << plan;
  }
  // The workload reaches the readers, writers, deletes, clears and flag reads.
  EXPECT_GE(key_lookups, 30) << "statements seen: " << statements.size();
  // The check does catch a scan.
  EXPECT_NE(Rows("EXPLAIN QUERY PLAN SELECT Name FROM Config WHERE UserValue = ?").find("SCAN"),
            std::string::npos);
}

}  // namespace
}  // namespace setvault_test
