// Fuzzes the checks of type definitions through the entry point that
// `setvault schema check` uses (a directory of one definition file), then the
// validator on what they accept: a definition is refused with a library
// exception or accepted, and validating its own defaults against it never
// crashes.
#include <fstream>
#include <string>
#include <unordered_set>

#include "fuzz_support.h"
#include "jsonschema/json_validator.h"
#include "schema/schema_definition.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = FuzzInput(data, size);
  // A private directory holding the one definition file of each input.
  const std::string directory = FuzzDirectory();
  const std::string path = directory + "/fuzz.json";
  if (!(std::ofstream(path, std::ios::binary) << text)) __builtin_trap();
  try {
    if (KorvoSetvault::CheckSchemaDefinitions(directory) != 1) __builtin_trap();
  } catch (const KorvoSetvault::SetvaultException&) {
    return 0;  // refused
  }
  // What the check accepted parses again (an exception here ends the run).
  auto definition = KorvoSchemaStore::ParseSchemaDefinition(text, path);
  Tolerating([&] {
    KorvoSetvault::JsonDocument result;
    const std::unordered_set<int> options = {0, 1, 3, 7, 8};
    const KorvoSetvault::JsonValue& instance =
        definition->defaults ? *definition->defaults->GetJsonValuePtr() : definition->Schema();
    JsonValidator::Validate(definition->Schema(), instance, result, options, "");
  });
  return 0;
}
