// ExpectError: runs a call that must fail with a library exception of type E
// carrying `code` and exactly `message`.
#ifndef SETVAULT_TESTS_SUPPORT_EXPECT_ERROR_H_
#define SETVAULT_TESTS_SUPPORT_EXPECT_ERROR_H_

#include <gtest/gtest.h>

#include <exception>
#include <string>

#include "setvault/exceptions.h"

namespace setvault_test {

template <typename E = KorvoSetvault::SetvaultException, typename Call>
void ExpectError(Call call, int code, const std::string& message) {
  try {
    call();
    ADD_FAILURE() << "no exception, expected " << message;
  } catch (const E& e) {
    EXPECT_EQ(e.GetErrorCode(), code);
    EXPECT_EQ(std::string(e.what()), message);
  } catch (const std::exception& e) {
    ADD_FAILURE() << "other exception: " << e.what();
  }
}

}  // namespace setvault_test

#endif  // SETVAULT_TESTS_SUPPORT_EXPECT_ERROR_H_
