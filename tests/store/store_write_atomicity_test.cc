// Writes that fail in the database leave nothing behind, on their own or inside a caller's
// transaction; ids and values holding quotes, SQL, printf directives, control and
// multi-byte characters are stored byte for byte, and those that cannot be are refused.
// Conditional writes: a write carrying the revision its caller read lands only while that
// revision is still stored; otherwise it is refused with both revisions and writes nothing.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <tuple>

#include "setvault/host_functions.h"
#include "store/store_fixture.h"
#include "support/log_capture.h"
#include "support/reliability_processes.h"

namespace setvault_test {
namespace {

using KorvoSetvault::FilterSpecObject;
using KorvoSetvault::RevisionConflictException;
using KorvoSetvault::SetvaultException;

// An id and a value holding quotes, SQL, printf directives, control and multi-byte characters.
const char kOdd[] =
    "%s%n%d'\"); DROP TABLE Config; --\x01\x1f\x7f\t\r\n caf\xc3\xa9 \xe6\x97\xa5 \xf0\x9f\x94\x91";

class StoreWriteAtomicityTest : public WriteStoreTest {
 protected:
  static Objects Datastores(const std::string& more) {
    Objects objects;
    for (const char* label : {"a", "b"}) {
      objects.push_back(
          Object(Datastore(label), std::string(R"({"label":")") + label + "\"" + more + "}"));
    }
    return objects;
  }
};

// Each failing write on its own fails with its message, changes no row and leaves no
// transaction open. Inside a caller's transaction it undoes its own writes (also the rows it
// wrote before the failing one) and leaves that transaction usable, with its earlier writes.
TEST_F(StoreWriteAtomicityTest, FailedWriteUndoesOnlyItself) {
  store_->SetInstances({Switch("a", 1500), Switch("b", 1500)}, kExternal);
  store_->SetInstances(Datastores(""), kExternal);
  store_->Set(Object(kHost, R"({"hostname":"h","systemUuid":"u"})"), kExternal);
  auto odd = Object(Datastore(kOdd), R"({"label":"odd"})");
  odd->SetValue("device", std::string_view(kOdd));
  store_->Set(odd, kExternal);
  odd = store_->Get(Datastore(kOdd));  // the odd id and value are kept byte for byte
  std::string device;
  ASSERT_TRUE(odd && odd->GetValue("device", &device));
  EXPECT_EQ(device, kOdd);
  // Each operation touches a row the faults refuse ("b", the odd datastore or the host); the
  // instance operations write "a" first.
  const Objects a_b = {Switch("a", 9000), Switch("b", 9000)};
  auto mtu1500 = std::make_shared<FilterSpecObject>(Vswitch(""));
  mtu1500->SetValue("mtu", 1500);
  const std::pair<std::function<void()>, std::string> operations[] = {
      {[&] { store_->Set(Switch("b", 9000), kExternal); }, "WriteComplete failed"},
      {[&] { store_->Set(Object(kHost, R"({"hostname":"x"})"), kExternal); },
       "WriteComplete failed"},
      {[&] { store_->SetUserData(Switch("b", 9000), kExternal); }, ""},
      {[&] { store_->SetVitalData(Object(kHost, R"({"systemUuid":"u2"})")); }, ""},
      {[&] { store_->SetCachedData(Datastores(R"(,"capacityBytes":2)")[1]); }, ""},
      {[&] { store_->Update(Switch("b", 9000), kExternal); },
       "Database call to update configuration by context failed for: " + Vswitch("b").toString()},
      {[&] { store_->Delete(Vswitch("b")); }, ""},
      // Failure messages show hostile ids verbatim.
      {[&] { store_->Delete(Datastore(kOdd)); }, "Delete failed: " + Datastore(kOdd).toString()},
      {[&] { store_->DeleteInstances(mtu1500); }, ""},
      {[&] { store_->DeleteInstances(std::make_shared<FilterSpecObject>(Vswitch(""))); }, ""},
      {[&] { store_->SetInstances(a_b, kExternal); }, "WriteComplete failed"},
      {[&] { store_->SetUserDataInstances(a_b, kExternal); }, ""},
      {[&] { store_->SetCachedDataInstances(Datastores(R"(,"capacityBytes":1)")); },
       "Write config instances failed"},
      {[&] { store_->SetVitalDataInstances(Datastores("")); }, ""},
  };
  for (const std::string statement : {"INSERT", "UPDATE", "DELETE"}) {
    const std::string row = statement == "DELETE" ? "OLD" : "NEW";
    RunSql(Db(), "CREATE TRIGGER Fail" + statement + " BEFORE " + statement + " ON Config WHEN " +
                     row + ".Identifier IN ('b', " + Literal(kOdd) + ") OR " + row +
                     ".Name = 'host' BEGIN SELECT RAISE(ABORT, 'x'); END");
  }
  const std::string before = Snapshot();
  for (size_t i = 0; i < std::size(operations); ++i) {
    SCOPED_TRACE(i);
    const auto& [operation, message] = operations[i];
    const std::string what = ExpectThrow<SetvaultException>(operation, 2000);
    EXPECT_TRUE(message.empty() || what == message) << what;
    EXPECT_EQ(Snapshot(), before);
    EXPECT_NE(sqlite3_get_autocommit(Db()), 0);
    ASSERT_EQ(store_->BeginTransaction(), 0);
    store_->Set(Object(Vswitch("early"), R"({"name":"early"})"), kExternal);
    EXPECT_THROW(operation(), SetvaultException);
    // Still usable: a further write joins it, and the commit keeps both.
    store_->Set(Object(Vswitch("late"), R"({"name":"late"})"), kExternal);
    EXPECT_NO_THROW(store_->CommitTransaction());
    EXPECT_EQ(Column(Vswitch("early"), "UserValue"), R"({"name":"early"})");
    ASSERT_EQ(RunSql(Db(), "DELETE FROM Config WHERE Identifier IN ('early', 'late')"), SQLITE_OK);
    EXPECT_EQ(Snapshot(), before);
  }
}

// Ids and values that could not be stored faithfully (a NUL byte in an instance id
// once read back cut, yielding a second row on rewrite; invalid UTF-8 was stored
// verbatim) are refused where they enter, with their error, and nothing is written.
TEST_F(StoreWriteAtomicityTest, UnstorableIdsAndValuesAreRefusedAndNothingIsWritten) {
  LogCapture log(0);
  const std::string nul_id("vs\0b", 4);
  const std::string kNulId = "Instance id cannot contain a NUL byte";
  const std::string kBadId = "Instance id must be valid UTF-8";
  const std::string kBadText = "String value is not valid UTF-8";
  auto label = [](const std::string& id) {
    auto object = std::make_shared<SetvaultObject>(Datastore(id));
    object->SetValue("device", "d");
    return object;
  };
  auto fresh = [] { return std::make_shared<SetvaultObject>(Datastore("d0")); };
  ExpectRefusals({
      {[&] { store_->Set(label(nul_id), kExternal); }, 2000, kNulId},
      {[&] {
         store_->SetInstances({label("ok"), label(nul_id)}, kExternal);
       },
       2000, kNulId},
      {[&] { store_->Update(label("\xff"), kExternal); }, 2000, kBadId},
      {[&] { store_->SetCachedData(label("\xc0\xaf")); }, 2000, kBadId},  // overlong
      {[&] { store_->Get(Datastore(nul_id)); }, 2000, kNulId},
      {[&] { fresh()->SetValue("device", "caf\xc3"); }, 2000, kBadText},
      {[&] {
         fresh()->SetValue("tags", std::vector<std::string>{"ok", "\xed\xa0\x80"});
       },
       2000, kBadText},
      {[&] { fresh()->SetValue("\xfe", 1); }, 2000, "Member name is not valid UTF-8"},
  });
  // A value built as a JSON value skips the setters; the write refuses it with
  // the pointer of the bad text.
  KorvoSetvault::JsonDocument scratch;
  auto object = label("d1");
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
