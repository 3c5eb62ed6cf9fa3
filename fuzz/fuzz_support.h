// What the fuzzers share: the input as text with logging off, and one private
// directory per process for the files they write, removed at exit.
#ifndef SETVAULT_FUZZ_FUZZ_SUPPORT_H_
#define SETVAULT_FUZZ_FUZZ_SUPPORT_H_

#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>

#include "setvault/setvault.h"

inline std::string FuzzInput(const uint8_t* data, size_t size) {
  KorvoSetvault::SVLogger::SetThreshold(-1);
  return std::string(reinterpret_cast<const char*>(data), size);
}

// Runs `call`: for fuzzed input a library exception is an accepted outcome.
template <typename Call>
void Tolerating(Call call) {
  try {
    call();
  } catch (const KorvoSetvault::SetvaultException&) {
  }
}

inline std::string FuzzDirectory() {
  static char name[] = "/tmp/setvault-fuzz-XXXXXX";
  static const bool made = mkdtemp(name) != nullptr && std::atexit([] {
                                                         std::error_code ignored;
                                                         std::filesystem::remove_all(name, ignored);
                                                       }) == 0;
  if (!made) __builtin_trap();
  return name;
}

#endif  // SETVAULT_FUZZ_FUZZ_SUPPORT_H_
