#include "setvault/exceptions.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::LogCapture;

TEST(SetvaultExceptionText, ToStringIsCodeThenMessage) {
  LogCapture log;
  SetvaultException e(2000, "x");
  EXPECT_EQ(e.toString(), "Error Code: 2000\nMessage: x\n");
  EXPECT_STREQ(e.what(), "x");
  EXPECT_EQ(e.GetErrorCode(), 2000);
  EXPECT_EQ(e.GetDetailedMessage(), "x");
}

TEST(SetvaultExceptionText, ValidationWithoutErrorsPrintsLikeItsBase) {
  LogCapture log;
  std::vector<ErrorInfo> none;
  ValidationException e(1089, "Configuration data is invalid", none);
  EXPECT_EQ(e.toString(), "Error Code: 1089\nMessage: Configuration data is invalid\n");
  EXPECT_TRUE(e.GetErrors().empty());
}

TEST(SetvaultExceptionText, ValidationListsEveryFindingInOrder) {
  LogCapture log;
  std::vector<ErrorInfo> errors = {{"/mtu", "too large"}, {"/name", "missing"}};
  ValidationException e(1087, "bad", errors);
  EXPECT_EQ(e.toString(),
            "Error Code: 1087\nMessage: bad\nDetails: \n/mtu: too large\n/name: missing\n");
  ASSERT_EQ(e.GetErrors().size(), 2u);
  // The exception holds a copy: changing the caller's list does not change it.
  errors.clear();
  EXPECT_EQ(e.GetErrors()[1].path, "/name");
}

TEST(ExceptionTree, EverySubclassIsCaughtAsItsBases) {
  LogCapture log;
  auto caught_as_setvault = [](auto thrower) {
    try {
      thrower();
    } catch (const SetvaultException& e) {
      return e.GetErrorCode();
    }
    return -1;
  };
  EXPECT_EQ(caught_as_setvault([] { throw InvalidArgumentException(1061, "a"); }), 1061);
  EXPECT_EQ(caught_as_setvault([] { throw InvalidTypeException(2000, "b"); }), 2000);
  EXPECT_EQ(caught_as_setvault([] { throw ValidationException(1090, "c"); }), 1090);
  try {
    throw ValidationException(1090, "only the message");
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(), "only the message");
  }
  try {
    throw InvalidTypeException(2000, "host base");
  } catch (const Mandrel::Lib::MandrelException& e) {
    EXPECT_EQ(e.GetDetailedMessage(), "host base");
  }
}

TEST(ExceptionLogging, EveryExceptionLogsCodeMessageAndBacktrace) {
  LogCapture log;
  auto expect_logged = [&log](int code, const std::string& message, auto make) {
    log.Clear();
    make();
    EXPECT_TRUE(log.Contains(0, "[" + std::to_string(code) + "] " + message)) << message;
    EXPECT_EQ(log.CountStartingWith(0, "Backtrace:"), 1) << message;
    EXPECT_GT(log.CountStartingWith(0, "  #"), 0) << message;
  };
  expect_logged(2000, "plain", [] { SetvaultException e(2000, "plain"); });
  expect_logged(1061, "argument", [] { InvalidArgumentException e(1061, "argument"); });
  expect_logged(2000, "type", [] { InvalidTypeException e(2000, "type"); });
  std::vector<ErrorInfo> errors = {{"/a", "b"}};
  expect_logged(1089, "validation", [&errors] { ValidationException e(1089, "validation", errors); });
}

TEST(ExceptionLogging, SilencedLogStillBuildsExceptions) {
  LogCapture log(-1);
  SetvaultException e(2000, "quiet");
  EXPECT_TRUE(log.Lines().empty());
  EXPECT_STREQ(e.what(), "quiet");
}

TEST(ThrowHelpers, FormatTheCodesMessage) {
  LogCapture log;
  try {
    ThrowException<InvalidArgumentException>(SV_ERR_EMPTY_OBJECT_LIST);
  } catch (const InvalidArgumentException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1061);
    EXPECT_STREQ(e.what(), ErrorMessageForId(SV_ERR_EMPTY_OBJECT_LIST));
  }
  try {
    ThrowException<InvalidArgumentException, const char*>(SV_ERR_JSON_FILE, "/tmp/x.json");
  } catch (const InvalidArgumentException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1081);
    EXPECT_NE(std::string(e.what()).find("/tmp/x.json"), std::string::npos);
    EXPECT_EQ(std::string(e.what()).find("%s"), std::string::npos);
  }
  try {
    ThrowException<SetvaultException, const char*>(SV_ERR_SCHEMA_NOT_FOUND,
                                                   "comp korvo grp hvcore key options");
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1037);
    EXPECT_EQ(std::string(e.what()), "Schema not found for comp korvo grp hvcore key options");
  }
}

TEST(PibMessageChain, PrintsLastNodeFirst) {
  Mandrel::Lib::PibMessage chain;
  EXPECT_EQ(chain.ToString(), "");
  chain.Append("first", "value %d", 1);
  chain.Append("second", "%s", "two");
  EXPECT_EQ(chain.ToString(), "\nPib Stack: \n[second]: two[first]: value 1");
}

TEST(Format, HandlesNumbersTextsAndPercent) {
  EXPECT_EQ(Format("plain"), "plain");
  EXPECT_EQ(Format("100%%"), "100%");
  EXPECT_EQ((Format<int, const char*>("%d-%s", 7, "x")), "7-x");
  const std::string long_text(5000, 'z');
  EXPECT_EQ(Format<const char*>("%s", long_text.c_str()), long_text);
}

}  // namespace
}  // namespace KorvoSetvault
