// The two passes of a validation: member rules and value checks.
#include "jsonschema/json_validator_run.h"

#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "setvault/exceptions.h"

namespace JsonValidator {
namespace internal {

using KorvoSetvault::JsonValue;

namespace {

std::string Name(const JsonValue& name) {
  return std::string(name.GetString(), name.GetStringLength());
}

// Walks the instance along the rule graph, keeping the pointer tokens of the
// current value.
class MemberWalker {
 public:
  MemberWalker(const CompiledSchema& compiled, Findings& findings)
      : mask_(compiled.Mask()), policy_(PolicyOfMask(compiled.Mask())), findings_(findings) {}

  void Walk(const JsonValue& value, const RuleNode& node, TagSet tags,
            const std::string& id_member) {
    if (value.IsObject()) {
      WalkObject(value, node, tags, id_member);
    } else if (value.IsArray() && node.items != nullptr) {
      WalkArray(value, node, tags);
    }
  }

 private:
  void Report(const std::string& member, std::string error) {
    path_.push_back(member);
    findings_.Add(PointerOf(path_), std::move(error));
    path_.pop_back();
  }

  void WalkObject(const JsonValue& object, const RuleNode& node, TagSet tags,
                  const std::string& id_member) {
    for (const auto& member : object.GetObject()) {
      std::string name = Name(member.name);
      bool is_id = name == kGeneratedIdMember || (!id_member.empty() && name == id_member);
      auto described = node.properties.find(name);
      const RuleNode* child = described == node.properties.end() ? nullptr : described->second;
      if (child == nullptr && !is_id) {
        child = node.additional;
        if (child == nullptr && !node.open && (mask_ & kClosedObjects)) {
          Report(name, "member '" + name + "' is not described in the schema");
          continue;
        }
      }
      TagSet below = tags;
      if (!is_id) {
        std::string why = JudgeMember(policy_, tags, child, name, &below);
        if (!why.empty()) {
          Report(name, std::move(why));
          continue;
        }
      }
      if (child == nullptr) continue;
      path_.push_back(std::move(name));
      Walk(member.value, *child, below, std::string());
      path_.pop_back();
    }
  }

  void WalkArray(const JsonValue& array, const RuleNode& node, TagSet tags) {
    bool instances = !node.instance_id.empty() || node.generated_ids;
    if (instances && (mask_ & kInstanceIds)) CheckInstanceIds(array, node);
    const RuleNode& items = *node.items;
    std::string id_member = node.instance_id.empty() ? std::string() : node.instance_id;
    for (rapidjson::SizeType i = 0; i < array.Size(); ++i) {
      path_.push_back(std::to_string(i));
      Walk(array[i], items, tags | items.tags, id_member);
      path_.pop_back();
    }
  }

  // Every element names itself with a string id, unique within the array.
  // Elements of a generated-id array get their ids later, so only the ids
  // they already carry are checked.
  void CheckInstanceIds(const JsonValue& array, const RuleNode& node) {
    bool generated = node.instance_id.empty();
    const std::string id = generated ? std::string(kGeneratedIdMember) : node.instance_id;
    std::unordered_map<std::string, rapidjson::SizeType> seen;
    for (rapidjson::SizeType i = 0; i < array.Size(); ++i) {
      const JsonValue& element = array[i];
      path_.push_back(std::to_string(i));
      if (!element.IsObject()) {
        findings_.Add(PointerOf(path_), "instance of type " + std::string(TypeNameOf(element)) +
                                            " cannot carry its id member '" + id + "'");
      } else if (auto it = element.FindMember(id.c_str()); it == element.MemberEnd()) {
        if (!generated) Report(id, "missing instance id member '" + id + "'");
      } else if (!it->value.IsString()) {
        Report(id, "instance id member '" + id + "' must be a string, not " +
                       std::string(TypeNameOf(it->value)));
      } else if (auto first = seen.emplace(Name(it->value), i); !first.second) {
        Report(id, "duplicate instance id " + DescribeValue(it->value) + " (also at element " +
                       std::to_string(first.first->second) + ")");
      }
      path_.pop_back();
    }
  }

  OptionMask mask_;
  TagPolicy policy_;
  Findings& findings_;
  std::vector<std::string> path_;
};

}  // namespace

void RunMemberRules(const CompiledSchema& compiled, const JsonValue& instance, Findings& findings) {
  const RuleNode& root = compiled.Rules().Root();
  // A root that names an instance-id member (a multi-instance type's own id)
  // accepts it like the id member of an instance.
  MemberWalker(compiled, findings).Walk(instance, root, root.tags, root.instance_id);
}

void RunValueChecks(const CompiledSchema& compiled, const JsonValue& instance, Findings& findings) {
  valijson::ValidationResults results;
  auto checker = compiled.TakeChecker();
  bool valid = true;
  try {
    valid = checker->validate(compiled.CheckSchema(),
                              valijson::adapters::RapidJsonAdapter(instance), &results);
  } catch (const KorvoSetvault::SetvaultException&) {
    throw;
  } catch (const std::exception& e) {
    throw KorvoSetvault::SetvaultException(
        KorvoSetvault::SV_ERR_GENERIC,
        (std::string("JSON validation failed: ") + e.what()).c_str());
  }
  compiled.ReturnChecker(std::move(checker));
  // A constraint that fails without saying why still fails the instance.
  if (!valid && results.numErrors() == 0)
    findings.AddValueFinding("/", "value does not match the schema");
  for (const auto& error : results) {
    Finding finding;
    if (TranslateValueError(error.context, error.description, instance, compiled.ValueSchema(),
                            &finding)) {
      findings.AddValueFinding(std::move(finding.field), std::move(finding.error));
    }
  }
}

}  // namespace internal
}  // namespace JsonValidator
