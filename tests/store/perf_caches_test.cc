// The caches that keep writes cheap never hide a change: host flags cached across the
// connection's own writes, and compiled validators across a schema reload by another process.
#include <fstream>
#include <iterator>

#include "setvault/exceptions.h"
#include "setvault/host_functions.h"
#include "setvault/schema_setup.h"
#include "store/store_fixture.h"
#include "support/reliability_processes.h"

namespace setvault_test {
namespace {

using PerfCachesTest = WriteStoreTest;

TEST_F(PerfCachesTest, HostFlagReadAfterOwnWriteSeesEveryChange) {
  struct Case {
    const char* what;
    const char* trigger;      // made by hand before the write, or null
    bool in_transaction;      // write and read in one transaction of the caller
    const char* child_value;  // set by another process after the write, or null
    const char* expected;
  } const cases[] = {
      {"another process's change", nullptr, false, "child", "child"},
      {"a trigger of the written table", "UPDATE KeyValue SET Value = 'trigger'", false, nullptr,
       "trigger"},
      {"the same inside a transaction", "UPDATE KeyValue SET Value = 'in'", true, nullptr, "in"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    KorvoSetvault::SetKeyValue("flag", "start");
    ASSERT_EQ(KorvoSetvault::GetKeyValue("flag"), "start");  // now cached
    if (c.trigger) {
      RunSql(Db(), std::string("CREATE TRIGGER Flag AFTER INSERT ON Config BEGIN ") + c.trigger +
                       " WHERE Key = 'flag'; END");
    }
    if (c.in_transaction) store_->BeginTransaction();
    store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
    if (c.child_value) {
      ASSERT_EQ(Wait(Spawn([&] {
                  KorvoSetvault::SetKeyValue("flag", c.child_value);
                  return 0;
                })),
                0);
    }
    EXPECT_EQ(KorvoSetvault::GetKeyValue("flag"), c.expected);
    if (c.in_transaction) store_->CommitTransaction();
    RunSql(Db(), "DROP TRIGGER IF EXISTS Flag");
  }
}

TEST_F(PerfCachesTest, ValidationFollowsASchemaReloadedByAnotherProcess) {
  auto low_power = [] { return Object(kHost, R"({"powerPolicy":"lowPower"})"); };
  store_->Set(low_power(), kExternal);  // the example schema allows it; now compiled
  ASSERT_EQ(Wait(Spawn([] {
              std::ifstream in(ExampleSchemaDir() + "/host.json");
              std::string definition{std::istreambuf_iterator<char>(in), {}};
              const size_t at = definition.find(", \"lowPower\"]");
              TempDir reloaded;  // the host type without "lowPower"
              reloaded.WriteFile("host.json", definition.replace(at, 12, ""));
              return static_cast<int>(KorvoSetvault::LoadSchemaDefinitions(reloaded.path()));
            })),
            1);
  ExpectThrow<KorvoSetvault::ValidationException>([&] { store_->Set(low_power(), kExternal); },
                                                  1089);
}

}  // namespace
}  // namespace setvault_test
