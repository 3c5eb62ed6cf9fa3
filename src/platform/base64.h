// Base64 (RFC 4648, standard alphabet, padded) for binary configuration values.
#ifndef SETVAULT_SRC_PLATFORM_BASE64_H_
#define SETVAULT_SRC_PLATFORM_BASE64_H_

#include <cstddef>
#include <string>
#include <vector>

namespace KorvoSetvault {

// The padded base64 text of `length` bytes at `data`.
std::string Base64Encode(const unsigned char* data, size_t length);

// Decodes padded base64 text into `out`. Returns false, leaving `out` in an
// unspecified state, when the text has a character outside the alphabet, a
// length that is not a multiple of 4, misplaced padding or non-zero pad bits.
bool Base64Decode(const char* text, size_t length, std::vector<unsigned char>* out);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_PLATFORM_BASE64_H_
