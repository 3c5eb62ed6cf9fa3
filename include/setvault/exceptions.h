// The exception tree of libsetvault.
//
// Every failure reaches the caller as one of these (none is reported through a
// return value, except the three transaction calls of the store). Each carries
// an SVErrorCodes value and a message; building one also writes "[code]
// message" and a backtrace to the log at priority 0, so every failure leaves a
// trace even when the caller swallows it. Failures of the store file or the
// schema database also carry their cause (the path and the system's or SQLite's
// reason) in GetDetailedMessage().
//
//   std::exception
//    └ Mandrel::Lib::MandrelException
//       └ KorvoSetvault::SetvaultException
//          ├ InvalidArgumentException   bad arguments to a public operation
//          ├ InvalidTypeException       typed access to a value of another kind
//          ├ ValidationException        data that fails its schema, with findings
//          └ StoreBusyException         the store stayed locked past the busy time-out
//
//   try {
//     store->Set(object, context);
//   } catch (const KorvoSetvault::ValidationException& e) {
//     for (const auto& finding : e.GetErrors()) Report(finding.path, finding.message);
//   } catch (const KorvoSetvault::StoreBusyException& e) {
//     RetryLater();                  // busy, not broken: same code and text as below
//   } catch (const KorvoSetvault::SetvaultException& e) {
//     Report(e.GetErrorCode(), e.what());
//   }
#ifndef SETVAULT_EXCEPTIONS_H_
#define SETVAULT_EXCEPTIONS_H_

#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "setvault/error_codes.h"
#include "setvault/export.h"
#include "setvault/format.h"

namespace Mandrel {
namespace Lib {

// A chain of event messages attached to a host exception. Nodes are added at
// the end; ToString() prints them from the last to the first. Copies share the
// chain.
class SETVAULT_EXPORT PibMessage {
 public:
  PibMessage() = default;

  // Appends a node with `identifier` and the printf-formatted text.
  void Append(const std::string& identifier, const char* format, ...)
      __attribute__((format(printf, 3, 4)));

  bool IsEmpty() const { return last_ == nullptr; }

  // "" for an empty chain; otherwise "\nPib Stack: \n" and "[identifier]: text"
  // per node, last node first, with no separator between entries.
  std::string ToString() const;

 private:
  struct Node {
    std::shared_ptr<const Node> next;  // the node appended before this one
    std::string identifier;
    std::string text;
  };
  std::shared_ptr<const Node> last_;
};

// Base of the host's exceptions: a message and an event chain.
class SETVAULT_EXPORT MandrelException : public std::exception {
 public:
  explicit MandrelException(std::string message);
  ~MandrelException() override;

  // The message, without code.
  const char* what() const noexcept override;

  // The message followed by the event chain's text.
  std::string GetDetailedMessage() const;

 protected:
  std::string message;
  PibMessage pibMessage;
};

}  // namespace Lib
}  // namespace Mandrel

namespace KorvoSetvault {

// One validation finding: where (a JSON Pointer) and what.
struct SETVAULT_EXPORT ErrorInfo {
  std::string path;
  std::string message;
};

class SETVAULT_EXPORT SetvaultException : public Mandrel::Lib::MandrelException {
 public:
  // Copies `message` (must not be null) and logs "[code] message" and a
  // backtrace at priority 0.
  SetvaultException(int code, const char* message);
  // The same, and adds `detail` (for example the file concerned and the system's reason)
  // to the event chain under the identifier "cause", so that GetDetailedMessage() ends
  // with it while what() stays the code's fixed text. Logs the detail too.
  SetvaultException(int code, const char* message, const std::string& detail);
  ~SetvaultException() override;

  int GetErrorCode() const { return errorCode; }

  // "Error Code: <code>\nMessage: <message>\n".
  std::string toString() const;

 protected:
  int errorCode;
  std::vector<std::string> extraInfo;  // reserved; always empty
};

class SETVAULT_EXPORT InvalidArgumentException : public SetvaultException {
 public:
  InvalidArgumentException(int code, const char* message);
  ~InvalidArgumentException() override;
};

class SETVAULT_EXPORT InvalidTypeException : public SetvaultException {
 public:
  InvalidTypeException(int code, const char* message);
  ~InvalidTypeException() override;
};

class SETVAULT_EXPORT ValidationException : public SetvaultException {
 public:
  // Copies `errors`.
  ValidationException(int code, const char* message, std::vector<ErrorInfo>& errors);
  // No findings.
  ValidationException(int code, const char* message);
  ~ValidationException() override;

  const std::vector<ErrorInfo>& GetErrors() const { return errors; }

  // The SetvaultException text, then, when there are findings, "Details: \n"
  // and "path: message\n" for each finding in order.
  std::string toString() const;

 protected:
  std::vector<ErrorInfo> errors;
};

// A database failure caused by another holder of the store's lock: SQLite
// answered SQLITE_BUSY (another process or connection kept the write lock past
// the busy time-out) or SQLITE_LOCKED. Code and message are the ones the
// operation reports for any database failure (2000 and its usual text), so a
// caller that only catches SetvaultException sees no difference; a caller that
// catches this type knows that retrying later may succeed. The detailed message
// names SQLite's result code.
class SETVAULT_EXPORT StoreBusyException : public SetvaultException {
 public:
  // `sqliteCode` is SQLite's (extended) result code; `detail`, when not empty, is added
  // as the cause, as for SetvaultException.
  StoreBusyException(int code, const char* message, int sqliteCode,
                     const std::string& detail = std::string());
  ~StoreBusyException() override;

  // SQLite's extended result code: its low byte is SQLITE_BUSY (5) or
  // SQLITE_LOCKED (6).
  int GetSqliteCode() const { return sqliteCode; }

 protected:
  int sqliteCode;
};

// A conditional write (SetIfRevision, UpdateIfRevision, SetInstancesIfRevisions)
// refused because the stored revision is not the one the caller read: another
// writer came first, or the object was created or deleted meanwhile. Nothing of
// the call was written. Code SV_ERR_REVISION_CONFLICT (1105), message
// "Revision conflict for <identity>: expected revision <e>, stored revision <s>"
// (-1 stands for "not stored").
//
//   try {
//     store->SetIfRevision(object, read->GetRevision(), context);
//   } catch (const KorvoSetvault::RevisionConflictException& e) {
//     // re-read, decide again, retry
//   }
class SETVAULT_EXPORT RevisionConflictException : public SetvaultException {
 public:
  // `identity` is the object's text form.
  RevisionConflictException(const std::string& identity, int expected, int stored);
  ~RevisionConflictException() override;

  // The revision the caller expected, and the one stored (-1: none stored).
  int GetExpectedRevision() const { return expected_; }
  int GetStoredRevision() const { return stored_; }

 private:
  int expected_;
  int stored_;
};

// Throws `E` with `code` and the code's message (ErrorMessageForId) formatted
// with `args`, which must match the code's conversions. Never returns.
//
//   ThrowException<InvalidArgumentException>(SV_ERR_EMPTY_OBJECT_LIST);
//   ThrowException<SetvaultException, const char*>(SV_ERR_SCHEMA_NOT_FOUND, id.c_str());
template <typename E, typename... Args>
[[noreturn]] void ThrowException(SVErrorCodes code, Args... args) {
  throw E(code, Format<Args...>(ErrorMessageForId(code), args...).c_str());
}

}  // namespace KorvoSetvault

#endif  // SETVAULT_EXCEPTIONS_H_
