// FilterSpecObject: selects instances of a multi-instance type.
//
// A filter names a type (an id without instance id) and holds a partial JSON
// object; an instance matches when its data contains every value the filter
// states. Values are set with the StoreObject setters; a nested filter for a
// singleton sub-object is a handle whose values land inside this filter.
//
//   auto filter = std::make_shared<KorvoSetvault::FilterSpecObject>(
//       KorvoSetvault::SetvaultObjectId("vswitch", "net", "korvo"));
//   filter->SetValue("mtu", 9000);
//   filter->CreateSubObjectFilter(KorvoSetvault::SubObjectId("uplink"))->SetValue("lacp", true);
//   // filter data: {"mtu":9000,"uplink":{"lacp":true}}
//
// Filtering on members of non-singleton sub-objects (arrays) is not supported:
// such a filter member matches nothing.
#ifndef SETVAULT_FILTER_SPEC_OBJECT_H_
#define SETVAULT_FILTER_SPEC_OBJECT_H_

#include <memory>

#include "setvault/export.h"
#include "setvault/object_id.h"
#include "setvault/store_object.h"

namespace KorvoSetvault {

class FilterSpecObjectImpl;

class SETVAULT_EXPORT FilterSpecObject : public StoreObject {
 public:
  // An empty filter ({}) for the type `id`; it matches every instance.
  explicit FilterSpecObject(const SetvaultObjectId& id);
  // Wraps `impl` (must not be null); the handle shares it.
  explicit FilterSpecObject(const std::shared_ptr<FilterSpecObjectImpl>& impl);
  ~FilterSpecObject() override;

  // Adds an empty nested filter under `id.key` and returns a handle on it
  // that lives no longer than this filter's data. Throws SetvaultException
  // 2000 "SubObject filter already exists." when the member exists, and
  // InvalidArgumentException 2000 "Value nested deeper than 512 levels: <key>"
  // when the filter would nest deeper.
  std::shared_ptr<FilterSpecObject> CreateSubObjectFilter(const SubObjectId& id);
  // A handle on the existing nested filter `id.key`, or empty when none.
  std::shared_ptr<FilterSpecObject> GetSubObjectFilter(const SubObjectId& id) const;
  // Removes the nested filter `id.key` when present.
  void DeleteSubObjectFilter(const SubObjectId& id);

  const std::shared_ptr<FilterSpecObjectImpl>& GetImpl() const { return filter_impl_; }

 private:
  std::shared_ptr<FilterSpecObjectImpl> filter_impl_;
};

}  // namespace KorvoSetvault

#endif  // SETVAULT_FILTER_SPEC_OBJECT_H_
