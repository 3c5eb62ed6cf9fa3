#include "setvault_cli/errors.h"

#include <algorithm>
#include <cctype>
#include <iostream>
#include <string>

#include <setvault/setvault.h>

#include "setvault_cli/output.h"

namespace setvault_tool {
namespace {

bool Contains(std::string text, const std::string& part) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text.find(part) != std::string::npos;
}

// The cause the library adds to a store or schema database failure (the path and the
// system's or SQLite's reason), or an empty text.
std::string CauseOf(const KorvoSetvault::SetvaultException& e) {
  const std::string detail = e.GetDetailedMessage();
  const std::string marker = "[cause]: ";
  const std::string::size_type at = detail.find(marker);
  if (at == std::string::npos) return "";
  const std::string::size_type end = detail.find('\n', at);
  return detail.substr(at + marker.size(),
                       end == std::string::npos ? std::string::npos : end - at - marker.size());
}

int ReportLibraryMessage(const KorvoSetvault::SetvaultException& e, long waited_ms) {
  const std::string message = e.what();
  if (dynamic_cast<const KorvoSetvault::StoreBusyException*>(&e) != nullptr) {
    Note("the store " + KorvoSetvault::GetStorePath() +
         " is busy: another process holds it; gave up after waiting " +
         std::to_string(waited_ms / 1000) + "." + std::to_string(waited_ms % 1000 / 100) + " s (" +
         message + ")");
    return kExitBusy;
  }
  if (Contains(message, "should contain instanceid")) {
    Note(
        "this type holds instances: add the instance id after the key (or --instance ID), "
        "e.g. `setvault get korvo net vswitch vs0`; `setvault ids` lists them");
    return kExitUsage;
  }
  if (Contains(message, "permission denied") || Contains(message, "readonly database") ||
      Contains(message, "unable to open") || Contains(message, "connect to database")) {
    Note("error " + std::to_string(e.GetErrorCode()) + ": " + message + " (store " +
         KorvoSetvault::GetStorePath() + ", schema database " +
         KorvoSetvault::GetSchemaStorePath() + ")");
    return kExitFailed;
  }
  Note("error " + std::to_string(e.GetErrorCode()) + ": " + message);
  const auto* validation = dynamic_cast<const KorvoSetvault::ValidationException*>(&e);
  if (validation != nullptr && !validation->GetErrors().empty()) {
    for (const auto& finding : validation->GetErrors()) {
      std::cerr << "  " << (finding.path.empty() ? "/" : finding.path) << ": " << finding.message
                << "\n";
    }
    return kExitRefused;
  }
  return e.GetErrorCode() == KorvoSetvault::SV_ERR_SCHEMA_NOT_FOUND ? kExitNotFound : kExitFailed;
}

// Reports `e` in the user's words, then the library's cause when it gave one.
int ReportLibraryFailure(const KorvoSetvault::SetvaultException& e, long waited_ms) {
  const int status = ReportLibraryMessage(e, waited_ms);
  const std::string cause = CauseOf(e);
  if (!cause.empty()) std::cerr << "  cause: " << cause << "\n";
  return status;
}

}  // namespace

int ReportFailure(const std::exception& e, long waited_ms) {
  if (const auto* tool = dynamic_cast<const ToolError*>(&e)) {
    Note(tool->what());
    return tool->status();
  }
  if (const auto* library = dynamic_cast<const KorvoSetvault::SetvaultException*>(&e)) {
    return ReportLibraryFailure(*library, waited_ms);
  }
  Note(std::string("error: ") + e.what());
  return kExitFailed;
}

}  // namespace setvault_tool
