// JSON input and output of the setvault tool.
#ifndef SETVAULT_TOOLS_SETVAULT_JSON_IO_H_
#define SETVAULT_TOOLS_SETVAULT_JSON_IO_H_

#include <memory>
#include <string>
#include <vector>

#include <setvault/setvault.h>

namespace setvault_tool {

// The text of a JSON argument: the argument itself, the content of the file
// it names after '@', or standard input for "-". Throws std::runtime_error
// when the file cannot be read or holds more than 16 MiB.
std::string ReadJsonArgument(const std::string& argument);

// An object as printed by the tool: its identity, metadata and data.
//   {"component":..,"group":..,"key":..,"instanceId":..,"version":..,
//    "revision":..,"creationTime":..,"modifiedTime":..,"data":{..}}
std::string ObjectToJson(const KorvoSetvault::SetvaultObject& object);
// A list of objects as a JSON array of ObjectToJson texts.
std::string ObjectsToJson(const std::vector<std::shared_ptr<KorvoSetvault::SetvaultObject>>& objects);
// Compact JSON text of `value`.
std::string Serialize(const KorvoSetvault::JsonValue& value);
// A JSON string literal of `text`.
std::string Quote(const std::string& text);

}  // namespace setvault_tool

#endif  // SETVAULT_TOOLS_SETVAULT_JSON_IO_H_
