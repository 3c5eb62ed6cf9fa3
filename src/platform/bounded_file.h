// Reading whole files with an upper bound on their size, so that a huge or
// endless file (a device, a pipe) ends in an error instead of exhausting memory.
#ifndef SETVAULT_SRC_PLATFORM_BOUNDED_FILE_H_
#define SETVAULT_SRC_PLATFORM_BOUNDED_FILE_H_

#include <cstddef>
#include <string>

namespace KorvoSetvault {

// Largest JSON document file (documents, the notification allowlist) read.
constexpr size_t kMaxDocumentFileBytes = 16 * 1024 * 1024;
// Largest type definition file read.
constexpr size_t kMaxDefinitionFileBytes = 4 * 1024 * 1024;

// Reads the whole file at `path` into `content`. Returns false, with `fault`
// saying why ("cannot be opened: <system error>", "is a directory",
// "cannot be read: <system error>", "larger than the limit of <limit>
// bytes"), when it cannot be opened or read or holds more than `limit` bytes.
// A FIFO without a writer reads as empty rather than blocking the open.
bool ReadFileBounded(const std::string& path, size_t limit, std::string* content,
                     std::string* fault);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_PLATFORM_BOUNDED_FILE_H_
