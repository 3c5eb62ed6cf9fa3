// Internal view of the message table, for checks of its formats.
#ifndef SETVAULT_SRC_ERRORS_ERROR_MESSAGES_H_
#define SETVAULT_SRC_ERRORS_ERROR_MESSAGES_H_

#include "setvault/error_codes.h"

namespace KorvoSetvault {

struct ErrorMessageEntry {
  SVErrorCodes code;
  const char* format;
  const char* conversions;  // one letter per printf argument: 's' or 'd'
};

// The table's rows, in code order. Static storage; never freed.
const ErrorMessageEntry* ErrorMessageTableBegin();
const ErrorMessageEntry* ErrorMessageTableEnd();

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_ERRORS_ERROR_MESSAGES_H_
