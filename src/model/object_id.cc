#include "setvault/object_id.h"

#include <uuid/uuid.h>

namespace KorvoSetvault {

const std::string kDefaultComponent = "korvo";
const std::string kEmptyString;
const int32_t kDefaultRevision = -1;

SetvaultObjectId::SetvaultObjectId(const std::string& key_name, const std::string& group_name,
                                   const std::string& component_name)
    : key(key_name), component(component_name), group(group_name) {}

SetvaultObjectId::SetvaultObjectId(const std::string& key_name, const std::string& group_name,
                                   const std::string& component_name,
                                   const std::string& instance_id)
    : key(key_name), component(component_name), group(group_name), instanceId(instance_id) {}

SetvaultObjectId::SetvaultObjectId(const char* key_name, const char* group_name,
                                   const char* component_name)
    : key(key_name), component(component_name), group(group_name) {}

SetvaultObjectId::SetvaultObjectId(const char* key_name, const char* group_name,
                                   const char* component_name, const char* instance_id)
    : key(key_name), component(component_name), group(group_name), instanceId(instance_id) {}

std::string SetvaultObjectId::toString() const {
  std::string text = "comp " + component + " grp " + group + " key " + key;
  if (!instanceId.empty()) text += " id " + instanceId;
  return text;
}

bool SetvaultObjectId::operator==(const SetvaultObjectId& other) const {
  return key == other.key && component == other.component && group == other.group &&
         instanceId == other.instanceId;
}

uint64_t hashSvoId(const SetvaultObjectId& id) {
  std::string joined;
  joined.reserve(id.key.size() + id.group.size() + id.component.size() + id.instanceId.size());
  joined.append(id.key).append(id.group).append(id.component).append(id.instanceId);
  return std::hash<std::string>()(joined);
}

SubObjectId::SubObjectId(const std::string& key_name, const std::string& instance_id)
    : key(key_name), instanceId(instance_id) {}

SubObjectId::SubObjectId(const SetvaultObjectId& id) : key(id.key), instanceId(id.instanceId) {}

std::string SubObjectId::toString() const {
  std::string text = "key " + key;
  if (!instanceId.empty()) text += " id " + instanceId;
  return text;
}

std::string GenerateInstanceId() {
  uuid_t uuid;
  uuid_generate_random(uuid);
  char text[37];
  uuid_unparse_lower(uuid, text);
  return std::string(text);
}

}  // namespace KorvoSetvault
