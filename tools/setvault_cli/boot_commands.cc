// Commands around the next boot: next-boot, boot-status, kernel-options and
// the host flags (kv).
#include <iostream>

#include "setvault_cli/commands.h"
#include "setvault_cli/json_io.h"
#include "setvault_cli/output.h"

namespace setvault_tool {
namespace {

using KorvoSetvault::SetvaultObject;

struct BootArgs {
  Target target;
  std::vector<std::string> words;  // [instance] data
  std::string filter;
  std::string partial;
  std::string key;
  std::string value;
};

const KorvoSetvault::SetvaultObjectId kKernelOptions("options", "hvcore", "korvo");

std::shared_ptr<SetvaultObject> MakeObject(const KorvoSetvault::SetvaultObjectId& id,
                                           const std::string& json) {
  auto object = std::make_shared<SetvaultObject>(id);
  object->SetData(json.c_str());
  object->SetInstanceIdFromSvoId();
  return object;
}

int PrintFound(const std::string& what, const std::shared_ptr<SetvaultObject>& object) {
  if (!object) {
    Note("nothing staged for " + what);
    return kExitNotFound;
  }
  PrintJson(ObjectToJson(*object));
  return kExitOk;
}

std::shared_ptr<KorvoSetvault::NextBootStore> NextBoot(Access access) {
  return OpenStore(access)->GetNextBootStore();
}

// Adds `name` under next-boot with the target arguments.
CLI::App* AddStaged(CLI::App* parent, const char* name, const char* summary,
                    const std::string& description, const std::string& example,
                    std::function<int()> handler, bool with_instance, BootArgs* args) {
  auto* command = AddCommand(parent, name, summary, description, example, std::move(handler));
  AddTarget(command, &args->target, with_instance);
  return command;
}

void AddNextBoot(CLI::App* app, BootArgs& a) {
  CLI::App* next =
      app->add_subcommand("next-boot", "Stage reboot-required configuration for the next boot");
  next->require_subcommand(1);
  next->footer(
      "Types tagged @rebootRequiredSetvault take effect only at the next boot: their changes\n"
      "are staged here, and `setvault boot-status` confirms them once the boot applied them.");
  AddStaged(
      next, "get", "Print the value staged for the next boot", "Exit status 3 when none.",
      "setvault next-boot get korvo hvcore cpuScheduler",
      [&a] { return PrintFound(a.target.Words(), NextBoot(Access::kRead)->Get(a.target.Id())); },
      true, &a);
  auto* set = AddStaged(
      next, "set", "Stage an object for the next boot",
      "Stages the whole object (checked against its type) to be applied at the next boot.",
      "setvault next-boot set korvo hvcore cpuScheduler '{\"reservedCores\": 2}'",
      [&a] {
        if (a.words.size() == 2) a.target.instance = a.words[0];
        auto object = MakeObject(a.target.Id(), ReadJsonObject(a.words.back(), "data"));
        auto next_boot = NextBoot(Access::kWrite);
        next_boot->Set(object);
        return PrintFound(a.target.Words(), next_boot->Get(a.target.Id()));
      },
      false, &a);
  set->add_option("data", a.words, "[INSTANCE] DATA: JSON, @file or -")->required()->expected(1, 2);
  AddStaged(
      next, "delete", "Stage the deletion of an object at the next boot",
      "Stages the deletion of the object (of one instance) for the next boot; the\n"
      "stored object stays until then.",
      "setvault next-boot delete korvo hvcore pciPassthrough 0000:3b:00.0",
      [&a] {
        NextBoot(Access::kWrite)->Delete(a.target.Id());
        PrintJson("{\"staged\":\"DELETE\"}");
        return kExitOk;
      },
      true, &a);
  AddStaged(
      next, "reset", "Drop everything staged for a type",
      "Drops every change staged for the type (all its instances); the stored\n"
      "configuration is not touched.",
      "setvault next-boot reset korvo hvcore cpuScheduler",
      [&a] {
        NextBoot(Access::kWrite)->Reset(a.target.Id());
        PrintJson("{\"reset\":true}");
        return kExitOk;
      },
      false, &a);
  auto* instances = AddStaged(
      next, "instances", "List the instances staged for the next boot",
      "Prints the staged values of the type's instances matching --filter.",
      "setvault next-boot instances korvo hvcore pciPassthrough",
      [&a] {
        auto filter = std::make_shared<KorvoSetvault::FilterSpecObject>(a.target.Id());
        if (!a.filter.empty()) filter->SetData(ReadJsonObject(a.filter, "--filter").c_str());
        PrintJson(ObjectsToJson(NextBoot(Access::kRead)->GetInstances(filter)));
        return kExitOk;
      },
      false, &a);
  instances->add_option("--filter", a.filter, "Values to match: JSON, @file or -");
}

}  // namespace

void AddBootCommands(CLI::App* app) {
  static BootArgs a;
  AddNextBoot(app, a);

  auto* status =
      AddCommand(app, "boot-status", "Confirm that the boot applied the staged configuration",
                 "Run by the host after a boot: the staged value of the object (of every instance\n"
                 "when none is named) becomes its current value. With --partial, only the members\n"
                 "given are confirmed.",
                 "setvault boot-status korvo hvcore options", [] {
                   CheckStore(Access::kWrite);
                   if (a.partial.empty()) {
                     KorvoSetvault::SetBootStatus(a.target.Id(), true);
                   } else {
                     KorvoSetvault::SetPartialBootStatus(
                         MakeObject(a.target.Id(), ReadJsonObject(a.partial, "--partial")));
                   }
                   PrintJson("{\"confirmed\":" + Quote(a.target.Words()) + "}");
                   return kExitOk;
                 });
  AddTarget(status, &a.target, true);
  status->add_option("--partial", a.partial, "Confirm only these members: JSON, @file or -");

  CLI::App* kernel = app->add_subcommand("kernel-options", "Read or stage the kernel options");
  kernel->require_subcommand(1);
  AddCommand(kernel, "get", "Print the kernel options the next boot uses",
             "Prints the staged kernel options, or the current ones when none are staged.",
             "setvault kernel-options get", [] {
               CheckStore(Access::kRead);
               return PrintFound("kernel options", KorvoSetvault::GetKernelOptions(kKernelOptions));
             });
  auto* update = AddCommand(
      kernel, "update", "Merge values into the kernel options for the next boot",
      "Merges the data into the kernel options and stages the result for the next boot.",
      "setvault kernel-options update '{\"logLevel\": \"debug\"}'", [] {
        CheckStore(Access::kWrite);
        KorvoSetvault::UpdateKernelOptions(
            MakeObject(kKernelOptions, ReadJsonObject(a.value, "data")));
        return PrintFound("kernel options", KorvoSetvault::GetKernelOptions(kKernelOptions));
      });
  update->add_option("data", a.value, "Data: JSON, @file or -")->required();

  CLI::App* kv = app->add_subcommand("kv", "Read or write a host flag");
  kv->require_subcommand(1);
  kv->footer(
      "Host flags: IS_BOOT, BOOT_MODE, BOOT_INFO, NOTIFY_NEXD (\"true\" enables change\n"
      "notifications), UPGRADE_CTX.");
  auto* kv_get = AddCommand(kv, "get", "Print a host flag", "Exit status 3 when it is not set.",
                            "setvault kv get NOTIFY_NEXD", [] {
                              CheckStore(Access::kRead);
                              const std::string value = KorvoSetvault::GetKeyValue(a.key);
                              if (value.empty()) {
                                Note(a.key + " is not set");
                                return static_cast<int>(kExitNotFound);
                              }
                              std::cout << value << "\n";
                              return static_cast<int>(kExitOk);
                            });
  kv_get->add_option("key", a.key, "Flag name")->required();
  auto* kv_set = AddCommand(kv, "set", "Set a host flag", "Stores VALUE under the host flag KEY.",
                            "setvault kv set NOTIFY_NEXD true", [] {
                              CheckStore(Access::kWrite);
                              KorvoSetvault::SetKeyValue(a.key, a.value);
                              return static_cast<int>(kExitOk);
                            });
  kv_set->add_option("key", a.key, "Flag name")->required();
  kv_set->add_option("value", a.value, "Value")->required();
}

}  // namespace setvault_tool
