#include "setvault/exceptions.h"

#include "setvault/logger.h"

namespace Mandrel {
namespace Lib {

void PibMessage::Append(const std::string& identifier, const char* format, ...) {
  va_list args;
  va_start(args, format);
  auto node = std::make_shared<Node>();
  node->text = KorvoSetvault::FormatV(format, args);
  va_end(args);
  node->identifier = identifier;
  node->next = last_;
  last_ = std::move(node);
}

std::string PibMessage::ToString() const {
  if (!last_) return std::string();
  std::string text = "\nPib Stack: \n";
  for (const Node* node = last_.get(); node != nullptr; node = node->next.get()) {
    text += "[" + node->identifier + "]: " + node->text;
  }
  return text;
}

MandrelException::MandrelException(std::string text) : message(std::move(text)) {}
MandrelException::~MandrelException() = default;

const char* MandrelException::what() const noexcept { return message.c_str(); }

std::string MandrelException::GetDetailedMessage() const {
  return message + pibMessage.ToString();
}

}  // namespace Lib
}  // namespace Mandrel

namespace KorvoSetvault {

SetvaultException::SetvaultException(int code, const char* text)
    : MandrelException(text), errorCode(code) {
  SVLogger::Log(0, "[%d] %s", errorCode, message.c_str());
  SVLogger::LogBacktrace();
}
SetvaultException::SetvaultException(int code, const char* text, const std::string& detail)
    : SetvaultException(code, text) {
  if (detail.empty()) return;
  pibMessage.Append("cause", "%s", detail.c_str());
  SVLogger::Log(0, "[%d] cause: %s", errorCode, detail.c_str());
}
SetvaultException::~SetvaultException() = default;

std::string SetvaultException::toString() const {
  return "Error Code: " + std::to_string(errorCode) + "\nMessage: " + message + "\n";
}

InvalidArgumentException::InvalidArgumentException(int code, const char* text)
    : SetvaultException(code, text) {}
InvalidArgumentException::~InvalidArgumentException() = default;

InvalidTypeException::InvalidTypeException(int code, const char* text)
    : SetvaultException(code, text) {}
InvalidTypeException::~InvalidTypeException() = default;

StoreBusyException::StoreBusyException(int code, const char* text, int sqlite_code,
                                       const std::string& detail)
    : SetvaultException(code, text, detail), sqliteCode(sqlite_code) {
  pibMessage.Append("database", "SQLite result %d: the store stayed locked by another holder",
                    sqlite_code);
}
StoreBusyException::~StoreBusyException() = default;

RevisionConflictException::RevisionConflictException(const std::string& identity, int expected,
                                                     int stored)
    : SetvaultException(SV_ERR_REVISION_CONFLICT,
                        Format<const char*, int, int>(ErrorMessageForId(SV_ERR_REVISION_CONFLICT),
                                                      identity.c_str(), expected, stored)
                            .c_str()),
      expected_(expected),
      stored_(stored) {}
RevisionConflictException::~RevisionConflictException() = default;

ValidationException::ValidationException(int code, const char* text,
                                         std::vector<ErrorInfo>& findings)
    : SetvaultException(code, text), errors(findings) {}
ValidationException::ValidationException(int code, const char* text)
    : SetvaultException(code, text) {}
ValidationException::~ValidationException() = default;

std::string ValidationException::toString() const {
  std::string text = SetvaultException::toString();
  if (errors.empty()) return text;
  text += "Details: \n";
  for (const ErrorInfo& finding : errors) {
    text += finding.path + ": " + finding.message + "\n";
  }
  return text;
}

}  // namespace KorvoSetvault
