#include "setvault_cli/json_io.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace setvault_tool {

namespace {

// Largest JSON argument read from a file or standard input, as for the
// library's own document files.
constexpr size_t kMaxJsonInputBytes = 16 * 1024 * 1024;

// All of `in`, refused once it grows past kMaxJsonInputBytes (`name` says
// what was read).
std::string ReadBounded(std::istream& in, const std::string& name) {
  std::string content;
  char buffer[64 * 1024];
  while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
    if (content.size() + static_cast<size_t>(in.gcount()) > kMaxJsonInputBytes) {
      throw std::runtime_error(name + ": larger than the limit of " +
                               std::to_string(kMaxJsonInputBytes) + " bytes");
    }
    content.append(buffer, static_cast<size_t>(in.gcount()));
  }
  if (in.bad()) throw std::runtime_error("cannot read " + name);
  return content;
}

}  // namespace

std::string ReadJsonArgument(const std::string& argument) {
  if (argument == "-") return ReadBounded(std::cin, "standard input");
  if (argument.empty() || argument[0] != '@') return argument;
  const std::string path = argument.substr(1);
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  return ReadBounded(in, path);
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
