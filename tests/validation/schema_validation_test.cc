// Schema validation of objects and documents: which option set each check
// passes (told apart by the findings they produce on one sample), the codes
// thrown with every finding, the store's Validate path, validateObject and the
// whole-document checks.
#include "validation/schema_validation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "setvault/exceptions.h"
#include "support/example_schemas.h"
#include "support/log_capture.h"
#include "validation/inline_schema.h"

namespace KorvoSetvault {
namespace {

using setvault_test::LogCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

// A sample whose findings differ for every option set: "r" is required, "n"
// has a maximum, "v", "c" and "s" are vital, cached and solution-user members,
// "arr" is an instance array whose element lacks its id, "x" is undescribed.
// (The element is not empty, so the clean-up of the user-data checks keeps it.)
const char kSampleSchema[] = R"({"type":"object","required":["r"],"properties":{
    "r":{"type":"string"},
    "n":{"type":"integer","maximum":5},
    "v":{"type":"integer","vital":true},
    "c":{"type":"integer","cached":true},
    "s":{"type":"integer","solutionUser":true},
    "arr":{"type":"array","instanceIdProperty":"id",
           "items":{"type":"object","properties":{"id":{"type":"string"},
                    "q":{"type":"integer"}}}}}})";
const char kSampleData[] = R"({"n":9,"v":1,"c":1,"s":1,"x":1,"arr":[{"q":1}]})";

std::vector<std::string> Paths(const std::vector<ErrorInfo>& errors) {
  std::vector<std::string> paths;
  for (const auto& error : errors) paths.push_back(error.path);
  return paths;
}

using Check = void (*)(const std::shared_ptr<SchemaObject>&,
                       const std::shared_ptr<SetvaultObject>&);

TEST(PerOperationChecksTest, EachThrowsItsCodeWithEveryFindingOfItsOptionSet) {
  const struct {
    Check check;
    SVErrorCodes code;
    std::vector<std::string> paths;
    const char* valid;
  } cases[] = {
      {ValidateCachedConfig,
       SV_ERR_CACHED_DATA_INVALID,
       {"/n", "/v", "/s", "/x", "/arr"},
       R"({"c":1})"},
      {ValidateVitalConfig,
       SV_ERR_VITAL_DATA_INVALID,
       {"/n", "/c", "/s", "/x", "/arr"},
       R"({"v":1})"},
      {ValidateUserConfig,
       SV_ERR_USER_DATA_INVALID,
       {"/v", "/c", "/s", "/x", "/n", "/r", "/arr/0/id"},
       R"({"r":"a"})"},
      {ValidatePartialConfig,
       SV_ERR_PARTIAL_CONFIG_INVALID,
       {"/v", "/c", "/s", "/x", "/n", "/r"},
       R"({"r":"a","n":1})"},
      {ValidateSet,
       SV_ERR_SET_DATA_INVALID,
       {"/x", "/n", "/r", "/arr/0/id"},
       R"({"r":"a","n":1,"v":2,"arr":[{"id":"i"}]})"},
      {ValidateUpdate, SV_ERR_UPDATE_DATA_INVALID, {"/x", "/n"}, R"({"n":5})"},
  };
  auto schema = std::make_shared<InlineSchema>(kSampleSchema);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.code);
    c.check(schema, MakeObject(c.valid, schema));
    try {
      c.check(schema, MakeObject(kSampleData, schema));
      ADD_FAILURE() << "no exception";
    } catch (const ValidationException& e) {
      EXPECT_EQ(e.GetErrorCode(), c.code);
      EXPECT_STREQ(e.what(), ErrorMessageForId(c.code));
      EXPECT_THAT(Paths(e.GetErrors()), ::testing::UnorderedElementsAreArray(c.paths));
    }
  }
}

TEST(PerOperationChecksTest, UserDataChecksCleanTheObjectFirst) {
  // An empty sub-object is removed before validation, so its bad type is
  // never seen; the checks without clean-up see it.
  auto schema = std::make_shared<InlineSchema>(R"({"type":"object","properties":{
      "n":{"type":"integer"},"sub":{"type":"object","properties":{"q":{"type":"integer"}}}}})");
  auto object = MakeObject(R"({"n":1,"sub":{}})", schema);
  ValidateSet(schema, object);
  EXPECT_EQ(object->GetData(), R"({"n":1})");
  auto cached = std::make_shared<InlineSchema>(R"({"type":"object","cached":true,
      "properties":{"n":{"type":"integer"},"sub":{"type":"object"}}})");
  auto kept = MakeObject(R"({"n":1,"sub":{}})", cached);
  ValidateCachedConfig(cached, kept);
  EXPECT_EQ(kept->GetData(), R"({"n":1,"sub":{}})");
}

TEST(ValidateObjectDataTest, NonObjectDataEarlierEntriesAndLoggedFindings) {
  LogCapture log(0);
  auto schema = std::make_shared<InlineSchema>(kSampleSchema);
  // Data that is not an object is one finding, without the validator.
  std::vector<ErrorInfo> errors;
  EXPECT_FALSE(ValidateObjectData(schema, MakeObject("[1,2]", schema), SetOptions, errors, false));
  EXPECT_EQ(schema->reads, 0);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].path, "/");
  EXPECT_EQ(errors[0].message, "Invalid JSON data: Expected JSON of type object.");
  EXPECT_FALSE(
      ValidateObjectData(schema, MakeObject(R"({"r":"a"})", schema), SetOptions, errors, false));
  EXPECT_EQ(errors.size(), 1u);
  EXPECT_TRUE(log.Lines().empty());
  errors.clear();
  EXPECT_FALSE(ValidateObjectData(schema, MakeObject(R"({"r":"a","n":6})", schema), SetOptions,
                                  errors, false));
  EXPECT_TRUE(log.Contains(0, "Validation error at /n: value 6 exceeds maximum 5"));
  EXPECT_EQ(errors.size(), 1u);
}

// --- The store's Validate path ----------------------------------------------

TEST(ValidateSvoTest, OptionSetFollowsTheTypesTopLevelTag) {
  // A type tagged at the top holds only that kind of data, so "n" passes the
  // vital options for a vital type and the cached ones for a cached type, but
  // fails the other's; the whole-object options check "m", which is required.
  const std::string members = R"("required":["m"],"properties":{"n":{"type":"integer"},
      "m":{"type":"integer"}}})";
  auto vital = std::make_shared<InlineSchema>(R"({"type":"object","vital":true,)" + members);
  auto cached =
      std::make_shared<InlineSchema>(R"({"type":"object","vital":false,"cached":true,)" + members);
  auto plain = std::make_shared<InlineSchema>(R"({"type":"object",)" + members);
  std::vector<ErrorInfo> errors;
  ValidateSVO(vital, MakeObject(R"({"n":1})", vital), errors);
  ValidateSVO(cached, MakeObject(R"({"n":1})", cached), errors);
  EXPECT_THAT(errors, IsEmpty());
  ValidateSVO(plain, MakeObject(R"({"n":1})", plain), errors);
  EXPECT_THAT(Paths(errors), ElementsAre("/m"));
  errors.clear();
  // The same data under the other tag's options does fail.
  EXPECT_FALSE(
      ValidateObjectData(vital, MakeObject(R"({"n":1})", vital), CachedDataOptions, errors, true));
  EXPECT_FALSE(
      ValidateObjectData(cached, MakeObject(R"({"n":1})", cached), VitalDataOptions, errors, true));
  EXPECT_THAT(Paths(errors), ElementsAre("/n", "/n"));
  // A tag that is not a boolean is a JSON error.
  auto odd = std::make_shared<InlineSchema>(R"({"type":"object","vital":"true"})");
  try {
    ValidateSVO(odd, MakeObject("{}", odd), errors);
    ADD_FAILURE() << "no exception";
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), SV_ERR_JSON);
  }
}

TEST(ValidateSvoTest, IdentityProblemsStopBeforeTheValidator) {
  LogCapture log(0);
  auto instances = std::make_shared<InlineSchema>(kSampleSchema, "r");
  auto single = std::make_shared<InlineSchema>(kSampleSchema);
  const struct {
    std::shared_ptr<InlineSchema> schema;
    const char* instance;
    const char* message;
  } cases[] = {
      {instances, "", "/c/g/k is a non-singleton object and needs an instance id"},
      {single, "i", "/c/g/k is a singleton object and takes no instance id"},
      {nullptr, "", "Schema not found for /c/g/k"},
  };
  for (const auto& c : cases) {
    std::vector<ErrorInfo> errors;
    ValidateSVO(c.schema,
                MakeObject(kSampleData, c.schema, SetvaultObjectId("k", "g", "c", c.instance)),
                errors);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].path, "/");
    EXPECT_EQ(errors[0].message, c.message);
  }
  EXPECT_EQ(instances->reads + single->reads, 0);
  // The quiet path logs no finding.
  std::vector<ErrorInfo> errors;
  ValidateSVO(single, MakeObject(kSampleData, single), errors);
  EXPECT_THAT(Paths(errors), UnorderedElementsAre("/x", "/n", "/r", "/arr/0/id"));
  EXPECT_THAT(log.Lines(), IsEmpty());
}

// --- validateObject, documents and apply files -------------------------------

class SchemaStoreValidationTest : public ::testing::Test {
 protected:
  setvault_test::ExampleSchemas schemas_;
};

TEST_F(SchemaStoreValidationTest, ValidateObjectSkipsDataForNoneAndRead) {
  LogCapture log(2);
  auto bad =
      MakeObject(R"({"memoryBytes":-1})", nullptr, SetvaultObjectId("host", "system", "korvo"));
  std::vector<ErrorInfo> errors;
  EXPECT_TRUE(validateObject(bad, kNone, errors, ""));
  EXPECT_TRUE(validateObject(bad, kRead, errors, "ignored"));
  EXPECT_THAT(errors, IsEmpty());
  EXPECT_TRUE(log.Contains(2, "validate completed successfully"));
  log.Clear();
  EXPECT_FALSE(validateObject(bad, kCreate, errors, ""));
  // User-data options: the cached member is refused (and its value not checked).
  ASSERT_THAT(Paths(errors), ElementsAre("/memoryBytes"));
  EXPECT_EQ(errors[0].message,
            "member 'memoryBytes' is not allowed in user data (it is cached data)");
  EXPECT_TRUE(log.Contains(0, "validate completed with errors"));
  log.Clear();
  EXPECT_TRUE(validateObject(
      MakeObject(R"({"hostname":"h"})", nullptr, SetvaultObjectId("host", "system", "korvo")),
      kModify, errors, ""));
  EXPECT_TRUE(log.Contains(2, "validate completed successfully"));
  // Without a schema every action fails.
  auto unknown = MakeObject("{}", nullptr, SetvaultObjectId("nothing", "here", "korvo", "i1"));
  for (ACTION action : {kNone, kRead, kCreate}) {
    errors.clear();
    EXPECT_FALSE(validateObject(unknown, action, errors, ""));
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].path, "korvo/nothing");
    EXPECT_EQ(errors[0].message, "Schema not found.");
  }
  EXPECT_TRUE(log.Contains(0, "Schema not found for comp korvo grp here key nothing id i1"));
}

TEST_F(SchemaStoreValidationTest, ImportDocumentIsCheckedAgainstEveryTypeAndGetsGeneratedIds) {
  auto document = CreateDocumentFromString(R"({"korvo":{
      "net":{"firewall":{"enabled":true,"rules":[{"service":"ssh","port":22}]},
             "vswitch":[{"name":"vs0","mtu":9000},{"name":"vs1","mtu":100}],
             "dns":{"servers":[1]}},
      "system":{"host":{"hostname":"h"}}},"other":{"g":{"k":{}}}})");
  JsonDocument& root = document->GetDocument();
  std::vector<ErrorInfo> errors;
  EXPECT_FALSE(ValidateImportDocument(root, KorvoSchemaStore::SchemaStore::GetCache(), errors));
  // The generator's findings come first.
  EXPECT_THAT(Paths(errors),
              ElementsAre("/other/g/k", "/korvo/net/dns/servers/0", "/korvo/net/vswitch/1/mtu"));
  EXPECT_EQ(root["korvo"]["net"]["firewall"]["rules"][0]["sv_generated_id"].GetStringLength(), 36u);
  auto list = CreateDocumentFromString("[1]");
  errors.clear();
  EXPECT_FALSE(ValidateImportDocument(list->GetDocument(),
                                      KorvoSchemaStore::SchemaStore::GetCache(), errors));
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].path, "/");
  EXPECT_EQ(errors[0].message, "INCORRECT TYPE: expected object.");
}

TEST_F(SchemaStoreValidationTest, ValidateDocumentUsesUserDataOptions) {
  const SetvaultObjectId id("document", "import", "korvo");
  const char good[] = R"({"korvo":{"system":{"host":{"hostname":"h"}}}})";
  std::vector<ErrorInfo> errors;
  EXPECT_TRUE(ValidateDocument(MakeObject(good, nullptr, id), errors));
  // A vital member is not user data.
  EXPECT_FALSE(ValidateDocument(
      MakeObject(R"({"korvo":{"system":{"host":{"systemUuid":"u"}}}})", nullptr, id), errors));
  EXPECT_THAT(Paths(errors), ElementsAre("/korvo/system/host/systemUuid"));
  // An earlier entry makes even a valid document fail.
  EXPECT_FALSE(ValidateDocument(MakeObject(good, nullptr, id), errors));
}

TEST(ValidateApplyFileTest, ThrowsEveryFindingWith1091) {
  auto schema = CreateDocumentFromString(kSampleSchema);
  auto data = CreateDocumentFromString(kSampleData);
  try {
    ValidateApplyFile(*data->GetJsonValuePtr(), *schema->GetJsonValuePtr());
    ADD_FAILURE() << "no exception";
  } catch (const ValidationException& e) {
    EXPECT_EQ(e.GetErrorCode(), SV_ERR_APPLY_FILE_INVALID);
    EXPECT_STREQ(e.what(), "Apply file is invalid");
    // Solution-user members are allowed; required members are not checked.
    EXPECT_THAT(Paths(e.GetErrors()), UnorderedElementsAre("/v", "/c", "/x", "/n", "/arr/0/id"));
  }
  ValidateApplyFile(*CreateDocumentFromString(R"({"s":1,"n":2})")->GetJsonValuePtr(),
                    *schema->GetJsonValuePtr());
}

}  // namespace
}  // namespace KorvoSetvault
