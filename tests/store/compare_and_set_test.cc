// Conditional writes: a write carrying the revision its caller read lands only while that
// revision is still stored; otherwise it is refused with both revisions and writes nothing.
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <tuple>

#include "setvault/host_functions.h"
#include "store/store_fixture.h"
#include "support/reliability_processes.h"

namespace setvault_test {
namespace {

using KorvoSetvault::RevisionConflictException;

using CompareAndSetTest = WriteStoreTest;

std::shared_ptr<SetvaultObject> Host(const std::string& name) {
  return KorvoSetvault::CreateObject(kHost, R"({"hostname":")" + name + "\"}");
}

TEST_F(CompareAndSetTest, WritesLandOnlyOnTheRevisionRead) {
  const int read = 1;  // what every case read: host, vs0 and vs1 at revision 1
  // The stored name of the host and MTU of vs1.
  const std::string snapshot =
      "SELECT (SELECT UserValue ->> 'hostname' FROM Config WHERE Name = 'host') || ' ' || "
      "(SELECT UserValue ->> 'mtu' FROM Config WHERE Identifier = 'vs1')";
  const auto set = [&](int revision) { store_->SetIfRevision(Host("new"), revision, kExternal); };
  const auto instances = [&](const std::string& instance, int revision) {
    store_->SetInstancesIfRevisions({Switch("vs0", 9000), Switch("vs1", 9000)},
                                    {{instance, revision}}, kExternal);
  };
  struct Case {
    const char* name;
    std::function<void()> meanwhile, write;  // another writer's change between read and write
    int expected, stored;                    // the conflict's revisions (expected 0: none)
    std::string after;                       // snapshot afterwards
  };
  const std::vector<Case> cases = {
      {"set after a set", [&] { store_->Set(Host("b"), kExternal); }, [&] { set(read); }, 1, 2,
       "b 1500"},
      {"create", [&] { store_->Delete(kHost); }, [&] { set(-1); }, 0, 0, "new 1500"},
      {"update after an update", [&] { store_->UpdateIfRevision(Host("b"), read, kExternal); },
       [&] { store_->UpdateIfRevision(Host("new"), read, kExternal); }, 1, 2, "b 1500"},
      {"instances as read", [] {}, [&] { instances("vs1", read); }, 0, 0, "start 9000"},
      {"instances, one set", [&] { store_->Set(Switch("vs1", 2000), kExternal); },
       [&] { instances("vs1", read); }, 1, 2, "start 2000"},
      {"instances, one added", [&] { store_->Set(Switch("vs2", 2000), kExternal); },
       [&] { instances("vs2", -1); }, -1, 1, "start 1500"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    RunSql(Db(), "DELETE FROM Config");
    store_->Set(Host("start"), kExternal);
    store_->SetInstances({Switch("vs0", 1500), Switch("vs1", 1500)}, kExternal);
    c.meanwhile();
    try {
      c.write();
      EXPECT_EQ(c.expected, 0) << "no conflict";
    } catch (const RevisionConflictException& e) {
      EXPECT_EQ(std::make_tuple(e.GetErrorCode(), e.GetExpectedRevision(), e.GetStoredRevision()),
                std::make_tuple(1105, c.expected, c.stored));
      EXPECT_NE(std::string(e.what()).find("expected revision " + std::to_string(c.expected) +
                                           ", stored revision " + std::to_string(c.stored)),
                std::string::npos);
    }
    EXPECT_EQ(QueryText(Db(), snapshot), c.after);
  }
}

// Adds one to the host's name (a number) `rounds` times by read, decide and conditional
// write (whole objects for odd workers, updates for even ones), retrying conflicts. Returns
// the conflicts met, at most 98; throws on any other failure.
int Increment(int worker, int rounds) {
  auto store = KorvoSetvault::Setvault::GetStore("");
  const auto write = worker % 2 ? &KorvoSetvault::Setvault::SetIfRevision
                                : &KorvoSetvault::Setvault::UpdateIfRevision;
  int conflicts = 0;
  for (int done = 0; done < rounds;) {
    auto read = store->Get(kHost);
    std::string name;
    read->GetValue("hostname", &name);
    try {
      (store.get()->*write)(Host(std::to_string(std::stoi(name) + 1)), read->GetRevision(),
                            kExternal);
      ++done;
    } catch (const RevisionConflictException&) {
      ++conflicts;
    }
  }
  return std::min(conflicts, 98);
}

TEST_F(CompareAndSetTest, TwoProcessesIncrementingLoseNoIncrement) {
  constexpr int kRounds = 1500;
  // The race is the point, not the disk: on a memory file system commits cost no sync.
  TempDir memory(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "");
  KorvoSetvault::SetStorePath(memory.File("race.db"));
  store_ = KorvoSetvault::Setvault::GetStore("");
  store_->Set(Host("0"), kExternal);
  // The exit status tells the conflicts met; 99 and above, a failure.
  const pid_t children[] = {Spawn([] { return Increment(1, kRounds); }),
                            Spawn([] { return Increment(2, kRounds); })};
  int conflicts = 0;
  for (pid_t child : children) {
    const int status = Wait(child);
    ASSERT_TRUE(status >= 0 && status < 99) << "a worker failed: " << status;
    conflicts += status;
  }
  std::string name;
  store_->Get(kHost)->GetValue("hostname", &name);
  EXPECT_EQ(name, std::to_string(2 * kRounds));
  EXPECT_EQ(store_->GetRevision(kHost), 1 + 2 * kRounds);
  EXPECT_GT(conflicts, 0);  // the workers did race, and the losers were refused
}

}  // namespace
}  // namespace setvault_test
