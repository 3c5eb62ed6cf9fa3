// JSON input and output of the setvault tool.
#ifndef SETVAULT_TOOLS_SETVAULT_JSON_IO_H_
#define SETVAULT_TOOLS_SETVAULT_JSON_IO_H_

#include <memory>
#include <string>
#include <vector>

#include <setvault/setvault.h>

namespace setvault_tool {

// The text of a JSON argument: the argument itself, the content of the file
// it names after '@', or standard input for "-". Throws ToolError (exit 1)
// when the file cannot be read or holds more than 16 MiB.
std::string ReadJsonArgument(const std::string& argument);

// ReadJsonArgument, checked to be JSON: a text that does not parse throws
// ToolError (usage) "<what>: not JSON at line L, column C: <reason>".
std::string ReadJson(const std::string& argument, const std::string& what);

// The JSON text of a document given as a file name (or @file), or "-" for
// standard input; checked as ReadJson.
std::string ReadDocumentFile(const std::string& file);

// ReadJson, checked to be a JSON object.
std::string ReadJsonObject(const std::string& argument, const std::string& what);

// An object as printed by the tool: its identity, metadata (times in UTC,
// marked "Z") and data.
//   {"component":..,"group":..,"key":..,"instanceId":..,"version":..,
//    "revision":..,"creationTime":..,"modifiedTime":..,"data":{..}}
std::string ObjectToJson(const KorvoSetvault::SetvaultObject& object, const std::string& data);
std::string ObjectToJson(const KorvoSetvault::SetvaultObject& object);
// A list of objects as a JSON array of ObjectToJson texts.
std::string ObjectsToJson(
    const std::vector<std::shared_ptr<KorvoSetvault::SetvaultObject>>& objects);
// Compact JSON text of `value`.
std::string Serialize(const KorvoSetvault::JsonValue& value);
// A JSON string literal of `text`.
std::string Quote(const std::string& text);
// Validation findings as [{"field": JSON Pointer, "error": text}, ...].
std::string FindingsToJson(const std::vector<KorvoSetvault::ErrorInfo>& findings);
// A JSON array of string literals.
std::string QuoteAll(const std::vector<std::string>& texts);

}  // namespace setvault_tool

#endif  // SETVAULT_TOOLS_SETVAULT_JSON_IO_H_
