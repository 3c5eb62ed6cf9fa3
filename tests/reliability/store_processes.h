// Real processes on one store: a body run in a forked child, reporting its exit status or a text; a
// store file read apart from the library; the objects and errors tests compare.
#ifndef SETVAULT_TESTS_RELIABILITY_STORE_PROCESSES_H_
#define SETVAULT_TESTS_RELIABILITY_STORE_PROCESSES_H_

#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <functional>
#include <memory>
#include <string>

#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "setvault/setvault_object.h"
#include "setvault/setvault_store.h"

namespace setvault_test {

using KorvoSetvault::Setvault;
using KorvoSetvault::SetvaultObject;
using KorvoSetvault::SetvaultObjectId;

inline const SetvaultObjectId kHost("host", "system", "korvo");
inline const KorvoSetvault::USERDATA_CONTEXT kExternal{KorvoSetvault::kExternalContext};

inline std::shared_ptr<SetvaultObject> Object(const SetvaultObjectId& id, const std::string& json) {
  auto object = std::make_shared<SetvaultObject>(id);
  object->SetData(json.c_str());
  return object;
}

// Runs `body` (returning an int) in a forked child whose exit status is that int; an exception ends
// it with status 99. The child never returns into the test runner.
template <typename Body>
pid_t Spawn(Body body) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  int status = 99;
  try {
    status = body();
  } catch (...) {
  }
  _exit(status);
}

// Waits for `pid`: its exit status, or 128 + the signal that ended it.
inline int Wait(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// Runs `body` (returning a std::string) in a forked child, and `meanwhile` in this process; returns
// what the child returned ("exception: <what>" when it threw), followed by " child status <n>"
// unless it exited 0.
template <typename Body>
std::string RunInChild(Body body, const std::function<void()>& meanwhile = {}) {
  int out[2];
  if (pipe(out) != 0) return "pipe failed";
  const pid_t pid = Spawn([&] {
    close(out[0]);
    std::string text;
    try {
      text = body();
    } catch (const std::exception& e) {
      text = std::string("exception: ") + e.what();
    }
    return write(out[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1;
  });
  close(out[1]);
  if (meanwhile) meanwhile();
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = read(out[0], buffer, sizeof buffer)) > 0;) text.append(buffer, n);
  close(out[0]);
  const int status = Wait(pid);
  return status == 0 ? text : text + " child status " + std::to_string(status);
}

// The first text `sql` gives on the database at `path`, opened apart from the library (as the next
// process would: a hot journal left by a crash is rolled back), or the error.
inline std::string QueryFile(const std::string& path, const char* sql) {
  sqlite3* db = nullptr;
  sqlite3_stmt* stmt = nullptr;
  std::string result;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK &&
      sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr) == SQLITE_OK &&
      sqlite3_step(stmt) == SQLITE_ROW) {
    result = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
  } else {
    result = std::string("error: ") + sqlite3_errmsg(db);
  }
  sqlite3_finalize(stmt);
  sqlite3_close(db);
  return result;
}

// "ok <result>", or "<code> <cause>" of the library exception `call` throws (its detailed message
// when the library added no cause).
inline std::string Outcome(const std::function<std::string()>& call) {
  try {
    return "ok " + call();
  } catch (const KorvoSetvault::SetvaultException& e) {
    const std::string detail = e.GetDetailedMessage();
    const size_t cause = detail.find("[cause]: ");
    return std::to_string(e.GetErrorCode()) + " " +
           (cause == std::string::npos ? detail : detail.substr(cause + 9));
  }
}

}  // namespace setvault_test

#endif  // SETVAULT_TESTS_RELIABILITY_STORE_PROCESSES_H_
