// The keywords that the library checks itself inside the checker's schemas,
// and the checker schemas of one compiled schema.
//
// valijson walks the schema and runs the library's own constraints where the
// lowered schema (json_validator_lower.cc) names them:
//   svType        "type", with 1.0 counting as an integer
//   svPattern     "pattern", matched with RE2
//   svFormat      "format": date, time, date-time, ipv4, ipv6, hostname, regex
//   svMultipleOf  "multipleOf", exact for integers and tolerant of rounding
//   svFalse       the boolean schema false: nothing is valid
//   svMembers     "patternProperties" (with the "additionalProperties" of the
//                 same node) and "propertyNames"; its value is the JSON Pointer
//                 of its node, whose schemas sit under svPatternSchemas,
//                 svAdditional and svNamesSchema
#ifndef SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_KEYWORDS_H_
#define SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_KEYWORDS_H_

#include <map>
#include <memory>
#include <string>

#include "jsonschema/json_validator_valijson.h"

namespace JsonValidator {
namespace internal {

constexpr const char kTypeKeyword[] = "svType";
constexpr const char kPatternKeyword[] = "svPattern";
constexpr const char kFormatKeyword[] = "svFormat";
constexpr const char kMultipleOfKeyword[] = "svMultipleOf";
constexpr const char kFalseKeyword[] = "svFalse";
constexpr const char kMembersKeyword[] = "svMembers";
// Places of the schemas that svMembers applies (not keywords themselves).
constexpr const char kPatternSchemas[] = "svPatternSchemas";
constexpr const char kAdditionalSchema[] = "svAdditional";
constexpr const char kNamesSchema[] = "svNamesSchema";

// The checker schemas of one lowered schema document: the root, and the
// schemas of svMembers, each compiled on its own (a document that is the
// lowered one with a root "$ref" to the schema's place). Immutable after
// construction; `lowered` must outlive this object.
class CheckerSchemas {
 public:
  // Compiles the root and every schema it reaches. Throws SetvaultException
  // 2000 when a keyword is malformed (a pattern that does not compile, an
  // unknown format, ...).
  explicit CheckerSchemas(const KorvoSetvault::JsonValue& lowered);
  CheckerSchemas(const CheckerSchemas&) = delete;
  CheckerSchemas& operator=(const CheckerSchemas&) = delete;

  const valijson::Schema& Root() const { return *root_; }

  // The schema at `pointer` of the lowered document, compiled on first use.
  // Only called while the constructor runs.
  const valijson::Schema* At(const std::string& pointer);

 private:
  void Populate(const KorvoSetvault::JsonValue& document, valijson::Schema& schema);

  const KorvoSetvault::JsonValue& lowered_;
  std::unique_ptr<valijson::Schema> root_;
  std::map<std::string, std::unique_ptr<valijson::Schema>> at_;
  std::map<std::string, std::unique_ptr<KorvoSetvault::JsonDocument>> documents_;
};

}  // namespace internal
}  // namespace JsonValidator

#endif  // SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_KEYWORDS_H_
