#include "setvault/format.h"

#include <cstdio>

namespace KorvoSetvault {

std::string FormatV(const char* format, va_list args) {
  va_list measure;
  va_copy(measure, args);
  const int length = std::vsnprintf(nullptr, 0, format, measure);
  va_end(measure);
  if (length <= 0) return std::string();
  std::string text(static_cast<size_t>(length), '\0');
  std::vsnprintf(&text[0], text.size() + 1, format, args);
  return text;
}

std::string FormatVariadic(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = FormatV(format, args);
  va_end(args);
  return text;
}

}  // namespace KorvoSetvault
