#include "setvault_cli/json_io.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "setvault_cli/output.h"

#include <rapidjson/error/en.h>
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
      throw ToolError(kExitFailed, name + ": larger than the limit of " +
                                       std::to_string(kMaxJsonInputBytes) + " bytes");
    }
    content.append(buffer, static_cast<size_t>(in.gcount()));
  }
  if (in.bad()) throw ToolError(kExitFailed, "cannot read " + name);
  return content;
}

}  // namespace

std::string ReadJsonArgument(const std::string& argument) {
  if (argument == "-") return ReadBounded(std::cin, "standard input");
  if (argument.empty() || argument[0] != '@') return argument;
  const std::string path = argument.substr(1);
  std::ifstream in(path, std::ios::binary);
  if (!in) throw ToolError(kExitFailed, "cannot read " + path + ": " + std::strerror(errno));
  return ReadBounded(in, path);
}

std::string ReadJson(const std::string& argument, const std::string& what) {
  std::string text = ReadJsonArgument(argument);
  rapidjson::Document doc;
  doc.Parse<rapidjson::kParseIterativeFlag>(text.c_str(), text.size());
  if (!doc.HasParseError()) return text;
  size_t line = 1;
  size_t column = 1;
  for (size_t i = 0; i < doc.GetErrorOffset() && i < text.size(); ++i) {
    if (text[i] == '\n') {
      ++line;
      column = 1;
    } else {
      ++column;
    }
  }
  throw ToolError(kExitUsage, what + ": not JSON at line " + std::to_string(line) + ", column " +
                                  std::to_string(column) + ": " +
                                  rapidjson::GetParseError_En(doc.GetParseError()));
}

std::string ReadDocumentFile(const std::string& file) {
  if (file == "-" || (!file.empty() && file[0] == '@')) return ReadJson(file, file);
  return ReadJson("@" + file, file);
}

std::string ReadJsonObject(const std::string& argument, const std::string& what) {
  std::string text = ReadJson(argument, what);
  rapidjson::Document doc;
  if (!doc.Parse<rapidjson::kParseIterativeFlag>(text.c_str(), text.size()).IsObject()) {
    throw ToolError(kExitUsage, what + ": a JSON object {...} is expected");
  }
  return text;
}

std::string FindingsToJson(const std::vector<KorvoSetvault::ErrorInfo>& findings) {
  std::string list = "[";
  for (size_t i = 0; i < findings.size(); ++i) {
    list += std::string(i > 0 ? "," : "") + "{\"field\":" + Quote(findings[i].path) +
            ",\"error\":" + Quote(findings[i].message) + "}";
  }
  return list + "]";
}

std::string QuoteAll(const std::vector<std::string>& texts) {
  std::string list = "[";
  for (size_t i = 0; i < texts.size(); ++i) list += (i > 0 ? "," : "") + Quote(texts[i]);
  return list + "]";
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
      case '"':
        quoted += "\\\"";
        break;
      case '\\':
        quoted += "\\\\";
        break;
      case '\n':
        quoted += "\\n";
        break;
      case '\r':
        quoted += "\\r";
        break;
      case '\t':
        quoted += "\\t";
        break;
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
  return ObjectToJson(object, object.GetData());
}

std::string ObjectToJson(const KorvoSetvault::SetvaultObject& object, const std::string& data) {
  const KorvoSetvault::SetvaultObjectId& id = object.GetSetvaultObjectId();
  return "{\"component\":" + Quote(id.component) + ",\"group\":" + Quote(id.group) +
         ",\"key\":" + Quote(id.key) + ",\"instanceId\":" + Quote(id.instanceId) +
         ",\"version\":" + Quote(object.GetVersion()) +
         ",\"revision\":" + std::to_string(object.GetRevision()) +
         ",\"creationTime\":" + Quote(UtcTime(object.GetCreationTime())) +
         ",\"modifiedTime\":" + Quote(UtcTime(object.GetModifiedTime())) + ",\"data\":" + data +
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
