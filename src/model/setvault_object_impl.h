// SetvaultObjectImpl: the state behind a SetvaultObject handle.
#ifndef SETVAULT_SRC_MODEL_SETVAULT_OBJECT_IMPL_H_
#define SETVAULT_SRC_MODEL_SETVAULT_OBJECT_IMPL_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/store_object_impl.h"
#include "schema/schema_store.h"
#include "setvault/filter_spec_object.h"

namespace KorvoSetvault {

class SetvaultObject;

// The stored row's metadata of an object.
struct ObjectMetadata {
  std::string version;
  std::string creationTime;
  std::string modifiedTime;
  int32_t revision = -1;  // kDefaultRevision
};

class SetvaultObjectImpl : public StoreObjectImpl {
 public:
  // Everything an object is built from; used by persistence and by
  // sub-object handles.
  struct Parts {
    SetvaultObjectId id{"", "", ""};
    // For a sub-object handle, the configuration object it belongs to;
    // defaults to `id`. A handle (one with a top-level id) carries no
    // defaults unless `defaults` gives some: the type's defaults describe
    // the top-level object only.
    std::optional<SetvaultObjectId> topLevelId;
    // An instance handle's index in its parent's array when it was made.
    std::optional<uint64_t> index;
    // The data (or a view into a parent's data); a new empty object when null.
    std::shared_ptr<JsonDoc> document;
    // The type's schema; fetched from the schema store when null and
    // `loadSchema` is set.
    std::shared_ptr<KorvoSchemaStore::SchemaObject> schema;
    ObjectMetadata metadata;
    bool loadSchema = false;
    // Taken from the schema when null.
    std::shared_ptr<JsonDoc> idMap;
    std::shared_ptr<JsonDoc> defaults;
  };

  // A new empty object of the type `id` names, with the schema's id map and
  // defaults and the instance id written in. Throws SetvaultException 1037
  // when the type has no schema.
  explicit SetvaultObjectImpl(const SetvaultObjectId& id);
  // An object from its parts. Throws SetvaultException 1037 when the schema
  // must be loaded and the type has none.
  explicit SetvaultObjectImpl(Parts parts);
  ~SetvaultObjectImpl() override;

  const JsonValue* GetValuePtrDefault(const char* key, bool& from_default) const override;
  // The data without generated instance ids.
  std::string GetData() const override;
  std::string GetSerializedData() const;
  std::string GetIdMapStr() const;

  const std::string& GetVersion() const { return metadata_.version; }
  const std::string& GetCreationTime() const { return metadata_.creationTime; }
  const std::string& GetModifiedTime() const { return metadata_.modifiedTime; }
  int32_t GetRevision() const { return metadata_.revision; }
  const ObjectMetadata& GetMetadata() const { return metadata_; }
  const SetvaultObjectId& GetTopLevelId() const { return top_level_id_; }
  const std::optional<uint64_t>& GetIndex() const { return index_; }
  const std::shared_ptr<KorvoSchemaStore::SchemaObject>& GetSchema() const { return schema_; }
  const std::shared_ptr<JsonDoc>& GetIdMap() const { return id_map_; }
  const std::shared_ptr<JsonDoc>& GetDefaults() const { return defaults_; }

  void SetValueEx(const char* key, const JsonValue& value);
  void SetInstanceIdFromSvoId();

  std::shared_ptr<SetvaultObjectImpl> GetSubObject(const SubObjectId& id) const;
  std::shared_ptr<SetvaultObjectImpl> CreateSubObject(const SubObjectId& id);
  void DeleteSubObject(const SubObjectId& id);
  std::vector<std::shared_ptr<SetvaultObjectImpl>> GetSubObjectInstances(
      const std::shared_ptr<FilterSpecObject>& filter) const;
  void DeleteSubObjectInstances(const std::shared_ptr<FilterSpecObject>& filter);
  std::string GetPath(const char* key) const;

  // The member of an instance of sub-object `key` that holds its id, or null
  // when the id map does not name `key` (a singleton).
  const JsonValue* InstanceIdMember(const std::string& key) const;

 private:
  // A handle on member `key` (and the instance `instance_id` of it, found
  // through `instance_key`, when `instance_key` is not null).
  std::shared_ptr<SetvaultObjectImpl> MakeSubObjectPtr(const std::string& key,
                                                       const JsonValue* instance_key,
                                                       const std::string& instance_id,
                                                       std::optional<uint64_t> index) const;
  // Takes the schema, id map and (when `take_defaults`) defaults per the
  // rules of Parts.
  void LoadSchemaParts(bool load_schema, bool take_defaults);

  std::shared_ptr<JsonDoc> id_map_;
  SetvaultObjectId top_level_id_;
  std::optional<uint64_t> index_;
  std::shared_ptr<KorvoSchemaStore::SchemaObject> schema_;
  ObjectMetadata metadata_;
  std::shared_ptr<JsonDoc> defaults_;
};

// The schema of the type `id` names, or empty when it has none.
std::shared_ptr<KorvoSchemaStore::SchemaObject> LookUpSchema(const SetvaultObjectId& id);

// The objects of `objects` whose data match `filter`, in input order.
std::vector<std::shared_ptr<SetvaultObjectImpl>> FilterSetvaultObjects(
    std::vector<std::shared_ptr<SetvaultObjectImpl>>& objects,
    const std::shared_ptr<FilterSpecObject>& filter);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_MODEL_SETVAULT_OBJECT_IMPL_H_
