// Opening a store from many processes at once (a new store too), and stores that cannot be trusted:
// each is refused with its cause, or read without being changed; nothing is created by a read.
#include <gtest/gtest.h>
#include <poll.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <sstream>
#include <vector>

#include "platform/db_store.h"
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

// "ok <result>" or "<code> <message> | <detailed message>", on one line.
std::string Outcome(const std::function<std::string()>& call) {
  try {
    return "ok " + call();
  } catch (const KorvoSetvault::SetvaultException& e) {
    std::string detail = e.GetDetailedMessage();
    std::replace(detail.begin(), detail.end(), '\n', ' ');  // one line per outcome
    return std::to_string(e.GetErrorCode()) + " " + e.what() + " | " + detail;
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

// How a case prepares its directory (0755, so that an unprivileged reader can enter it)
// and what reads and writes through the library then give.
struct UntrustedCase {
  const char* name;
  std::function<void(const std::string& dir, const std::string& path)> prepare;
  std::function<void(const std::string& path)> while_open;  // after a first read, if any
  bool gone_after;    // the file is absent afterwards (no write re-created it)
  bool unprivileged;  // run as "nobody", for whom the file is read-only
  std::string read;   // start of the read's outcome, then a text of its detail
  std::string read_detail;
  std::string write_detail;  // empty: no write is tried
};

const char kRefused[] = "2000 Failed to connect to database | ";

// A store holding one host object, closed (its log folded into the file).
void MakeStore(const std::string& path) {
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

TEST(StoreOpenTest, UntrustedStoresAreRefusedOrReadWithoutChange) {
  ExampleSchemas schemas;
  const std::string schema_copy = schemas.dir().File("readable-schema.db");
  ASSERT_EQ(std::system(("cp " + schemas.dir().File("schema.db") + " " + schema_copy).c_str()), 0);
  ASSERT_EQ(chmod(schema_copy.c_str(), 0644), 0);
  ASSERT_EQ(chmod(schemas.dir().path().c_str(), 0755), 0);
  const std::vector<UntrustedCase> cases = {
      {"empty file", [](auto&, auto& path) { std::ofstream{path}; }, nullptr, false, false,
       kRefused, "is empty (0 bytes)", "is empty (0 bytes)"},
      {"foreign database",
       [](auto&, auto& path) {
         sqlite3* db = nullptr;
         sqlite3_open(path.c_str(), &db);
         sqlite3_exec(db, "CREATE TABLE Config (Name TEXT); INSERT INTO Config VALUES ('x')",
                      nullptr, nullptr, nullptr);
         sqlite3_close(db);
       },
       nullptr, false, false, kRefused, "not a setvault store", "not a setvault store"},
      {"writable by every user",
       [](auto&, auto& path) {
         MakeStore(path);
         chmod(path.c_str(), 0666);
       },
       nullptr, false, false, kRefused, "writable by every user", "writable by every user"},
      {"in a directory every user can write",
       [](auto& dir, auto& path) {
         MakeStore(path);
         chmod(dir.c_str(), 0777);
       },
       nullptr, false, false, kRefused, "which every user can write", "which every user can write"},
      {"unlinked while open", [](auto&, auto& path) { MakeStore(path); },
       [](auto& path) { unlink(path.c_str()); }, true, false, kRefused, "removed or replaced",
       "removed or replaced"},
      {"replaced while open", [](auto&, auto& path) { MakeStore(path); },
       [](auto& path) {
         std::system(
             ("cp -p " + path + " " + path + ".copy && mv " + path + ".copy " + path).c_str());
       },
       false, false, kRefused, "removed or replaced", "removed or replaced"},
      {"missing: a read creates nothing", nullptr, nullptr, false, false, kRefused,
       "does not exist", ""},
      {"read-only file",
       [](auto& dir, auto& path) {
         MakeStore(path);
         chmod(path.c_str(), 0644);
         chmod(dir.c_str(), 01777);
       },
       nullptr, false, true, "ok {\"hostname\":\"written\"}", "", "read-only for this process"},
      {"read-only directory",
       [](auto& dir, auto& path) {
         MakeStore(path);
         chmod(path.c_str(), 0644);
         chmod(dir.c_str(), 0555);
       },
       nullptr, false, true, "ok {\"hostname\":\"written\"}", "", "read-only for this process"},
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
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
          return std::string("setuid");
      }
      // One handle throughout: the one open when the file goes away must refuse.
      std::shared_ptr<Setvault> store;
      auto read = [&] {
        if (!store) store = Setvault::GetStore("");
        auto object = store->Get(kHost);
        return object ? object->GetData() : std::string("null");
      };
      std::string text;
      if (c.while_open) {
        text += Outcome(read) + "\n";
        c.while_open(path);
      }
      text += Outcome(read) + "\n";
      if (!c.write_detail.empty()) {
        text += Outcome([&] {
                  if (!store) store = Setvault::GetStore("");
                  store->Set(Host("written"), kExternal);
                  return std::string("written");
                }) +
                "\n";
      }
      return text;
    });
    std::vector<std::string> lines;
    std::istringstream split(outcome);
    for (std::string line; std::getline(split, line);) lines.push_back(line);
    ASSERT_EQ(lines.size(), (c.while_open ? 2u : 1u) + (c.write_detail.empty() ? 0u : 1u))
        << outcome;
    if (c.while_open) EXPECT_EQ(lines[0].rfind("ok ", 0), 0u) << lines[0];
    const std::string& read = lines[c.while_open ? 1 : 0];
    EXPECT_EQ(read.rfind(c.read, 0), 0u) << read;
    EXPECT_NE(read.find(c.read_detail), std::string::npos) << read;
    if (!c.read_detail.empty()) EXPECT_NE(read.find(path), std::string::npos) << read;
    if (!c.write_detail.empty()) {
      EXPECT_EQ(lines.back().rfind("2000 ", 0), 0u) << lines.back();
      EXPECT_NE(lines.back().find(c.write_detail), std::string::npos) << lines.back();
    }
    EXPECT_TRUE(Contents(path) == (c.gone_after ? "<absent>" : before)) << "the file was changed";
    chmod(dir.c_str(), 0700);
  }
}

}  // namespace
}  // namespace setvault_test
