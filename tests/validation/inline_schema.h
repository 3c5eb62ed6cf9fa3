// Types over inline JSON schemas, for shapes the example definitions lack,
// and objects of them built without the store.
#ifndef SETVAULT_TESTS_VALIDATION_INLINE_SCHEMA_H_
#define SETVAULT_TESTS_VALIDATION_INLINE_SCHEMA_H_

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "document/setvault_document.h"
#include "model/setvault_object_impl.h"
#include "schema/schema_store.h"

namespace KorvoSetvault {

// A type whose instances are told apart by `instance_property` (a singleton
// when empty); it counts how often its schema is read.
class InlineSchema : public KorvoSchemaStore::SchemaObject {
 public:
  explicit InlineSchema(const std::string& schema, std::string instance_property = "", int kind = 0,
                        std::vector<std::string> non_user = {})
      : schema_(CreateDocumentFromString(schema)),
        instance_property_(std::move(instance_property)),
        kind_(kind),
        non_user_(std::move(non_user)) {}
  const JsonValue& GetSchemaJson() const override {
    ++reads;
    return *schema_->GetJsonValuePtr();
  }
  bool IsNonSingleton() const override { return !instance_property_.empty(); }
  std::string GetInstanceIdProperty() const override { return instance_property_; }
  int GetConfigKind() const override { return kind_; }
  std::vector<std::string> GetNonUserInstanceIds() const override { return non_user_; }

  mutable int reads = 0;

 private:
  std::shared_ptr<JsonDoc> schema_;
  std::string instance_property_;
  int kind_;
  std::vector<std::string> non_user_;
};

// An object of `schema` holding `data` (any JSON text).
inline std::shared_ptr<SetvaultObject> MakeObject(
    const std::string& data, const std::shared_ptr<KorvoSchemaStore::SchemaObject>& schema,
    const SetvaultObjectId& id = SetvaultObjectId("k", "g", "c")) {
  SetvaultObjectImpl::Parts parts;
  parts.id = id;
  parts.document = CreateDocumentFromString(data);
  parts.schema = schema;
  return std::make_shared<SetvaultObject>(std::make_shared<SetvaultObjectImpl>(parts));
}

}  // namespace KorvoSetvault

#endif  // SETVAULT_TESTS_VALIDATION_INLINE_SCHEMA_H_
