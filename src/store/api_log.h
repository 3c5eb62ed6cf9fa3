// The per-call log line of every store operation.
#ifndef SETVAULT_SRC_STORE_API_LOG_H_
#define SETVAULT_SRC_STORE_API_LOG_H_

#include "setvault/logger.h"
#include "setvault/object_id.h"
#include "setvault/user_context.h"

namespace KorvoSetvault {

// Log priorities of store calls.
constexpr log_priority kWriteCallPriority = 3;
constexpr log_priority kReadCallPriority = 4;

// The context number of the log line: 1 for the external context (and for
// operations without a context), 0 otherwise.
inline int ContextValue(const USERDATA_CONTEXT& context) {
  return context.kind == kExternalContext ? 1 : 0;
}

// Writes "<operation> : <id>, context: <contextValue>" at `priority`. The
// threshold is checked first, so a disabled trace costs one comparison.
inline void LogApiCall(log_priority priority, const char* operation, const SetvaultObjectId& id,
                       int contextValue) {
  if (!SVLogger::IsEnabled(priority)) return;
  SVLogger::Log(priority, "%s : %s, context: %d", operation, id.toString().c_str(), contextValue);
}

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_STORE_API_LOG_H_
