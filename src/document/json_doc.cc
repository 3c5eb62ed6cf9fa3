#include "setvault/json_doc.h"

#include <algorithm>

#include <cstdio>
#include <cstring>

#include "document/json_parse.h"
#include "document/value_limits.h"
#include "platform/setvault_document.h"
#include "setvault/exceptions.h"
#include "setvault/logger.h"

namespace KorvoSetvault {
namespace {

// True when the arrays and objects of `text` nest at most kMaxNestingDepth
// deep. Brackets inside strings do not count. Invalid JSON is left to the
// parser to report.
bool NestingWithinLimit(const char* text, size_t length) {
  int depth = 0;
  bool in_string = false;
  for (size_t i = 0; i < length; ++i) {
    const char c = text[i];
    if (in_string) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        in_string = false;
      }
    } else if (c == '"') {
      in_string = true;
    } else if (c == '[' || c == '{') {
      if (++depth > kMaxNestingDepth) return false;
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
  return true;
}

// Reads the whole file at `path`; false when it cannot be read.
bool ReadFile(const std::string& path, std::string* content) {
  std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
  if (!file) return false;
  char buffer[64 * 1024];
  size_t count;
  while ((count = std::fread(buffer, 1, sizeof buffer, file.get())) > 0) {
    content->append(buffer, count);
  }
  return std::ferror(file.get()) == 0;
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

bool ParseJsonText(const std::string& text, JsonDocument& document) {
  // The parser stops at a NUL byte; JSON text never holds one raw.
  if (text.find('\0') != std::string::npos) return false;
  if (!NestingWithinLimit(text.data(), text.size())) return false;
  document.Parse(text.c_str(), text.size());
  return !document.HasParseError();
}

std::shared_ptr<JsonDoc> CreateDocument() { return CreateDocumentWithChunks(kJsonChunkSize); }

std::shared_ptr<JsonDoc> CreateDocumentFromString(const std::string& text) {
  std::shared_ptr<JsonDoc> doc = CreateDocumentWithChunks(ChunkSizeForText(text.size()));
  if (!ParseJsonText(text, doc->GetDocument())) {
    ThrowException<InvalidArgumentException>(SV_ERR_JSON_PARSE);
  }
  return doc;
}

std::shared_ptr<JsonDoc> CreateDocumentFromFile(const std::string& path) {
  std::string content;
  std::shared_ptr<JsonDoc> doc = CreateDocument();
  if (!ReadFile(path, &content) || !ParseJsonText(content, doc->GetDocument())) {
    ThrowException<InvalidArgumentException, const char*>(SV_ERR_JSON_FILE, path.c_str());
  }
  return doc;
}

}  // namespace KorvoSetvault
