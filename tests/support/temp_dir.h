// TempDir: a fresh directory removed with everything in it at destruction.
#ifndef SETVAULT_TESTS_SUPPORT_TEMP_DIR_H_
#define SETVAULT_TESTS_SUPPORT_TEMP_DIR_H_

#include <string>

namespace setvault_test {

class TempDir {
 public:
  // Under `base`, or under the system's temporary directory when `base` is empty.
  explicit TempDir(const std::string& base = "");
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // path() + "/" + name.
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  // Writes `content` to File(name) and returns that path.
  std::string WriteFile(const std::string& name, const std::string& content) const;

 private:
  std::string path_;
};

// The project's source directory (tests find examples/ through it).
std::string SourceDir();

}  // namespace setvault_test

#endif  // SETVAULT_TESTS_SUPPORT_TEMP_DIR_H_
