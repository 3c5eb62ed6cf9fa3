// Format: printf-style formatting into a std::string.
#ifndef SETVAULT_FORMAT_H_
#define SETVAULT_FORMAT_H_

#include <cstdarg>
#include <string>
#include <type_traits>

#include "setvault/export.h"

namespace KorvoSetvault {

// Formats a va_list; the list is consumed.
SETVAULT_EXPORT std::string FormatV(const char* format, va_list args);

// Formats `format` (a printf format whose conversions match `args`) into a new
// string. With no arguments, "%%" still prints as "%".
//
//   std::string text = Format<const char*>("Key not found: %s", key);
template <typename... Args>
std::string Format(const char* format, Args... args);

// The variadic worker behind Format.
SETVAULT_EXPORT std::string FormatVariadic(const char* format, ...);

template <typename... Args>
std::string Format(const char* format, Args... args) {
  static_assert(((std::is_arithmetic<Args>::value || std::is_pointer<Args>::value) && ...),
                "Format takes numbers and C strings only");
  return FormatVariadic(format, args...);
}

}  // namespace KorvoSetvault

#endif  // SETVAULT_FORMAT_H_
