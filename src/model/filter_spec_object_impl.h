// FilterSpecObjectImpl: the data behind a FilterSpecObject.
#ifndef SETVAULT_SRC_MODEL_FILTER_SPEC_OBJECT_IMPL_H_
#define SETVAULT_SRC_MODEL_FILTER_SPEC_OBJECT_IMPL_H_

#include <memory>
#include <string>

#include "model/store_object_impl.h"

namespace KorvoSetvault {

class FilterSpecObjectImpl : public StoreObjectImpl {
 public:
  // An empty filter for `id`.
  explicit FilterSpecObjectImpl(const SetvaultObjectId& id);
  // A filter named (key, group, component) over an existing document view;
  // used for nested filter handles.
  FilterSpecObjectImpl(const std::string& key, const std::string& group,
                       const std::string& component, const std::shared_ptr<JsonDoc>& document);
  ~FilterSpecObjectImpl() override;

  std::shared_ptr<FilterSpecObjectImpl> CreateSubObjectFilter(const SubObjectId& id);
  std::shared_ptr<FilterSpecObjectImpl> GetSubObjectFilter(const SubObjectId& id) const;
  void DeleteSubObjectFilter(const SubObjectId& id);

 private:
  // A handle on the member `key`, which must exist.
  std::shared_ptr<FilterSpecObjectImpl> MakeSubFilter(const std::string& key) const;
};

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_MODEL_FILTER_SPEC_OBJECT_IMPL_H_
