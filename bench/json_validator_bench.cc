// Validation cost: a cached compiled schema against compiling per call, a
// large instance array, and the pattern engine (RE2) beside std::regex on
// ordinary patterns and values.
#include <benchmark/benchmark.h>

#include <memory>
#include <regex>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "jsonschema/json_validator.h"
#include "jsonschema/pattern.h"
#include "setvault/json_doc.h"

namespace {

const std::unordered_set<int> kUserOptions = {0, 1, 3, 7, 8};

constexpr char kSchema[] = R"({
  "type": "object",
  "properties": {
    "name": {"type": "string", "maxLength": 32, "pattern": "^[a-z][a-z0-9-]*$"},
    "mtu": {"type": "integer", "minimum": 68, "maximum": 9216},
    "mode": {"enum": ["fast", "slow", "auto"]},
    "enabled": {"type": "boolean"},
    "description": {"type": "string", "maxLength": 128},
    "secret": {"type": "string", "vital": true},
    "stats": {"type": "object", "cached": true, "properties": {"rx": {"type": "integer"}}},
    "hw": {"type": "object", "properties": {"label": {"type": "string"},
                                            "slot": {"type": "integer", "minimum": 0}}},
    "uplinks": {"type": "array", "instanceIdProperty": "port",
                "items": {"type": "object",
                          "properties": {"port": {"type": "string"},
                                         "speed": {"type": "integer", "minimum": 0},
                                         "lacp": {"type": "boolean"}},
                          "required": ["port"]}}
  },
  "required": ["name"]
})";

// About 500 bytes of valid user data.
constexpr char kInstance[] = R"({
  "name": "vswitch-main", "mtu": 9000, "mode": "auto", "enabled": true,
  "description": "Main virtual switch carrying management and storage traffic for this host",
  "hw": {"label": "pci-0000:3b:00.0", "slot": 3},
  "uplinks": [
    {"port": "nic0", "speed": 25000, "lacp": true},
    {"port": "nic1", "speed": 25000, "lacp": true},
    {"port": "nic2", "speed": 10000, "lacp": false},
    {"port": "nic3", "speed": 10000, "lacp": false},
    {"port": "nic4", "speed": 1000, "lacp": false}
  ]
})";

void BM_ValidateCachedSchema(benchmark::State& state) {
  auto schema = KorvoSetvault::CreateDocumentFromString(kSchema);
  auto instance = KorvoSetvault::CreateDocumentFromString(kInstance);
  for (auto _ : state) {
    KorvoSetvault::JsonDocument result;
    JsonValidator::Validate(*schema->GetJsonValuePtr(), *instance->GetJsonValuePtr(), result,
                            kUserOptions, "");
    benchmark::DoNotOptimize(result.Size());
  }
  state.SetBytesProcessed(state.iterations() * (sizeof(kInstance) - 1));
}
BENCHMARK(BM_ValidateCachedSchema);

void BM_ValidateCompilingEachTime(benchmark::State& state) {
  auto schema = KorvoSetvault::CreateDocumentFromString(kSchema);
  auto instance = KorvoSetvault::CreateDocumentFromString(kInstance);
  for (auto _ : state) {
    JsonValidator::ResetCacheForTesting();
    KorvoSetvault::JsonDocument result;
    JsonValidator::Validate(*schema->GetJsonValuePtr(), *instance->GetJsonValuePtr(), result,
                            kUserOptions, "");
    benchmark::DoNotOptimize(result.Size());
  }
  state.SetBytesProcessed(state.iterations() * (sizeof(kInstance) - 1));
}
BENCHMARK(BM_ValidateCompilingEachTime);

void BM_ValidateInstanceArray(benchmark::State& state) {
  auto schema = KorvoSetvault::CreateDocumentFromString(kSchema);
  std::string text = R"({"name": "big", "uplinks": [)";
  for (int64_t i = 0; i < state.range(0); ++i) {
    text += (i ? "," : "") + std::string(R"({"port": "nic)") + std::to_string(i) +
            R"(", "speed": 10000, "lacp": false})";
  }
  text += "]}";
  auto instance = KorvoSetvault::CreateDocumentFromString(text);
  for (auto _ : state) {
    KorvoSetvault::JsonDocument result;
    JsonValidator::Validate(*schema->GetJsonValuePtr(), *instance->GetJsonValuePtr(), result,
                            kUserOptions, "");
    if (result.Size() != 0) state.SkipWithError("unexpected findings");
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_ValidateInstanceArray)->Arg(10000)->Unit(benchmark::kMillisecond);

// Ordinary patterns of configuration types, each with a matching and a
// non-matching value.
const std::vector<std::pair<std::string, std::vector<std::string>>>& OrdinaryPatterns() {
  static const auto* patterns = new std::vector<std::pair<std::string, std::vector<std::string>>>{
      {"^[a-z][a-z0-9_-]{0,31}$", {"vswitch-main", "Vswitch main"}},
      {"^([0-9a-fA-F]{2}:){5}[0-9a-fA-F]{2}$", {"00:1a:2b:3c:4d:5e", "00:1a:2b:3c:4d"}},
      {"^[0-9]{1,3}(\\.[0-9]{1,3}){3}$", {"192.168.100.254", "192.168.100"}},
      {"^[0-9a-f]{4}:[0-9a-f]{2}:[0-9a-f]{2}\\.[0-7]$", {"0000:3b:00.1", "0000:3b:00"}},
      {"(debug|info|warning|error)", {"log level warning", "verbose"}},
  };
  return *patterns;
}

void BM_PatternRe2(benchmark::State& state) {
  std::vector<std::unique_ptr<KorvoSetvault::Pattern>> compiled;
  for (const auto& entry : OrdinaryPatterns()) {
    compiled.push_back(std::make_unique<KorvoSetvault::Pattern>(entry.first));
  }
  for (auto _ : state) {
    for (size_t i = 0; i < compiled.size(); ++i) {
      for (const std::string& value : OrdinaryPatterns()[i].second) {
        benchmark::DoNotOptimize(compiled[i]->Search(value));
      }
    }
  }
}
BENCHMARK(BM_PatternRe2);

// The engine patterns ran on before: std::regex, compiled once, searched.
void BM_PatternStdRegexFloor(benchmark::State& state) {
  std::vector<std::regex> compiled;
  for (const auto& entry : OrdinaryPatterns()) compiled.emplace_back(entry.first);
  for (auto _ : state) {
    for (size_t i = 0; i < compiled.size(); ++i) {
      for (const std::string& value : OrdinaryPatterns()[i].second) {
        benchmark::DoNotOptimize(std::regex_search(value, compiled[i]));
      }
    }
  }
}
BENCHMARK(BM_PatternStdRegexFloor);

}  // namespace
