// Real processes for tests: a body run in a forked child, reporting its exit status or a text, and
// a pipe to signal between processes.
#ifndef SETVAULT_TESTS_SUPPORT_RELIABILITY_PROCESSES_H_
#define SETVAULT_TESTS_SUPPORT_RELIABILITY_PROCESSES_H_

#include <errno.h>
#include <sys/wait.h>
#include <unistd.h>

#include <exception>
#include <functional>
#include <string>

namespace setvault_test {

// Both ends of a pipe, each closed once: by Close or when the pipe goes.
class Pipe {
 public:
  Pipe() {
    if (pipe(fd_) != 0) fd_[0] = fd_[1] = -1;
  }
  ~Pipe() {
    Close(0);
    Close(1);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  void Close(int end) {
    if (fd_[end] >= 0) close(fd_[end]);
    fd_[end] = -1;
  }
  int in() const { return fd_[0]; }
  int out() const { return fd_[1]; }
  // Writes one byte; false when no reader is left.
  bool Signal() { return write(fd_[1], "s", 1) == 1; }
  // Reads one byte; false at the end (every writer's end closed).
  bool Await() {
    char byte;
    return read(fd_[0], &byte, 1) == 1;
  }

 private:
  int fd_[2];
};

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

// Waits for `pid`: its exit status, 128 + the signal that ended it, or -1 when
// it is not a child of this process.
inline int Wait(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return -1;  // not a child of this process
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// Runs `body` (returning a std::string) in a forked child, and `meanwhile` in this process; returns
// what the child returned ("exception: <what>" when it threw), followed by " child status <n>"
// unless it exited 0.
template <typename Body>
std::string RunInChild(Body body, const std::function<void()>& meanwhile = {}) {
  Pipe out;
  const pid_t pid = Spawn([&] {
    out.Close(0);
    std::string text;
    try {
      text = body();
    } catch (const std::exception& e) {
      text = std::string("exception: ") + e.what();
    }
    return write(out.out(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1;
  });
  out.Close(1);
  if (meanwhile) meanwhile();
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = read(out.in(), buffer, sizeof buffer)) > 0;) text.append(buffer, n);
  const int status = Wait(pid);
  return status == 0 ? text : text + " child status " + std::to_string(status);
}

}  // namespace setvault_test

#endif  // SETVAULT_TESTS_SUPPORT_RELIABILITY_PROCESSES_H_
