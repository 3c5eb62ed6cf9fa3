#include "setvault/json_doc.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include <rapidjson/error/en.h>

#include "document/json_copy.h"
#include "document/json_parse.h"
#include "document/setvault_document.h"
#include "document/value_limits.h"
#include "platform/bounded_file.h"
#include "platform/utf8.h"
#include "setvault/exceptions.h"
#include "setvault/logger.h"

namespace KorvoSetvault {
namespace {

// Decimal exponents of the largest and smallest magnitudes a number may have.
constexpr long kMaxDecimalExponent = 307;
constexpr long kMinDecimalExponent = -307;
// Longest number token (sign, digits, point and exponent).
constexpr size_t kMaxNumberLength = 40;

// The decimal exponent of the first significant digit of the number token
// starting at text[*i] (1 for 12.5, -2 for 0.0125e0, 3 for 1e3), moving *i
// past the token; false for zero. The exponent saturates far out of range.
bool NumberMagnitude(const char* text, size_t length, size_t* i, long* magnitude) {
  auto digit = [&](size_t at) { return at < length && text[at] >= '0' && text[at] <= '9'; };
  if (*i < length && text[*i] == '-') ++*i;
  long integer_digits = 0;  // after leading zeros
  long fraction_zeros = 0;  // leading zeros of the fraction when the integer part is 0
  bool significant = false;
  for (; digit(*i); ++*i) {
    if (significant || text[*i] != '0') {
      significant = true;
      ++integer_digits;
    }
  }
  if (*i < length && text[*i] == '.') {
    for (++*i; digit(*i); ++*i) {
      if (significant) continue;
      if (text[*i] == '0') {
        ++fraction_zeros;
      } else {
        significant = true;
      }
    }
  }
  long exponent = 0;
  if (*i < length && (text[*i] == 'e' || text[*i] == 'E')) {
    ++*i;
    const bool negative = *i < length && text[*i] == '-';
    if (*i < length && (text[*i] == '-' || text[*i] == '+')) ++*i;
    for (; digit(*i); ++*i) exponent = std::min(exponent * 10 + (text[*i] - '0'), 1000000L);
    if (negative) exponent = -exponent;
  }
  if (!significant) return false;
  *magnitude = (integer_digits > 0 ? integer_digits - 1 : -(fraction_zeros + 1)) + exponent;
  return true;
}

// Where `text` first breaks the limits parsing puts on it; npos for a limit
// it keeps. Brackets and digits inside strings do not count; invalid JSON is
// left to the parser to report.
struct LimitFaults {
  // The offset at which arrays and objects first nest deeper than
  // kMaxNestingDepth.
  size_t too_deep = std::string::npos;
  // The first number longer than kMaxNumberLength or whose magnitude lies
  // outside [1e-307, 1e308) (zero excepted). RapidJSON's exact number parse
  // turns such numbers (1e20 written with an exponent of 290, for one) into
  // unrelated values, and crashes on a fraction of some hundred zeros.
  size_t bad_number = std::string::npos;
  // Every byte (up to a nesting fault) is ASCII: such text is valid UTF-8
  // and needs no encoding check while parsing.
  bool ascii = true;
};

// The offset of the first '"' or '\\' in text[i, length), or `length`; ors every byte
// passed over into *bits. String bodies are most of a stored object's text, so they
// are passed over eight bytes at a time.
size_t SkipStringBytes(const char* text, size_t length, size_t i, unsigned char* bits) {
  constexpr uint64_t kOnes = 0x0101010101010101ULL;
  constexpr uint64_t kHighBits = 0x8080808080808080ULL;
  uint64_t passed = 0;
  for (; i + sizeof(uint64_t) <= length; i += sizeof(uint64_t)) {
    uint64_t word;
    std::memcpy(&word, text + i, sizeof word);
    // A byte equal to '"' or '\\' leaves a zero byte in `quote` or `backslash`, and a
    // word holds a zero byte exactly when (v - kOnes) & ~v has a high bit set.
    const uint64_t quote = word ^ (kOnes * '"');
    const uint64_t backslash = word ^ (kOnes * '\\');
    if ((((quote - kOnes) & ~quote) | ((backslash - kOnes) & ~backslash)) & kHighBits) break;
    passed |= word;
  }
  if (passed & kHighBits) *bits |= 0x80;
  for (; i < length && text[i] != '"' && text[i] != '\\'; ++i) {
    *bits |= static_cast<unsigned char>(text[i]);
  }
  return i;
}

// The offset of the quote that ends the string whose body starts at text[i], or
// `length` when none does; ors every byte passed over into *bits.
size_t EndOfString(const char* text, size_t length, size_t i, unsigned char* bits) {
  while ((i = SkipStringBytes(text, length, i, bits)) < length && text[i] == '\\') {
    if (++i < length) *bits |= static_cast<unsigned char>(text[i++]);
  }
  return i;
}

// One pass over `text` for both limits; it stops at the first nesting fault.
LimitFaults FindLimitFaults(const char* text, size_t length) {
  LimitFaults faults;
  int depth = 0;
  unsigned char bits = 0;  // the bytes seen, or-ed together
  for (size_t i = 0; i < length; ++i) {
    const char c = text[i];
    bits |= static_cast<unsigned char>(c);
    if (c == '"') {
      i = EndOfString(text, length, i + 1, &bits);
    } else if (c == '[' || c == '{') {
      if (++depth > kMaxNestingDepth) {
        faults.too_deep = i;
        break;
      }
    } else if (c == ']' || c == '}') {
      --depth;
    } else if (c == '-' || (c >= '0' && c <= '9')) {
      const size_t start = i;
      long magnitude = 0;
      const bool significant = NumberMagnitude(text, length, &i, &magnitude);
      const bool bad =
          i - start > kMaxNumberLength ||
          (significant && (magnitude > kMaxDecimalExponent || magnitude < kMinDecimalExponent));
      if (bad && faults.bad_number == std::string::npos) faults.bad_number = start;
      --i;  // the loop steps past the token's last character
    }
  }
  faults.ascii = (bits & 0x80) == 0;
  return faults;
}

// Sets `*fault` (when asked for) to "at offset <offset>: <why>"; returns false.
bool ParseFault(std::string* fault, size_t offset, const std::string& why) {
  if (fault != nullptr) *fault = "at offset " + std::to_string(offset) + ": " + why;
  return false;
}

// True when `element` is an object whose member `instance_key` is a string
// equal to `instance_id`.
bool IsInstance(const JsonValue& element, const std::string& instance_key,
                const std::string& instance_id) {
  if (!element.IsObject()) return false;
  auto member = element.FindMember(instance_key.c_str());
  return member != element.MemberEnd() && member->value.IsString() &&
         member->value.GetStringLength() == instance_id.size() &&
         std::memcmp(member->value.GetString(), instance_id.data(), instance_id.size()) == 0;
}

// The position of the first element of `array` that holds the node's
// instance; -1 when none. The element at the node's recorded index is tried
// first: views made over large arrays (an imported document's instances)
// then resolve in constant time while nothing before them moved. Where ids
// are unique (validated data), the hint finds the element a scan would.
long FindInstance(const JsonValue& array, const JsonNode& node) {
  if (node.hasIndex && node.index < array.Size() &&
      IsInstance(array[static_cast<rapidjson::SizeType>(node.index)], node.instanceKey,
                 node.instanceId)) {
    return static_cast<long>(node.index);
  }
  for (rapidjson::SizeType i = 0; i < array.Size(); ++i) {
    if (IsInstance(array[i], node.instanceKey, node.instanceId)) return static_cast<long>(i);
  }
  return -1;
}

}  // namespace

JsonDoc::JsonDoc(std::vector<JsonNode> path, std::shared_ptr<JsonAllocator> allocator,
                 std::shared_ptr<JsonDocument> document)
    : path_(std::move(path)), allocator_(std::move(allocator)), document_(std::move(document)) {}

JsonValue* JsonDoc::GetJsonValuePtr() const { return Resolve(nullptr); }

std::string JsonDoc::GetJsonPointer() const {
  std::vector<std::string> tokens;
  Resolve(&tokens);
  std::string pointer;
  for (const std::string& token : tokens)
    pointer += "/" + SetvaultDocument::EscapePointerToken(token);
  return pointer;
}

JsonValue* JsonDoc::Resolve(std::vector<std::string>* tokens) const {
  JsonValue* current = document_.get();
  for (const JsonNode& node : path_) {
    if (!SetvaultDocument::ValueExists(*current, node.name.c_str())) {
      SVLogger::Log(0, "Cannot find subobject %s", node.name.c_str());
      throw SetvaultException(SV_ERR_GENERIC, "Subobject does not exists.");
    }
    current = &current->FindMember(node.name.c_str())->value;
    if (tokens != nullptr) tokens->push_back(node.name);
    if (current->IsArray()) {
      const long position = FindInstance(*current, node);
      if (position < 0) {
        SVLogger::Log(0, "Cannot find subobject instance %s=%s", node.instanceKey.c_str(),
                      node.instanceId.c_str());
        throw SetvaultException(SV_ERR_GENERIC, "Subobject instance does not exists.");
      }
      current = &(*current)[static_cast<rapidjson::SizeType>(position)];
      if (tokens != nullptr) tokens->push_back(std::to_string(position));
    }
  }
  return current;
}

std::shared_ptr<JsonDoc> JsonDoc::MakeView(JsonNode step) const {
  std::vector<JsonNode> path = path_;
  path.push_back(std::move(step));
  return std::make_shared<JsonDoc>(std::move(path), allocator_, document_);
}

namespace {

// A document whose memory pool grows in chunks of `chunk_size` bytes.
std::shared_ptr<JsonDoc> CreateDocumentWithChunks(size_t chunk_size) {
  auto allocator = std::make_shared<JsonAllocator>(chunk_size);
  // The document keeps its allocator alive: it must be destroyed first.
  std::shared_ptr<JsonDocument> document(new JsonDocument(allocator.get(), kJsonParseStackSize),
                                         [allocator](JsonDocument* doc) { delete doc; });
  return std::make_shared<JsonDoc>(std::vector<JsonNode>(), std::move(allocator),
                                   std::move(document));
}

// The first chunk for a document parsed from `length` bytes of text: about
// what its values take, so that reading many small stored objects does not
// claim (and hand back to the system) a full chunk per object.
size_t ChunkSizeForText(size_t length) {
  constexpr size_t kSmallestChunk = 1024;
  return std::min(kJsonChunkSize, std::max(kSmallestChunk, 2 * length));
}

}  // namespace

bool ParseJsonText(std::string_view text, JsonDocument& document, std::string* fault) {
  // The parser stops at a NUL byte; JSON text never holds one raw.
  const size_t nul = text.find('\0');
  if (nul != std::string::npos) return ParseFault(fault, nul, "NUL byte in the text.");
  const LimitFaults limits = FindLimitFaults(text.data(), text.size());
  if (limits.too_deep != std::string::npos) {
    return ParseFault(
        fault, limits.too_deep,
        "arrays and objects nested deeper than " + std::to_string(kMaxNestingDepth) + " levels.");
  }
  if (limits.bad_number != std::string::npos) {
    return ParseFault(fault, limits.bad_number,
                      "Number longer than 40 characters or outside the range 1e-307 to 1e308.");
  }
  // Full precision: the fast number parse may be off by a unit in the last
  // place, so that a stored number would change at every write and read.
  if (limits.ascii) {
    document.Parse<rapidjson::kParseFullPrecisionFlag>(text.data(), text.size());
  } else {
    document.Parse<rapidjson::kParseValidateEncodingFlag | rapidjson::kParseFullPrecisionFlag>(
        text.data(), text.size());
  }
  if (!document.HasParseError()) {
    // The parser takes a lone low surrogate escape ("\udd11") as a character
    // and stores bytes that are not UTF-8, which no later parse would accept.
    // Only a \u escape can do that: text without one needs no second look.
    if (text.find("\\u") == std::string::npos) return true;
    const std::optional<std::string> pointer = FindInvalidUtf8(document);
    if (!pointer) return true;
    if (fault != nullptr) *fault = "at \"" + *pointer + "\": an escape that is not a character.";
    return false;
  }
  return ParseFault(fault, document.GetErrorOffset(),
                    rapidjson::GetParseError_En(document.GetParseError()));
}

std::shared_ptr<JsonDoc> CopyDocument(const JsonDoc& source) {
  constexpr size_t kSmallestChunk = 1024;
  const size_t used = source.GetAllocator().Size();
  std::shared_ptr<JsonDoc> copy =
      CreateDocumentWithChunks(std::min(kJsonChunkSize, std::max(kSmallestChunk, used)));
  copy->GetDocument().CopyFrom(*source.GetJsonValuePtr(), copy->GetAllocator());
  return copy;
}

std::shared_ptr<JsonDoc> CreateDocument() { return CreateDocumentWithChunks(kJsonChunkSize); }

std::shared_ptr<JsonDoc> CreateDocumentFromString(const std::string& text) {
  return ParseDocument(text);
}

std::shared_ptr<JsonDoc> ParseDocument(std::string_view text) {
  std::shared_ptr<JsonDoc> doc = CreateDocumentWithChunks(ChunkSizeForText(text.size()));
  std::string fault;
  if (!ParseJsonText(text, doc->GetDocument(), &fault)) {
    ThrowException<InvalidArgumentException, const char*>(SV_ERR_JSON_PARSE, fault.c_str());
  }
  return doc;
}

std::shared_ptr<JsonDoc> CreateDocumentFromFile(const std::string& path) {
  std::string content;
  std::string fault;
  std::shared_ptr<JsonDoc> doc = CreateDocument();
  if (!ReadFileBounded(path, kMaxDocumentFileBytes, &content, &fault)) {
    ThrowException<InvalidArgumentException, const char*>(SV_ERR_JSON_FILE,
                                                          (path + ": " + fault).c_str());
  }
  if (!ParseJsonText(content, doc->GetDocument(), &fault)) {
    ThrowException<InvalidArgumentException, const char*>(
        SV_ERR_JSON_FILE, (path + ": not valid JSON " + fault).c_str());
  }
  return doc;
}

}  // namespace KorvoSetvault
