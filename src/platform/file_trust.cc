#include "platform/file_trust.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "setvault/logger.h"

namespace KorvoSetvault {
namespace internal {

int MakePrivateDirectories(const std::string& dir) {
  if (dir.empty() || dir == "." || dir == "/") return 0;
  struct stat info;
  if (stat(dir.c_str(), &info) == 0) return S_ISDIR(info.st_mode) ? 0 : ENOTDIR;
  const size_t slash = dir.find_last_of('/');
  if (slash != std::string::npos && slash > 0) {
    const int rc = MakePrivateDirectories(dir.substr(0, slash));
    if (rc != 0) return rc;
  }
  if (mkdir(dir.c_str(), 0700) != 0) return errno == EEXIST ? 0 : errno;
  // The umask may have taken bits the owner needs.
  return chmod(dir.c_str(), 0700) == 0 ? 0 : errno;
}

int CreatePrivateFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return errno;
  const int rc = fchmod(fd, 0600) == 0 ? 0 : errno;
  close(fd);
  return rc;
}

std::string ParentDirectory(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

namespace {

std::string Octal(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

}  // namespace

bool CheckOthersCannotWrite(const std::string& path, const struct stat& info, std::string* why) {
  if (info.st_mode & S_IWOTH) {
    *why = "is writable by every user (mode " + Octal(info.st_mode) +
           "): refused; remove that permission (chmod o-w) to use it";
    return false;
  }
  const std::string dir = ParentDirectory(path);
  struct stat parent;
  if (stat(dir.c_str(), &parent) == 0 && (parent.st_mode & S_IWOTH) &&
      !(parent.st_mode & S_ISVTX)) {
    *why = "lies in " + dir + ", which every user can write (mode " + Octal(parent.st_mode) +
           "), so anyone could replace it: refused";
    return false;
  }
  if (info.st_mode & S_IWGRP) {
    SVLogger::Log(1, "%s is writable by its group (mode %s)", path.c_str(),
                  Octal(info.st_mode).c_str());
  }
  return true;
}

}  // namespace internal
}  // namespace KorvoSetvault
