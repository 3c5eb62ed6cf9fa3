// Fuzzes the checks of type definitions and the validator on what they
// accept: a definition is refused with a library exception or accepted, and
// validating its own defaults against it never crashes.
#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_set>

#include "platform/json_validator.h"
#include "platform/schema_definition.h"
#include "setvault/setvault.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  KorvoSetvault::SVLogger::SetThreshold(-1);
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    auto definition = KorvoSchemaStore::ParseSchemaDefinition(text, "fuzz.json");
    KorvoSetvault::JsonDocument result;
    const std::unordered_set<int> options = {0, 1, 3, 7, 8};
    const KorvoSetvault::JsonValue& instance =
        definition->defaults ? *definition->defaults->GetJsonValuePtr() : definition->Schema();
    JsonValidator::Validate(definition->Schema(), instance, result, options, "");
  } catch (const KorvoSetvault::SetvaultException&) {
  }
  return 0;
}
