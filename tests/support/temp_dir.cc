#include "support/temp_dir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace setvault_test {

TempDir::TempDir(const std::string& base) {
  std::string pattern = (base.empty() ? std::filesystem::temp_directory_path().string() : base) +
                        "/setvault-test-XXXXXX";
  if (mkdtemp(&pattern[0]) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::WriteFile(const std::string& name, const std::string& content) const {
  const std::string path = File(name);
  std::ofstream out(path, std::ios::binary);
  out << content;
  if (!out) throw std::runtime_error("cannot write " + path);
  return path;
}

std::string SourceDir() {
  const char* dir = std::getenv("SETVAULT_SOURCE_DIR");
  return dir != nullptr ? dir : SETVAULT_SOURCE_DIR_DEFAULT;
}

}  // namespace setvault_test
