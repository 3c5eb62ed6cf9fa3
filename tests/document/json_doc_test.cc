#include "setvault/json_doc.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <utility>

#include "document/setvault_document.h"
#include "setvault/exceptions.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"
#include "support/thrown.h"

namespace KorvoSetvault {
namespace {

using setvault_test::CodeOf;
using setvault_test::ExpectError;
using setvault_test::LogCapture;

TEST(DocumentFromString, StrictJsonWithOneRootAndBoundedValues) {
  LogCapture log;
  const std::string zeros(430, '0');
  const std::pair<std::string, int> cases[] = {
      {"", 1080},
      {"{} {}", 1080},
      {"{\"a\": 1,}", 1080},
      {"{'a': 1}", 1080},
      {"{\"a\": 1} // comment", 1080},
      {std::string("{\"a\": 1}\0{}", 11), 1080},
      // Strings must be valid UTF-8: stray, truncated and overlong sequences and
      // surrogates are refused; escapes of any character are fine.
      {"\"\xff\"", 1080},
      {"\"caf\xc3\"", 1080},
      {"\"\xc0\xaf\"", 1080},
      {"\"\xed\xa0\x80\"", 1080},
      {"{\"\xf4\x90\x80\x80\": 1}", 1080},
      // A lone low surrogate escape was once stored as bytes no later parse accepts.
      {R"({"s": ["\udd11"]})", 1080},
      {"\"caf\xc3\xa9 \xf0\x9f\x94\x91 \\u0000 \\ud83d\\udd11\"", 0},
      {"  {}  \n", 0},
      // Out of range or overlong numbers once became an infinity that could not be written
      // back or unrelated values (1e310 read as -3e-297), or crashed the parser (a fraction
      // of 430 zeros); now they are refused.
      {"1" + std::string(150, '0') + "e200", 1080},
      {"[1" + std::string(20, '0') + "e290]", 1080},
      {"1.8e308", 1080},
      {"0." + std::string(40, '0') + "1e-300", 1080},
      {"0." + zeros, 1080},
      // Brackets inside strings do not count towards the depth; 500 levels are fine.
      {"[\"" + std::string(5000, '[') + "\\\"\"]", 0},
      {std::string(500, '[') + std::string(500, ']'), 0},
      {"[\"x\"," + std::string(600, '[') + std::string(601, ']'), 1080},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(CodeOf([&] { CreateDocumentFromString(c.first); }), c.second) << c.first;
  }
  // Nesting this deep would exhaust the stack of a recursive parser or writer.
  ExpectError<InvalidArgumentException>(
      [] { CreateDocumentFromString(std::string(100000, '[') + std::string(100000, ']')); }, 1080,
      "Invalid JSON text at offset 512: arrays and objects nested deeper than 512 levels.");
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
  auto infinite = CreateDocument();
  infinite->GetDocument().SetDouble(std::numeric_limits<double>::infinity());
  EXPECT_THROW(SetvaultDocument::SerializeValue(infinite->GetDocument()), SetvaultException);
}

TEST(DocumentFromFile, ReadsFilesAndRefusesTheRest) {
  LogCapture log;
  setvault_test::TempDir dir;
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
      {fifo, "not valid JSON at offset 0: The document is empty."},
      {"/dev/zero", too_large},
      {dir.WriteFile("huge.json", "[" + std::string(16 * 1024 * 1024, ' ') + "]"), too_large},
  };
  for (const auto& [path, fault] : cases) {
    ExpectError<InvalidArgumentException>(
        [&, path = path] { CreateDocumentFromFile(path); }, 1081,
        "Cannot read a JSON document from file " + path + ": " + fault);
  }
}

// Views resolve members and instances of the shared document and keep it alive; missing steps
// are refused and logged, and a view of a removed element fails instead of touching freed memory.
TEST(JsonDocPaths, ViewsOfTheSharedDocument) {
  LogCapture log(0);
  const JsonNode net{"net", "", ""};
  auto doc = CreateDocumentFromString(R"({"net": {"ports": [{"name": "p0", "mtu": 1500},)"
                                      R"({"mtu": 1}, {"name": "p1", "mtu": 9000}]}})");
  auto p0 = doc->MakeView(net)->MakeView({"ports", "name", "p0"});
  auto p1 = doc->MakeView(net)->MakeView({"ports", "name", "p1"});
  (*p1->GetJsonValuePtr())["mtu"].SetInt(1280);
  JsonValue& ports = (*doc->GetJsonValuePtr())["net"]["ports"];
  EXPECT_EQ(ports[2]["mtu"].GetInt(), 1280);
  auto absent = doc->MakeView({"absent", "", ""});
  ExpectError([&] { absent->GetJsonValuePtr(); }, 2000, "Subobject does not exists.");
  EXPECT_TRUE(log.Contains(0, "Cannot find subobject absent"));
  ports.Erase(ports.Begin());
  ExpectError([&] { p0->GetJsonValuePtr(); }, 2000, "Subobject instance does not exists.");
  EXPECT_TRUE(log.Contains(0, "Cannot find subobject instance name=p0"));
  doc.reset();  // the view keeps the document alive
  EXPECT_EQ((*p1->GetJsonValuePtr())["mtu"].GetInt(), 1280);
}

}  // namespace
}  // namespace KorvoSetvault
