// Options, tag policies and the rule graph built from a schema.
#include "jsonschema/json_validator_rules.h"

#include <rapidjson/pointer.h>

#include <utility>

#include "setvault/exceptions.h"

namespace JsonValidator {
namespace internal {

using KorvoSetvault::JsonValue;

namespace {

// Deepest chain of nested rule nodes built (structure plus references).
constexpr int kMaxBuildDepth = 512;

const char* TagName(TagSet tags) {
  if (tags & kVitalTag) return "vital";
  if (tags & kCachedTag) return "cached";
  return "solutionUser";
}

const JsonValue* FindMember(const JsonValue& object, const char* name) {
  auto it = object.FindMember(name);
  return it == object.MemberEnd() ? nullptr : &it->value;
}

}  // namespace

OptionMask MaskOfOptions(const std::unordered_set<int>& options) {
  OptionMask mask = 0;
  for (int option : options) {
    if (option >= 0 && option < 32) mask |= 1u << option;
  }
  return mask;
}

TagPolicy PolicyOfMask(OptionMask mask) {
  TagPolicy policy;
  if (mask & kUserDataOnly) {
    policy.forbidden = kVitalTag | kCachedTag | kSolutionUserTag;
    policy.forbidden_in = "user data";
  } else if (mask & kApplyFile) {
    policy.forbidden = kVitalTag | kCachedTag;
    policy.forbidden_in = "an apply file";
  }
  if (mask & kVitalOnly) {
    policy.needed |= kVitalTag;
    policy.needed_kind = "vital data";
  }
  if (mask & kCachedOnly) {
    policy.needed |= kCachedTag;
    policy.needed_kind = (mask & kVitalOnly) ? "vital or cached data" : "cached data";
  }
  return policy;
}

std::string JudgeMember(const TagPolicy& policy, TagSet inherited, const RuleNode* member,
                        const std::string& name, TagSet* tags) {
  *tags = inherited | (member ? member->tags : 0);
  if (*tags & policy.forbidden) {
    return "member '" + name + "' is not allowed in " + policy.forbidden_in + " (it is " +
           TagName(*tags & policy.forbidden) + " data)";
  }
  if (policy.needed == 0 || (*tags & policy.needed)) return std::string();
  // An untagged member may still hold tagged members further down.
  if (member && (member->tags_below & policy.needed)) return std::string();
  return "member '" + name + "' is not " + policy.needed_kind;
}

void ThrowInvalidSchema(const std::string& detail) {
  throw KorvoSetvault::SetvaultException(KorvoSetvault::SV_ERR_GENERIC,
                                         ("Invalid JSON schema: " + detail).c_str());
}

int NestingDepth(const JsonValue& value, int limit) {
  // Explicit stack of (value, depth): instances may be arbitrarily deep.
  std::vector<std::pair<const JsonValue*, int>> pending{{&value, 0}};
  int deepest = 0;
  while (!pending.empty()) {
    auto [current, depth] = pending.back();
    pending.pop_back();
    if (depth > deepest) deepest = depth;
    if (deepest > limit) return deepest;
    if (current->IsObject()) {
      for (const auto& member : current->GetObject())
        pending.emplace_back(&member.value, depth + 1);
    } else if (current->IsArray()) {
      for (const auto& element : current->GetArray()) pending.emplace_back(&element, depth + 1);
    }
  }
  return deepest;
}

// Builds rule nodes depth first. A node is registered before its children are
// built, so a reference back to an enclosing schema reuses that node.
class RuleTree::Builder {
 public:
  Builder(RuleTree& tree, const JsonValue& root) : tree_(tree), root_(root) {}

  const RuleNode* Build(const JsonValue& schema, const std::string& where, int depth) {
    if (depth > kMaxBuildDepth) ThrowInvalidSchema("nesting deeper than supported at " + where);
    if (schema.IsBool()) return schema.GetBool() ? OpenNode() : ClosedNode();
    if (!schema.IsObject()) ThrowInvalidSchema("the schema at " + where + " is not an object");
    auto known = built_.find(&schema);
    if (known != built_.end()) {
      if (known->second == nullptr) ThrowInvalidSchema("circular \"$ref\" at " + where);
      return known->second;
    }
    if (const JsonValue* ref = FindMember(schema, "$ref")) {
      built_[&schema] = nullptr;  // marks a reference being resolved
      const RuleNode* target = Build(Resolve(*ref, where), where, depth + 1);
      built_[&schema] = target;
      return target;
    }
    RuleNode* node = NewNode();
    built_[&schema] = node;
    Fill(*node, schema, where, depth);
    return node;
  }

  // Propagates tags upwards until nothing changes (the graph may be cyclic).
  void ComputeTagsBelow() {
    for (bool changed = true; changed;) {
      changed = false;
      for (auto& node : tree_.nodes_) {
        TagSet below = node->tags_below;
        auto add = [&below](const RuleNode* child) {
          if (child) below |= child->tags | child->tags_below;
        };
        for (const auto& property : node->properties) add(property.second);
        add(node->additional);
        add(node->items);
        if (below != node->tags_below) {
          node->tags_below = below;
          changed = true;
        }
      }
    }
  }

 private:
  RuleNode* NewNode() {
    tree_.nodes_.push_back(std::make_unique<RuleNode>());
    return tree_.nodes_.back().get();
  }
  const RuleNode* OpenNode() { return NewNode(); }
  const RuleNode* ClosedNode() {
    RuleNode* node = NewNode();
    node->open = false;
    return node;
  }

  const JsonValue& Resolve(const JsonValue& ref, const std::string& where) {
    if (!ref.IsString()) ThrowInvalidSchema("\"$ref\" at " + where + " is not a string");
    std::string text(ref.GetString(), ref.GetStringLength());
    if (text.empty() || text[0] != '#') {
      ThrowInvalidSchema("only local references are supported: \"" + text + "\" at " + where);
    }
    rapidjson::GenericPointer<JsonValue> pointer(text.c_str(), text.size());
    const JsonValue* target = pointer.IsValid() ? pointer.Get(root_) : nullptr;
    if (target == nullptr) ThrowInvalidSchema("unresolved \"$ref\" \"" + text + "\" at " + where);
    return *target;
  }

  static TagSet ReadTags(const JsonValue& schema, const std::string& where) {
    static const std::pair<const char*, TagSet> kTags[] = {
        {"vital", kVitalTag}, {"cached", kCachedTag}, {"solutionUser", kSolutionUserTag}};
    TagSet tags = 0;
    for (const auto& [name, tag] : kTags) {
      const JsonValue* flag = FindMember(schema, name);
      if (flag == nullptr) continue;
      if (!flag->IsBool()) {
        ThrowInvalidSchema(std::string("\"") + name + "\" at " + where + " is not a boolean");
      }
      if (flag->GetBool()) tags |= tag;
    }
    return tags;
  }

  void Fill(RuleNode& node, const JsonValue& schema, const std::string& where, int depth) {
    node.tags = ReadTags(schema, where);
    if (const JsonValue* properties = FindMember(schema, "properties")) {
      if (!properties->IsObject())
        ThrowInvalidSchema("\"properties\" at " + where + " is not an object");
      node.open = false;
      for (const auto& member : properties->GetObject()) {
        std::string name(member.name.GetString(), member.name.GetStringLength());
        node.properties.emplace(name,
                                Build(member.value, where + "/properties/" + name, depth + 1));
      }
    }
    if (const JsonValue* additional = FindMember(schema, "additionalProperties")) {
      if (additional->IsBool()) {
        node.open = additional->GetBool();
      } else {
        node.additional = Build(*additional, where + "/additionalProperties", depth + 1);
        node.open = true;
      }
    }
    if (FindMember(schema, "patternProperties")) node.open = true;
    if (const JsonValue* items = FindMember(schema, "items")) {
      if (items->IsObject() || items->IsBool())
        node.items = Build(*items, where + "/items", depth + 1);
    }
    FillInstanceIds(node, schema, where);
    MergeCombinators(node, schema, where, depth);
    // Without member rules of its own, a node whose branches describe members
    // is closed like a node with "properties".
    bool own_member_rules = FindMember(schema, "properties") ||
                            FindMember(schema, "additionalProperties") ||
                            FindMember(schema, "patternProperties");
    if (!own_member_rules && !node.properties.empty()) node.open = node.additional != nullptr;
  }

  static void FillInstanceIds(RuleNode& node, const JsonValue& schema, const std::string& where) {
    if (const JsonValue* id = FindMember(schema, "instanceIdProperty")) {
      if (!id->IsString())
        ThrowInvalidSchema("\"instanceIdProperty\" at " + where + " is not a string");
      node.instance_id.assign(id->GetString(), id->GetStringLength());
    }
    if (const JsonValue* generated = FindMember(schema, "generatedInstanceId")) {
      if (!generated->IsBool()) {
        ThrowInvalidSchema("\"generatedInstanceId\" at " + where + " is not a boolean");
      }
      node.generated_ids = generated->GetBool();
    }
  }

  // Members described by the branches of "allOf", "anyOf" and "oneOf" count as
  // described by the node itself.
  void MergeCombinators(RuleNode& node, const JsonValue& schema, const std::string& where,
                        int depth) {
    for (const char* keyword : {"allOf", "anyOf", "oneOf"}) {
      const JsonValue* branches = FindMember(schema, keyword);
      if (branches == nullptr) continue;
      if (!branches->IsArray())
        ThrowInvalidSchema(std::string("\"") + keyword + "\" at " + where + " is not an array");
      for (rapidjson::SizeType i = 0; i < branches->Size(); ++i) {
        const RuleNode* branch =
            Build((*branches)[i], where + "/" + keyword + "/" + std::to_string(i), depth + 1);
        if (branch == &node) continue;
        node.tags |= branch->tags;
        node.properties.insert(branch->properties.begin(), branch->properties.end());
        if (!node.items) node.items = branch->items;
        if (!node.additional) node.additional = branch->additional;
        if (node.instance_id.empty()) node.instance_id = branch->instance_id;
        node.generated_ids = node.generated_ids || branch->generated_ids;
      }
    }
  }

  RuleTree& tree_;
  const JsonValue& root_;
  std::unordered_map<const JsonValue*, const RuleNode*>& built_ = tree_.by_schema_;
};

RuleTree::RuleTree(const JsonValue& schema) {
  if (!schema.IsObject()) ThrowInvalidSchema("the schema is not a JSON object");
  Builder builder(*this, schema);
  root_ = builder.Build(schema, "#", 0);
  builder.ComputeTagsBelow();
}

const RuleNode* RuleTree::NodeFor(const JsonValue& schema) const {
  auto it = by_schema_.find(&schema);
  return it == by_schema_.end() ? nullptr : it->second;
}

}  // namespace internal
}  // namespace JsonValidator
