#include "document/export_document.h"

#include <tuple>

#include "setvault/exceptions.h"

namespace KorvoSetvault {
namespace {

[[noreturn]] void Fail(const std::string& what, const SetvaultObjectId& id) {
  throw SetvaultException(SV_ERR_GENERIC,
                          ("Export document: " + what + ": " + id.toString()).c_str());
}

}  // namespace

bool DocumentOrder::operator()(const SetvaultObjectId& a, const SetvaultObjectId& b) const {
  return std::tie(a.component, a.group, a.key, a.instanceId) <
         std::tie(b.component, b.group, b.key, b.instanceId);
}

ExportDocument::ExportDocument() : output_{&text_}, writer_(output_), last_("", "", "") {
  writer_.StartObject();
}

void ExportDocument::CloseTo(int depth) {
  for (; open_ > depth; --open_) {
    if (open_ == 3 && instances_) {
      writer_.EndArray();
    } else if (open_ < 3) {
      writer_.EndObject();
    }
  }
}

void ExportDocument::Open(int depth, const std::string& name) {
  writer_.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
  if (depth < 3) writer_.StartObject();
  open_ = depth;
}

void ExportDocument::AddObject(const std::string& component, const std::string& group,
                               const std::string& key, const std::string& instanceId,
                               const JsonValue& data) {
  const SetvaultObjectId id(key, group, component, instanceId);
  if (finished_) Fail("object after the end", id);
  const bool instance = !instanceId.empty();
  // The first level at which the object's place differs from the last one's.
  int same = 0;
  if (open_ >= 1 && component == last_.component) {
    same = 1;
    if (open_ >= 2 && group == last_.group) {
      same = 2;
      if (open_ >= 3 && key == last_.key) same = 3;
    }
  }
  if (open_ > 0 && same < 3) {
    const SetvaultObjectId this_type(key, group, component);
    const SetvaultObjectId last_type(last_.key, last_.group, last_.component);
    if (!DocumentOrder()(last_type, this_type)) Fail("object out of order", id);
  }
  if (same == 3 && (!instance || !instances_)) Fail("key given twice", id);
  CloseTo(same);
  if (open_ < 1) Open(1, component);
  if (open_ < 2) Open(2, group);
  if (open_ < 3) {
    Open(3, key);
    instances_ = instance;
    if (instance) writer_.StartArray();
  }
  if (!data.Accept(writer_)) Fail("value cannot be written as JSON", id);
  last_ = id;
}

std::string ExportDocument::Finish() {
  if (!finished_) {
    CloseTo(0);
    writer_.EndObject();
    finished_ = true;
  }
  return std::move(text_);
}

}  // namespace KorvoSetvault
