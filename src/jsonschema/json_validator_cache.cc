// Compilation of schemas and the cache of compiled schemas.
#include "jsonschema/json_validator_cache.h"

#include <cstdio>
#include <exception>
#include <utility>

#include "jsonschema/json_validator_lower.h"
#include "setvault/exceptions.h"

namespace JsonValidator {
namespace internal {

using KorvoSetvault::JsonValue;

CompiledSchema::CompiledSchema(const JsonValue& schema, OptionMask mask) : mask_(mask) {
  if (!schema.IsObject()) ThrowInvalidSchema("the schema is not a JSON object");
  if (NestingDepth(schema, kMaxSchemaDepth) > kMaxSchemaDepth) {
    ThrowInvalidSchema("nested deeper than " + std::to_string(kMaxSchemaDepth) + " levels");
  }
  CopyOwned(schema, original_);
  rules_ = std::make_unique<RuleTree>(original_);
  PrepareValueSchema(original_, *rules_, mask, prepared_);
  LowerForChecker(prepared_, lowered_);
  try {
    checker_schemas_ = std::make_unique<CheckerSchemas>(lowered_);
  } catch (const KorvoSetvault::SetvaultException&) {
    throw;
  } catch (const std::exception& e) {
    ThrowInvalidSchema(e.what());
  }
}

bool CompiledSchema::Matches(const JsonValue& schema) const { return original_ == schema; }

std::unique_ptr<valijson::Validator> CompiledSchema::TakeChecker() const {
  {
    std::lock_guard<std::mutex> lock(pool_mutex_);
    if (!pool_.empty()) {
      auto checker = std::move(pool_.back());
      pool_.pop_back();
      return checker;
    }
  }
  return std::make_unique<valijson::Validator>(valijson::Validator::kStrongTypes);
}

void CompiledSchema::ReturnChecker(std::unique_ptr<valijson::Validator> checker) const {
  std::lock_guard<std::mutex> lock(pool_mutex_);
  pool_.push_back(std::move(checker));
}

CompiledSchemaCache& CompiledSchemaCache::Instance() {
  static CompiledSchemaCache* cache = new CompiledSchemaCache();  // never destroyed
  return *cache;
}

std::shared_ptr<const CompiledSchema> CompiledSchemaCache::Get(const JsonValue& schema,
                                                               OptionMask mask,
                                                               const std::string& name) {
  char address[2 * sizeof(void*) + 4];
  std::snprintf(address, sizeof(address), "%p", static_cast<const void*>(&schema));
  std::string key =
      (name.empty() ? std::string("@") + address : "=" + name) + "#" + std::to_string(mask);
  auto cached = Find(key);
  // The schema at an address (or under a name) may have been reloaded.
  if (cached && cached->Matches(schema)) return cached;
  return Compile(schema, mask, key);
}

std::shared_ptr<const CompiledSchema> CompiledSchemaCache::GetStamped(const JsonValue& schema,
                                                                      uint64_t stamp,
                                                                      OptionMask mask) {
  // "%" keys never meet the "@" and "=" keys of Get.
  char key[48];
  const int length =
      std::snprintf(key, sizeof(key), "%%%llx#%lx", static_cast<unsigned long long>(stamp),
                    static_cast<unsigned long>(mask));
  std::string text(key, static_cast<size_t>(length));
  auto cached = Find(text);
  if (cached) return cached;
  return Compile(schema, mask, text);
}

std::shared_ptr<const CompiledSchema> CompiledSchemaCache::Compile(const JsonValue& schema,
                                                                   OptionMask mask,
                                                                   const std::string& key) {
  auto compiled = std::make_shared<const CompiledSchema>(schema, mask);
  compiles_.fetch_add(1);
  Store(key, compiled);
  return compiled;
}

std::shared_ptr<const CompiledSchema> CompiledSchemaCache::Find(const std::string& key) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = entries_.find(key);
  if (it == entries_.end()) return nullptr;
  ages_.splice(ages_.begin(), ages_, it->second.age);
  return it->second.compiled;
}

void CompiledSchemaCache::Store(const std::string& key,
                                std::shared_ptr<const CompiledSchema> compiled) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = entries_.find(key);
  if (it != entries_.end()) {
    it->second.compiled = std::move(compiled);
    ages_.splice(ages_.begin(), ages_, it->second.age);
    return;
  }
  ages_.push_front(key);
  entries_.emplace(key, Entry{std::move(compiled), ages_.begin()});
  while (entries_.size() > kMaxEntries) {
    entries_.erase(ages_.back());
    ages_.pop_back();
  }
}

size_t CompiledSchemaCache::Size() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return entries_.size();
}

void CompiledSchemaCache::Clear() {
  std::lock_guard<std::mutex> lock(mutex_);
  entries_.clear();
  ages_.clear();
  compiles_.store(0);
}

}  // namespace internal
}  // namespace JsonValidator
