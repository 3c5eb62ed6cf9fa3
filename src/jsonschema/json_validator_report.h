// Findings of the validator: JSON Pointers, clear messages for the value
// checks' results, and the result document.
#ifndef SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_REPORT_H_
#define SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_REPORT_H_

#include <string>
#include <unordered_set>
#include <vector>

#include "setvault/json_doc.h"

namespace JsonValidator {
namespace internal {

// "/" for no tokens; otherwise "/" + each token with "~" as "~0" and "/" as
// "~1".
std::string PointerOf(const std::vector<std::string>& tokens);

// Short text of a value for messages: numbers, booleans and null as JSON,
// strings quoted (cut after 64 characters), "an object", "an array".
std::string DescribeValue(const KorvoSetvault::JsonValue& value);
// "string", "integer", "number", "boolean", "null", "object" or "array".
const char* TypeNameOf(const KorvoSetvault::JsonValue& value);

struct Finding {
  std::string field;
  std::string error;
};

// The findings of one validation, in the order found, without repeats.
class Findings {
 public:
  // Adds a finding of the member rules unless the same (field, error) is
  // already there.
  void Add(std::string field, std::string error);
  // Adds a value-check finding unless a member rule already reported `field`
  // (the member rule says more about it) or the same finding exists. Member
  // rules run first.
  void AddValueFinding(std::string field, std::string error);
  bool Empty() const { return findings_.empty(); }
  // Replaces `result` with the array of {"field", "error"} objects.
  void WriteTo(KorvoSetvault::JsonDocument& result) const;

 private:
  std::vector<Finding> findings_;
  std::unordered_set<std::string> seen_;
  std::unordered_set<std::string> member_fields_;
};

// Turns one error of the value checks into a finding. `context` is the
// error's path as the checker writes it ("<root>", "[name]", "[0]", ...),
// resolved against `instance`; `schema` is the schema the checks ran on,
// used to name expected types and patterns. Returns false for errors that
// only summarise errors already reported below them.
bool TranslateValueError(const std::vector<std::string>& context, const std::string& description,
                         const KorvoSetvault::JsonValue& instance,
                         const KorvoSetvault::JsonValue& schema, Finding* finding);

}  // namespace internal
}  // namespace JsonValidator

#endif  // SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_REPORT_H_
