// What a call throws, for checks of refused calls:
//
//   EXPECT_EQ(Thrown([&] { store->Get(id); }), "1037 Schema not found: ...");
//   EXPECT_EQ(MessageOf<InvalidArgumentException>(call), "key cannot be empty");
//   ExpectError([&] { ... }, 1002, "Failed to connect to database");
#ifndef SETVAULT_TESTS_SUPPORT_THROWN_H_
#define SETVAULT_TESTS_SUPPORT_THROWN_H_

#include <gtest/gtest.h>

#include <string>

#include "setvault/exceptions.h"

namespace setvault_test {

// "<code> <message>" of the exception of type E that `call` throws; "" when it returns.
template <typename E = KorvoSetvault::SetvaultException, typename Call>
std::string Thrown(Call call) {
  try {
    call();
  } catch (const E& e) {
    return std::to_string(e.GetErrorCode()) + " " + e.what();
  }
  return "";
}

// The message of the exception of type E (any std::exception) that `call` throws; ""
// when it returns.
template <typename E = KorvoSetvault::SetvaultException, typename Call>
std::string MessageOf(Call call) {
  try {
    call();
  } catch (const E& e) {
    return e.what();
  }
  return "";
}

// The code of the SetvaultException `call` throws; 0 when it returns.
template <typename Call>
int CodeOf(Call call) {
  try {
    call();
  } catch (const KorvoSetvault::SetvaultException& e) {
    return e.GetErrorCode();
  }
  return 0;
}

// Expects `call` to throw an E carrying `code` and exactly `message`.
template <typename E = KorvoSetvault::SetvaultException, typename Call>
void ExpectError(Call call, int code, const std::string& message) {
  EXPECT_EQ(Thrown<E>(call), std::to_string(code) + " " + message);
}

}  // namespace setvault_test

#endif  // SETVAULT_TESTS_SUPPORT_THROWN_H_
