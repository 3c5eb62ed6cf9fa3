#include "model/filter_spec_object_impl.h"

#include <cstring>

#include "document/value_limits.h"
#include "setvault/exceptions.h"
#include "setvault/logger.h"

namespace KorvoSetvault {

FilterSpecObjectImpl::FilterSpecObjectImpl(const SetvaultObjectId& id) : StoreObjectImpl(id) {}

FilterSpecObjectImpl::FilterSpecObjectImpl(const std::string& key, const std::string& group,
                                           const std::string& component,
                                           const std::shared_ptr<JsonDoc>& document)
    : StoreObjectImpl(SetvaultObjectId(key, group, component), document) {}

FilterSpecObjectImpl::~FilterSpecObjectImpl() = default;

std::shared_ptr<FilterSpecObjectImpl> FilterSpecObjectImpl::MakeSubFilter(
    const std::string& key) const {
  JsonNode step;
  step.name = key;
  const SetvaultObjectId& id = GetSetvaultObjectId();
  return std::make_shared<FilterSpecObjectImpl>(key, id.group, id.component,
                                                GetDocument()->MakeView(step));
}

std::shared_ptr<FilterSpecObjectImpl> FilterSpecObjectImpl::CreateSubObjectFilter(
    const SubObjectId& id) {
  SVLogger::Log(4, "%s : %s", "CreateSubObjectFilter", id.toString().c_str());
  if (CheckKey(id.key.c_str())) {
    throw SetvaultException(SV_ERR_GENERIC, "SubObject filter already exists.");
  }
  CheckStorableValue(JsonValue(rapidjson::kObjectType), NestingLevelOf(*GetDocument()),
                     id.key.c_str());
  JsonAllocator& allocator = Allocator();
  Root().AddMember(
      JsonValue(id.key.data(), static_cast<rapidjson::SizeType>(id.key.size()), allocator),
      JsonValue(rapidjson::kObjectType), allocator);
  return MakeSubFilter(id.key);
}

std::shared_ptr<FilterSpecObjectImpl> FilterSpecObjectImpl::GetSubObjectFilter(
    const SubObjectId& id) const {
  if (!CheckKey(id.key.c_str())) return nullptr;
  return MakeSubFilter(id.key);
}

void FilterSpecObjectImpl::DeleteSubObjectFilter(const SubObjectId& id) { Remove(id.key.c_str()); }

}  // namespace KorvoSetvault
