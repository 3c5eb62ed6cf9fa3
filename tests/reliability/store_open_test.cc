// Opening a store from many processes at once (a new store too), and stores that cannot be trusted:
// each is refused with its cause, or read without being changed; nothing is created by a read.
#include <gtest/gtest.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <sstream>
#include <vector>

#include "dbstore/db_store.h"
#include "reliability/child_process.h"
#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "setvault/setvault_object.h"
#include "setvault/setvault_store.h"
#include "support/example_schemas.h"

namespace setvault_test {
namespace {

using KorvoSetvault::Setvault;
using KorvoSetvault::SetvaultObject;
using KorvoSetvault::SetvaultObjectId;

const SetvaultObjectId kHost("host", "system", "korvo");
const KorvoSetvault::USERDATA_CONTEXT kExternal{KorvoSetvault::kExternalContext};

std::shared_ptr<SetvaultObject> Host(const std::string& name) {
  auto object = std::make_shared<SetvaultObject>(kHost);
  object->SetData(("{\"hostname\":\"" + name + "\"}").c_str());
  return object;
}

// "ok <result>", or "<code> <cause>" (the cause the library adds to the exception).
std::string Outcome(const std::function<std::string()>& call) {
  try {
    return "ok " + call();
  } catch (const KorvoSetvault::SetvaultException& e) {
    const std::string detail = e.GetDetailedMessage();
    const size_t cause = detail.find("[cause]: ");
    return std::to_string(e.GetErrorCode()) + " " +
           (cause == std::string::npos ? detail : detail.substr(cause + 9));
  }
}

std::string ReadHost() {
  auto object = Setvault::GetStore("")->Get(kHost);
  return object ? object->GetData() : "null";
}

std::string WriteHost() {
  Setvault::GetStore("")->Set(Host("written"), kExternal);
  return "written";
}

std::string Contents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "<absent>";
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

// Runs `body` in 8 children released at the same moment; each must return 0.
void AllTogether(const std::function<int()>& body, int round) {
  int go[2];
  ASSERT_EQ(pipe(go), 0);
  std::vector<pid_t> children;
  for (int i = 0; i < 8; ++i) {
    children.push_back(Spawn([&] {
      close(go[1]);
      char byte;
      if (read(go[0], &byte, 1) != 0) return 2;  // released when every writer end closes
      return body();
    }));
  }
  close(go[0]);
  close(go[1]);
  for (pid_t pid : children) EXPECT_EQ(Wait(pid), 0) << "round " << round;
}

TEST(StoreOpenTest, ProcessesOpeningTogetherWhileAnotherWritesAllOpen) {
  ExampleSchemas schemas;
  // A store that does not exist yet, written first by 8 processes at once.
  for (int round = 0; round < 5; ++round) {
    KorvoSetvault::SetStorePath(schemas.dir().File("new" + std::to_string(round) + ".db"));
    AllTogether([] { return WriteHost() == "written" ? 0 : 1; }, round);
  }
  KorvoSetvault::SetStorePath(schemas.dir().File("shared.db"));
  ASSERT_EQ(RunInChild(WriteHost), "written");
  int stop[2];
  ASSERT_EQ(pipe(stop), 0);
  const pid_t writer = Spawn([&] {
    close(stop[1]);
    auto store = Setvault::GetStore("");
    // Writes back to back until the parent closes the pipe.
    for (int i = 0; poll(std::vector<pollfd>{{stop[0], POLLIN, 0}}.data(), 1, 0) == 0; ++i) {
      store->BeginTransaction();
      store->Set(Host("w" + std::to_string(i)), kExternal);
      store->CommitTransaction();
    }
    return 0;
  });
  close(stop[0]);
  for (int round = 0; round < 20; ++round) {
    AllTogether([] { return ReadHost().find("hostname") != std::string::npos ? 0 : 1; }, round);
  }
  close(stop[1]);
  EXPECT_EQ(Wait(writer), 0);
}

// How a case prepares its directory (0755, so that an unprivileged reader can enter it),
// and the cause that the read and the write through one handle then give ("" for a read
// that works, and for no write).
struct UntrustedCase {
  const char* name;
  std::function<void(const std::string& dir, const std::string& path)> prepare;
  std::function<void(const std::string& path)> while_open;  // after a first read, if any
  bool unprivileged;  // run as "nobody", for whom the file is read-only
  std::string read_cause;
  std::string write_cause;
};

// A store holding one host object, closed (its log folded into the file).
void MakeStore(const std::string&, const std::string& path) {
  ASSERT_EQ(RunInChild([&] {
              KorvoSetvault::SetStorePath(path);
              const std::string written = WriteHost();
              // Moving the thread's connection elsewhere closes the store's.
              KorvoSetvault::SetStorePath(path + ".elsewhere");
              DBStore::GetConnection(DBStore::kConfigStore, true);
              return written;
            }),
            "written");
}

// MakeStore, then a schema version from the future.
void NewerStore(const std::string& dir, const std::string& path) {
  MakeStore(dir, path);
  sqlite3* db = nullptr;
  sqlite3_open(path.c_str(), &db);
  sqlite3_exec(db, "PRAGMA user_version = 99", nullptr, nullptr, nullptr);
  sqlite3_close(db);
}

// MakeStore, then the modes of the store and of its directory.
auto StoreWithModes(mode_t file, mode_t dir) {
  return [=](const std::string& directory, const std::string& path) {
    MakeStore(directory, path);
    chmod(path.c_str(), file);
    chmod(directory.c_str(), dir);
  };
}

TEST(StoreOpenTest, UntrustedStoresAreRefusedOrReadWithoutChange) {
  ExampleSchemas schemas;
  const std::string schema_copy = schemas.dir().File("readable-schema.db");
  ASSERT_EQ(std::system(("cp " + schemas.dir().File("schema.db") + " " + schema_copy).c_str()), 0);
  ASSERT_EQ(chmod(schema_copy.c_str(), 0644), 0);
  ASSERT_EQ(chmod(schemas.dir().path().c_str(), 0755), 0);
  const auto foreign = [](auto&, auto& path) {
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_exec(db, "CREATE TABLE Config (Name TEXT); INSERT INTO Config VALUES ('x')", nullptr,
                 nullptr, nullptr);
    sqlite3_close(db);
  };
  const auto replace = [](auto& path) {
    std::system(("cp -p " + path + " " + path + ".copy && mv " + path + ".copy " + path).c_str());
  };
  const std::string gone = "was removed or replaced while in use";
  const std::string read_only = "is read-only for this process";
  const std::vector<UntrustedCase> cases = {
      {"empty file", [](auto&, auto& path) { std::ofstream{path}; }, nullptr, false,
       "is empty (0 bytes)", ""},
      {"foreign database", foreign, nullptr, false, "is a SQLite database but not a setvault", ""},
      {"not a database", [](auto&, auto& path) { std::ofstream{path} << std::string(4096, 'g'); },
       nullptr, false, "cannot be set up: file is not a database", ""},
      {"newer store schema version", NewerStore, nullptr, false, "has store schema version 99", ""},
      {"writable by every user", StoreWithModes(0666, 0755), nullptr, false,
       "is writable by every user", ""},
      {"directory every user can write", StoreWithModes(0600, 0777), nullptr, false, "lies in ",
       ""},
      {"unlinked while open", MakeStore, [](auto& path) { unlink(path.c_str()); }, false, gone,
       gone},
      {"replaced while open", MakeStore, replace, false, gone, gone},
      {"missing: a read creates nothing", nullptr, nullptr, false, "does not exist", ""},
      {"read-only file", StoreWithModes(0644, 01777), nullptr, true, "", read_only},
      {"read-only directory", StoreWithModes(0644, 0555), nullptr, true, "", read_only},
  };
  int index = 0;
  for (const UntrustedCase& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string dir = schemas.dir().File("case" + std::to_string(index++));
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    const std::string path = dir + "/store.db";
    if (c.prepare) c.prepare(dir, path);
    const std::string before = Contents(path);
    const std::string outcome = RunInChild([&] {
      KorvoSetvault::SetStorePath(path);
      if (c.unprivileged) {
        KorvoSetvault::SetSchemaStorePath(schema_copy);
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) return std::string();
      }
      // One handle throughout: the one open when the file goes away must refuse.
      std::shared_ptr<Setvault> store;
      const auto read = [&] {
        if (!store) store = Setvault::GetStore("");
        auto object = store->Get(kHost);
        return object ? object->GetData() : std::string("null");
      };
      std::string text;
      if (c.while_open) text += Outcome(read) + "\n";
      if (c.while_open) c.while_open(path);
      text += Outcome(read) + "\n";
      if (c.write_cause.empty()) return text;
      return text + Outcome([&] {
               store->Set(Host("other"), kExternal);
               return std::string("written");
             }) +
             "\n";
    });
    const std::string ok = "ok {\"hostname\":\"written\"}\n";
    const auto refused = [&](const std::string& cause) {
      return "2000 Store database " + path + " " + cause;
    };
    std::string expected = c.while_open ? ok : "";
    expected += c.read_cause.empty() ? ok : refused(c.read_cause);
    EXPECT_EQ(outcome.rfind(expected, 0), 0u) << outcome;
    if (!c.write_cause.empty()) {
      EXPECT_NE(outcome.find("\n" + refused(c.write_cause)), std::string::npos) << outcome;
    }
    // Nothing changed; the unlinked store stays gone (the refused write made no new one).
    const bool unlinked = std::string(c.name) == "unlinked while open";
    EXPECT_TRUE(Contents(path) == (unlinked ? "<absent>" : before)) << "the file was changed";
    chmod(dir.c_str(), 0700);
  }
}

}  // namespace
}  // namespace setvault_test
