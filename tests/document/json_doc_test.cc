#include "setvault/json_doc.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/setvault_document.h"
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
  EXPECT_EQ(ParseErrorCode("  {}  \n"), 0);
  auto doc = CreateDocumentFromString(R"([1, "two", {"three": 3}])");
  EXPECT_TRUE(doc->GetJsonValuePtr()->IsArray());
  EXPECT_EQ(SetvaultDocument::SerializeValue(*doc->GetJsonValuePtr()), R"([1,"two",{"three":3}])");
}

TEST(DocumentFromString, DeepNestingIsAnErrorNotACrash) {
  LogCapture log;
  // Nesting this deep would exhaust the stack of a recursive parser or writer.
  std::string deep(100000, '[');
  deep += std::string(100000, ']');
  EXPECT_EQ(ParseErrorCode(deep), 1080);
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

  for (const std::string& path : {dir.File("missing.json"), dir.WriteFile("bad.json", "{\"mtu\": "),
                                  dir.path(), dir.WriteFile("empty.json", "")}) {
    try {
      CreateDocumentFromFile(path);
      ADD_FAILURE() << "no exception for " << path;
    } catch (const InvalidArgumentException& e) {
      EXPECT_EQ(e.GetErrorCode(), 1081);
      EXPECT_NE(std::string(e.what()).find(path), std::string::npos) << e.what();
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
