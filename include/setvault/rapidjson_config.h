// RapidJSON configuration shared by the library and everything that uses its
// public headers.
//
// RapidJSON's internal assertions (a value read as the wrong kind, a missing
// member read through operator[], ...) become a KorvoSetvault::SetvaultException
// with code 1082 instead of aborting the process. Code throughout the library
// relies on that rather than checking kinds before every access.
//
// This header must be seen before any RapidJSON header. The public headers
// include it first; a translation unit that includes RapidJSON itself before a
// libsetvault header fails to compile with the error below, because the two
// would otherwise disagree on what an assertion does.
#ifndef SETVAULT_RAPIDJSON_CONFIG_H_
#define SETVAULT_RAPIDJSON_CONFIG_H_

#if defined(RAPIDJSON_RAPIDJSON_H_) || defined(RAPIDJSON_ASSERT)
#error "Include a libsetvault header (or setvault/rapidjson_config.h) before any RapidJSON header."
#endif

#include "setvault/export.h"

namespace KorvoSetvault {

// Throws SetvaultException(1082, "JSON error:\"<file>\":<line>: <condition>").
// Called by RAPIDJSON_ASSERT only; never returns.
[[noreturn]] SETVAULT_EXPORT void ThrowJsonAssertion(const char* file, int line,
                                                     const char* condition);

}  // namespace KorvoSetvault

#define RAPIDJSON_ASSERT(x) \
  ((x) ? static_cast<void>(0) : ::KorvoSetvault::ThrowJsonAssertion(__FILE__, __LINE__, #x))

// Many RapidJSON value operations are declared noexcept; an assertion thrown
// inside one would terminate the process. Disable those noexcept marks.
#define RAPIDJSON_HAS_CXX11_NOEXCEPT 0
#define RAPIDJSON_HAS_STDSTRING 1

#endif  // SETVAULT_RAPIDJSON_CONFIG_H_
