// The cache of objects read by Get, against the changes that must reach the next Get:
// each case stores mtu 1500, reads it twice (the second read comes from the cache), makes
// one change and checks what the next Get returns; the same with the cache turned off.
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <thread>

#include "setvault/host_setup.h"
#include "store/store_fixture.h"

namespace setvault_test {
namespace {

const SetvaultObjectId kId("vswitch", "net", "korvo", "vs0");

// The mtu `object` holds; -1 for none.
int Mtu(const std::shared_ptr<SetvaultObject>& object) {
  int mtu = -1;
  if (object) object->GetValue("mtu", &mtu);
  return mtu;
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

class ObjectCacheTest : public WriteStoreTest {
 protected:
  void Set(int mtu) { store_->Set(Switch("vs0", mtu), kExternal); }
  int GetMtu() { return Mtu(store_->Get(kId)); }
  // Sets the switch's mtu through a store of the calling thread's own.
  static bool SetFresh(int mtu) {
    KorvoSetvault::Setvault::GetStore("")->Set(Switch("vs0", mtu), kExternal);
    return true;
  }
};

TEST_F(ObjectCacheTest, NextGetSeesEveryChange) {
  const std::tuple<const char*, std::function<void()>, int> cases[] = {
      {"write by another thread", [] { std::thread([] { SetFresh(1700); }).join(); }, 1700},
      {"rollback of a write the cache saw",
       [this] {
         store_->BeginTransaction();
         Set(1900);
         EXPECT_EQ(GetMtu(), 1900);
         EXPECT_EQ(GetMtu(), 1900);
         store_->CancelTransaction();
       },
       1500},
      {"caller changed the object it got", [this] { store_->Get(kId)->SetValue("mtu", 2000); },
       1500},
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
  for (bool enabled : {true, false}) {  // every Get hands out an object of its own either way
    KorvoSetvault::SetObjectCacheEnabled(enabled);
    for (const auto& [name, change, expected] : cases) {
      SCOPED_TRACE(std::string(name) + (enabled ? "" : ", cache off"));
      Set(1500);
      ASSERT_EQ(GetMtu(), 1500);
      ASSERT_EQ(GetMtu(), 1500);
      change();
      EXPECT_EQ(GetMtu(), expected);
    }
  }
  KorvoSetvault::SetObjectCacheEnabled(true);
}

}  // namespace
}  // namespace setvault_test
