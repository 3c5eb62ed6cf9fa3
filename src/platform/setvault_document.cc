#include "platform/setvault_document.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "setvault/exceptions.h"

namespace KorvoSetvault {

bool SetvaultDocument::ValueExists(const JsonValue& value, const char* name) {
  return value.IsObject() && value.FindMember(name) != value.MemberEnd();
}

bool SetvaultDocument::ValuesEqual(const JsonValue& a, const JsonValue& b) {
  // RapidJSON's equality compares objects member by member regardless of
  // order and numbers by value, which is the equality configuration needs.
  return a == b;
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
