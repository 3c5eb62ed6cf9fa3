// The caches that keep writes cheap never hide a change: host flags cached across the
// connection's own writes, and compiled validators across a schema reload by another process.
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "setvault/exceptions.h"
#include "setvault/host_functions.h"
#include "setvault/schema_setup.h"
#include "store/store_fixture.h"

namespace setvault_test {
namespace {

// Runs `child` in a forked process and waits for it; true when it exited with 0.
template <typename Child>
bool InChildProcess(Child child) {
  const pid_t pid = fork();
  if (pid == 0) _exit(child() ? 0 : 1);
  int status = 0;
  return pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

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
      ASSERT_EQ(RunSql(Db(), std::string("CREATE TRIGGER Flag AFTER INSERT ON Config BEGIN ") +
                                 c.trigger + " WHERE Key = 'flag'; END"),
                SQLITE_OK);
    }
    if (c.in_transaction) store_->BeginTransaction();
    store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
    if (c.child_value) {
      ASSERT_TRUE(InChildProcess([&] {
        KorvoSetvault::SetKeyValue("flag", c.child_value);
        return true;
      }));
    }
    EXPECT_EQ(KorvoSetvault::GetKeyValue("flag"), c.expected);
    if (c.in_transaction) store_->CommitTransaction();
    RunSql(Db(), "DROP TRIGGER IF EXISTS Flag");
  }
}

TEST_F(PerfCachesTest, ValidationFollowsASchemaReloadedByAnotherProcess) {
  auto low_power = [] { return Object(kHost, R"({"powerPolicy":"lowPower"})"); };
  store_->Set(low_power(), kExternal);  // the example schema allows it; now compiled
  ASSERT_TRUE(InChildProcess([] {
    std::ifstream in(ExampleSchemaDir() + "/host.json");
    std::stringstream text;
    text << in.rdbuf();
    std::string definition = text.str();
    const size_t at = definition.find(", \"lowPower\"]");
    if (at == std::string::npos) return false;
    TempDir reloaded;  // the host type without "lowPower"
    reloaded.WriteFile("host.json", definition.replace(at, 12, ""));
    return KorvoSetvault::LoadSchemaDefinitions(reloaded.path()) == 1;
  }));
  ExpectThrow<KorvoSetvault::ValidationException>([&] { store_->Set(low_power(), kExternal); },
                                                  1089);
}

}  // namespace
}  // namespace setvault_test
