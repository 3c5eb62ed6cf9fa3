// Cost of the schema lookups every store operation makes, and of building a
// schema for an import document.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "schema/schema_store.h"
#include "setvault/host_setup.h"
#include "setvault/schema_setup.h"

namespace {

// Loads the example definitions (found beside this file's directory) into a
// schema database in a fresh temporary directory, once.
void LoadExamples() {
  static const bool loaded = [] {
    std::string dir = (std::filesystem::temp_directory_path() / "setvault-bench-XXXXXX").string();
    if (mkdtemp(&dir[0]) == nullptr) std::abort();
    KorvoSetvault::SetSchemaStorePath(dir + "/schema.db");
    KorvoSetvault::SetStorePath(dir + "/store.db");  // loading writes the shipped defaults
    const auto examples =
        std::filesystem::path(SETVAULT_SOURCE_DIR) / "examples" / "schemas";
    KorvoSetvault::LoadSchemaDefinitions(examples.string());
    return true;
  }();
  (void)loaded;
}

// GetStore checks the database for changes, then looks one type up.
void BM_GetStoreAndLookup(benchmark::State& state) {
  LoadExamples();
  for (auto _ : state) {
    auto schema =
        KorvoSchemaStore::SchemaStore::GetStore(false)->GetSchemaObject("korvo", "net", "vswitch");
    benchmark::DoNotOptimize(schema);
  }
}
BENCHMARK(BM_GetStoreAndLookup);

// A lookup in a cache already held.
void BM_CacheLookup(benchmark::State& state) {
  LoadExamples();
  auto cache = KorvoSchemaStore::SchemaStore::GetCache();
  for (auto _ : state) {
    auto schema = cache->GetSchemaObject("korvo", "hvcore", "options");
    benchmark::DoNotOptimize(schema);
  }
}
BENCHMARK(BM_CacheLookup);

// A schema for a document holding every example type.
void BM_GenerateSchemaDocument(benchmark::State& state) {
  LoadExamples();
  auto document = KorvoSetvault::CreateDocumentFromString(
      R"({"korvo": {"system": {"host": {}}, "net": {"vswitch": [], "dns": {}, "firewall": {}},
          "hvcore": {"options": {}, "cpuScheduler": {}}, "storage": {"datastore": []}},
          "nicmgr": {"hw": {"firmware": []}}})");
  auto cache = KorvoSchemaStore::SchemaStore::GetCache();
  for (auto _ : state) {
    auto schema = KorvoSetvault::CreateDocument();
    auto result = KorvoSetvault::CreateDocument();
    KorvoSchemaStore::GenerateSchemaDocument(document->GetDocument(), cache, schema->GetDocument(),
                                             result->GetDocument());
    benchmark::DoNotOptimize(schema->GetDocument());
  }
}
BENCHMARK(BM_GenerateSchemaDocument);

}  // namespace
