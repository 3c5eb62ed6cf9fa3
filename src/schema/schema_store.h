// The schema store: the definition of every configuration type, by component,
// group and key.
//
// Definitions live in the schema database (LoadSchemaDefinitions writes it;
// see schema/schema_definition.h for the format). A process reads them all
// once, into an immutable SchemaObjectCache, and re-reads them when the schema
// database changes: GetStore() checks that cheaply on every call. Schema
// objects and caches are shared, read-only and safe to use from any thread;
// one handed out stays valid after a reload.
//
//   auto store = KorvoSchemaStore::SchemaStore::GetStore(false);
//   auto schema = store->GetSchemaObject("korvo", "net", "vswitch");
//   if (schema && schema->IsNonSingleton()) { ... }
#ifndef SETVAULT_SRC_SCHEMA_SCHEMA_STORE_H_
#define SETVAULT_SRC_SCHEMA_SCHEMA_STORE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "setvault/json_doc.h"

namespace KorvoSchemaStore {

struct SchemaDefinition;

// The description of one configuration type. The queries are virtual so that
// tests of other parts can stand in a type of their own.
class SchemaObject {
 public:
  // Takes a checked definition (ParseSchemaDefinition).
  explicit SchemaObject(std::shared_ptr<const SchemaDefinition> definition);
  virtual ~SchemaObject();

  // The type's JSON schema (the definition's "schema"); owned by this object,
  // and the same content for its whole life (stand-ins too: Stamp() names it).
  virtual const KorvoSetvault::JsonValue& GetSchemaJson() const;
  // True when the type is tagged "@rebootRequiredSetvault".
  virtual bool IsRebootRequiredConfig() const;
  // True for a multi-instance type (the definition names "instanceIdProperty").
  virtual bool IsNonSingleton() const;
  // The member of the data holding the instance id; empty for a singleton.
  virtual std::string GetInstanceIdProperty() const;
  // The definition's "configKind" (0 when absent).
  virtual int GetConfigKind() const;
  // The definition's "nonUserInstanceIds" (kind 5 only; empty otherwise).
  virtual std::vector<std::string> GetNonUserInstanceIds() const;
  // The definition's "version".
  virtual std::string GetVersion() const;
  // The definition's "valueType"; empty when it names none.
  virtual std::string GetValueType() const;
  // The id map: a JSON object from the type's key (multi-instance types) and
  // every instance-array sub-object key to the member holding the instance id.
  // Shared with this object: read it, never change it.
  virtual std::shared_ptr<KorvoSetvault::JsonDoc> GetIdMap() const;
  // The default values (a JSON object), or an empty pointer when the type has
  // none. Shared with this object: read it, never change it.
  virtual std::shared_ptr<KorvoSetvault::JsonDoc> GetDefaults() const;
  // True when user data written during an upgrade counts as confirmed at once
  // ("confirmedDuringUpgrade"; default false).
  virtual bool IsConfirmedDuringUpgrade() const;
  // True when, during boot, Update with the external context merges into the
  // pending user value rather than the last confirmed one
  // ("currentValueDuringBoot"; default false; see schema_definition.h). The
  // store's reads do not depend on it.
  virtual bool UsesCurrentValueDuringBoot() const;

  const std::string& GetComponent() const;
  const std::string& GetGroup() const;
  const std::string& GetKey() const;
  // A number given to this object alone in the process (never 0, never reused):
  // the compiled validator of its schema is cached under it.
  uint64_t Stamp() const { return stamp_; }

 protected:
  // For stand-ins in tests that override every query they use.
  SchemaObject();

 private:
  std::shared_ptr<const SchemaDefinition> definition_;
  uint64_t stamp_;
};

// Every schema object of one reading of the schema database. Immutable.
class SchemaObjectCache {
 public:
  using Map = std::unordered_map<std::string, std::shared_ptr<SchemaObject>>;

  SchemaObjectCache() = default;
  explicit SchemaObjectCache(Map objects);

  // The type's schema object, or an empty pointer when there is none.
  std::shared_ptr<SchemaObject> GetSchemaObject(const std::string& component,
                                                const std::string& group,
                                                const std::string& key) const;
  size_t Size() const { return objects_.size(); }
  // Calls `visit` for each schema object, in no fixed order.
  void ForEach(const std::function<void(const std::shared_ptr<SchemaObject>&)>& visit) const;

  // The map key of a type.
  static std::string MakeKey(const std::string& component, const std::string& group,
                             const std::string& key);

 private:
  Map objects_;
};

// The schema store: lookups in the schema database's current contents.
class SchemaStore {
 public:
  explicit SchemaStore(std::shared_ptr<SchemaObjectCache> cache);

  // The type's schema object, or an empty pointer when the type has no
  // definition. Answers from the reading this store was made from. Declared
  // first: it is the store's first virtual operation.
  virtual std::shared_ptr<SchemaObject> GetSchemaObject(const std::string& component,
                                                        const std::string& group,
                                                        const std::string& key);
  virtual ~SchemaStore();
  // The cache behind this store.
  std::shared_ptr<SchemaObjectCache> GetSchemaCache() const { return cache_; }

  // The shared store of the process, re-read first when the schema database
  // (KorvoSetvault::GetSchemaStorePath()) has changed since the last reading,
  // or when `forceReload` is true. A missing or unreadable schema database
  // reads as empty (logged). Thread-safe.
  static std::shared_ptr<SchemaStore> GetStore(bool forceReload);
  // GetStore(false)'s cache.
  static std::shared_ptr<SchemaObjectCache> GetCache();
  // The detail of a failed lookup of type `what` in the last reading: that the
  // schema database is missing, could not be read (path and SQLite's reason),
  // or holds no definitions; otherwise that it holds no definition of `what`.
  static std::string DescribeMissing(const std::string& what);

 private:
  std::shared_ptr<SchemaObjectCache> cache_;
};

// Builds in `schemaDocument` one JSON schema for a whole import/export
// document `document` ({component: {group: {key: data or [instances]}}}):
// each key present in the document gets its type's schema, as an array of
// instances (with the type's "instanceIdProperty") for a multi-instance type.
// A key whose type has no definition gets the empty schema and a finding
// {"field": "/<component>/<group>/<key>", "error": text} appended to
// `resultDocument`, which becomes an array when it is not one. A document
// that is not an object yields {"type": "object"}.
void GenerateSchemaDocument(const KorvoSetvault::JsonValue& document,
                            const std::shared_ptr<SchemaObjectCache>& cache,
                            KorvoSetvault::JsonDocument& schemaDocument,
                            KorvoSetvault::JsonDocument& resultDocument);

}  // namespace KorvoSchemaStore

#endif  // SETVAULT_SRC_SCHEMA_SCHEMA_STORE_H_
