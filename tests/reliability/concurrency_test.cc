// Many processes on one store: concurrent writers and readers, fork() with and without an open
// transaction, and a store held busy by another process. Every process is real (fork), and every
// check reads the store after the processes are done.
//
// SETVAULT_RELIABILITY_TRANSACTIONS sets the transactions per writer (default 100, at most 960: the
// counters live in an "mtu" field limited to 9000).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <thread>
#include <vector>

#include "reliability/store_processes.h"
#include "support/example_schemas.h"

namespace setvault_test {
namespace {

using KorvoSetvault::SetvaultException;
using KorvoSetvault::SetvaultTransaction;

constexpr int kBaseMtu = 1280;

std::shared_ptr<SetvaultObject> VswitchObject(const std::string& name, int mtu,
                                              const std::string& uplink = "vmnic0") {
  return Object(Vswitch(name), "{\"name\":\"" + name + "\",\"mtu\":" + std::to_string(mtu) +
                                   ",\"uplinks\":[\"" + uplink + "\"]}");
}

void SetMtu(const std::string& name, int mtu) {
  Setvault::GetStore("")->Set(VswitchObject(name, mtu), kExternal);
}

// The stored mtu of vswitch `name`, -1 when absent.
int Mtu(const std::string& name) {
  auto object = Setvault::GetStore("")->Get(Vswitch(name));
  int mtu = -1;
  if (object && object->GetValue("mtu", &mtu) == 0) mtu = -1;  // 0: absent
  return mtu;
}

// Runs `body` on a thread of its own, whose store connection closes when it ends.
void OnThread(const std::function<void()>& body) { std::thread(body).join(); }

class ConcurrencyTest : public ::testing::Test {
 protected:
  std::string IntegrityCheck() const {
    return QueryFile(schemas_.dir().File("store.db"), "PRAGMA integrity_check");
  }
  ExampleSchemas schemas_;
};

// One writer's transactions, back to back: each increments the shared counter and the writer's own
// (both read and written in the transaction), and rewrites instances every writer shares. Returns
// the failed transactions (capped).
int Writer(int writer, int transactions) {
  auto store = Setvault::GetStore("");
  const std::string own = "w" + std::to_string(writer);
  int failures = 0;
  for (int i = 0; i < transactions; ++i) {
    try {
      SetvaultTransaction transaction(store);
      store->Set(VswitchObject("shared", Mtu("shared") + 1), kExternal);
      store->Update(VswitchObject(own, Mtu(own) + 1), kExternal);
      store->SetInstances({VswitchObject("pool" + std::to_string(i % 3), kBaseMtu, own),
                           VswitchObject("pool" + std::to_string((i + 1) % 3), kBaseMtu, own)},
                          kExternal);
      transaction.Commit();
    } catch (const SetvaultException&) {
      ++failures;
    }
  }
  return std::min(failures, 127);
}

// Reads while the writers write; returns the number of failed reads (capped).
int Reader(int reads) {
  auto filter = std::make_shared<KorvoSetvault::FilterSpecObject>(Vswitch(""));
  int failures = 0;
  for (int i = 0; i < reads; ++i) {
    try {
      failures +=
          Mtu("shared") < kBaseMtu || Setvault::GetStore("")->GetInstances(filter).size() < 4;
    } catch (const SetvaultException&) {
      ++failures;
    }
  }
  return std::min(failures, 255);
}

// No writer keeps the write lock from the others (each begin succeeds), and no increment is lost.
TEST_F(ConcurrencyTest, ConcurrentWritersAndReadersLoseNothing) {
  constexpr int kWriters = 8, kReaders = 2;
  const char* configured = std::getenv("SETVAULT_RELIABILITY_TRANSACTIONS");
  const int transactions = std::min(configured ? std::atoi(configured) : 100, 960);
  OnThread([&] {
    SetMtu("shared", kBaseMtu);
    for (int w = 0; w < kWriters; ++w) SetMtu("w" + std::to_string(w), kBaseMtu);
  });
  std::vector<pid_t> writers, readers;
  for (int w = 0; w < kWriters; ++w)
    writers.push_back(Spawn([=] { return Writer(w, transactions); }));
  for (int r = 0; r < kReaders; ++r)
    readers.push_back(Spawn([=] { return Reader(transactions * 2); }));
  int failures = 0;
  for (pid_t pid : writers) failures += Wait(pid);
  for (pid_t pid : readers) EXPECT_EQ(Wait(pid), 0) << "failed reads";
  OnThread([&] {
    EXPECT_EQ(Mtu("shared"), kBaseMtu + kWriters * transactions - failures) << "lost increments";
    for (int w = 0; w < kWriters; ++w) {
      EXPECT_EQ(Mtu("w" + std::to_string(w)), kBaseMtu + transactions) << "writer " << w;
    }
  });
  std::cout << kWriters << " writers, " << kReaders << " readers, " << kWriters * transactions
            << " transactions, " << failures << " failed" << std::endl;
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(IntegrityCheck(), "ok");
}

// Where a transaction is open when the process forks: nowhere, in the forking thread, in another
// thread that commits it within the busy time-out, or in one that keeps it open until fork() has
// returned.
enum class OpenAt { kNowhere, kForkingThread, kOtherThreadBriefly, kOtherThreadThroughout };

// The child writes through the handle made before fork(), a new one, and one of a new thread;
// returns "written;" or "refused;" (2000 naming the fork) for each.
std::string ChildWrites(const std::shared_ptr<Setvault>& before, const std::string& name) {
  std::string outcome;
  for (int attempt = 0; attempt < 3; ++attempt) {
    auto write = [&] {
      try {
        auto handle = attempt == 0 ? before : Setvault::GetStore("");
        handle->Set(VswitchObject("child-" + name + std::to_string(attempt), kBaseMtu), kExternal);
        outcome += "written;";
      } catch (const SetvaultException& e) {
        const bool cause =
            e.GetErrorCode() == 2000 && e.GetDetailedMessage().find("forked") != std::string::npos;
        outcome += cause ? "refused;" : e.GetDetailedMessage();
      }
    };
    attempt == 2 ? OnThread(write) : write();
  }
  return outcome;
}

TEST_F(ConcurrencyTest, ForkedChildWritesOnItsOwnConnectionOrIsRefused) {
  const struct {
    const char* name;
    OpenAt open_at;
    bool child_writes;  // otherwise every store use in the child throws the fork cause
  } cases[] = {
      {"nowhere", OpenAt::kNowhere, true},
      {"forking", OpenAt::kForkingThread, false},
      {"brief", OpenAt::kOtherThreadBriefly, true},
      {"throughout", OpenAt::kOtherThreadThroughout, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string name = c.name;
    auto store = Setvault::GetStore("");
    SetMtu("before-" + name, kBaseMtu);
    std::unique_ptr<SetvaultTransaction> own;
    std::atomic<bool> started{false}, forked{false};
    std::thread other;
    if (c.open_at == OpenAt::kForkingThread) {
      own = std::make_unique<SetvaultTransaction>(store);
      SetMtu("parent-" + name, kBaseMtu);
    } else if (c.open_at != OpenAt::kNowhere) {
      other = std::thread([&] {
        auto mine = Setvault::GetStore("");
        SetvaultTransaction transaction(mine);
        SetMtu("parent-" + name, kBaseMtu);
        started = true;
        if (c.open_at == OpenAt::kOtherThreadBriefly) {
          std::this_thread::sleep_for(std::chrono::milliseconds(300));
        }
        while (c.open_at == OpenAt::kOtherThreadThroughout && !forked) std::this_thread::yield();
        transaction.Commit();
      });
      while (!started) std::this_thread::yield();
    }
    const std::string expected = c.child_writes ? "written;" : "refused;";
    const pid_t child =
        Spawn([&] { return ChildWrites(store, name) == expected + expected + expected ? 0 : 1; });
    forked = true;
    if (own) own->Commit();
    if (other.joinable()) other.join();
    EXPECT_EQ(Wait(child), 0);
    OnThread([&] {
      EXPECT_EQ(Mtu("parent-" + name), c.open_at == OpenAt::kNowhere ? -1 : kBaseMtu);
      for (const char* attempt : {"0", "1", "2"}) {
        EXPECT_EQ(Mtu("child-" + name + attempt), c.child_writes ? kBaseMtu : -1);
      }
    });
    EXPECT_EQ(IntegrityCheck(), "ok");
  }
}

// A child that outlives every connection of its parent keeps writing to the live store, not to a
// log the parent deleted when it closed last.
TEST_F(ConcurrencyTest, ChildOutlivingTheParentsConnectionsKeepsItsWrites) {
  Pipe ready, go;
  pid_t child = -1;
  OnThread([&] {
    SetMtu("seed", kBaseMtu);
    child = Spawn([&] {
      SetMtu("early", kBaseMtu + 1);
      if (!ready.Signal() || !go.Await()) return 2;
      SetMtu("late", kBaseMtu + 2);
      return 0;
    });
    ASSERT_TRUE(ready.Await());
  });  // the thread's connection, the parent's last, closes here
  ASSERT_TRUE(go.Signal());
  EXPECT_EQ(Wait(child), 0);
  OnThread([] { EXPECT_EQ(Mtu("late"), kBaseMtu + 2); });
  EXPECT_EQ(IntegrityCheck(), "ok");
}

// Another process holds the write lock past the busy time-out: the failure says so.
TEST_F(ConcurrencyTest, BusyStoreThrowsStoreBusyExceptionWithSqlitesCode) {
  OnThread([] { SetMtu("seed", kBaseMtu); });
  Pipe locked;
  const std::string path = schemas_.dir().File("store.db");
  const pid_t holder = Spawn([&] {
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    if (RunSql(db, "BEGIN IMMEDIATE") != SQLITE_OK) return 1;  // also when the open failed
    while (locked.Signal()) pause();                           // holds the lock until killed
    return 2;
  });
  ASSERT_TRUE(locked.Await());
  std::string text;
  OnThread([&] {
    for (bool transaction : {false, true}) {
      try {
        auto store = Setvault::GetStore("");
        transaction ? void(SetvaultTransaction(store)) : SetMtu("x", kBaseMtu);
      } catch (const KorvoSetvault::StoreBusyException& e) {
        text += std::to_string(e.GetErrorCode()) + " " + e.what() + " " +
                std::to_string(e.GetSqliteCode() & 0xff) + "\n";
      }
    }
  });
  EXPECT_EQ(text,
            "2000 Begin Transaction failed for: Set 5\n2000 Failed to start a transaction. 5\n");
  kill(holder, SIGKILL);
  EXPECT_EQ(Wait(holder), 128 + SIGKILL);
}

}  // namespace
}  // namespace setvault_test
