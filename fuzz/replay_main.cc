// Runs a fuzzer's entry point over every file of the directories (or files)
// given, for builds without libFuzzer. Exits 0 when every input was handled.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void Replay(const std::filesystem::path& path, int* count) {
  std::ifstream in(path, std::ios::binary);
  const std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(content.data()), content.size());
  ++*count;
}

}  // namespace

int main(int argc, char** argv) {
  int count = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path path(argv[i]);
    if (std::filesystem::is_directory(path)) {
      for (const auto& entry : std::filesystem::directory_iterator(path)) Replay(entry.path(), &count);
    } else {
      Replay(path, &count);
    }
  }
  std::printf("replayed %d inputs\n", count);
  return count > 0 ? 0 : 1;
}
