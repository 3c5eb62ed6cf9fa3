// Identities of configuration objects and their sub-objects.
//
//   KorvoSetvault::SetvaultObjectId options("options", "hvcore", "korvo");
//   options.toString();   // "comp korvo grp hvcore key options"
//   KorvoSetvault::SetvaultObjectId port("port", "net", "korvo", "eth0");
//   std::unordered_map<KorvoSetvault::SetvaultObjectId, int> seen;  // hashable
#ifndef SETVAULT_OBJECT_ID_H_
#define SETVAULT_OBJECT_ID_H_

#include <cstdint>
#include <functional>
#include <string>

#include "setvault/export.h"

namespace KorvoSetvault {

// The default component name, "korvo".
SETVAULT_EXPORT extern const std::string kDefaultComponent;
// The empty string.
SETVAULT_EXPORT extern const std::string kEmptyString;
// The revision of an object that has none.
SETVAULT_EXPORT extern const int32_t kDefaultRevision;

// Names one configuration object: its key inside a group of a component, and
// for a multi-instance type the instance id (empty for a singleton, or for an
// id that names every instance of a type). Plain value; no member is checked.
// Constructors take (key, group, component[, instanceId]) in that order.
struct SETVAULT_EXPORT SetvaultObjectId {
  SetvaultObjectId(const std::string& key, const std::string& group,
                   const std::string& component);
  SetvaultObjectId(const std::string& key, const std::string& group,
                   const std::string& component, const std::string& instanceId);
  // The texts must not be null.
  SetvaultObjectId(const char* key, const char* group, const char* component);
  SetvaultObjectId(const char* key, const char* group, const char* component,
                   const char* instanceId);
  SetvaultObjectId(const SetvaultObjectId& other) = default;
  SetvaultObjectId(SetvaultObjectId&& other) noexcept = default;
  SetvaultObjectId& operator=(const SetvaultObjectId& other) = default;
  SetvaultObjectId& operator=(SetvaultObjectId&& other) noexcept = default;
  ~SetvaultObjectId() = default;

  // "comp <component> grp <group> key <key>", then " id <instanceId>" when the
  // instance id is not empty. Nothing is quoted.
  std::string toString() const;

  // Equal when all four members are equal byte for byte.
  bool operator==(const SetvaultObjectId& other) const;
  bool operator!=(const SetvaultObjectId& other) const { return !(*this == other); }

  std::string key;         // database column Name
  std::string component;   // database column Component
  std::string group;       // database column ConfigGroup
  std::string instanceId;  // database column Identifier
};

// Hash of key + group + component + instanceId concatenated without
// separators, with the standard string hash. Consistent with operator==.
SETVAULT_EXPORT uint64_t hashSvoId(const SetvaultObjectId& id);

// Names a sub-object inside one configuration object: its member name and,
// for an instance of an array of instances, the instance id.
struct SETVAULT_EXPORT SubObjectId {
  SubObjectId(const std::string& key, const std::string& instanceId = std::string());
  // Takes the key and instance id of `id`.
  explicit SubObjectId(const SetvaultObjectId& id);

  // "key <key>", then " id <instanceId>" when the instance id is not empty.
  std::string toString() const;

  bool operator==(const SubObjectId& other) const {
    return key == other.key && instanceId == other.instanceId;
  }

  std::string key;
  std::string instanceId;
};

// Returns a new random instance id: a version-4 UUID in its 36-character
// lower-case text form.
SETVAULT_EXPORT std::string GenerateInstanceId();

}  // namespace KorvoSetvault

namespace std {
template <>
struct hash<KorvoSetvault::SetvaultObjectId> {
  size_t operator()(const KorvoSetvault::SetvaultObjectId& id) const {
    return static_cast<size_t>(KorvoSetvault::hashSvoId(id));
  }
};
}  // namespace std

#endif  // SETVAULT_OBJECT_ID_H_
