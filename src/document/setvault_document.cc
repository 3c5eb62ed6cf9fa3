#include "document/setvault_document.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "setvault/exceptions.h"

namespace KorvoSetvault {
namespace {

// The member `name` of `parent`, added as an empty object when missing.
JsonValue& ObjectMember(JsonValue& parent, const std::string& name, JsonAllocator& allocator) {
  auto found = parent.FindMember(name.c_str());
  if (found == parent.MemberEnd()) {
    parent.AddMember(JsonValue(name.c_str(), allocator), JsonValue(rapidjson::kObjectType),
                     allocator);
    return (parent.MemberEnd() - 1)->value;  // the member just added
  }
  if (!found->value.IsObject()) {
    throw SetvaultException(
        SV_ERR_GENERIC, ("Cannot add an object under \"" + name + "\": not a JSON object").c_str());
  }
  return found->value;
}

}  // namespace

bool SetvaultDocument::ValueExists(const JsonValue& value, const char* name) {
  return value.IsObject() && value.FindMember(name) != value.MemberEnd();
}

bool SetvaultDocument::ValuesEqual(const JsonValue& a, const JsonValue& b) {
  // RapidJSON's equality compares objects member by member regardless of
  // order and numbers by value, which is the equality configuration needs.
  return a == b;
}

std::string SetvaultDocument::EscapePointerToken(const std::string& token) {
  std::string escaped;
  escaped.reserve(token.size());
  for (char c : token) {
    if (c == '~') {
      escaped += "~0";
    } else if (c == '/') {
      escaped += "~1";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::string SetvaultDocument::SerializeValue(const JsonValue& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  // The writer refuses NaN and infinities, which JSON cannot express.
  if (!value.Accept(writer)) {
    throw SetvaultException(SV_ERR_GENERIC,
                            "Cannot serialize JSON value: it holds a non-finite number");
  }
  return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace KorvoSetvault

namespace KorvoSetvault {

void SetvaultDocument::AddObject(JsonValue& root, const std::string& component,
                                 const std::string& group, const std::string& key,
                                 const std::string& instanceId, JsonValue& data,
                                 JsonAllocator& allocator) {
  if (!root.IsObject()) root.SetObject();
  JsonValue& keys = ObjectMember(ObjectMember(root, component, allocator), group, allocator);
  auto found = keys.FindMember(key.c_str());
  const std::string where = component + "/" + group + "/" + key;
  if (instanceId.empty()) {
    if (found != keys.MemberEnd() && found->value.IsArray()) {
      throw SetvaultException(
          SV_ERR_GENERIC,
          ("Cannot add a singleton object to " + where + ": it holds instances").c_str());
    }
    if (found != keys.MemberEnd()) {
      found->value = data;
    } else {
      keys.AddMember(JsonValue(key.c_str(), allocator), data, allocator);
    }
    return;
  }
  if (found == keys.MemberEnd()) {
    keys.AddMember(JsonValue(key.c_str(), allocator), JsonValue(rapidjson::kArrayType), allocator);
    found = keys.FindMember(key.c_str());
  } else if (!found->value.IsArray()) {
    throw SetvaultException(SV_ERR_GENERIC, ("Cannot add instance " + instanceId + " to " + where +
                                             ": it holds a singleton object")
                                                .c_str());
  }
  found->value.PushBack(data, allocator);
}

}  // namespace KorvoSetvault
