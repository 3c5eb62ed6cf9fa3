// A Unix-domain stream listener for tests: binds a path, and collects what clients send, one
// received buffer per accepted connection (read until the client closes).
#ifndef SETVAULT_TESTS_NOTIFY_SOCKET_LISTENER_H_
#define SETVAULT_TESTS_NOTIFY_SOCKET_LISTENER_H_

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace setvault_test {

class SocketListener {
 public:
  // Listens on `path` with the given backlog; the socket is non-blocking so that a test can ask
  // "was there a connection?" without waiting.
  explicit SocketListener(const std::string& path, int backlog = 16) : path_(path) {
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd_ < 0) throw std::runtime_error("socket failed");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) throw std::runtime_error("path too long");
    std::memcpy(address.sun_path, path.data(), path.size());
    unlink(path.c_str());
    if (bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(fd_, backlog) != 0) {
      close(fd_);
      throw std::runtime_error("bind or listen failed: " + std::string(std::strerror(errno)));
    }
  }
  ~SocketListener() {
    close(fd_);
    unlink(path_.c_str());
  }
  SocketListener(const SocketListener&) = delete;
  SocketListener& operator=(const SocketListener&) = delete;

  // Accepts every connection already queued and reads each to its end. The writer has closed its
  // side by the time its call returned, so reads end promptly; a read waits at most 2 s for data so
  // that a broken client fails the test instead of hanging it.
  std::vector<std::string> TakeAll() {
    std::vector<std::string> received;
    for (std::string one; TakeNext(0, &one);) received.push_back(one);
    return received;
  }

  // Waits up to `timeout_ms` for one connection and reads it to its end; false when none came.
  bool TakeNext(int timeout_ms, std::string* received) {
    pollfd ready{fd_, POLLIN, 0};
    if (poll(&ready, 1, timeout_ms) <= 0) return false;
    const int client = accept(fd_, nullptr, nullptr);
    if (client < 0) return false;
    *received = ReadToEnd(client);
    close(client);
    return true;
  }

 private:
  static std::string ReadToEnd(int client) {
    std::string data;
    char buffer[4096];
    while (true) {
      pollfd ready{client, POLLIN, 0};
      if (poll(&ready, 1, 2000) <= 0) break;
      const ssize_t count = read(client, buffer, sizeof buffer);
      if (count <= 0) break;
      data.append(buffer, static_cast<size_t>(count));
    }
    return data;
  }

  std::string path_;
  int fd_ = -1;
};

}  // namespace setvault_test

#endif  // SETVAULT_TESTS_NOTIFY_SOCKET_LISTENER_H_
