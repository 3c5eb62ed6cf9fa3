// Files that hold configuration: created owner-only without following links, and checked
// before use for permissions that would let other users change them.
#ifndef SETVAULT_SRC_PLATFORM_FILE_TRUST_H_
#define SETVAULT_SRC_PLATFORM_FILE_TRUST_H_

#include <sys/stat.h>

#include <string>

namespace KorvoSetvault {
namespace internal {

// Creates `dir` and its missing parents with mode 0700 whatever the umask. Existing
// directories are left as they are. Returns 0 or an errno value.
int MakePrivateDirectories(const std::string& dir);

// Creates the new, empty file `path` with mode 0600 whatever the umask. Refuses an existing
// file or link (O_EXCL, O_NOFOLLOW): it never writes through a link planted at `path`.
// Returns 0 or an errno value.
int CreatePrivateFile(const std::string& path);

// The directory part of `path` ("." when it has none).
std::string ParentDirectory(const std::string& path);

// Checks the permissions of `path` (whose stat() is `info`): a file every user can write,
// or one in a directory every user can write without the sticky bit (so that anyone could
// replace it), is refused: returns false with `*why` set. A group-writable file is only
// logged (a group may be shared by the daemons of one host on purpose).
bool CheckOthersCannotWrite(const std::string& path, const struct stat& info, std::string* why);

}  // namespace internal
}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_PLATFORM_FILE_TRUST_H_
