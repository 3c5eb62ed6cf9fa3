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

int main(int argc, char** argv) {
  int count = 0;
  for (int i = 1; i < argc; ++i) {
    std::vector<std::filesystem::path> files = {argv[i]};
    if (std::filesystem::is_directory(files[0])) {
      files.assign(std::filesystem::directory_iterator(argv[i]), {});
    }
    for (const auto& path : files) {
      std::ifstream in(path, std::ios::binary);
      const std::string content{std::istreambuf_iterator<char>(in), {}};
      LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(content.data()), content.size());
      ++count;
    }
  }
  std::printf("replayed %d inputs\n", count);
  return count > 0 ? 0 : 1;
}
