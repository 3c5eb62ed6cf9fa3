// Fuzzes drift descriptions: building a drift object from any text and
// walking its parts (members, sub-objects by name and by instance id,
// instance lists) ends in a result or a library exception, never a crash.
#include <string>
#include <vector>

#include "fuzz_support.h"

namespace {

using KorvoSetvault::DriftObject;
using KorvoSetvault::SetvaultException;
using KorvoSetvault::SubObjectId;

// Parts nested deeper than this are not walked: the walk is quadratic.
constexpr int kMaxWalkDepth = 4;

void Walk(const DriftObject& drift, int depth);

void WalkPart(const DriftObject& drift, const SubObjectId& id, int depth) {
  Tolerating([&] {
    if (auto part = drift.GetSubObject(id)) Walk(*part, depth + 1);
  });
}

void Walk(const DriftObject& drift, int depth) {
  drift.GetData();
  if (depth >= kMaxWalkDepth) return;
  std::vector<std::pair<std::string, std::string>> members;
  try {
    members = drift.Get();
  } catch (const SetvaultException&) {
    return;  // not an object
  }
  for (const auto& [property, operation] : members) {
    WalkPart(drift, SubObjectId(property), depth);
    Tolerating([&] {
      for (const auto& instance : drift.GetSubObjectInstances(SubObjectId(property))) {
        const std::string instance_id = instance->GetSetvaultObjectId().instanceId;
        WalkPart(drift, SubObjectId(property, instance_id), depth);
      }
    });
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text = FuzzInput(data, size);
  std::shared_ptr<DriftObject> drift;
  try {
    drift = KorvoSetvault::CreateDriftObject(
        KorvoSetvault::SetvaultObjectId("vswitch", "net", "korvo"), text, "SET");
  } catch (const SetvaultException&) {
    return 0;
  }
  Walk(*drift, 0);
  return 0;
}
