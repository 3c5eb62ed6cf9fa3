// Helpers shared by the validator tests: run a validation from JSON texts
// and read the findings back.
#ifndef SETVAULT_TESTS_JSONSCHEMA_JSON_VALIDATOR_FIXTURE_H_
#define SETVAULT_TESTS_JSONSCHEMA_JSON_VALIDATOR_FIXTURE_H_

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "jsonschema/json_validator.h"
#include "setvault/json_doc.h"

namespace setvault_test {

// A finding: the member's pointer and the message.
using Found = std::pair<std::string, std::string>;

// Validates parsed values and reads the findings back, checking the result
// document's shape on the way.
inline std::vector<Found> CheckValues(const KorvoSetvault::JsonValue& schema,
                                      const KorvoSetvault::JsonValue& instance,
                                      const std::unordered_set<int>& options) {
  KorvoSetvault::JsonDocument result;
  JsonValidator::Validate(schema, instance, result, options, "");
  std::vector<Found> findings;
  EXPECT_TRUE(result.IsArray());
  for (const auto& entry : result.IsArray() ? result.GetArray() : result.SetArray().GetArray()) {
    EXPECT_TRUE(entry.IsObject() && entry.HasMember("field") && entry["field"].IsString() &&
                entry.HasMember("error") && entry["error"].IsString());
    findings.emplace_back(entry["field"].GetString(), entry["error"].GetString());
  }
  return findings;
}

// Validates parsed documents.
inline std::vector<Found> CheckDocs(const std::shared_ptr<KorvoSetvault::JsonDoc>& schema,
                                    const std::shared_ptr<KorvoSetvault::JsonDoc>& instance,
                                    const std::unordered_set<int>& options) {
  return CheckValues(*schema->GetJsonValuePtr(), *instance->GetJsonValuePtr(), options);
}

// Validates `instance` (JSON text) against `schema` (JSON text). The schema
// is parsed per call, so the cache sees a new address each time.
inline std::vector<Found> Check(const std::string& schema, const std::string& instance,
                                const std::unordered_set<int>& options) {
  return CheckDocs(KorvoSetvault::CreateDocumentFromString(schema),
                   KorvoSetvault::CreateDocumentFromString(instance), options);
}

}  // namespace setvault_test

#endif  // SETVAULT_TESTS_JSONSCHEMA_JSON_VALIDATOR_FIXTURE_H_
