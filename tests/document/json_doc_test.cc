#include "setvault/json_doc.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>
#include <utility>

#include "document/setvault_document.h"
#include "setvault/exceptions.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace KorvoSetvault {
namespace {

using setvault_test::LogCapture;
using setvault_test::TempDir;

int ParseErrorCode(const std::string& text) {
  try {
    CreateDocumentFromString(text);
  } catch (const InvalidArgumentException& e) {
    return e.GetErrorCode();
  }
  return 0;
}

TEST(DocumentFromString, StrictJsonWithOneRoot) {
  LogCapture log;
  EXPECT_EQ(ParseErrorCode(""), 1080);
  EXPECT_EQ(ParseErrorCode("{} {}"), 1080);
  EXPECT_EQ(ParseErrorCode("{\"a\": 1,}"), 1080);
  EXPECT_EQ(ParseErrorCode("{'a': 1}"), 1080);
  EXPECT_EQ(ParseErrorCode("{\"a\": 1} // comment"), 1080);
  EXPECT_EQ(ParseErrorCode(std::string("{\"a\": 1}\0{}", 11)), 1080);
  // Strings must be valid UTF-8: stray, truncated and overlong sequences and
  // surrogates are refused; escapes of any character are fine.
  for (const char* bad : {"\"\xff\"", "\"caf\xc3\"", "\"\xc0\xaf\"", "\"\xed\xa0\x80\"",
                          "{\"\xf4\x90\x80\x80\": 1}"}) {
    EXPECT_EQ(ParseErrorCode(bad), 1080) << bad;
  }
  // A lone low surrogate escape was once stored as bytes no later parse accepts.
  EXPECT_EQ(ParseErrorCode(R"({"s": ["\udd11"]})"), 1080);
  EXPECT_EQ(ParseErrorCode("\"caf\xc3\xa9 \xf0\x9f\x94\x91 \\u0000 \\ud83d\\udd11\""), 0);
  EXPECT_EQ(ParseErrorCode("  {}  \n"), 0);
  auto doc = CreateDocumentFromString(R"([1, "two", {"three": 3}])");
  EXPECT_TRUE(doc->GetJsonValuePtr()->IsArray());
  EXPECT_EQ(SetvaultDocument::SerializeValue(*doc->GetJsonValuePtr()), R"([1,"two",{"three":3}])");
}

TEST(DocumentFromString, NumbersSurviveASerializeAndParseRoundTrip) {
  // The fast number parse once read these a unit in the last place off, and
  // every write and read of the value moved it again.
  for (const char* text : {"22299911116171178221737961038280", "[0.1, 1e-307, 9.99e307, -0.0]",
                           "9007199254740993.5"}) {
    auto doc = CreateDocumentFromString(text);
    auto again =
        CreateDocumentFromString(SetvaultDocument::SerializeValue(*doc->GetJsonValuePtr()));
    EXPECT_TRUE(SetvaultDocument::ValuesEqual(*doc->GetJsonValuePtr(), *again->GetJsonValuePtr()))
        << text;
  }
  // Out of range or overlong, these once became an infinity that could not be
  // written back or unrelated values (1e310 read as -3e-297), or crashed the
  // parser (a fraction of 430 zeros); now they are refused.
  for (const std::string& text :
       {"1" + std::string(150, '0') + "e200", "[1" + std::string(20, '0') + "e290]",
        std::string("1.8e308"), "0." + std::string(40, '0') + "1e-300",
        "0." + std::string(430, '0')}) {
    EXPECT_EQ(ParseErrorCode(text), 1080) << text;
  }
}

TEST(DocumentFromString, DeepNestingIsAnErrorNotACrash) {
  LogCapture log;
  // Nesting this deep would exhaust the stack of a recursive parser or writer.
  std::string deep(100000, '[');
  deep += std::string(100000, ']');
  try {
    CreateDocumentFromString(deep);
    ADD_FAILURE() << "no exception";
  } catch (const InvalidArgumentException& e) {
    EXPECT_STREQ(e.what(),
                 "Invalid JSON text at offset 512: arrays and objects nested deeper than 512 "
                 "levels.");
  }
  // Brackets inside strings do not count towards the depth.
  const std::string in_string = "[\"" + std::string(5000, '[') + "\\\"\"]";
  EXPECT_EQ(ParseErrorCode(in_string), 0);
  std::string nested_ok(500, '[');
  nested_ok += std::string(500, ']');
  EXPECT_EQ(ParseErrorCode(nested_ok), 0);
}

TEST(DocumentFromFile, ReadsFilesAndRefusesTheRest) {
  LogCapture log;
  TempDir dir;
  auto doc = CreateDocumentFromFile(dir.WriteFile("ok.json", R"({"mtu": 1500})"));
  EXPECT_EQ((*doc->GetJsonValuePtr())["mtu"].GetInt(), 1500);

  // A FIFO without a writer reads as empty instead of blocking; endless and
  // oversized files stop at the size limit.
  const std::string fifo = dir.File("fifo.json");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string too_large = "larger than the limit of 16777216 bytes";
  const std::pair<std::string, std::string> cases[] = {
      {dir.File("missing.json"), "cannot be opened: No such file or directory"},
      {dir.WriteFile("bad.json", "{\"mtu\": "), "not valid JSON at offset 8: Invalid value."},
      {dir.path(), "is a directory"},
      {dir.WriteFile("empty.json", ""), "not valid JSON at offset 0: The document is empty."},
      {fifo, "not valid JSON at offset 0: The document is empty."},
      {"/dev/zero", too_large},
      {dir.WriteFile("huge.json", "[" + std::string(16 * 1024 * 1024, ' ') + "]"), too_large},
  };
  for (const auto& [path, fault] : cases) {
    try {
      CreateDocumentFromFile(path);
      ADD_FAILURE() << "no exception for " << path;
    } catch (const InvalidArgumentException& e) {
      EXPECT_EQ(e.GetErrorCode(), 1081);
      EXPECT_EQ(std::string(e.what()),
                "Cannot read a JSON document from file " + path + ": " + fault);
    }
  }
}

TEST(JsonAssertions, BecomeExceptionsWithTheHeaderLocation) {
  LogCapture log;
  auto doc = CreateDocumentFromString(R"({"a": 1})");
  try {
    doc->GetJsonValuePtr()->GetArray();
    FAIL() << "no exception";
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1082);
    const std::string text = e.what();
    EXPECT_EQ(text.rfind("JSON error:\"", 0), 0u) << text;
    EXPECT_NE(text.find("rapidjson/document.h\":"), std::string::npos) << text;
    EXPECT_EQ(text.substr(text.size() - 11), ": IsArray()") << text;
  }
}

TEST(JsonAssertions, ThrowEvenFromOperationsRapidJsonMarksNoexcept) {
  LogCapture log;
  auto doc = CreateDocumentFromString(R"({"a": [1, 2]})");
  JsonValue& root = *doc->GetJsonValuePtr();
  // Self-assignment asserts inside a move-assignment that would otherwise be
  // noexcept and terminate the process.
  JsonValue& alias = root;
  EXPECT_THROW(root = alias, SetvaultException);
  // Copying a value onto itself asserts too.
  EXPECT_THROW(root.CopyFrom(root, doc->GetAllocator()), SetvaultException);
  // Reading a missing member through operator[] asserts.
  EXPECT_THROW(root["missing"], SetvaultException);
  // The document is still usable afterwards.
  EXPECT_EQ(root["a"].Size(), 2u);
}

TEST(JsonDocPaths, ResolveMembersAndInstances) {
  LogCapture log;
  auto doc = CreateDocumentFromString(
      R"({"net": {"ports": [{"name": "p0", "mtu": 1500}, {"name": "p1", "mtu": 9000}]}})");
  EXPECT_EQ(doc->GetJsonValuePtr(), &doc->GetDocument());

  JsonNode net;
  net.name = "net";
  auto net_view = doc->MakeView(net);
  EXPECT_TRUE(net_view->GetJsonValuePtr()->IsObject());

  JsonNode port;
  port.name = "ports";
  port.instanceKey = "name";
  port.instanceId = "p1";
  auto port_view = net_view->MakeView(port);
  JsonValue& p1 = *port_view->GetJsonValuePtr();
  EXPECT_EQ(p1["mtu"].GetInt(), 9000);
  // A change through the view is a change of the shared document.
  p1["mtu"].SetInt(1280);
  EXPECT_EQ((*doc->GetJsonValuePtr())["net"]["ports"][1]["mtu"].GetInt(), 1280);
}

TEST(JsonDocPaths, MissingStepsAreReportedAndLogged) {
  LogCapture log(0);
  auto doc = CreateDocumentFromString(R"({"net": {"ports": [{"mtu": 1500}]}, "list": []})");
  JsonNode missing;
  missing.name = "storage";
  try {
    doc->MakeView(missing)->GetJsonValuePtr();
    FAIL();
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 2000);
    EXPECT_STREQ(e.what(), "Subobject does not exists.");
  }
  EXPECT_TRUE(log.Contains(0, "Cannot find subobject storage"));

  JsonNode net;
  net.name = "net";
  JsonNode port;
  port.name = "ports";
  port.instanceKey = "name";
  port.instanceId = "p0";
  try {
    doc->MakeView(net)->MakeView(port)->GetJsonValuePtr();
    FAIL();
  } catch (const SetvaultException& e) {
    EXPECT_STREQ(e.what(), "Subobject instance does not exists.");
  }
  EXPECT_TRUE(log.Contains(0, "Cannot find subobject instance name=p0"));

  JsonNode empty_list;
  empty_list.name = "list";
  empty_list.instanceKey = "id";
  empty_list.instanceId = "x";
  EXPECT_THROW(doc->MakeView(empty_list)->GetJsonValuePtr(), SetvaultException);
}

TEST(JsonDocPaths, ViewOfARemovedElementFailsInsteadOfTouchingFreedMemory) {
  LogCapture log;
  auto doc = CreateDocumentFromString(R"({"ports": [{"name": "p0"}, {"name": "p1"}]})");
  JsonNode port;
  port.name = "ports";
  port.instanceKey = "name";
  port.instanceId = "p0";
  auto view = doc->MakeView(port);
  (*doc->GetJsonValuePtr())["ports"].Erase((*doc->GetJsonValuePtr())["ports"].Begin());
  EXPECT_THROW(view->GetJsonValuePtr(), SetvaultException);
}

TEST(JsonDocLifetime, ViewsKeepTheDocumentAlive) {
  std::shared_ptr<JsonDoc> view;
  {
    auto doc = CreateDocumentFromString(R"({"a": {"b": "text that lives in the pool"}})");
    JsonNode a;
    a.name = "a";
    view = doc->MakeView(a);
  }
  EXPECT_STREQ((*view->GetJsonValuePtr())["b"].GetString(), "text that lives in the pool");
}

TEST(SerializeValue, RefusesNonFiniteNumbers) {
  LogCapture log;
  auto doc = CreateDocument();
  doc->GetDocument().SetDouble(std::numeric_limits<double>::infinity());
  EXPECT_THROW(SetvaultDocument::SerializeValue(doc->GetDocument()), SetvaultException);
}

}  // namespace
}  // namespace KorvoSetvault
