// Option handling and the member rules that the validator applies on top of
// plain JSON-schema value checks: undescribed members, tag policies (user,
// apply-file, vital and cached data) and instance ids.
#ifndef SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_RULES_H_
#define SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_RULES_H_

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "setvault/json_doc.h"

namespace JsonValidator {
namespace internal {

// One bit per option integer (0 to 31); larger or negative integers are
// ignored.
using OptionMask = uint32_t;
constexpr OptionMask kValueChecks = 1u << 0;
constexpr OptionMask kClosedObjects = 1u << 1;
constexpr OptionMask kUserDataOnly = 1u << 3;
constexpr OptionMask kApplyFile = 1u << 4;
constexpr OptionMask kVitalOnly = 1u << 5;
constexpr OptionMask kRequiredMembers = 1u << 7;
constexpr OptionMask kInstanceIds = 1u << 8;
constexpr OptionMask kCachedOnly = 1u << 9;

OptionMask MaskOfOptions(const std::unordered_set<int>& options);

// Member tags of a schema node.
using TagSet = uint8_t;
constexpr TagSet kVitalTag = 1;
constexpr TagSet kCachedTag = 2;
constexpr TagSet kSolutionUserTag = 4;

// The reserved member of elements whose ids the store generates.
constexpr const char kGeneratedIdMember[] = "sv_generated_id";

// Deepest schema nesting accepted (objects and arrays of the schema value),
// and deepest instance nesting that is validated.
constexpr int kMaxSchemaDepth = 256;
constexpr int kMaxInstanceDepth = 128;

// What the tag options of a mask allow.
struct TagPolicy {
  TagSet forbidden = 0;           // a member carrying one of these is an error
  const char* forbidden_in = "";  // "user data", "an apply file"
  TagSet needed = 0;              // when not 0, a member must carry one of these
  const char* needed_kind = "";   // "vital data", "cached data"
};
TagPolicy PolicyOfMask(OptionMask mask);

// Why the tag policy rejects a member, or empty when it accepts it.
// `inherited` holds the tags of the member's ancestors (schema root, enclosing
// members and items nodes); `member` is the member's node, null when the
// schema does not describe it. Sets `tags` to the tags that hold below the
// member.
struct RuleNode;
std::string JudgeMember(const TagPolicy& policy, TagSet inherited, const RuleNode* member,
                        const std::string& name, TagSet* tags);

// The rules of one schema node, as far as members and elements go.
struct RuleNode {
  TagSet tags = 0;        // tags carried by this node itself
  TagSet tags_below = 0;  // tags carried by some node below this one
  // Members not named in `properties` are accepted (no "properties", or
  // "additionalProperties" true or a schema, or "patternProperties").
  bool open = true;
  std::unordered_map<std::string, const RuleNode*> properties;
  const RuleNode* additional = nullptr;  // schema of undescribed members
  const RuleNode* items = nullptr;       // schema of array elements
  std::string instance_id;               // id member of each element, or empty
  bool generated_ids = false;            // elements carry generated ids
};

// The rule nodes of a whole schema. Local references ("#/definitions/x") are
// followed; a recursive schema gives a cyclic graph.
class RuleTree {
 public:
  // Throws SetvaultException 2000 when a keyword the rules read has the wrong
  // kind (a non-boolean tag, "properties" not an object, ...), a reference
  // cannot be resolved, or references loop without reaching a schema.
  explicit RuleTree(const KorvoSetvault::JsonValue& schema);
  RuleTree(const RuleTree&) = delete;
  RuleTree& operator=(const RuleTree&) = delete;

  const RuleNode& Root() const { return *root_; }

  // The node built for `schema`, a value inside the schema this tree was
  // built from; null for values that are not schemas the rules visited.
  const RuleNode* NodeFor(const KorvoSetvault::JsonValue& schema) const;

 private:
  class Builder;
  std::vector<std::unique_ptr<RuleNode>> nodes_;
  std::unordered_map<const KorvoSetvault::JsonValue*, const RuleNode*> by_schema_;
  const RuleNode* root_ = nullptr;
};

// Throws SetvaultException 2000 with "Invalid JSON schema: <detail>".
[[noreturn]] void ThrowInvalidSchema(const std::string& detail);

// The deepest nesting of arrays and objects in `value` (a scalar is 0),
// counted without recursion; stops counting once past `limit`.
int NestingDepth(const KorvoSetvault::JsonValue& value, int limit);

// Makes `target` a deep copy of `source` whose strings are all owned by
// `target` (a plain copy would keep referring to constant strings of the
// source). Recursive: `source` must be of bounded depth.
void CopyOwned(const KorvoSetvault::JsonValue& source, KorvoSetvault::JsonDocument& target);

// Writes into `prepared` (allocated from `allocator`) the schema that the
// value checks use under `mask`: a copy of `original` (the schema `rules` was
// built from) in which "required" is dropped everywhere without
// kRequiredMembers; members that the tag policy rejects lose their value
// checks and their place in "required" (the member rules report them once);
// and "sv_generated_id" is described as a string wherever "properties"
// appears. A shared definition ("$ref") is prepared where it is defined,
// without the tags of the places that refer to it.
void PrepareValueSchema(const KorvoSetvault::JsonValue& original, const RuleTree& rules,
                        OptionMask mask, KorvoSetvault::JsonDocument& prepared);

}  // namespace internal
}  // namespace JsonValidator

#endif  // SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_RULES_H_
