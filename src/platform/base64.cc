#include "platform/base64.h"

#include <array>
#include <cstdint>

namespace KorvoSetvault {
namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr int8_t kInvalid = -1;

// Maps each byte to its 6-bit value, or kInvalid.
constexpr std::array<int8_t, 256> MakeDecodeTable() {
  std::array<int8_t, 256> table{};
  for (auto& entry : table) entry = kInvalid;
  for (int i = 0; i < 64; ++i) table[static_cast<unsigned char>(kAlphabet[i])] = static_cast<int8_t>(i);
  return table;
}
constexpr std::array<int8_t, 256> kDecode = MakeDecodeTable();

}  // namespace

std::string Base64Encode(const unsigned char* data, size_t length) {
  std::string text;
  text.reserve((length + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 3 <= length; i += 3) {
    const uint32_t triple = (uint32_t{data[i]} << 16) | (uint32_t{data[i + 1]} << 8) | data[i + 2];
    text += kAlphabet[(triple >> 18) & 0x3F];
    text += kAlphabet[(triple >> 12) & 0x3F];
    text += kAlphabet[(triple >> 6) & 0x3F];
    text += kAlphabet[triple & 0x3F];
  }
  const size_t rest = length - i;
  if (rest > 0) {
    uint32_t triple = uint32_t{data[i]} << 16;
    if (rest == 2) triple |= uint32_t{data[i + 1]} << 8;
    text += kAlphabet[(triple >> 18) & 0x3F];
    text += kAlphabet[(triple >> 12) & 0x3F];
    text += rest == 2 ? kAlphabet[(triple >> 6) & 0x3F] : '=';
    text += '=';
  }
  return text;
}

bool Base64Decode(const char* text, size_t length, std::vector<unsigned char>* out) {
  out->clear();
  if (length % 4 != 0) return false;
  out->reserve(length / 4 * 3);
  for (size_t i = 0; i < length; i += 4) {
    const bool last = i + 4 == length;
    int padding = 0;
    uint32_t quad = 0;
    for (size_t j = 0; j < 4; ++j) {
      const unsigned char c = static_cast<unsigned char>(text[i + j]);
      if (c == '=') {
        // Padding only in the last group, only in its last two places, and
        // only followed by more padding.
        if (!last || j < 2) return false;
        ++padding;
        quad <<= 6;
        continue;
      }
      if (padding > 0 || kDecode[c] == kInvalid) return false;
      quad = (quad << 6) | static_cast<uint32_t>(kDecode[c]);
    }
    // Bits below the data in a padded group must be zero (canonical text).
    if ((padding == 1 && (quad & 0xFF) != 0) || (padding == 2 && (quad & 0xFFFF) != 0)) {
      return false;
    }
    out->push_back(static_cast<unsigned char>(quad >> 16));
    if (padding < 2) out->push_back(static_cast<unsigned char>(quad >> 8));
    if (padding < 1) out->push_back(static_cast<unsigned char>(quad));
  }
  return true;
}

}  // namespace KorvoSetvault
