// Conditional writes: a write carrying the revision its caller read lands only while that
// revision is still stored; otherwise it is refused with both revisions and writes nothing.
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "store/store_fixture.h"

namespace setvault_test {
namespace {

using KorvoSetvault::RevisionConflictException;

const SetvaultObjectId kHost("host", "system", "korvo");
const SetvaultObjectId kDns("dns", "net", "korvo");

SetvaultObjectId Vswitch(const std::string& name) {
  return SetvaultObjectId("vswitch", "net", "korvo", name);
}

class CompareAndSetTest : public WriteStoreTest {
 protected:
  std::shared_ptr<SetvaultObject> Host(const std::string& name) {
    return Object(kHost, R"({"hostname":")" + name + "\"}");
  }
  std::shared_ptr<SetvaultObject> Switch(const std::string& name, int mtu) {
    return Object(Vswitch(name), R"({"name":")" + name + R"(","mtu":)" + std::to_string(mtu) + "}");
  }
  // The host's name and the switches' MTUs, "-" for what is not stored.
  std::string Snapshot() {
    std::string text;
    for (const auto& id : {kHost, Vswitch("vs0"), Vswitch("vs1")}) {
      auto object = store_->Get(id);
      std::string value = "-";
      if (object && id == kHost) object->GetValue("hostname", &value);
      int mtu = 0;
      if (object && id != kHost && object->GetValue("mtu", &mtu) != 0) value = std::to_string(mtu);
      text += (text.empty() ? "" : " ") + value;
    }
    return text;
  }
};

TEST_F(CompareAndSetTest, WritesLandOnlyOnTheRevisionRead) {
  int host = 0;  // the revisions read before another writer comes
  int vs1 = 0;
  struct Case {
    const char* name;
    std::function<void()> meanwhile;  // another writer, after the read
    std::function<void()> write;      // the conditional write
    int expected, stored;             // the conflict's revisions; expected 0: no conflict
    std::string after;                // Snapshot() afterwards
  };
  const std::vector<Case> cases = {
      {"set, nobody came between", [] {},
       [&] { store_->SetIfRevision(Host("new"), host, kExternal); }, 0, 0, "new 1500 1500"},
      {"set after another set", [&] { store_->Set(Host("other"), kExternal); },
       [&] { store_->SetIfRevision(Host("new"), host, kExternal); }, 1, 2, "other 1500 1500"},
      {"set after a delete", [&] { store_->Delete(kHost); },
       [&] { store_->SetIfRevision(Host("new"), host, kExternal); }, 1, -1, "- 1500 1500"},
      {"create what is not stored", [&] { store_->Delete(kHost); },
       [&] { store_->SetIfRevision(Host("new"), -1, kExternal); }, 0, 0, "new 1500 1500"},
      {"create what another writer stored", [] {},
       [&] { store_->SetIfRevision(Host("new"), -1, kExternal); }, -1, 1, "start 1500 1500"},
      {"update, nobody came between", [] {},
       [&] { store_->UpdateIfRevision(Host("new"), host, kExternal); }, 0, 0, "new 1500 1500"},
      {"update after a conditional update",
       [&] { store_->UpdateIfRevision(Host("other"), host, kExternal); },
       [&] { store_->UpdateIfRevision(Host("new"), host, kExternal); }, 1, 2, "other 1500 1500"},
      {"instances, all as read", [] {},
       [&] {
         store_->SetInstancesIfRevisions({Switch("vs0", 9000), Switch("vs1", 9000)},
                                         {{"vs1", vs1}, {"vs2", -1}}, kExternal);
       },
       0, 0, "start 9000 9000"},
      {"instances, one written meanwhile", [&] { store_->Set(Switch("vs1", 2000), kExternal); },
       [&] {
         store_->SetInstancesIfRevisions({Switch("vs0", 9000), Switch("vs1", 9000)}, {{"vs1", vs1}},
                                         kExternal);
       },
       1, 2, "start 1500 2000"},
      {"instances, a checked one created meanwhile",
       [&] { store_->Set(Switch("vs2", 2000), kExternal); },
       [&] {
         store_->SetInstancesIfRevisions({Switch("vs0", 9000)}, {{"vs2", -1}}, kExternal);
       },
       -1, 1, "start 1500 1500"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    for (const auto& id : {kHost, Vswitch("vs0"), Vswitch("vs1"), Vswitch("vs2")})
      store_->Delete(id);
    store_->Set(Host("start"), kExternal);
    store_->SetInstances({Switch("vs0", 1500), Switch("vs1", 1500)}, kExternal);
    host = store_->GetRevision(kHost);
    vs1 = store_->GetRevision(Vswitch("vs1"));
    c.meanwhile();
    try {
      c.write();
      EXPECT_EQ(c.expected, 0) << "no conflict";
    } catch (const RevisionConflictException& e) {
      EXPECT_EQ(e.GetErrorCode(), 1105);
      EXPECT_EQ(e.GetExpectedRevision(), c.expected);
      EXPECT_EQ(e.GetStoredRevision(), c.stored);
      EXPECT_NE(std::string(e.what()).find("expected revision " + std::to_string(c.expected) +
                                           ", stored revision " + std::to_string(c.stored)),
                std::string::npos)
          << e.what();
    }
    EXPECT_EQ(Snapshot(), c.after);
  }
}

TEST_F(CompareAndSetTest, AConflictInsideATransactionLeavesItUsable) {
  store_->Set(Host("start"), kExternal);
  KorvoSetvault::SetvaultTransaction transaction(store_);
  store_->Set(Object(kDns, R"({"servers":["10.0.0.1"]})"), kExternal);
  EXPECT_THROW(store_->SetIfRevision(Host("new"), 7, kExternal), RevisionConflictException);
  transaction.Commit();
  EXPECT_EQ(Snapshot(), "start - -");
  EXPECT_EQ(store_->GetRevision(kDns), 1);
}

// Adds one to the host's name (a number) `rounds` times by read, decide, conditional
// write; conflicts are retried. Returns how many conflicts it met, or -1 after any other
// failure. Odd workers write whole objects, even ones update.
int Increment(int worker, int rounds) {
  try {
    auto store = KorvoSetvault::Setvault::GetStore("");
    int conflicts = 0;
    for (int done = 0; done < rounds;) {
      auto read = store->Get(kHost);
      std::string name;
      read->GetValue("hostname", &name);
      auto next = std::make_shared<SetvaultObject>(kHost);
      next->SetData(("{\"hostname\":\"" + std::to_string(std::stoi(name) + 1) + "\"}").c_str());
      try {
        if (worker % 2 == 1) {
          store->SetIfRevision(next, read->GetRevision(), kExternal);
        } else {
          store->UpdateIfRevision(next, read->GetRevision(), kExternal);
        }
        ++done;
      } catch (const RevisionConflictException&) {
        ++conflicts;
      }
    }
    return conflicts;
  } catch (...) {
    return -1;
  }
}

TEST_F(CompareAndSetTest, TwoProcessesIncrementingLoseNoIncrement) {
  constexpr int kRounds = 1500;
  // The race is the point, not the disk: on a memory file system commits cost no sync.
  TempDir memory("/dev/shm");
  KorvoSetvault::SetStorePath(memory.File("race.db"));
  store_ = KorvoSetvault::Setvault::GetStore("");
  store_->Set(Host("0"), kExternal);
  int start[2];
  int results[2];
  ASSERT_EQ(pipe(start), 0);
  ASSERT_EQ(pipe(results), 0);
  std::vector<pid_t> children;
  for (int worker = 1; worker <= 2; ++worker) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      char go;
      const int conflicts = read(start[0], &go, 1) == 1 ? Increment(worker, kRounds) : -1;
      _exit(write(results[1], &conflicts, sizeof conflicts) == sizeof conflicts ? 0 : 1);
    }
    children.push_back(child);
  }
  ASSERT_EQ(write(start[1], "gg", 2), 2);  // both start at once
  int conflicts = 0;
  for (pid_t child : children) {
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    int count = 0;
    ASSERT_EQ(read(results[0], &count, sizeof count), static_cast<ssize_t>(sizeof count));
    ASSERT_GE(count, 0) << "a worker failed other than by a conflict";
    conflicts += count;
  }
  for (int fd : {start[0], start[1], results[0], results[1]}) close(fd);
  std::string name;
  store_->Get(kHost)->GetValue("hostname", &name);
  EXPECT_EQ(name, std::to_string(2 * kRounds));
  EXPECT_EQ(store_->GetRevision(kHost), 1 + 2 * kRounds);
  // The workers did race: some writes were refused, none overwrote silently.
  EXPECT_GT(conflicts, 0);
  RecordProperty("conflicts", conflicts);
}

}  // namespace
}  // namespace setvault_test
