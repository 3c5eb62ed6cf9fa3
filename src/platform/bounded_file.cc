#include "platform/bounded_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace KorvoSetvault {
namespace {

// Closes a descriptor when it goes out of scope.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

bool Fail(std::string* fault, const std::string& why) {
  *fault = why;
  return false;
}

std::string TooLarge(size_t limit) {
  return "larger than the limit of " + std::to_string(limit) + " bytes";
}

}  // namespace

bool ReadFileBounded(const std::string& path, size_t limit, std::string* content,
                     std::string* fault) {
  // Non-blocking open: a FIFO without a writer must not hang the caller.
  Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (file.get() < 0) return Fail(fault, std::string("cannot be opened: ") + std::strerror(errno));
  struct stat info;
  if (fstat(file.get(), &info) != 0) {
    return Fail(fault, std::string("cannot be read: ") + std::strerror(errno));
  }
  if (S_ISDIR(info.st_mode)) return Fail(fault, "is a directory");
  if (S_ISREG(info.st_mode) && static_cast<unsigned long long>(info.st_size) > limit) {
    return Fail(fault, TooLarge(limit));
  }
  // Blocking reads from here on: a pipe with a writer is read to its end.
  const int flags = fcntl(file.get(), F_GETFL);
  if (flags >= 0) fcntl(file.get(), F_SETFL, flags & ~O_NONBLOCK);
  content->clear();
  char buffer[64 * 1024];
  for (;;) {
    const ssize_t count = read(file.get(), buffer, sizeof buffer);
    if (count == 0) return true;
    if (count < 0) {
      if (errno == EINTR) continue;
      return Fail(fault, std::string("cannot be read: ") + std::strerror(errno));
    }
    if (content->size() + static_cast<size_t>(count) > limit) {
      content->clear();
      return Fail(fault, TooLarge(limit));
    }
    content->append(buffer, static_cast<size_t>(count));
  }
}

}  // namespace KorvoSetvault
