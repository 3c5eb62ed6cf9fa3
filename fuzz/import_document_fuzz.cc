// Fuzzes the import of configuration documents: any input must be imported or
// refused with findings, never crash, hang or throw. An imported document must
// survive a round trip: its export imports again and exports the same text.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "fuzz_support.h"

namespace {

// A singleton with vital and cached members and a generated-id array, and a
// multi-instance type with a sub-object instance array.
const char* const kDefinitions[] = {
    R"({"component":"c","group":"g","key":"one","version":"1","schema":{"type":"object",
        "properties":{"s":{"type":"string","maxLength":8},"v":{"type":"integer","vital":true},
        "k":{"type":"boolean","cached":true},"o":{"type":"object","properties":
        {"x":{"type":"integer"}}},"r":{"type":"array","generatedInstanceId":true,"items":
        {"type":"object","properties":{"sv_generated_id":{"type":"string"},
        "p":{"type":"integer","minimum":0}}}}}}})",
    R"({"component":"c","group":"g","key":"many","version":"1","instanceIdProperty":"id",
        "schema":{"type":"object","required":["id"],"properties":{"id":{"type":"string"},
        "n":{"type":"number"},"subs":{"type":"array","instanceIdProperty":"name","items":
        {"type":"object","properties":{"name":{"type":"string"},"on":{"type":"boolean",
        "cached":true}}}}}}})",
};

void SetUpOnce() {
  static const bool ready = [] {
    const std::string dir = FuzzDirectory();
    std::filesystem::create_directory(dir + "/defs");
    int n = 0;
    for (const char* definition : kDefinitions) {
      std::ofstream(dir + "/defs/" + std::to_string(n++) + ".json") << definition;
    }
    KorvoSetvault::SetSchemaStorePath(dir + "/schema.db");
    KorvoSetvault::SetStorePath(dir + "/store.db");
    KorvoSetvault::LoadSchemaDefinitions(dir + "/defs");
    return true;
  }();
  (void)ready;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = FuzzInput(data, size);
  SetUpOnce();
  std::vector<KorvoSetvault::ErrorInfo> errors;
  if (!KorvoSetvault::Import(text, errors)) {
    if (errors.empty()) std::abort();  // a refusal always says why
    return 0;
  }
  const std::string exported = KorvoSetvault::ExportStore();
  if (!KorvoSetvault::Import(exported, errors) || KorvoSetvault::ExportStore() != exported) {
    std::abort();
  }
  return 0;
}
