#include "document/value_limits.h"

#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "setvault/exceptions.h"

namespace KorvoSetvault {

int NestingLevelOf(const JsonDoc& view) {
  int level = 1;
  for (const JsonNode& step : view.GetPath()) level += step.instanceKey.empty() ? 1 : 2;
  return level;
}

void CheckStorableValue(const JsonValue& value, int level, const char* key) {
  // Explicit stack of (value, level the value would sit at).
  std::vector<std::pair<const JsonValue*, int>> pending{{&value, level}};
  while (!pending.empty()) {
    auto [current, at] = pending.back();
    pending.pop_back();
    if (current->IsDouble() && !std::isfinite(current->GetDouble())) {
      throw InvalidTypeException(SV_ERR_GENERIC,
                                 (std::string("Invalid type specified for: ") + key).c_str());
    }
    if (!current->IsObject() && !current->IsArray()) continue;
    if (at + 1 > kMaxNestingDepth) {
      throw InvalidArgumentException(
          SV_ERR_GENERIC,
          ("Value nested deeper than " + std::to_string(kMaxNestingDepth) + " levels: " + key)
              .c_str());
    }
    if (current->IsObject()) {
      for (const auto& member : current->GetObject()) pending.emplace_back(&member.value, at + 1);
    } else {
      for (const auto& element : current->GetArray()) pending.emplace_back(&element, at + 1);
    }
  }
}

}  // namespace KorvoSetvault
