// What a call throws, for the model tests' tables of refused calls.
#ifndef SETVAULT_TESTS_MODEL_THROWN_H_
#define SETVAULT_TESTS_MODEL_THROWN_H_

#include <functional>
#include <string>

#include "setvault/exceptions.h"

namespace KorvoSetvault {

// The message of the exception of type E that `call` throws, or "" when none.
template <typename E = SetvaultException>
std::string MessageOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const E& e) {
    return e.what();
  }
  return "";
}

// The code of the SetvaultException `call` throws, or 0 when none.
inline int CodeOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const SetvaultException& e) {
    return e.GetErrorCode();
  }
  return 0;
}

}  // namespace KorvoSetvault

#endif  // SETVAULT_TESTS_MODEL_THROWN_H_
