// JsonDoc: a shared JSON document, or a view into part of one.
//
// Configuration data is held as RapidJSON documents. A JsonDoc holds a
// document and its allocator (both shared) and a path of JsonNode steps from
// the document's root to the value it stands for; the path is empty for a
// whole document. Several JsonDocs may share one document: a sub-object is a
// view into its parent's document, so a change through either is seen by both.
// The path is resolved on every access, so a view whose element was removed
// from the document reports an error instead of touching freed memory.
//
//   auto doc = KorvoSetvault::CreateDocumentFromString(R"({"mtu": 1500})");
//   int mtu = (*doc->GetJsonValuePtr())["mtu"].GetInt();
//   (*doc->GetJsonValuePtr())["mtu"].GetString();   // throws SetvaultException 1082
#ifndef SETVAULT_JSON_DOC_H_
#define SETVAULT_JSON_DOC_H_

// Must precede the RapidJSON headers.
#include "setvault/rapidjson_config.h"

#include <rapidjson/document.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "setvault/export.h"

namespace KorvoSetvault {

using JsonAllocator = rapidjson::MemoryPoolAllocator<rapidjson::CrtAllocator>;
using JsonDocument = rapidjson::GenericDocument<rapidjson::UTF8<>, JsonAllocator>;
using JsonValue = rapidjson::GenericValue<rapidjson::UTF8<>, JsonAllocator>;

// The memory pool grows in chunks of this many bytes.
constexpr size_t kJsonChunkSize = 65536;
// Initial size of a document's parse stack.
constexpr size_t kJsonParseStackSize = 1024;

// One step of a path into a document: a member name and, when the member is
// an array of instances, the member that holds each instance's id and the id
// that selects the element.
struct SETVAULT_EXPORT JsonNode {
  std::string name;
  std::string instanceKey;  // empty for a step into a plain member
  std::string instanceId;
  // The element's position in its array when the step was made (when
  // `hasIndex`): looked at first when the element is found again, and the
  // array searched by instance id when it holds another element by then.
  size_t index = 0;
  bool hasIndex = false;
};

class SETVAULT_EXPORT JsonDoc {
 public:
  // A view of `document` (allocated from `allocator`) at `path`.
  JsonDoc(std::vector<JsonNode> path, std::shared_ptr<JsonAllocator> allocator,
          std::shared_ptr<JsonDocument> document);

  // The value the path selects (the root for an empty path). The pointer is
  // owned by the document and stays valid until the document changes.
  // Throws SetvaultException 2000 "Subobject does not exists." when a step's
  // member is missing, and "Subobject instance does not exists." when no
  // element of an array carries the step's instance id.
  JsonValue* GetJsonValuePtr() const;

  // The JSON Pointer (RFC 6901) of the value the path selects, from the
  // document's root: "" for the root, array steps written as the element's
  // current index. Throws as GetJsonValuePtr.
  std::string GetJsonPointer() const;

  // A new view one step below this one, sharing the document.
  std::shared_ptr<JsonDoc> MakeView(JsonNode step) const;

  const std::vector<JsonNode>& GetPath() const { return path_; }
  JsonDocument& GetDocument() const { return *document_; }
  JsonAllocator& GetAllocator() const { return *allocator_; }

 private:
  // Walks the path; appends each step's pointer token to `tokens` when given.
  JsonValue* Resolve(std::vector<std::string>* tokens) const;

  std::vector<JsonNode> path_;
  std::shared_ptr<JsonAllocator> allocator_;
  std::shared_ptr<JsonDocument> document_;
};

// A new document holding null, with an empty path. Never throws but bad_alloc.
SETVAULT_EXPORT std::shared_ptr<JsonDoc> CreateDocument();

// Parses `text` (strict JSON in valid UTF-8, one root value, trailing blanks
// allowed, at most 512 levels of nesting, no NUL byte, numbers of at most 40
// characters and of magnitude 1e-307 to below 1e308 or zero, read exactly).
// Throws
// InvalidArgumentException 1080 when it does not parse; the message says
// where and why ("Invalid JSON text at offset 3: Invalid value.").
SETVAULT_EXPORT std::shared_ptr<JsonDoc> CreateDocumentFromString(const std::string& text);

// Parses the file at `path` as CreateDocumentFromString parses text. Throws
// InvalidArgumentException 1081, its message naming the path and the fault,
// when the file cannot be read, is larger than 16 MiB or is not valid JSON.
SETVAULT_EXPORT std::shared_ptr<JsonDoc> CreateDocumentFromFile(const std::string& path);

}  // namespace KorvoSetvault

#endif  // SETVAULT_JSON_DOC_H_
