// FilterSpecObject forwards to its FilterSpecObjectImpl.
#include "setvault/filter_spec_object.h"

#include "model/filter_spec_object_impl.h"

namespace KorvoSetvault {
namespace {

std::shared_ptr<FilterSpecObject> Wrap(std::shared_ptr<FilterSpecObjectImpl> impl) {
  if (!impl) return nullptr;
  return std::make_shared<FilterSpecObject>(impl);
}

}  // namespace

FilterSpecObject::FilterSpecObject(const SetvaultObjectId& id)
    : FilterSpecObject(std::make_shared<FilterSpecObjectImpl>(id)) {}

FilterSpecObject::FilterSpecObject(const std::shared_ptr<FilterSpecObjectImpl>& impl)
    : StoreObject(impl), filter_impl_(impl) {}

FilterSpecObject::~FilterSpecObject() = default;

std::shared_ptr<FilterSpecObject> FilterSpecObject::CreateSubObjectFilter(const SubObjectId& id) {
  return Wrap(filter_impl_->CreateSubObjectFilter(id));
}

std::shared_ptr<FilterSpecObject> FilterSpecObject::GetSubObjectFilter(
    const SubObjectId& id) const {
  return Wrap(filter_impl_->GetSubObjectFilter(id));
}

void FilterSpecObject::DeleteSubObjectFilter(const SubObjectId& id) {
  filter_impl_->DeleteSubObjectFilter(id);
}

}  // namespace KorvoSetvault
