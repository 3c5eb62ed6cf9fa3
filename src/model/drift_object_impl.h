// DriftObjectImpl: the only implementation of DriftObject.
#ifndef SETVAULT_SRC_MODEL_DRIFT_OBJECT_IMPL_H_
#define SETVAULT_SRC_MODEL_DRIFT_OBJECT_IMPL_H_

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "setvault/drift_object.h"
#include "setvault/json_doc.h"

namespace KorvoSetvault {

// Operation texts of drift objects.
extern const char kDriftSet[];
extern const char kDriftAdd[];
extern const char kDriftDelete[];
// The member of an instance description that holds its instance id.
extern const char kDriftInstanceId[];

class DriftObjectImpl : public DriftObject {
 public:
  // Parses `json` into the object's own document; throws
  // InvalidArgumentException 1080 when it does not parse.
  DriftObjectImpl(const SetvaultObjectId& id, const std::string& operation,
                  const std::string& json);
  // Deep-copies `description` into the object's own document.
  DriftObjectImpl(const SetvaultObjectId& id, const std::string& operation,
                  const JsonValue& description);
  ~DriftObjectImpl() override;

  SetvaultObjectId GetSetvaultObjectId() const override { return id_; }
  std::string GetOperation() const override { return operation_; }
  std::vector<std::pair<std::string, std::string>> Get() const override;
  std::shared_ptr<DriftObject> GetSubObject(const SubObjectId& id) const override;
  std::vector<std::shared_ptr<DriftObject>> GetSubObjectInstances(
      const SubObjectId& id) const override;
  std::string GetData() const override;

 private:
  // The member `key` of the description, or null (logged) when absent.
  const JsonValue* FindPart(const std::string& key) const;
  // A drift object for one part, named by `key` and `instance_id`.
  std::shared_ptr<DriftObject> MakePart(const std::string& key, const std::string& instance_id,
                                        const std::string& operation,
                                        const JsonValue& description) const;

  SetvaultObjectId id_;
  std::string operation_;
  std::shared_ptr<JsonDoc> document_;
};

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_MODEL_DRIFT_OBJECT_IMPL_H_
