#include "setvault_cli/commands.h"

#include <iostream>
#include <memory>
#include <vector>

#include "setvault_cli/json_io.h"

namespace setvault_tool {
namespace {

using KorvoSetvault::FilterSpecObject;
using KorvoSetvault::SetvaultObject;
using KorvoSetvault::USERDATA_CONTEXT;

std::shared_ptr<KorvoSetvault::Setvault> OpenStore() {
  return KorvoSetvault::Setvault::GetStore(KorvoSetvault::sGlobalNamespace);
}

// A new object of the target's type holding `json`, with the target's
// instance id written into the member the type keeps it in.
std::shared_ptr<SetvaultObject> MakeObject(const KorvoSetvault::SetvaultObjectId& id,
                                           const std::string& json) {
  auto object = std::make_shared<SetvaultObject>(id);
  object->SetData(json.c_str());
  object->SetInstanceIdFromSvoId();
  return object;
}

std::shared_ptr<FilterSpecObject> MakeFilter(const Target& target, const std::string& json) {
  auto filter = std::make_shared<FilterSpecObject>(target.Id());
  if (!json.empty()) filter->SetData(ReadJsonArgument(json).c_str());
  return filter;
}

USERDATA_CONTEXT ContextOf(const WriteOptions& options) {
  USERDATA_CONTEXT context;
  context.kind = options.auto_config ? KorvoSetvault::kAutoConfigContext
                                     : KorvoSetvault::kExternalContext;
  return context;
}

int PrintObject(const std::shared_ptr<SetvaultObject>& object) {
  if (!object) {
    std::cout << "null\n";
    return 3;  // not found
  }
  std::cout << ObjectToJson(*object) << "\n";
  return 0;
}

int PrintFindings(const std::vector<KorvoSetvault::ErrorInfo>& findings) {
  std::cout << "[";
  for (size_t i = 0; i < findings.size(); ++i) {
    if (i > 0) std::cout << ",";
    std::cout << "{\"field\":" << Quote(findings[i].path)
              << ",\"error\":" << Quote(findings[i].message) << "}";
  }
  std::cout << "]\n";
  return findings.empty() ? 0 : 1;
}

}  // namespace

int LoadSchemas(const std::string& directory, bool merge) {
  const size_t count = KorvoSetvault::LoadSchemaDefinitions(
      directory, merge ? KorvoSetvault::SchemaLoadMode::kMerge
                       : KorvoSetvault::SchemaLoadMode::kReplaceAll);
  std::cout << "{\"loaded\":" << count << "}\n";
  return 0;
}

int CheckSchemas(const std::string& directory) {
  const size_t count = KorvoSetvault::CheckSchemaDefinitions(directory);  // throws first
  std::cout << "{\"valid\":" << count << "}\n";
  return 0;
}

int Get(const Target& target) { return PrintObject(OpenStore()->Get(target.Id())); }

int GetDefault(const Target& target) {
  return PrintObject(OpenStore()->GetDefaultConfig(target.Id()));
}

int Instances(const Target& target, const std::string& filter_json) {
  std::cout << ObjectsToJson(OpenStore()->GetInstances(MakeFilter(target, filter_json))) << "\n";
  return 0;
}

int DefaultInstances(const Target& target, const std::string& filter_json) {
  std::cout << ObjectsToJson(OpenStore()->GetDefaultConfigInstances(MakeFilter(target, filter_json)))
            << "\n";
  return 0;
}

int InstanceIds(const Target& target) {
  const auto ids = OpenStore()->GetInstanceIds(target.Id());
  std::cout << "[";
  for (size_t i = 0; i < ids.size(); ++i) std::cout << (i > 0 ? "," : "") << Quote(ids[i]);
  std::cout << "]\n";
  return 0;
}

int Revision(const Target& target) {
  std::cout << OpenStore()->GetRevision(target.Id()) << "\n";
  return 0;
}

int Revisions(const Target& target) {
  const auto revisions = OpenStore()->GetInstancesRevision(target.Id());
  std::cout << "{";
  for (size_t i = 0; i < revisions.size(); ++i) {
    std::cout << (i > 0 ? "," : "") << Quote(revisions[i].first) << ":" << revisions[i].second;
  }
  std::cout << "}\n";
  return 0;
}

int Validate(const Target& target, const std::string& json) {
  return PrintFindings(OpenStore()->Validate(MakeObject(target.Id(), ReadJsonArgument(json))));
}

int Write(const std::string& kind, const Target& target, const WriteOptions& options) {
  auto store = OpenStore();
  auto object = MakeObject(target.Id(), ReadJsonArgument(options.json));
  const USERDATA_CONTEXT context = ContextOf(options);
  if (kind == "set" && options.if_revision) {
    store->SetIfRevision(object, *options.if_revision, context);
  } else if (kind == "set") {
    store->Set(object, context);
  } else if (kind == "user") {
    store->SetUserData(object, context);
  } else if (kind == "vital") {
    store->SetVitalData(object);
  } else if (kind == "cached") {
    store->SetCachedData(object);
  } else if (options.if_revision) {
    store->UpdateIfRevision(object, *options.if_revision, context);
  } else {
    store->Update(object, context);
  }
  return PrintObject(store->Get(target.Id()));
}

int Delete(const Target& target) {
  OpenStore()->Delete(target.Id());
  std::cout << "{\"deleted\":" << Quote(target.Id().toString()) << "}\n";
  return 0;
}

int SetInstances(const Target& target, const WriteOptions& options) {
  auto doc = KorvoSetvault::CreateDocumentFromString(ReadJsonArgument(options.json));
  const KorvoSetvault::JsonValue& instances = *doc->GetJsonValuePtr();
  if (!instances.IsObject()) {
    throw KorvoSetvault::InvalidArgumentException(
        KorvoSetvault::SV_ERR_GENERIC, "set-instances expects an object of instance id to data");
  }
  std::vector<std::shared_ptr<SetvaultObject>> objects;
  for (const auto& member : instances.GetObject()) {
    Target instance = target;
    instance.instance.assign(member.name.GetString(), member.name.GetStringLength());
    objects.push_back(MakeObject(instance.Id(), Serialize(member.value)));
  }
  auto store = OpenStore();
  store->SetInstances(objects, ContextOf(options));
  std::cout << "{\"written\":" << objects.size() << "}\n";
  return 0;
}

int DeleteInstances(const Target& target, const std::string& filter_json) {
  OpenStore()->DeleteInstances(MakeFilter(target, filter_json));
  std::cout << "{\"deleted\":" << Quote(target.Id().toString()) << "}\n";
  return 0;
}

}  // namespace setvault_tool
