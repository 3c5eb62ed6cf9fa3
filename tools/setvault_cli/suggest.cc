#include "setvault_cli/suggest.h"

#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

namespace setvault_tool {
namespace {

size_t EditDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

// The command of `parent` named `word` (or by an alias); null when none is,
// after printing the closest names.
const CLI::App* FindCommand(const CLI::App& parent, const std::string& word) {
  std::vector<std::pair<size_t, std::string>> candidates;
  for (const CLI::App* command : parent.get_subcommands({})) {
    std::vector<std::string> names = command->get_aliases();
    names.push_back(command->get_name());
    for (const std::string& name : names) {
      if (name == word) return command;
      const size_t distance = EditDistance(word, name);
      if (distance <= 2 || name.rfind(word, 0) == 0 || word.rfind(name, 0) == 0) {
        candidates.emplace_back(distance, command->get_name());
      }
    }
  }
  std::sort(candidates.begin(), candidates.end());
  const std::string path = parent.get_parent() == nullptr ? "" : parent.get_name() + " ";
  std::cerr << "setvault: unknown command '" << path << word << "'";
  for (size_t i = 0; i < candidates.size() && i < 3; ++i) {
    std::cerr << (i == 0 ? "; did you mean: " : ", ") << path << candidates[i].second;
  }
  std::cerr << "\nRun `setvault " << path << "--help` for the list of commands.\n";
  return nullptr;
}

}  // namespace

bool RejectUnknownCommand(CLI::App& app, int argc, char** argv) {
  const CLI::App* level = &app;
  for (int i = 1; i < argc && !level->get_subcommands({}).empty(); ++i) {
    const std::string arg = argv[i];
    if (arg == "--") return false;
    if (!arg.empty() && arg[0] == '-') {
      const CLI::Option* option = app.get_option_no_throw(arg);
      if (option != nullptr && arg.find('=') == std::string::npos &&
          option->get_items_expected_max() > 0) {
        ++i;  // skip the value of a global option
      }
      continue;
    }
    level = FindCommand(*level, arg);
    if (level == nullptr) return true;
  }
  return false;
}

}  // namespace setvault_tool
