#include "store/write_guards.h"

#include <algorithm>

#include "db/host_flags.h"
#include "setvault/exceptions.h"
#include "validation/guards.h"

namespace KorvoSetvault {
namespace {

bool TopLevelTag(const JsonValue& schema, const char* tag) {
  if (!schema.IsObject()) return false;
  auto member = schema.FindMember(tag);
  return member != schema.MemberEnd() && member->value.IsBool() && member->value.GetBool();
}

}  // namespace

bool isUserType(const std::shared_ptr<SetvaultObject>& object,
                const std::shared_ptr<KorvoSchemaStore::SchemaObject>& schema) {
  const JsonValue& schema_json = schema->GetSchemaJson();
  if (TopLevelTag(schema_json, "vital") || TopLevelTag(schema_json, "cached")) return false;
  const int kind = schema->GetConfigKind();
  if (kind == 1 || kind == 3 || kind == 4) return false;
  if (kind == 5) {
    const auto non_user = schema->GetNonUserInstanceIds();
    const std::string& instance = object->GetSetvaultObjectId().instanceId;
    return std::find(non_user.begin(), non_user.end(), instance) == non_user.end();
  }
  return true;
}

void BootGuard(const std::shared_ptr<SetvaultObject>& object,
               const std::shared_ptr<KorvoSchemaStore::SchemaObject>& schema,
               const USERDATA_CONTEXT& context, std::optional<bool>* booting) {
  // Only external writes of user configuration are refused during boot, so
  // the flag is read only for them.
  if (context.kind != kExternalContext || !isUserType(object, schema)) return;
  if (booting == nullptr) {
    checkUserContext(IsBoot(), context);
    return;
  }
  if (!*booting) *booting = IsBoot();
  checkUserContext(**booting, context);
}

std::vector<std::shared_ptr<SetvaultObject>> WithoutEmptyPointers(
    std::vector<std::shared_ptr<SetvaultObject>> objects) {
  objects.erase(std::remove(objects.begin(), objects.end(), nullptr), objects.end());
  if (objects.empty()) ThrowException<InvalidArgumentException>(SV_ERR_EMPTY_OBJECT_LIST);
  return objects;
}

void RequireOneType(const std::vector<std::shared_ptr<SetvaultObject>>& objects) {
  const SetvaultObjectId& first = objects.front()->GetSetvaultObjectId();
  for (const auto& object : objects) {
    const SetvaultObjectId& id = object->GetSetvaultObjectId();
    if (id.key != first.key || id.group != first.group || id.component != first.component) {
      ThrowException<InvalidArgumentException>(SV_ERR_MIXED_TYPES);
    }
  }
}

}  // namespace KorvoSetvault
