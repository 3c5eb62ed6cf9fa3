#include "setvault_cli/json_io.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace setvault_tool {

std::string ReadJsonArgument(const std::string& argument) {
  if (argument == "-") {
    return std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
  }
  if (argument.empty() || argument[0] != '@') return argument;
  const std::string path = argument.substr(1);
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

std::string Serialize(const KorvoSetvault::JsonValue& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return std::string(buffer.GetString(), buffer.GetSize());
}

std::string Quote(const std::string& text) {
  std::string quoted = "\"";
  for (unsigned char c : text) {
    switch (c) {
      case '"': quoted += "\\\""; break;
      case '\\': quoted += "\\\\"; break;
      case '\n': quoted += "\\n"; break;
      case '\r': quoted += "\\r"; break;
      case '\t': quoted += "\\t"; break;
      default:
        if (c < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
          quoted += escaped;
        } else {
          quoted += static_cast<char>(c);
        }
    }
  }
  return quoted + "\"";
}

std::string ObjectToJson(const KorvoSetvault::SetvaultObject& object) {
  const KorvoSetvault::SetvaultObjectId& id = object.GetSetvaultObjectId();
  return "{\"component\":" + Quote(id.component) + ",\"group\":" + Quote(id.group) +
         ",\"key\":" + Quote(id.key) + ",\"instanceId\":" + Quote(id.instanceId) +
         ",\"version\":" + Quote(object.GetVersion()) +
         ",\"revision\":" + std::to_string(object.GetRevision()) +
         ",\"creationTime\":" + Quote(object.GetCreationTime()) +
         ",\"modifiedTime\":" + Quote(object.GetModifiedTime()) + ",\"data\":" + object.GetData() +
         "}";
}

std::string ObjectsToJson(
    const std::vector<std::shared_ptr<KorvoSetvault::SetvaultObject>>& objects) {
  std::string text = "[";
  for (size_t i = 0; i < objects.size(); ++i) {
    if (i > 0) text += ",";
    text += ObjectToJson(*objects[i]);
  }
  return text + "]";
}

}  // namespace setvault_tool
