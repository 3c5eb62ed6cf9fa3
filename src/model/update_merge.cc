#include "model/update_merge.h"

#include "document/setvault_document.h"
#include "model/setvault_object_impl.h"

namespace KorvoSetvault {
namespace {

class Merger {
 public:
  Merger(const SetvaultObjectImpl& ids, JsonAllocator& allocator)
      : ids_(ids), allocator_(allocator) {}

  void MergeObject(JsonValue& target, const JsonValue& source) const {
    for (const auto& member : source.GetObject()) {
      auto existing = target.FindMember(member.name);
      if (existing == target.MemberEnd()) {
        Append(target, member.name, member.value);
        continue;
      }
      JsonValue& current = existing->value;
      const JsonValue& given = member.value;
      if (current.IsObject() && given.IsObject()) {
        MergeObject(current, given);
        continue;
      }
      const JsonValue* id_member =
          ids_.InstanceIdMember(std::string(member.name.GetString(), member.name.GetStringLength()));
      if (id_member != nullptr && current.IsArray() && given.IsArray()) {
        MergeInstances(current, given, *id_member);
        continue;
      }
      if (SetvaultDocument::ValuesEqual(current, given)) continue;
      target.RemoveMember(existing);
      Append(target, member.name, given);
    }
  }

 private:
  void Append(JsonValue& target, const JsonValue& name, const JsonValue& value) const {
    target.AddMember(JsonValue(name, allocator_), JsonValue(value, allocator_), allocator_);
  }

  static JsonValue* FindInstance(JsonValue& array, const JsonValue& id_member, const JsonValue& id) {
    for (JsonValue& element : array.GetArray()) {
      if (!element.IsObject()) continue;
      auto element_id = element.FindMember(id_member);
      if (element_id != element.MemberEnd() && element_id->value == id) return &element;
    }
    return nullptr;
  }

  void MergeInstances(JsonValue& target, const JsonValue& source,
                      const JsonValue& id_member) const {
    for (const JsonValue& instance : source.GetArray()) {
      const JsonValue* id = nullptr;
      if (instance.IsObject()) {
        auto found = instance.FindMember(id_member);
        if (found != instance.MemberEnd()) id = &found->value;
      }
      JsonValue* known = id != nullptr ? FindInstance(target, id_member, *id) : nullptr;
      if (known != nullptr) {
        MergeObject(*known, instance);
      } else {
        target.PushBack(JsonValue(instance, allocator_), allocator_);
      }
    }
  }

  const SetvaultObjectImpl& ids_;
  JsonAllocator& allocator_;
};

}  // namespace

void UpdateConfigInternal(const std::shared_ptr<SetvaultObject>& source,
                          const std::shared_ptr<SetvaultObject>& target) {
  if (!source || !target) return;
  // Merging an object into itself changes nothing (and must not iterate
  // members while they are rewritten).
  if (&source->GetImpl()->Root() == &target->GetImpl()->Root()) return;
  const SetvaultObjectImpl& target_impl = *target->GetImpl();
  const SetvaultObjectImpl& ids = target_impl.GetIdMap() ? target_impl : *source->GetImpl();
  Merger(ids, target_impl.Allocator()).MergeObject(target_impl.Root(), source->GetImpl()->Root());
}

void MergeDataInto(const JsonValue& source, SetvaultObject& target) {
  const SetvaultObjectImpl& target_impl = *target.GetImpl();
  Merger(target_impl, target_impl.Allocator()).MergeObject(target_impl.Root(), source);
}

}  // namespace KorvoSetvault
