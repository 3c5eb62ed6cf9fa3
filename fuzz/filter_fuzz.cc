// Fuzzes filters: the input is a filter, a newline, the data of an object
// and optionally a newline and a schema. Building the filter and its nested
// filters, matching the object against it and the schema-guided subset test
// end in a result or a library exception, never a crash or a hang.
#include <string>

#include "fuzz_support.h"
#include "model/filter_match.h"

namespace {

using KorvoSetvault::SetvaultException;

// The part of `text` before the first newline; `text` keeps the rest.
std::string TakeLine(std::string* text) {
  const size_t end = text->find('\n');
  std::string line = text->substr(0, end);
  text->erase(0, end == std::string::npos ? text->size() : end + 1);
  return line;
}

void WalkNestedFilters(KorvoSetvault::FilterSpecObject& filter) {
  const KorvoSetvault::JsonValue& data = KorvoSetvault::FilterData(filter);
  if (!data.IsObject()) return;
  for (const auto& member : data.GetObject()) {
    const KorvoSetvault::SubObjectId id(
        std::string(member.name.GetString(), member.name.GetStringLength()));
    Tolerating([&] {
      if (auto nested = filter.GetSubObjectFilter(id)) nested->GetData();
    });
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string input = FuzzInput(data, size);
  const std::string filter_text = TakeLine(&input);
  const std::string object_text = TakeLine(&input);
  const KorvoSetvault::SetvaultObjectId type("vswitch", "net", "korvo");
  auto filter = std::make_shared<KorvoSetvault::FilterSpecObject>(type);
  std::shared_ptr<KorvoSetvault::JsonDoc> object;
  try {
    filter->SetData(filter_text.c_str());
    object = KorvoSetvault::CreateDocumentFromString(object_text);
  } catch (const SetvaultException&) {
    return 0;
  }
  WalkNestedFilters(*filter);
  const KorvoSetvault::JsonValue& object_data = *object->GetJsonValuePtr();
  Tolerating([&] {
    KorvoSetvault::KeepMatching(
        std::vector<std::shared_ptr<KorvoSetvault::JsonDoc>>{object}, filter,
        [](const KorvoSetvault::JsonDoc& doc) -> const KorvoSetvault::JsonValue& {
          return *doc.GetJsonValuePtr();
        });
  });
  if (input.empty()) return 0;
  Tolerating([&] {
    auto schema = KorvoSetvault::CreateDocumentFromString(input);
    KorvoSetvault::IsSubsetBySchema(object_data, KorvoSetvault::FilterData(*filter),
                                    *schema->GetJsonValuePtr());
  });
  return 0;
}
