// Compiled schemas and the process-wide cache that shares them.
#ifndef SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_CACHE_H_
#define SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_CACHE_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "jsonschema/json_validator_keywords.h"
#include "jsonschema/json_validator_rules.h"
#include "jsonschema/json_validator_valijson.h"

namespace JsonValidator {
namespace internal {

// A schema compiled for one option set. Immutable once built, except for the
// pool of checkers, which has its own lock; shared by every thread.
class CompiledSchema {
 public:
  // Copies `schema`, builds its member rules and compiles the value checks.
  // Throws SetvaultException 2000 when the schema is malformed or too deep.
  CompiledSchema(const KorvoSetvault::JsonValue& schema, OptionMask mask);
  CompiledSchema(const CompiledSchema&) = delete;
  CompiledSchema& operator=(const CompiledSchema&) = delete;

  // True when `schema` has the same content as the schema compiled here.
  bool Matches(const KorvoSetvault::JsonValue& schema) const;

  OptionMask Mask() const { return mask_; }
  const RuleTree& Rules() const { return *rules_; }
  // The schema the value checks run on (see PrepareValueSchema).
  const KorvoSetvault::JsonValue& ValueSchema() const { return prepared_; }
  const valijson::Schema& CheckSchema() const { return checker_schemas_->Root(); }

  // A checker for the duration of one validation, taken from a pool so that
  // its allocations are reused between calls.
  std::unique_ptr<valijson::Validator> TakeChecker() const;
  void ReturnChecker(std::unique_ptr<valijson::Validator> checker) const;

 private:
  KorvoSetvault::JsonDocument original_;
  KorvoSetvault::JsonDocument prepared_;
  KorvoSetvault::JsonDocument lowered_;  // what the checker compiles
  std::unique_ptr<RuleTree> rules_;
  std::unique_ptr<CheckerSchemas> checker_schemas_;
  OptionMask mask_;
  mutable std::mutex pool_mutex_;
  mutable std::vector<std::unique_ptr<valijson::Validator>> pool_;
};

// Compiled schemas by (stamp, name or schema address, option set), least
// recently used first out beyond a fixed number of entries. Thread-safe.
class CompiledSchemaCache {
 public:
  static constexpr size_t kMaxEntries = 512;

  static CompiledSchemaCache& Instance();

  // The compiled form of `schema` under `mask`. A cached entry is used only
  // when its schema still has the same content; otherwise it is compiled
  // again and replaced. Throws as CompiledSchema does.
  std::shared_ptr<const CompiledSchema> Get(const KorvoSetvault::JsonValue& schema, OptionMask mask,
                                            const std::string& name);
  // The compiled form of `schema` under `mask`, cached under `stamp`: a number
  // that names one schema content for the life of the process (never 0). A
  // cached entry is used as it is, without comparing the schema.
  std::shared_ptr<const CompiledSchema> GetStamped(const KorvoSetvault::JsonValue& schema,
                                                   uint64_t stamp, OptionMask mask);

  size_t CompileCount() const { return compiles_.load(); }
  size_t Size() const;
  void Clear();

 private:
  struct Entry {
    std::shared_ptr<const CompiledSchema> compiled;
    std::list<std::string>::iterator age;
  };

  std::shared_ptr<const CompiledSchema> Find(const std::string& key);
  std::shared_ptr<const CompiledSchema> Compile(const KorvoSetvault::JsonValue& schema,
                                                OptionMask mask, const std::string& key);
  void Store(const std::string& key, std::shared_ptr<const CompiledSchema> compiled);

  mutable std::mutex mutex_;
  std::unordered_map<std::string, Entry> entries_;
  std::list<std::string> ages_;  // most recently used first
  std::atomic<size_t> compiles_{0};
};

}  // namespace internal
}  // namespace JsonValidator

#endif  // SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_CACHE_H_
