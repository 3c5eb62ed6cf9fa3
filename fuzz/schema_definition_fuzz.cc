// Fuzzes the checks of type definitions through the entry point that
// `setvault schema check` uses (a directory of one definition file), then the
// validator on what they accept: a definition is refused with a library
// exception or accepted, and validating its own defaults against it never
// crashes.
#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <unordered_set>

#include "jsonschema/json_validator.h"
#include "schema/schema_definition.h"
#include "setvault/setvault.h"

namespace {

char directory_name[] = "/tmp/setvault-definition-fuzz-XXXXXX";
char file_name[sizeof directory_name + 16];

// A private directory holding the one definition file of each input,
// removed at exit.
const char* DefinitionDirectory() {
  static const bool made = [] {
    if (mkdtemp(directory_name) == nullptr) __builtin_trap();
    std::snprintf(file_name, sizeof file_name, "%s/fuzz.json", directory_name);
    std::atexit([] {
      std::remove(file_name);
      rmdir(directory_name);
    });
    return true;
  }();
  return made ? directory_name : nullptr;
}

void WriteDefinition(const std::string& path, const std::string& text) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) __builtin_trap();
  if (!text.empty() && std::fwrite(text.data(), 1, text.size(), file) != text.size()) {
    __builtin_trap();
  }
  std::fclose(file);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  KorvoSetvault::SVLogger::SetThreshold(-1);
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::string directory = DefinitionDirectory();
  const std::string path = file_name;
  WriteDefinition(path, text);
  try {
    if (KorvoSetvault::CheckSchemaDefinitions(directory) != 1) __builtin_trap();
  } catch (const KorvoSetvault::SetvaultException&) {
    return 0;  // refused
  }
  // What the check accepted parses again (an exception here ends the run).
  auto definition = KorvoSchemaStore::ParseSchemaDefinition(text, path);
  try {
    KorvoSetvault::JsonDocument result;
    const std::unordered_set<int> options = {0, 1, 3, 7, 8};
    const KorvoSetvault::JsonValue& instance =
        definition->defaults ? *definition->defaults->GetJsonValuePtr() : definition->Schema();
    JsonValidator::Validate(definition->Schema(), instance, result, options, "");
  } catch (const KorvoSetvault::SetvaultException&) {
  }
  return 0;
}
