// Many processes on one store: concurrent writers and readers, fork() with and without an
// open transaction, and a store held busy by another process. Every process is real (fork),
// and every check reads the store file after the processes are done.
//
// SETVAULT_RELIABILITY_TRANSACTIONS sets the transactions per writer (default 100, at most
// 960: the counters live in an "mtu" field limited to 9000).
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "setvault/setvault_store.h"
#include "support/example_schemas.h"
#include "support/temp_dir.h"

namespace KorvoSetvault {
namespace {

using setvault_test::ExampleSchemas;
using setvault_test::TempDir;

const USERDATA_CONTEXT kContext{kExternalContext};
constexpr int kBaseMtu = 1280;

SetvaultObjectId Vswitch(const std::string& name) {
  return SetvaultObjectId("vswitch", "net", "korvo", name);
}

std::shared_ptr<SetvaultObject> VswitchObject(const std::string& name, int mtu,
                                              const std::string& uplink = "vmnic0") {
  auto object = std::make_shared<SetvaultObject>(Vswitch(name));
  object->SetData(("{\"name\":\"" + name + "\",\"mtu\":" + std::to_string(mtu) +
                   ",\"uplinks\":[\"" + uplink + "\"]}")
                      .c_str());
  return object;
}

// The stored mtu of vswitch `name`, -1 when absent.
int Mtu(const std::shared_ptr<Setvault>& store, const std::string& name) {
  auto object = store->Get(Vswitch(name));
  int mtu = -1;
  if (object && object->GetValue("mtu", &mtu) == 0) mtu = -1;  // 0: absent
  return mtu;
}

// Runs `body` in a forked child, which exits with its result (97 for an exception).
pid_t Spawn(const std::function<int()>& body) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  int result = 97;
  try {
    result = body();
  } catch (...) {
  }
  _exit(result);
}

int ExitCode(pid_t pid) {
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Runs `body` on a thread of its own, whose store connection closes when it ends.
void OnThread(const std::function<void()>& body) { std::thread(body).join(); }

class ReliabilityTest : public ::testing::Test {
 protected:
  void SetUp() override { SetStorePath(dir_.File("store.db")); }
  void TearDown() override { SetStorePath(kDefaultStorePath); }

  // PRAGMA integrity_check of the store file, read with a connection of its own.
  std::string IntegrityCheck() const {
    sqlite3* db = nullptr;
    std::string result = "cannot open";
    if (sqlite3_open_v2(dir_.File("store.db").c_str(), &db, SQLITE_OPEN_READONLY, nullptr) ==
        SQLITE_OK) {
      sqlite3_stmt* stmt = nullptr;
      sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &stmt, nullptr);
      if (stmt != nullptr && sqlite3_step(stmt) == SQLITE_ROW) {
        result = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
      }
      sqlite3_finalize(stmt);
    }
    sqlite3_close_v2(db);
    return result;
  }

  ExampleSchemas schemas_;
  TempDir dir_;
};

// One writer's transactions: each increments the shared counter and the writer's own (both
// read and written in the transaction), and rewrites instances every writer shares. Returns
// failed begins in bits 4-7 and other failures in bits 0-3 (each capped at 15).
int Writer(int writer, int transactions) {
  auto store = Setvault::GetStore("");
  const std::string own = "w" + std::to_string(writer);
  int failed_begins = 0, failures = 0;
  for (int i = 0; i < transactions; ++i) {
    std::unique_ptr<SetvaultTransaction> transaction;
    try {
      transaction = std::make_unique<SetvaultTransaction>(store);
    } catch (const SetvaultException&) {
      ++failed_begins;
      continue;
    }
    try {
      store->Set(VswitchObject("shared", Mtu(store, "shared") + 1), kContext);
      store->Update(VswitchObject(own, Mtu(store, own) + 1), kContext);
      store->SetInstances({VswitchObject("pool" + std::to_string(i % 3), kBaseMtu, own),
                           VswitchObject("pool" + std::to_string((i + 1) % 3), kBaseMtu, own)},
                          kContext);
      transaction->Commit();
    } catch (const SetvaultException&) {
      ++failures;
    }
  }
  return std::min(failed_begins, 15) << 4 | std::min(failures, 15);
}

// Reads while the writers write; returns the number of failed reads (capped).
int Reader(int reads) {
  auto store = Setvault::GetStore("");
  auto filter = std::make_shared<FilterSpecObject>(Vswitch(""));
  int failures = 0;
  for (int i = 0; i < reads; ++i) {
    try {
      if (Mtu(store, "shared") < kBaseMtu || store->GetInstances(filter).size() < 4) ++failures;
    } catch (const SetvaultException&) {
      ++failures;
    }
  }
  return std::min(failures, 255);
}

TEST_F(ReliabilityTest, ConcurrentWritersAndReadersLoseNothing) {
  constexpr int kWriters = 8, kReaders = 2;
  const char* configured = std::getenv("SETVAULT_RELIABILITY_TRANSACTIONS");
  const int transactions = std::min(configured ? std::atoi(configured) : 100, 960);
  OnThread([&] {
    auto store = Setvault::GetStore("");
    store->Set(VswitchObject("shared", kBaseMtu), kContext);
    for (int w = 0; w < kWriters; ++w) {
      store->Set(VswitchObject("w" + std::to_string(w), kBaseMtu), kContext);
    }
  });
  std::vector<pid_t> writers, readers;
  for (int w = 0; w < kWriters; ++w) writers.push_back(Spawn([=] { return Writer(w, transactions); }));
  for (int r = 0; r < kReaders; ++r) readers.push_back(Spawn([=] { return Reader(transactions * 2); }));
  int failed_begins = 0, failures = 0;
  for (pid_t pid : writers) {
    const int code = ExitCode(pid);
    ASSERT_GE(code, 0);
    ASSERT_LT(code, 256) << "writer died";
    failed_begins += code >> 4;
    failures += code & 15;
  }
  for (pid_t pid : readers) EXPECT_EQ(ExitCode(pid), 0) << "failed reads";

  int lost = 0;
  OnThread([&] {
    auto store = Setvault::GetStore("");
    const int committed = kWriters * transactions - failed_begins - failures;
    lost = kBaseMtu + committed - Mtu(store, "shared");
    for (int w = 0; w < kWriters; ++w) {
      EXPECT_EQ(Mtu(store, "w" + std::to_string(w)), kBaseMtu + transactions) << "writer " << w;
    }
  });
  std::cout << "writers=" << kWriters << " readers=" << kReaders
            << " transactions=" << kWriters * transactions << " lost=" << lost
            << " failed_to_begin=" << failed_begins << " failed=" << failures << std::endl;
  EXPECT_EQ(lost, 0);
  EXPECT_EQ(failed_begins, 0);
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(IntegrityCheck(), "ok");
}

// A process writing back to back does not keep the write lock from another one.
TEST_F(ReliabilityTest, BackToBackWriterLetsTheOtherWriterIn) {
  OnThread([] { Setvault::GetStore("")->Set(VswitchObject("seed", kBaseMtu), kContext); });
  const pid_t hammer = Spawn([] {
    auto store = Setvault::GetStore("");
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(4);
    for (int i = 0; std::chrono::steady_clock::now() < end; ++i) {
      SetvaultTransaction transaction(store);
      for (int j = 0; j < 5; ++j) {
        store->Set(VswitchObject("hammer" + std::to_string(j), kBaseMtu + i % 100), kContext);
      }
      transaction.Commit();
    }
    return 0;
  });
  const pid_t other = Spawn([] {
    auto store = Setvault::GetStore("");
    int failures = 0;
    for (int i = 0; i < 40; ++i) {
      try {
        store->Set(VswitchObject("other", kBaseMtu + i), kContext);
      } catch (const SetvaultException&) {
        ++failures;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return failures;
  });
  EXPECT_EQ(ExitCode(other), 0) << "failed writes";
  EXPECT_EQ(ExitCode(hammer), 0);
  OnThread([] { EXPECT_EQ(Mtu(Setvault::GetStore(""), "other"), kBaseMtu + 39); });
}

// Where a transaction is open when the process forks.
enum class OpenAt {
  kNowhere,
  kForkingThread,          // the forking thread is inside it
  kOtherThreadBriefly,     // another thread commits it within the busy time-out
  kOtherThreadThroughout,  // another thread keeps it open until fork() has returned
};

TEST_F(ReliabilityTest, ForkedChildWritesOnItsOwnConnectionOrIsRefused) {
  struct Case {
    const char* name;
    OpenAt open_at;
    bool child_writes;  // otherwise every store use in the child throws the fork cause
  } cases[] = {
      {"nowhere", OpenAt::kNowhere, true},
      {"forking", OpenAt::kForkingThread, false},
      {"brief", OpenAt::kOtherThreadBriefly, true},
      {"throughout", OpenAt::kOtherThreadThroughout, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string name = c.name;
    auto store = Setvault::GetStore("");
    store->Set(VswitchObject("before-" + name, kBaseMtu), kContext);
    std::unique_ptr<SetvaultTransaction> own;
    std::atomic<bool> started{false}, forked{false};
    std::thread other;
    if (c.open_at == OpenAt::kForkingThread) {
      own = std::make_unique<SetvaultTransaction>(store);
      store->Set(VswitchObject("parent-" + name, kBaseMtu), kContext);
    } else if (c.open_at != OpenAt::kNowhere) {
      other = std::thread([&] {
        auto mine = Setvault::GetStore("");
        SetvaultTransaction transaction(mine);
        mine->Set(VswitchObject("parent-" + name, kBaseMtu), kContext);
        started = true;
        if (c.open_at == OpenAt::kOtherThreadBriefly) {
          std::this_thread::sleep_for(std::chrono::milliseconds(300));
        }
        while (c.open_at == OpenAt::kOtherThreadThroughout && !forked) std::this_thread::yield();
        transaction.Commit();
      });
      while (!started) std::this_thread::yield();
    }
    const pid_t child = Spawn([&] {
      // The handle made before fork(), a new one, and one of a new thread.
      std::string outcome;
      for (int attempt = 0; attempt < 3; ++attempt) {
        auto write = [&] {
          try {
            auto handle = attempt == 0 ? store : Setvault::GetStore("");
            handle->Set(VswitchObject("child-" + name + std::to_string(attempt), kBaseMtu),
                        kContext);
            outcome += "written;";
          } catch (const SetvaultException& e) {
            const bool cause = e.GetErrorCode() == 2000 &&
                               e.GetDetailedMessage().find("forked") != std::string::npos;
            outcome += cause ? "refused;" : e.GetDetailedMessage();
          }
        };
        if (attempt == 2) {
          OnThread(write);
        } else {
          write();
        }
      }
      std::string expected;
      for (int attempt = 0; attempt < 3; ++attempt) expected += c.child_writes ? "written;" : "refused;";
      return outcome == expected ? 0 : 1;
    });
    forked = true;
    if (own) own->Commit();
    if (other.joinable()) other.join();
    EXPECT_EQ(ExitCode(child), 0);
    OnThread([&] {
      auto reader = Setvault::GetStore("");
      EXPECT_EQ(Mtu(reader, "parent-" + name), c.open_at == OpenAt::kNowhere ? -1 : kBaseMtu);
      for (const char* attempt : {"0", "1", "2"}) {
        EXPECT_EQ(Mtu(reader, "child-" + name + attempt), c.child_writes ? kBaseMtu : -1);
      }
    });
    EXPECT_EQ(IntegrityCheck(), "ok");
  }
}

// A child that outlives every connection of its parent keeps writing to the live store, not
// to a log the parent deleted when it closed last.
TEST_F(ReliabilityTest, ChildOutlivingTheParentsConnectionsKeepsItsWrites) {
  int ready[2], go[2];
  ASSERT_EQ(pipe(ready), 0);
  ASSERT_EQ(pipe(go), 0);
  pid_t child = -1;
  OnThread([&] {
    auto store = Setvault::GetStore("");
    store->Set(VswitchObject("seed", kBaseMtu), kContext);
    child = Spawn([&] {
      char byte = 'r';
      store->Set(VswitchObject("early", kBaseMtu + 1), kContext);
      if (write(ready[1], &byte, 1) != 1 || read(go[0], &byte, 1) != 1) return 2;
      store->Set(VswitchObject("late", kBaseMtu + 2), kContext);
      return 0;
    });
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
  });  // the thread's connection, the parent's last, closes here
  ASSERT_EQ(write(go[1], "g", 1), 1);
  EXPECT_EQ(ExitCode(child), 0);
  for (int fd : {ready[0], ready[1], go[0], go[1]}) close(fd);
  OnThread([&] {
    auto store = Setvault::GetStore("");
    EXPECT_EQ(Mtu(store, "early"), kBaseMtu + 1);
    EXPECT_EQ(Mtu(store, "late"), kBaseMtu + 2);
  });
  EXPECT_EQ(IntegrityCheck(), "ok");
}

// Another process holds the write lock past the busy time-out: the failure says so.
TEST_F(ReliabilityTest, BusyStoreThrowsStoreBusyExceptionWithSqlitesCode) {
  OnThread([] { Setvault::GetStore("")->Set(VswitchObject("seed", kBaseMtu), kContext); });
  int locked[2], done[2];
  ASSERT_EQ(pipe(locked), 0);
  ASSERT_EQ(pipe(done), 0);
  const std::string path = dir_.File("store.db");
  const pid_t holder = Spawn([&] {
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK ||
        sqlite3_exec(db, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr) != SQLITE_OK) {
      return 1;
    }
    char byte = 'l';
    if (write(locked[1], &byte, 1) != 1 || read(done[0], &byte, 1) != 1) return 2;
    sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
    return 0;
  });
  char byte;
  ASSERT_EQ(read(locked[0], &byte, 1), 1);
  const struct {
    const char* message;
    std::function<void(std::shared_ptr<Setvault>&)> call;
  } cases[] = {
      {"Begin Transaction failed for: Set",
       [](std::shared_ptr<Setvault>& s) { s->Set(VswitchObject("x", kBaseMtu), kContext); }},
      {"Failed to start a transaction.",
       [](std::shared_ptr<Setvault>& s) { SetvaultTransaction transaction(s); }},
  };
  OnThread([&] {
    auto store = Setvault::GetStore("");
    for (const auto& c : cases) {
      try {
        c.call(store);
        ADD_FAILURE() << "no exception: " << c.message;
      } catch (const StoreBusyException& e) {
        EXPECT_EQ(e.GetErrorCode(), 2000);
        EXPECT_STREQ(e.what(), c.message);
        EXPECT_EQ(e.GetSqliteCode() & 0xff, SQLITE_BUSY);
      }
    }
  });
  ASSERT_EQ(write(done[1], "d", 1), 1);
  EXPECT_EQ(ExitCode(holder), 0);
  for (int fd : {locked[0], locked[1], done[0], done[1]}) close(fd);
}

}  // namespace
}  // namespace KorvoSetvault
