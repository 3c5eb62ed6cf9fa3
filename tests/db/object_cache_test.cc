// The cache of objects read by Get, against the changes that must reach the next Get:
// each case stores mtu 1500, reads it twice (the second read comes from the cache), makes
// one change and checks what the next Get returns.
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>

#include "model/setvault_object_impl.h"
#include "setvault/host_setup.h"
#include "store/store_fixture.h"

namespace setvault_test {
namespace {

const SetvaultObjectId kId("vswitch", "net", "korvo", "vs0");

std::string SwitchJson(int mtu) { return R"({"name":"vs0","mtu":)" + std::to_string(mtu) + "}"; }

KorvoSetvault::JsonValue& MtuOf(const std::shared_ptr<SetvaultObject>& object) {
  return (*object->GetImpl()->GetDocument()->GetJsonValuePtr())["mtu"];
}

int Mtu(const std::shared_ptr<SetvaultObject>& object) {
  return object ? MtuOf(object).GetInt() : -1;
}

// Runs `body` in a forked child; its exit status (1 when it threw or answered false).
int InChild(const std::function<bool()>& body) {
  const pid_t pid = fork();
  if (pid == 0) {
    bool ok = false;
    try {
      ok = body();
    } catch (...) {
    }
    _exit(ok ? 0 : 1);
  }
  int status = -1;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Sets the switch's mtu through a store of the calling thread's own.
bool SetFresh(int mtu) {
  auto object = std::make_shared<SetvaultObject>(kId);
  object->SetData(SwitchJson(mtu).c_str());
  KorvoSetvault::Setvault::GetStore("")->Set(object, kExternal);
  return true;
}

class ObjectCacheTest : public WriteStoreTest {
 protected:
  void Set(int mtu) { store_->Set(Object(kId, SwitchJson(mtu)), kExternal); }
  int GetMtu() { return Mtu(store_->Get(kId)); }
};

TEST_F(ObjectCacheTest, NextGetSeesEveryChange) {
  const std::tuple<const char*, std::function<void()>, int> cases[] = {
      {"write by another process", [] { EXPECT_EQ(InChild([] { return SetFresh(1600); }), 0); },
       1600},
      {"write by another thread", [] { std::thread([] { SetFresh(1700); }).join(); }, 1700},
      {"write by this store", [this] { Set(1800); }, 1800},
      {"rollback of a write the cache saw",
       [this] {
         store_->BeginTransaction();
         Set(1900);
         EXPECT_EQ(GetMtu(), 1900);
         EXPECT_EQ(GetMtu(), 1900);
         store_->CancelTransaction();
       },
       1500},
      {"caller changed the object it got", [this] { MtuOf(store_->Get(kId)).SetInt(2000); }, 1500},
      {"fork: a child reads the current row and its write reaches the parent",
       [] {
         EXPECT_EQ(InChild([] {
                     auto child = KorvoSetvault::Setvault::GetStore("");
                     return Mtu(child->Get(kId)) == 1500 && SetFresh(2100) &&
                            Mtu(child->Get(kId)) == 2100;
                   }),
                   0);
       },
       2100},
  };
  for (const auto& [name, change, expected] : cases) {
    SCOPED_TRACE(name);
    Set(1500);
    ASSERT_EQ(GetMtu(), 1500);
    ASSERT_EQ(GetMtu(), 1500);
    change();
    EXPECT_EQ(GetMtu(), expected);
  }
}

TEST_F(ObjectCacheTest, ObjectsReadAfterASchemaReloadUseTheNewSchema) {
  Set(1500);
  store_->Get(kId);
  const auto before = store_->Get(kId)->GetImpl()->GetSchema();
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(schemas_.dir().File("schema.db").c_str(), &db), SQLITE_OK);
  EXPECT_EQ(RunSql(db, "UPDATE SmartnicSchema SET Definition = Definition || ' '"), SQLITE_OK);
  sqlite3_close(db);
  const auto after = store_->Get(kId)->GetImpl()->GetSchema();
  EXPECT_NE(after, before);
  EXPECT_EQ(after, KorvoSetvault::LookUpSchema(kId));
}

TEST_F(ObjectCacheTest, FirstReadInsideTheCallersReadSnapshot) {
  Set(1500);
  DBStore::ReadSnapshot snapshot(DBStore::GetConnection(DBStore::kConfigStore, true));
  ASSERT_EQ(snapshot.status(), 0);
  EXPECT_EQ(GetMtu(), 1500);
  EXPECT_EQ(GetMtu(), 1500);
}

TEST_F(ObjectCacheTest, EveryGetHandsOutItsOwnObject) {
  Set(1500);
  for (bool enabled : {true, false}) {
    KorvoSetvault::SetObjectCacheEnabled(enabled);
    auto first = store_->Get(kId);
    auto second = store_->Get(kId);
    MtuOf(first).SetInt(1);
    EXPECT_EQ(Mtu(second), 1500);
    EXPECT_EQ(GetMtu(), 1500);
  }
  KorvoSetvault::SetObjectCacheEnabled(true);
}

}  // namespace
}  // namespace setvault_test
