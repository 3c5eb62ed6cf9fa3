// The target of RAPIDJSON_ASSERT (see setvault/rapidjson_config.h).
#include <string>

#include "setvault/error_codes.h"
#include "setvault/exceptions.h"

namespace KorvoSetvault {

void ThrowJsonAssertion(const char* file, int line, const char* condition) {
  const std::string text = std::string("JSON error:\"") + file + "\":" + std::to_string(line) +
                           ": " + condition;
  throw SetvaultException(SV_ERR_JSON, text.c_str());
}

}  // namespace KorvoSetvault
