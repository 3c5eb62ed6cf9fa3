// The setvault tool, run as a process against a store in a temporary
// directory: JSON out, errors with their code, exit statuses.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <string>
#include <tuple>

#include "support/example_schemas.h"
#include "support/temp_dir.h"

namespace {

using setvault_test::TempDir;

struct Result {
  int status = -1;
  std::string out;
  std::string err;
};

class SetvaultCliTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(Run("schema load " + setvault_test::ExampleSchemaDir()).status, 0);
  }

  // Runs the tool with `arguments` (shell words) on this test's store.
  Result Run(const std::string& arguments, const std::string& input = "") {
    const std::string err_file = dir_.File("stderr");
    const std::string in_file = dir_.WriteFile("stdin", input);
    const std::string command = "SETVAULT_STORE=" + dir_.File("store.db") +
                                " SETVAULT_SCHEMA_DB=" + dir_.File("schema.db") + " " +
                                SETVAULT_TOOL_PATH + " " + arguments + " <" + in_file + " 2>" +
                                err_file;
    Result result;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return result;
    char buffer[4096];
    size_t count;
    while ((count = fread(buffer, 1, sizeof buffer, pipe)) > 0) result.out.append(buffer, count);
    const int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    FILE* err = fopen(err_file.c_str(), "r");
    while (err != nullptr && (count = fread(buffer, 1, sizeof buffer, err)) > 0) {
      result.err.append(buffer, count);
    }
    if (err != nullptr) fclose(err);
    return result;
  }

  TempDir dir_;
};

TEST_F(SetvaultCliTest, SetThenGetPrintsTheObjectWithItsMetadata) {
  Result set = Run(R"(set korvo net vswitch --instance vs0 '{"mtu": 9000}')");
  ASSERT_EQ(set.status, 0) << set.err;
  Result get = Run("get korvo net vswitch vs0");
  ASSERT_EQ(get.status, 0) << get.err;
  EXPECT_NE(get.out.find(R"("instanceId":"vs0")"), std::string::npos) << get.out;
  EXPECT_NE(get.out.find(R"("revision":1)"), std::string::npos) << get.out;
  EXPECT_NE(get.out.find(R"("data":{"mtu":9000,"name":"vs0"})"), std::string::npos) << get.out;
  EXPECT_EQ(Run("revision korvo net vswitch vs0").out, "1\n");
}

TEST_F(SetvaultCliTest, IfRevisionWritesOnlyOnTheRevisionGiven) {
  // Each: the command, the revision it names, its exit status and the revision afterwards.
  for (const auto& [command, given, status, revision] :
       std::vector<std::tuple<std::string, int, int, int>>{
           {"set", -1, 0, 1}, {"set", -1, 1, 1}, {"update", 1, 0, 2}, {"update", 1, 1, 2}}) {
    const Result result = Run(command + R"( korvo system host '{"hostname":"a"}' --if-revision )" +
                              std::to_string(given));
    EXPECT_EQ(result.status, status) << command << result.err;
    EXPECT_EQ(result.err.find("error 1105: Revision conflict") != std::string::npos, status == 1);
    EXPECT_EQ(Run("revision korvo system host").out, std::to_string(revision) + "\n");
  }
}

TEST_F(SetvaultCliTest, DataFromStandardInputAndInstances) {
  ASSERT_EQ(Run("set-instances korvo net vswitch -", R"({"a": {"mtu": 1500}, "b": {"mtu": 9000}})")
                .status,
            0);
  EXPECT_EQ(Run("instance-ids korvo net vswitch").out, "[\"a\",\"b\"]\n");
  Result jumbo = Run(R"(instances korvo net vswitch --filter '{"mtu": 9000}')");
  EXPECT_NE(jumbo.out.find(R"("instanceId":"b")"), std::string::npos);
  EXPECT_EQ(jumbo.out.find(R"("instanceId":"a")"), std::string::npos);
  EXPECT_EQ(Run(R"(delete-instances korvo net vswitch --filter '{"mtu": 1500}')").status, 0);
  EXPECT_EQ(Run("instance-ids korvo net vswitch").out, "[\"b\"]\n");
}

TEST_F(SetvaultCliTest, ErrorsCarryTheirCodeAndFindings) {
  Result invalid = Run(R"(set korvo net vswitch --instance vs0 '{"mtu": 99999, "speed": 1}')");
  EXPECT_EQ(invalid.status, 1);
  EXPECT_NE(invalid.err.find("error 1089"), std::string::npos) << invalid.err;
  EXPECT_NE(invalid.err.find("/mtu:"), std::string::npos) << invalid.err;
  EXPECT_NE(invalid.err.find("/speed:"), std::string::npos) << invalid.err;

  Result unknown = Run("get korvo net nothing");
  EXPECT_EQ(unknown.status, 1);
  EXPECT_NE(unknown.err.find("error 1037"), std::string::npos) << unknown.err;

  Result bad_json = Run("set korvo system host '{broken'");
  EXPECT_EQ(bad_json.status, 1);
  EXPECT_NE(bad_json.err.find("error 1080"), std::string::npos) << bad_json.err;

  // Every refused definition file is reported, and nothing is printed as valid.
  TempDir defs;
  defs.WriteFile("a.json", R"({"component":"a","group":"b","key":"c","version":"1",
      "schema":{"type":"object","propertise":{}}})");
  defs.WriteFile("b.json", R"({"component":"a","group":"b","key":"d","version":"1",
      "defaults":{"x":"s"},"schema":{"type":"object","properties":{"x":{"type":"integer"}}}})");
  Result refused = Run("schema check " + defs.path());
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.out, "");
  EXPECT_NE(refused.err.find(defs.File("a.json") + ": /schema/propertise: "), std::string::npos)
      << refused.err;
  EXPECT_NE(refused.err.find(defs.File("b.json") + ": /defaults/x: "), std::string::npos)
      << refused.err;

  EXPECT_EQ(Run("get korvo system host").status, 3);  // nothing stored
  EXPECT_EQ(Run("no-such-command").status, 2);
  EXPECT_EQ(Run("get korvo").status, 2);
}

// Hostile definitions, documents and arguments end in exit status 1 with their
// error (no signal), and nothing is written.
TEST_F(SetvaultCliTest, HostileInputGetsAnErrorAndWritesNothing) {
  TempDir definitions;
  const std::string brackets = std::string(200000, '[') + std::string(200000, ']');
  definitions.WriteFile("deep.json", brackets);  // once a stack overflow
  const std::string deep =
      "not valid JSON at offset 512: arrays and objects nested deeper than "
      "512 levels.";
  const struct {
    std::string arguments;
    std::string input;
    std::string error;
  } cases[] = {
      {"schema check " + definitions.path(), "", deep},
      {"schema load " + definitions.path(), "", deep},
      {"instances korvo net vswitch --filter @" + dir_.WriteFile("filter.json", brackets), "",
       "error 1080: Invalid JSON text " + deep.substr(15)},
      {"set korvo net vswitch --instance vs0 @" +
           dir_.WriteFile("latin1.json", "{\"mtu\": 1500, \"x\": \"caf\xe9\"}"),
       "", "error 1080: Invalid JSON text at offset 23: Invalid encoding in string."},
      {"set korvo net vswitch --instance vs0 @/dev/zero", "",
       "/dev/zero: larger than the limit of 16777216 bytes"},
      {"set-instances korvo net vswitch -", R"({"a\u0000b": {"mtu": 1500}})",
       "error 2000: Instance id cannot contain a NUL byte"},
  };
  for (const auto& c : cases) {
    const Result result = Run(c.arguments, c.input);
    EXPECT_EQ(result.status, 1) << c.arguments;
    EXPECT_NE(result.err.find(c.error), std::string::npos) << c.arguments << ": " << result.err;
  }
  // The schema database still holds the example types, and no instance was stored.
  const Result ids = Run("instance-ids korvo net vswitch");
  EXPECT_EQ(ids.status, 0) << ids.err;
  EXPECT_EQ(ids.out, "[]\n");
}

TEST_F(SetvaultCliTest, ValidatePrintsFindingsWithoutWriting) {
  Result result = Run(R"(validate korvo system host '{"hostname": 42}')");
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.out.find(R"("field":"/hostname")"), std::string::npos) << result.out;
  EXPECT_EQ(Run(R"(validate korvo system host '{"hostname": "h"}')").out, "[]\n");
  EXPECT_EQ(Run("get korvo system host").status, 3);
}

}  // namespace
