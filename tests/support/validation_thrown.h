// Thrown: what a call that may fail with the library's exception reported,
// for checks of the code and message together.
#ifndef SETVAULT_TESTS_SUPPORT_VALIDATION_THROWN_H_
#define SETVAULT_TESTS_SUPPORT_VALIDATION_THROWN_H_

#include <string>

#include "setvault/exceptions.h"

namespace setvault_test {

// "<code> <message>" of the SetvaultException `call` throws; "" when it returns.
template <typename Call>
std::string Thrown(Call call) {
  try {
    call();
  } catch (const KorvoSetvault::SetvaultException& e) {
    return std::to_string(e.GetErrorCode()) + " " + e.what();
  }
  return "";
}

}  // namespace setvault_test

#endif  // SETVAULT_TESTS_SUPPORT_VALIDATION_THROWN_H_
