#include <algorithm>
#include <atomic>

#include "schema/schema_definition.h"
#include "schema/schema_store.h"

namespace KorvoSchemaStore {
namespace {

// The definition behind a stand-in: no names, an empty schema, no id map.
std::shared_ptr<const SchemaDefinition> MakeBlankDefinition() {
  auto definition = std::make_shared<SchemaDefinition>();
  definition->document = KorvoSetvault::CreateDocument();
  auto& document = definition->document->GetDocument();
  document.SetObject();
  document.AddMember("schema", KorvoSetvault::JsonValue(rapidjson::kObjectType),
                     document.GetAllocator());
  definition->idMap = KorvoSetvault::CreateDocument();
  definition->idMap->GetDocument().SetObject();
  return definition;
}

uint64_t NextStamp() {
  static std::atomic<uint64_t> last{0};
  return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

}  // namespace

SchemaObject::SchemaObject(std::shared_ptr<const SchemaDefinition> definition)
    : definition_(std::move(definition)), stamp_(NextStamp()) {}

SchemaObject::SchemaObject() : definition_(MakeBlankDefinition()), stamp_(NextStamp()) {}

SchemaObject::~SchemaObject() = default;

const KorvoSetvault::JsonValue& SchemaObject::GetSchemaJson() const {
  return definition_->Schema();
}

bool SchemaObject::IsRebootRequiredConfig() const {
  const auto& tags = definition_->tags;
  return std::find(tags.begin(), tags.end(), kRebootRequiredTag) != tags.end();
}

bool SchemaObject::IsNonSingleton() const { return !definition_->instanceIdProperty.empty(); }

std::string SchemaObject::GetInstanceIdProperty() const { return definition_->instanceIdProperty; }

int SchemaObject::GetConfigKind() const { return definition_->configKind; }

std::vector<std::string> SchemaObject::GetNonUserInstanceIds() const {
  return definition_->nonUserInstanceIds;
}

std::string SchemaObject::GetVersion() const { return definition_->version; }

std::string SchemaObject::GetValueType() const { return definition_->valueType; }

std::shared_ptr<KorvoSetvault::JsonDoc> SchemaObject::GetIdMap() const {
  return definition_->idMap;
}

std::shared_ptr<KorvoSetvault::JsonDoc> SchemaObject::GetDefaults() const {
  return definition_->defaults;
}

bool SchemaObject::IsConfirmedDuringUpgrade() const { return definition_->confirmedDuringUpgrade; }

bool SchemaObject::UsesCurrentValueDuringBoot() const {
  return definition_->currentValueDuringBoot;
}

const std::string& SchemaObject::GetComponent() const { return definition_->component; }
const std::string& SchemaObject::GetGroup() const { return definition_->group; }
const std::string& SchemaObject::GetKey() const { return definition_->key; }

}  // namespace KorvoSchemaStore
