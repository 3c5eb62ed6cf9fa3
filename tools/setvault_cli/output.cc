#include "setvault_cli/output.h"

#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include <setvault/json_doc.h>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace setvault_tool {
namespace {

OutputOptions& Options() {
  static OutputOptions options;
  return options;
}

const char kKeyColour[] = "\033[34m";
const char kStringColour[] = "\033[32m";
const char kLiteralColour[] = "\033[33m";
const char kReset[] = "\033[0m";

std::string Escaped(const KorvoSetvault::JsonValue& value) {
  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  value.Accept(writer);
  return std::string(buffer.GetString(), buffer.GetSize());
}

std::string Paint(const std::string& text, const char* colour) {
  return Options().colour ? colour + text + kReset : text;
}

// Writes `value` indented by two spaces per level of `depth`.
void WritePretty(const KorvoSetvault::JsonValue& value, int depth, std::string* out) {
  const std::string indent(2 * (depth + 1), ' ');
  const std::string closing(2 * depth, ' ');
  if (value.IsObject() && value.MemberCount() > 0) {
    *out += "{\n";
    bool first = true;
    for (const auto& member : value.GetObject()) {
      *out += (first ? "" : ",\n") + indent + Paint(Escaped(member.name), kKeyColour) + ": ";
      WritePretty(member.value, depth + 1, out);
      first = false;
    }
    *out += "\n" + closing + "}";
  } else if (value.IsArray() && !value.Empty()) {
    *out += "[\n";
    for (rapidjson::SizeType i = 0; i < value.Size(); ++i) {
      *out += (i > 0 ? ",\n" : "") + indent;
      WritePretty(value[i], depth + 1, out);
    }
    *out += "\n" + closing + "]";
  } else {
    *out += Paint(Escaped(value), value.IsString() ? kStringColour : kLiteralColour);
  }
}

}  // namespace

void ConfigureOutput(bool compact, bool no_colour) {
  const bool terminal = isatty(STDOUT_FILENO) != 0;
  Options().compact = compact || !terminal;
  Options().colour = terminal && !no_colour && std::getenv("NO_COLOR") == nullptr;
}

void PrintJson(const std::string& json) {
  if (Options().compact) {
    std::cout << json << "\n";
    return;
  }
  rapidjson::Document doc;
  if (doc.Parse<rapidjson::kParseIterativeFlag>(json.c_str(), json.size()).HasParseError()) {
    std::cout << json << "\n";
    return;
  }
  std::string text;
  WritePretty(doc, 0, &text);
  std::cout << text << "\n";
}

void Note(const std::string& text) { std::cerr << "setvault: " << text << "\n"; }

std::string UtcTime(const std::string& stored) {
  if (stored.size() != 19 || stored[10] != ' ') return stored;
  return stored.substr(0, 10) + "T" + stored.substr(11) + "Z";
}

}  // namespace setvault_tool
