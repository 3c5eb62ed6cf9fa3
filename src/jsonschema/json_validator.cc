// JsonValidator::Validate: compiled-schema lookup, the two passes, the result.
#include "jsonschema/json_validator.h"

#include "jsonschema/json_validator_cache.h"
#include "jsonschema/json_validator_report.h"
#include "jsonschema/json_validator_run.h"

namespace JsonValidator {

using internal::CompiledSchemaCache;

namespace {

void RunCompiled(const internal::CompiledSchema& compiled, const KorvoSetvault::JsonValue& instance,
                 KorvoSetvault::JsonDocument& result) {
  internal::Findings findings;
  // Both passes recurse along the instance; refuse what could exhaust the stack.
  if (internal::NestingDepth(instance, internal::kMaxInstanceDepth) > internal::kMaxInstanceDepth) {
    findings.Add("/", "value is nested deeper than " + std::to_string(internal::kMaxInstanceDepth) +
                          " levels");
  } else {
    internal::RunMemberRules(compiled, instance, findings);
    if (compiled.Mask() & internal::kValueChecks) {
      internal::RunValueChecks(compiled, instance, findings);
    }
  }
  findings.WriteTo(result);
}

}  // namespace

void Validate(const KorvoSetvault::JsonValue& schema, const KorvoSetvault::JsonValue& instance,
              KorvoSetvault::JsonDocument& result, const std::unordered_set<int>& options,
              const std::string& name) {
  internal::OptionMask mask = internal::MaskOfOptions(options);
  RunCompiled(*CompiledSchemaCache::Instance().Get(schema, mask, name), instance, result);
}

void ValidateStamped(const KorvoSetvault::JsonValue& schema, uint64_t stamp,
                     const KorvoSetvault::JsonValue& instance, KorvoSetvault::JsonDocument& result,
                     const std::unordered_set<int>& options) {
  internal::OptionMask mask = internal::MaskOfOptions(options);
  RunCompiled(*CompiledSchemaCache::Instance().GetStamped(schema, stamp, mask), instance, result);
}

size_t CompileCountForTesting() { return CompiledSchemaCache::Instance().CompileCount(); }

void ResetCacheForTesting() { CompiledSchemaCache::Instance().Clear(); }

}  // namespace JsonValidator
