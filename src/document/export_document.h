// ExportDocument: the text of an export document, written as objects arrive.
//
// An export document is {component: {group: {key: data or [instances]}}}.
// Objects must arrive grouped: in ascending order of component, then group,
// then key (DocumentOrder); the instances of one key one after another. Only
// the text is held, so an export of many objects needs little more memory
// than the document itself.
#ifndef SETVAULT_SRC_DOCUMENT_EXPORT_DOCUMENT_H_
#define SETVAULT_SRC_DOCUMENT_EXPORT_DOCUMENT_H_

#include <rapidjson/writer.h>

#include <string>

#include "setvault/json_doc.h"
#include "setvault/object_id.h"

namespace KorvoSetvault {

// Orders ids as an export document holds them: by component, group, key and
// instance id, each compared byte by byte.
struct DocumentOrder {
  bool operator()(const SetvaultObjectId& a, const SetvaultObjectId& b) const;
};

class ExportDocument {
 public:
  ExportDocument();
  ExportDocument(const ExportDocument&) = delete;
  ExportDocument& operator=(const ExportDocument&) = delete;

  // Writes `data` as the value of [component][group][key] for a singleton
  // (empty `instanceId`) and as the next element of that key's array for an
  // instance. Throws SetvaultException 2000 when the object comes out of
  // order, when a singleton key is given twice, when a key is given both a
  // singleton and instances, or when `data` holds NaN or an infinity.
  void AddObject(const std::string& component, const std::string& group, const std::string& key,
                 const std::string& instanceId, const JsonValue& data);

  // Closes the open levels and hands the text over ("{}" when nothing was
  // added). The document takes no more objects afterwards.
  std::string Finish();

 private:
  // Appends to the text; the writer's output stream.
  struct Output {
    using Ch = char;
    std::string* text;
    void Put(char c) { text->push_back(c); }
    void Flush() {}
  };
  // How many levels below the root are open: 1 component, 2 group, 3 key.
  void CloseTo(int depth);
  void Open(int depth, const std::string& name);

  std::string text_;
  Output output_;
  rapidjson::Writer<Output> writer_;
  SetvaultObjectId last_;  // the last object's id; instanceId "" for a singleton
  int open_ = 0;
  bool instances_ = false;  // the open key holds instances
  bool finished_ = false;
};

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DOCUMENT_EXPORT_DOCUMENT_H_
