#include "setvault/host_setup.h"

#include <atomic>
#include <mutex>

namespace KorvoSetvault {

const char kDefaultStorePath[] = "/etc/tarsel/setvault/current-store-1";
const char kDefaultSchemaStorePath[] = "/etc/tarsel/setvault/schema-store-1";

namespace {

struct Paths {
  std::mutex mutex;
  std::string store = kDefaultStorePath;
  std::string schema = kDefaultSchemaStorePath;
};

Paths& GetPaths() {
  static Paths* paths = new Paths();  // leaked: used until process exit
  return *paths;
}

std::atomic<uint64_t> g_generation{1};

}  // namespace

void SetStorePath(const std::string& path) {
  Paths& paths = GetPaths();
  std::lock_guard<std::mutex> lock(paths.mutex);
  paths.store = path;
  g_generation.fetch_add(1);
}

std::string GetStorePath() {
  Paths& paths = GetPaths();
  std::lock_guard<std::mutex> lock(paths.mutex);
  return paths.store;
}

void SetSchemaStorePath(const std::string& path) {
  Paths& paths = GetPaths();
  std::lock_guard<std::mutex> lock(paths.mutex);
  paths.schema = path;
  g_generation.fetch_add(1);
}

std::string GetSchemaStorePath() {
  Paths& paths = GetPaths();
  std::lock_guard<std::mutex> lock(paths.mutex);
  return paths.schema;
}

uint64_t GetStorePathGeneration() { return g_generation.load(); }

}  // namespace KorvoSetvault
