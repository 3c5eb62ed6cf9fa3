// A multi-instance type's own id member is accepted by the tag rules.
#include <gtest/gtest.h>

#include "document/setvault_document.h"
#include "jsonschema/json_validator.h"
#include "setvault/json_doc.h"

namespace {

using KorvoSetvault::CreateDocumentFromString;

std::string Findings(const std::string& schema, const std::string& data,
                     const std::unordered_set<int>& options) {
  auto schema_doc = CreateDocumentFromString(schema);
  auto data_doc = CreateDocumentFromString(data);
  KorvoSetvault::JsonDocument result;
  JsonValidator::Validate(*schema_doc->GetJsonValuePtr(), *data_doc->GetJsonValuePtr(), result,
                          options, "");
  return KorvoSetvault::SetvaultDocument::SerializeValue(result);
}

const char kTyped[] = R"({"type": "object", "instanceIdProperty": "name", "properties": {
    "name": {"type": "string"}, "serial": {"type": "string", "vital": true},
    "load": {"type": "integer", "cached": true}, "mtu": {"type": "integer"}}})";
const char kUntyped[] = R"({"type": "object", "properties": {
    "name": {"type": "string"}, "serial": {"type": "string", "vital": true}}})";

TEST(JsonValidatorRootId, OwnIdMemberPassesVitalAndCachedOnlyChecks) {
  EXPECT_EQ(Findings(kTyped, R"({"name": "a", "serial": "x"})", {0, 1, 5}), "[]");
  EXPECT_EQ(Findings(kTyped, R"({"name": "a", "load": 3})", {0, 1, 9}), "[]");
  // Other untagged members are still refused.
  EXPECT_NE(Findings(kTyped, R"({"name": "a", "mtu": 3})", {0, 1, 5}).find("/mtu"),
            std::string::npos);
  // Without the root naming it, the member is an ordinary untagged one.
  EXPECT_NE(Findings(kUntyped, R"({"name": "a", "serial": "x"})", {0, 1, 5}).find("/name"),
            std::string::npos);
}

}  // namespace
