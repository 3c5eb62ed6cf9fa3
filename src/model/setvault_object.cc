// SetvaultObject forwards to its SetvaultObjectImpl.
#include "setvault/setvault_object.h"

#include "model/filter_match.h"
#include "model/setvault_object_impl.h"

namespace KorvoSetvault {
namespace {

std::shared_ptr<SetvaultObject> Wrap(std::shared_ptr<SetvaultObjectImpl> impl) {
  if (!impl) return nullptr;
  return std::make_shared<SetvaultObject>(impl);
}

}  // namespace

SetvaultObject::SetvaultObject(const SetvaultObjectId& id)
    : SetvaultObject(std::make_shared<SetvaultObjectImpl>(id)) {}

SetvaultObject::SetvaultObject(const std::shared_ptr<SetvaultObjectImpl>& impl)
    : StoreObject(impl), object_impl_(impl) {}

SetvaultObject::~SetvaultObject() = default;

std::string SetvaultObject::GetVersion() const { return object_impl_->GetVersion(); }
std::string SetvaultObject::GetCreationTime() const { return object_impl_->GetCreationTime(); }
std::string SetvaultObject::GetModifiedTime() const { return object_impl_->GetModifiedTime(); }
int32_t SetvaultObject::GetRevision() const { return object_impl_->GetRevision(); }
std::string SetvaultObject::GetData() const { return object_impl_->GetData(); }
std::string SetvaultObject::GetSerializedData() const { return object_impl_->GetSerializedData(); }
std::string SetvaultObject::GetIdMapStr() const { return object_impl_->GetIdMapStr(); }

void SetvaultObject::SetValueEx(const char* key, const JsonValue& value) {
  object_impl_->SetValueEx(key, value);
}
void SetvaultObject::SetInstanceIdFromSvoId() { object_impl_->SetInstanceIdFromSvoId(); }

std::shared_ptr<SetvaultObject> SetvaultObject::GetSubObject(const SubObjectId& id) const {
  return Wrap(object_impl_->GetSubObject(id));
}
std::shared_ptr<SetvaultObject> SetvaultObject::CreateSubObject(const SubObjectId& id) {
  return Wrap(object_impl_->CreateSubObject(id));
}
void SetvaultObject::DeleteSubObject(const SubObjectId& id) { object_impl_->DeleteSubObject(id); }

std::vector<std::shared_ptr<SetvaultObject>> SetvaultObject::GetSubObjectInstances(
    const std::shared_ptr<FilterSpecObject>& filter) const {
  std::vector<std::shared_ptr<SetvaultObject>> handles;
  for (auto& impl : object_impl_->GetSubObjectInstances(filter)) handles.push_back(Wrap(impl));
  return handles;
}
void SetvaultObject::DeleteSubObjectInstances(const std::shared_ptr<FilterSpecObject>& filter) {
  object_impl_->DeleteSubObjectInstances(filter);
}

std::string SetvaultObject::GetPath(const char* key) const { return object_impl_->GetPath(key); }

std::vector<std::shared_ptr<SetvaultObject>> FilterSetvaultObjects(
    std::vector<std::shared_ptr<SetvaultObject>>& objects,
    const std::shared_ptr<FilterSpecObject>& filter) {
  return KeepMatching(objects, filter, [](const SetvaultObject& object) -> const JsonValue& {
    return object.GetImpl()->Root();
  });
}

}  // namespace KorvoSetvault
