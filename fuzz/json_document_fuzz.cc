// Fuzzes document parsing and typed access: any input must end in a parsed
// document or a library exception, never a crash, a hang or another
// exception type; what parses serializes to text that parses and serializes
// to the same text.
#include <string>
#include <vector>

#include "document/setvault_document.h"
#include "fuzz_support.h"

namespace {

void ReadEveryWay(const KorvoSetvault::StoreObject& object) {
  for (const char* key : {"a", "b", "list", "blob"}) {
    std::string s;
    int i = 0;
    double d = 0;
    std::vector<std::string> strings;
    Tolerating([&] { object.GetValue(key, &s); });
    Tolerating([&] { object.GetValue(key, &i); });
    Tolerating([&] { object.GetValue(key, &d); });
    Tolerating([&] { object.GetValue(key, &strings); });
    unsigned char* bytes = nullptr;
    unsigned long length = 0;
    Tolerating([&] {
      if (object.GetValueBinary(key, &bytes, &length) != 0) delete[] bytes;
    });
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using KorvoSetvault::SetvaultDocument;
  const std::string text = FuzzInput(data, size);
  std::shared_ptr<KorvoSetvault::JsonDoc> document;
  try {
    document = KorvoSetvault::CreateDocumentFromString(text);
  } catch (const KorvoSetvault::SetvaultException&) {
    return 0;  // refused: the expected outcome for most input
  }
  try {
    const std::string serialized = SetvaultDocument::SerializeValue(*document->GetJsonValuePtr());
    auto again = KorvoSetvault::CreateDocumentFromString(serialized);
    // Compared as text: equality of values is ambiguous for repeated member names.
    if (SetvaultDocument::SerializeValue(*again->GetJsonValuePtr()) != serialized) {
      __builtin_trap();
    }
  } catch (const KorvoSetvault::SetvaultException&) {
    __builtin_trap();  // a parsed document must serialize and parse again
  }
  Tolerating([&] {
    KorvoSetvault::StoreObject object(KorvoSetvault::SetvaultObjectId("k", "g", "c"));
    object.SetData(text.c_str());
    if (!object.IsEmpty()) ReadEveryWay(object);
    object.GetData();
  });
  return 0;
}
