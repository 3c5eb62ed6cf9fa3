#include "platform/utf8.h"

#include <cstdint>
#include <cstring>
#include <vector>

#include "document/setvault_document.h"

namespace KorvoSetvault {
namespace {

// The length of the sequence that `lead` starts, 0 for a byte that cannot
// start one; the allowed range of the second byte goes to `low` and `high`.
size_t SequenceLength(unsigned char lead, unsigned char* low, unsigned char* high) {
  *low = 0x80;
  *high = 0xBF;
  if (lead < 0x80) return 1;
  if (lead < 0xC2) return 0;  // continuation byte or overlong two-byte form
  if (lead < 0xE0) return 2;
  if (lead < 0xF0) {
    if (lead == 0xE0) *low = 0xA0;   // overlong
    if (lead == 0xED) *high = 0x9F;  // surrogates
    return 3;
  }
  if (lead < 0xF5) {
    if (lead == 0xF0) *low = 0x90;   // overlong
    if (lead == 0xF4) *high = 0x8F;  // above U+10FFFF
    return 4;
  }
  return 0;
}

// The offset of the first byte from bytes[i] on that is not ASCII, or `size`. Runs of
// ASCII, the common case, are passed over eight bytes at a time.
size_t SkipAscii(const unsigned char* bytes, size_t size, size_t i) {
  for (uint64_t word; size - i >= sizeof word; i += sizeof word) {
    std::memcpy(&word, bytes + i, sizeof word);
    if (word & 0x8080808080808080ULL) break;
  }
  while (i < size && bytes[i] < 0x80) ++i;
  return i;
}

bool IsValid(const JsonValue& string) {
  return IsValidUtf8(std::string_view(string.GetString(), string.GetStringLength()));
}

// True when every member name and string in `value` is valid UTF-8: the walk of
// FindInvalidUtf8 without the pointers it builds, which only a fault needs.
bool AllValidUtf8(const JsonValue& value) {
  std::vector<const JsonValue*> pending{&value};
  while (!pending.empty()) {
    const JsonValue* current = pending.back();
    pending.pop_back();
    if (current->IsString()) {
      if (!IsValid(*current)) return false;
    } else if (current->IsObject()) {
      for (const auto& member : current->GetObject()) {
        if (!IsValid(member.name)) return false;
        pending.push_back(&member.value);
      }
    } else if (current->IsArray()) {
      for (const JsonValue& element : current->GetArray()) pending.push_back(&element);
    }
  }
  return true;
}

std::string Token(const JsonValue& name) {
  return SetvaultDocument::EscapePointerToken(
      std::string(name.GetString(), name.GetStringLength()));
}

}  // namespace

bool IsValidUtf8(std::string_view text) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  const size_t size = text.size();
  size_t i = 0;
  while (i < size) {
    i = SkipAscii(bytes, size, i);
    if (i == size) break;
    unsigned char low;
    unsigned char high;
    const size_t length = SequenceLength(bytes[i], &low, &high);
    if (length == 0 || size - i < length) return false;
    for (size_t k = 1; k < length; ++k) {
      const unsigned char byte = bytes[i + k];
      if (byte < (k == 1 ? low : 0x80) || byte > (k == 1 ? high : 0xBF)) return false;
    }
    i += length;
  }
  return true;
}

std::optional<std::string> FindInvalidUtf8(const JsonValue& value) {
  if (AllValidUtf8(value)) return std::nullopt;
  std::vector<std::pair<const JsonValue*, std::string>> pending{{&value, ""}};
  while (!pending.empty()) {
    auto [current, pointer] = std::move(pending.back());
    pending.pop_back();
    if (current->IsString()) {
      if (!IsValid(*current)) return pointer;
    } else if (current->IsObject()) {
      // Pushed in reverse, so that members are looked at in document order.
      for (auto member = current->MemberEnd(); member != current->MemberBegin();) {
        --member;
        if (!IsValid(member->name)) return pointer;
        pending.emplace_back(&member->value, pointer + "/" + Token(member->name));
      }
    } else if (current->IsArray()) {
      for (rapidjson::SizeType i = current->Size(); i > 0; --i) {
        pending.emplace_back(&(*current)[i - 1], pointer + "/" + std::to_string(i - 1));
      }
    }
  }
  return std::nullopt;
}

}  // namespace KorvoSetvault
