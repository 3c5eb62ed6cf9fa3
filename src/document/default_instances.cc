// Lists of instances compared with their type's shipped default instances.
#include "setvault/default_instances.h"

#include <unordered_map>
#include <unordered_set>

#include "db/config_reads.h"
#include "document/setvault_document.h"
#include "model/setvault_object_impl.h"
#include "setvault/logger.h"
#include "store/setvault_impl.h"
#include "store/write_guards.h"
#include "validation/cleanup.h"
#include "validation/guards.h"

namespace KorvoSetvault {
namespace {

using ObjectVector = std::vector<std::shared_ptr<SetvaultObject>>;

// The checked list and the shipped default instances of its type.
ObjectVector CheckedDefaults(const char* operation, ObjectVector& objects) {
  SVLogger::Log(4, "%s invoked", operation);
  objects = WithoutEmptyPointers(std::move(objects));
  RequireOneType(objects);
  const SetvaultObjectId& first = objects.front()->GetSetvaultObjectId();
  const SetvaultObjectId type(first.key, first.group, first.component);
  auto schema = LookUpSchema(type);
  ValidateSvoIdInstances(type, schema);
  return GetDefaultConfigInstancesInternal(std::make_shared<FilterSpecObject>(type),
                                           GetDBStore(DBStore::kConfigStore, true), schema);
}

// A copy of the object's data without generated instance ids.
JsonDocument DataWithoutGeneratedIds(const SetvaultObject& object) {
  JsonDocument copy;
  copy.CopyFrom(object.GetImpl()->Root(), copy.GetAllocator());
  ClearGeneratedInstanceId(&copy);
  return copy;
}

}  // namespace

ObjectVector AddDefaultConfigInstances(ObjectVector objects) {
  const ObjectVector defaults = CheckedDefaults("AddDefaultConfigInstances", objects);
  std::unordered_set<std::string> listed;
  for (const auto& object : objects) listed.insert(object->GetSetvaultObjectId().instanceId);
  for (const auto& shipped : defaults) {
    if (listed.count(shipped->GetSetvaultObjectId().instanceId) == 0) objects.push_back(shipped);
  }
  return objects;
}

ObjectVector FilterDefaultConfigInstances(ObjectVector objects) {
  const ObjectVector defaults = CheckedDefaults("FilterDefaultConfigInstances", objects);
  std::unordered_map<std::string, const SetvaultObject*> shipped;
  for (const auto& object : defaults) {
    shipped.emplace(object->GetSetvaultObjectId().instanceId, object.get());
  }
  ObjectVector changed;
  for (const auto& object : objects) {
    auto found = shipped.find(object->GetSetvaultObjectId().instanceId);
    if (found == shipped.end() ||
        !SetvaultDocument::ValuesEqual(DataWithoutGeneratedIds(*object),
                                       DataWithoutGeneratedIds(*found->second))) {
      changed.push_back(object);
    }
  }
  return changed;
}

}  // namespace KorvoSetvault
