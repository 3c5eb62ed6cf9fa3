// Commands on configuration documents: export, import and diff.
#include "setvault_cli/commands.h"
#include "setvault_cli/json_io.h"
#include "setvault_cli/output.h"

namespace setvault_tool {
namespace {

struct DocumentArgs {
  std::vector<std::string> types;
  std::string file;
  bool dry_run = false;
};

// The filter of a type named "component.group.key".
std::shared_ptr<KorvoSetvault::FilterSpecObject> TypeFilter(const std::string& type) {
  const size_t first = type.find('.');
  const size_t second = first == std::string::npos ? first : type.find('.', first + 1);
  if (second == std::string::npos || type.find('.', second + 1) != std::string::npos) {
    throw ToolError(kExitUsage, "export: name a type as component.group.key, not " + type);
  }
  return std::make_shared<KorvoSetvault::FilterSpecObject>(KorvoSetvault::SetvaultObjectId(
      type.substr(second + 1), type.substr(first + 1, second - first - 1), type.substr(0, first)));
}

std::string DriftsToJson(const std::vector<std::shared_ptr<KorvoSetvault::DriftObject>>& drifts) {
  std::string list = "[";
  for (const auto& drift : drifts) {
    const KorvoSetvault::SetvaultObjectId id = drift->GetSetvaultObjectId();
    list += std::string(list.size() > 1 ? "," : "") + "{\"component\":" + Quote(id.component) +
            ",\"group\":" + Quote(id.group) + ",\"key\":" + Quote(id.key) +
            ",\"instanceId\":" + Quote(id.instanceId) +
            ",\"operation\":" + Quote(drift->GetOperation()) + ",\"drift\":" + drift->GetData() +
            "}";
  }
  return list + "]";
}

// The drift of the stored configuration from `document`.
std::vector<std::shared_ptr<KorvoSetvault::DriftObject>> DriftFromStore(
    const std::string& document) {
  CheckStore(Access::kRead);
  return KorvoSetvault::ComputeDocumentDrift(document, KorvoSetvault::ExportStore());
}

int Export(const DocumentArgs& args) {
  CheckStore(Access::kRead);
  if (args.types.empty()) {
    PrintJson(KorvoSetvault::ExportStore());
    return kExitOk;
  }
  std::vector<std::shared_ptr<KorvoSetvault::FilterSpecObject>> filters;
  for (const std::string& type : args.types) filters.push_back(TypeFilter(type));
  PrintJson(KorvoSetvault::Export(filters));
  return kExitOk;
}

int Import(const DocumentArgs& args) {
  const std::string document = ReadDocumentFile(args.file);
  CheckStore(args.dry_run ? Access::kRead : Access::kWrite);
  const auto drifts = DriftFromStore(document);  // also refuses what an import refuses
  if (args.dry_run) {
    Note("dry run: nothing written; these objects would change");
    PrintJson(DriftsToJson(drifts));
    return kExitOk;
  }
  std::vector<KorvoSetvault::ErrorInfo> findings;
  if (!KorvoSetvault::Import(document, findings)) {
    PrintJson(FindingsToJson(findings));
    return kExitRefused;
  }
  PrintJson("{\"changed\":" + std::to_string(drifts.size()) + "}");
  return kExitOk;
}

}  // namespace

void AddDocumentCommands(CLI::App* app) {
  static DocumentArgs args;
  auto* exported =
      AddCommand(app, "export", "Print stored configuration as a document",
                 "Prints the stored configuration of the named types (component.group.key), or of\n"
                 "the whole store, as one document {component: {group: {key: data}}}; a type with\n"
                 "instances holds an array of them. `import` and `diff` read the same format.",
                 "setvault export korvo.net.vswitch > vswitch.json", [] { return Export(args); });
  exported->add_option("types", args.types, "Types as component.group.key (default: all)");

  auto* imported =
      AddCommand(app, "import", "Store a configuration document",
                 "Stores every object of the document; each type it names then holds exactly the\n"
                 "document's objects (other stored instances of it are deleted, other types are\n"
                 "untouched). The whole document is checked first: any finding (exit status 4)\n"
                 "writes nothing. --dry-run prints what would change and writes nothing.",
                 "setvault import backup.json --dry-run", [] { return Import(args); });
  imported->add_option("file", args.file, "Document file, or - for standard input")->required();
  imported->add_flag("--dry-run", args.dry_run, "Check and show the changes, write nothing");

  auto* diff = AddCommand(
      app, "diff", "Compare a desired document with the store",
      "Prints how the store differs from the document, one drift description per object:\n"
      "operation ADD (not stored), DELETE (stored, not in the document) or SET, with each\n"
      "differing member marked \"SET\", \"ADD\" or \"DELETE\" and instances by \"INSTANCEID\".\n"
      "Only the types the document names are compared. Nothing is written.",
      "setvault diff desired.json", [] {
        PrintJson(DriftsToJson(DriftFromStore(ReadDocumentFile(args.file))));
        return kExitOk;
      });
  diff->add_option("file", args.file, "Document file, or - for standard input")->required();
}

}  // namespace setvault_tool
