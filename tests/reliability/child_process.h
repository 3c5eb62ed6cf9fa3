// Child processes for tests with real processes: run a body in a forked child, collect its
// exit status or the text it reports through a pipe.
#ifndef SETVAULT_TESTS_RELIABILITY_CHILD_PROCESS_H_
#define SETVAULT_TESTS_RELIABILITY_CHILD_PROCESS_H_

#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <string>

namespace setvault_test {

// Runs `body` (returning an int) in a forked child whose exit status is that int; an
// exception ends it with status 99. Returns the child's pid.
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

// Runs `body` (returning a std::string) in a forked child and returns what it returned
// ("exception: <what>" when it threw), followed by " child status <n>" unless it exited 0.
template <typename Body>
std::string RunInChild(Body body) {
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
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = read(out[0], buffer, sizeof buffer)) > 0;) text.append(buffer, n);
  close(out[0]);
  const int status = Wait(pid);
  return status == 0 ? text : text + " child status " + std::to_string(status);
}

}  // namespace setvault_test

#endif  // SETVAULT_TESTS_RELIABILITY_CHILD_PROCESS_H_
