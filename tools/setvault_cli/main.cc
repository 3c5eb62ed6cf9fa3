// setvault: the command-line tool of the host's configuration store.
//
//   setvault --store /var/lib/host/store.db schema load /usr/share/host/schemas
//   setvault set korvo net vswitch vs0 '{"mtu": 9000}'
//   setvault get korvo net vswitch vs0
//
// Every command prints JSON on standard output and notes and errors on
// standard error; the exit statuses are listed in kExitStatuses.
#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdlib>
#include <iostream>

#include "setvault_cli/commands.h"
#include "setvault_cli/errors.h"
#include "setvault_cli/output.h"
#include "setvault_cli/suggest.h"

namespace {

constexpr char kVersion[] = "0.1.0";

constexpr char kOrigins[] =
    "Each object has up to four origins, stored in separate columns and merged on reads:\n"
    "  user                what an operator or management client chose: set, set-user, update\n"
    "  vital               identity facts of the host that must survive a configuration\n"
    "                      reset (members the type marks vital): set-vital\n"
    "  cached              facts the host discovers at run time and can rediscover\n"
    "                      (members marked cached): set-cached\n"
    "  auto-configuration  values the host works out itself; a user's value wins on\n"
    "                      reads: set, set-user or update with --auto\n"
    "`set` splits whole objects by the type's marks; use set-vital or set-cached from the\n"
    "programs that discover those facts, and --auto from the host's own configuration code.\n";

constexpr char kExitStatuses[] =
    "Exit status: 0 success, 1 operation failed, 2 usage error, 3 nothing stored or not\n"
    "found, 4 validation refused the data, 5 store busy (another process holds it).\n"
    "JSON arguments are text, @file or - (standard input). Output is pretty and coloured\n"
    "on a terminal, one line per result when piped or with --compact; times are UTC.";

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

}  // namespace

int main(int argc, char** argv) {
  const auto start = std::chrono::steady_clock::now();
  CLI::App app{
      "setvault: read and write the host's configuration store.\n\n"
      "Objects are typed by loaded definitions (component group key) and checked\n"
      "against them on every write."};
  app.name("setvault");
  app.require_subcommand(1);
  app.fallthrough();  // global options may also follow the command
  app.set_version_flag("--version", std::string("setvault ") + kVersion);
  app.footer(std::string(kOrigins) + "\n" + kExitStatuses);
  std::string store_path = Environment("SETVAULT_STORE");
  std::string schema_path = Environment("SETVAULT_SCHEMA_DB");
  std::string notify_dir = Environment("SETVAULT_NOTIFY_DIR");
  std::string allowlist = Environment("SETVAULT_NOTIFY_ALLOWLIST");
  int verbosity = -1;  // the tool reports failures itself
  bool compact = false;
  bool no_colour = false;
  app.add_option("--store", store_path,
                 "Store database (default $SETVAULT_STORE, else the system store)");
  app.add_option("--schema-db", schema_path,
                 "Schema database (default $SETVAULT_SCHEMA_DB, else the system one)");
  app.add_option("--notify-dir", notify_dir,
                 "Directory of the notification socket (default $SETVAULT_NOTIFY_DIR, else .)");
  app.add_option("--notify-allowlist", allowlist,
                 "Allowlist of notified types (default $SETVAULT_NOTIFY_ALLOWLIST, else the "
                 "system one)");
  app.add_option("-v,--verbosity", verbosity,
                 "Also print the library's log on standard error up to this priority: 0 "
                 "errors, 1 warnings, 2 information, 3 writes, 4 reads");
  app.add_flag("--compact", compact, "One line of JSON per result, also on a terminal");
  app.add_flag("--no-colour,--no-color", no_colour, "No colours on a terminal");

  setvault_tool::AddSchemaCommands(&app);
  setvault_tool::AddObjectReadCommands(&app);
  setvault_tool::AddObjectWriteCommands(&app);
  setvault_tool::AddDocumentCommands(&app);
  setvault_tool::AddBootCommands(&app);
  setvault_tool::AddWatchCommand(&app);

  // Settings take effect before any command runs.
  app.parse_complete_callback([&] {
    setvault_tool::ConfigureOutput(compact, no_colour);
    KorvoSetvault::SVLogger::SetStderrSink();
    KorvoSetvault::SVLogger::SetThreshold(verbosity);
    if (!store_path.empty()) KorvoSetvault::SetStorePath(store_path);
    if (!schema_path.empty()) KorvoSetvault::SetSchemaStorePath(schema_path);
    if (!notify_dir.empty()) KorvoSetvault::SetNotifySocketDirectory(notify_dir);
    if (!allowlist.empty()) KorvoSetvault::SetNotifyAllowlistPath(allowlist);
  });

  if (setvault_tool::RejectUnknownCommand(app, argc, argv)) return setvault_tool::kExitUsage;
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? setvault_tool::kExitOk : setvault_tool::kExitUsage;
  } catch (const std::exception& e) {
    const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
    return setvault_tool::ReportFailure(e, static_cast<long>(waited.count()));
  }
  return setvault_tool::CommandStatus();
}
