// Schema validation of objects and documents: which option set each check
// passes (told apart by the findings they produce on one sample), the codes
// thrown with every finding, the store's Validate path, validateObject and the
// whole-document checks.
#include "validation/schema_validation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "document/setvault_document.h"
#include "model/setvault_object_impl.h"
#include "setvault/exceptions.h"
#include "support/example_schemas.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::ExampleSchemas;
using setvault_test::LogCapture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using ::testing::UnorderedElementsAreArray;

// A schema object over inline JSON that counts how often its schema is read.
class InlineSchema : public KorvoSchemaStore::SchemaObject {
 public:
  explicit InlineSchema(const std::string& schema, bool non_singleton = false)
      : schema_(CreateDocumentFromString(schema)), non_singleton_(non_singleton) {}
  const JsonValue& GetSchemaJson() const override {
    ++reads;
    return *schema_->GetJsonValuePtr();
  }
  bool IsNonSingleton() const override { return non_singleton_; }
  std::string GetInstanceIdProperty() const override { return non_singleton_ ? "r" : ""; }
  std::shared_ptr<JsonDoc> GetIdMap() const override { return nullptr; }
  std::shared_ptr<JsonDoc> GetDefaults() const override { return nullptr; }

  mutable int reads = 0;

 private:
  std::shared_ptr<JsonDoc> schema_;
  bool non_singleton_;
};

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
           "items":{"type":"object","properties":{"id":{"type":"string"},"q":{"type":"integer"}}}}}})";
const char kSampleData[] = R"({"n":9,"v":1,"c":1,"s":1,"x":1,"arr":[{"q":1}]})";

std::shared_ptr<SetvaultObject> MakeObject(const std::string& data,
                                           const std::shared_ptr<SchemaObject>& schema,
                                           const SetvaultObjectId& id = SetvaultObjectId("k", "g",
                                                                                         "c")) {
  SetvaultObjectImpl::Parts parts;
  parts.id = id;
  parts.document = CreateDocumentFromString(data);
  parts.schema = schema;
  return std::make_shared<SetvaultObject>(std::make_shared<SetvaultObjectImpl>(parts));
}

std::vector<std::string> Paths(const std::vector<ErrorInfo>& errors) {
  std::vector<std::string> paths;
  for (const auto& error : errors) paths.push_back(error.path);
  return paths;
}

// Runs a throwing check; returns the paths of the findings it threw, and
// checks its code and message.
template <typename Check>
std::vector<std::string> ThrownPaths(Check check, SVErrorCodes code) {
  auto schema = std::make_shared<InlineSchema>(kSampleSchema);
  try {
    check(schema, MakeObject(kSampleData, schema));
    ADD_FAILURE() << "no exception for code " << code;
  } catch (const ValidationException& e) {
    EXPECT_EQ(e.GetErrorCode(), code);
    EXPECT_STREQ(e.what(), ErrorMessageForId(code));
    return Paths(e.GetErrors());
  }
  return {};
}

TEST(OptionSetsTest, HoldTheirFixedMembers) {
  EXPECT_EQ(CachedDataOptions, OptionSet({0, 1, 9}));
  EXPECT_EQ(VitalDataOptions, OptionSet({0, 1, 5}));
  EXPECT_EQ(UserDataOptions, OptionSet({0, 1, 3, 7, 8}));
  EXPECT_EQ(SetOptions, OptionSet({0, 1, 7, 8}));
  EXPECT_EQ(UpdateOptions, OptionSet({0, 1}));
  EXPECT_EQ(PartialConfigOptions, OptionSet({0, 1, 3, 7}));
  EXPECT_EQ(ApplyFileOptions, OptionSet({0, 1, 4, 8}));
}

TEST(PerOperationChecksTest, EachThrowsItsCodeWithEveryFindingOfItsOptionSet) {
  EXPECT_THAT(ThrownPaths(ValidateCachedConfig, SV_ERR_CACHED_DATA_INVALID),
              UnorderedElementsAre("/n", "/v", "/s", "/x", "/arr"));
  EXPECT_THAT(ThrownPaths(ValidateVitalConfig, SV_ERR_VITAL_DATA_INVALID),
              UnorderedElementsAre("/n", "/c", "/s", "/x", "/arr"));
  EXPECT_THAT(ThrownPaths(ValidateUserConfig, SV_ERR_USER_DATA_INVALID),
              UnorderedElementsAre("/v", "/c", "/s", "/x", "/n", "/r", "/arr/0/id"));
  EXPECT_THAT(ThrownPaths(ValidatePartialConfig, SV_ERR_PARTIAL_CONFIG_INVALID),
              UnorderedElementsAre("/v", "/c", "/s", "/x", "/n", "/r"));
  EXPECT_THAT(ThrownPaths(ValidateSet, SV_ERR_SET_DATA_INVALID),
              UnorderedElementsAre("/x", "/n", "/r", "/arr/0/id"));
  EXPECT_THAT(ThrownPaths(ValidateUpdate, SV_ERR_UPDATE_DATA_INVALID),
              UnorderedElementsAre("/x", "/n"));
}

TEST(PerOperationChecksTest, ValidDataPasses) {
  auto schema = std::make_shared<InlineSchema>(kSampleSchema);
  ValidateSet(schema, MakeObject(R"({"r":"a","n":1,"v":2,"arr":[{"id":"i"}]})", schema));
  ValidateUpdate(schema, MakeObject(R"({"n":5})", schema));
  ValidateVitalConfig(schema, MakeObject(R"({"v":1})", schema));
  ValidateCachedConfig(schema, MakeObject(R"({"c":1})", schema));
}

TEST(PerOperationChecksTest, UserDataChecksCleanTheObjectFirst) {
  // An empty sub-object is removed before validation, so its bad type is
  // never seen; the checks without clean-up see it.
  const char schema_text[] = R"({"type":"object","properties":{
      "n":{"type":"integer"},"sub":{"type":"object","properties":{"q":{"type":"integer"}}}}})";
  auto schema = std::make_shared<InlineSchema>(schema_text);
  auto object = MakeObject(R"({"n":1,"sub":{}})", schema);
  ValidateSet(schema, object);
  EXPECT_EQ(object->GetData(), R"({"n":1})");
  auto kept = MakeObject(R"({"n":1,"sub":{}})", schema);
  ValidateCachedConfig(std::make_shared<InlineSchema>(R"({"type":"object","cached":true,
      "properties":{"n":{"type":"integer"},"sub":{"type":"object"}}})"),
                       kept);
  EXPECT_EQ(kept->GetData(), R"({"n":1,"sub":{}})");
}

TEST(ValidateObjectDataTest, NonObjectDataIsOneFindingWithoutTheValidator) {
  LogCapture log;
  auto schema = std::make_shared<InlineSchema>(kSampleSchema);
  std::vector<ErrorInfo> errors;
  EXPECT_FALSE(ValidateObjectData(schema, MakeObject("[1,2]", schema), SetOptions, errors, false));
  EXPECT_EQ(schema->reads, 0);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].path, "/");
  EXPECT_EQ(errors[0].message, "Invalid JSON data: Expected JSON of type object.");
}

TEST(ValidateObjectDataTest, EarlierEntriesCountAndFindingsAreLoggedUnlessQuiet) {
  LogCapture log(0);
  auto schema = std::make_shared<InlineSchema>(kSampleSchema);
  std::vector<ErrorInfo> errors = {{"/earlier", "kept"}};
  EXPECT_FALSE(
      ValidateObjectData(schema, MakeObject(R"({"r":"a"})", schema), SetOptions, errors, false));
  EXPECT_THAT(Paths(errors), ElementsAre("/earlier"));
  EXPECT_TRUE(log.Lines().empty());
  errors.clear();
  EXPECT_TRUE(
      ValidateObjectData(schema, MakeObject(R"({"r":"a"})", schema), SetOptions, errors, false));
  EXPECT_FALSE(ValidateObjectData(schema, MakeObject(R"({"r":"a","n":6})", schema), SetOptions,
                                  errors, false));
  EXPECT_TRUE(log.Contains(0, "Validation error at /n: value 6 exceeds maximum 5"));
  log.Clear();
  errors.clear();
  EXPECT_FALSE(ValidateObjectData(schema, MakeObject(R"({"r":"a","n":6})", schema), SetOptions,
                                  errors, true));
  EXPECT_EQ(errors.size(), 1u);
  EXPECT_TRUE(log.Lines().empty());
}

TEST(CollectValidationResultsTest, MalformedResultsThrow1082) {
  std::vector<ErrorInfo> errors;
  for (const char* result : {R"({"field":"/","error":"e"})", R"([{"field":"/"}])",
                             R"([{"field":1,"error":"e"}])", R"([7])"}) {
    auto document = CreateDocumentFromString(result);
    try {
      CollectValidationResults(*document->GetJsonValuePtr(), errors, true);
      ADD_FAILURE() << "no exception for " << result;
    } catch (const SetvaultException& e) {
      EXPECT_EQ(e.GetErrorCode(), SV_ERR_JSON) << result;
    }
  }
  auto good =
      CreateDocumentFromString(R"([{"field":"/a","error":"e1"},{"field":"/b","error":"e2"}])");
  CollectValidationResults(*good->GetJsonValuePtr(), errors, true);
  ASSERT_EQ(errors.size(), 2u);
  EXPECT_EQ(errors[1].path, "/b");
  EXPECT_EQ(errors[1].message, "e2");
}

// --- The store's Validate path ----------------------------------------------

TEST(ValidateSvoTest, OptionSetFollowsTheTypesTopLevelTag) {
  // A type tagged at the top holds only that kind of data, so "n" passes the
  // vital options for a vital type and the cached ones for a cached type, but
  // fails the other's; the whole-object options check "m", which is required.
  const char members[] = R"("required":["m"],"properties":{"n":{"type":"integer"},
      "m":{"type":"integer"}}})";
  auto vital =
      std::make_shared<InlineSchema>(std::string(R"({"type":"object","vital":true,)") + members);
  auto cached = std::make_shared<InlineSchema>(
      std::string(R"({"type":"object","vital":false,"cached":true,)") + members);
  auto plain = std::make_shared<InlineSchema>(std::string(R"({"type":"object",)") + members);
  const char data[] = R"({"n":1})";
  std::vector<ErrorInfo> errors;
  ValidateSVO(vital, MakeObject(data, vital), errors);
  EXPECT_THAT(errors, IsEmpty());
  ValidateSVO(cached, MakeObject(data, cached), errors);
  EXPECT_THAT(errors, IsEmpty());
  ValidateSVO(plain, MakeObject(data, plain), errors);
  EXPECT_THAT(Paths(errors), ElementsAre("/m"));
  // The same data under the other tag's options does fail.
  errors.clear();
  EXPECT_FALSE(ValidateObjectData(vital, MakeObject(data, vital), CachedDataOptions, errors, true));
  EXPECT_FALSE(
      ValidateObjectData(cached, MakeObject(data, cached), VitalDataOptions, errors, true));
  EXPECT_THAT(Paths(errors), ElementsAre("/n", "/n"));
}

TEST(ValidateSvoTest, NonBooleanTagThrows1082) {
  auto schema = std::make_shared<InlineSchema>(R"({"type":"object","vital":"true"})");
  std::vector<ErrorInfo> errors;
  try {
    ValidateSVO(schema, MakeObject("{}", schema), errors);
    ADD_FAILURE() << "no exception";
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), SV_ERR_JSON);
  }
}

TEST(ValidateSvoTest, IdentityProblemsStopBeforeTheValidator) {
  LogCapture log(0);
  auto instances = std::make_shared<InlineSchema>(kSampleSchema, true);
  std::vector<ErrorInfo> errors;
  ValidateSVO(instances, MakeObject(kSampleData, instances), errors);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].path, "/");
  EXPECT_EQ(errors[0].message, "/c/g/k is a non-singleton object and needs an instance id");
  EXPECT_EQ(instances->reads, 0);

  auto single = std::make_shared<InlineSchema>(kSampleSchema);
  errors.clear();
  ValidateSVO(single, MakeObject(kSampleData, single, SetvaultObjectId("k", "g", "c", "i")),
              errors);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].message, "/c/g/k is a singleton object and takes no instance id");
  EXPECT_EQ(single->reads, 0);

  errors.clear();
  ValidateSVO(nullptr, MakeObject("{}", nullptr), errors);
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].message, "Schema not found for /c/g/k");
  // The quiet path logs no finding.
  errors.clear();
  ValidateSVO(single, MakeObject(kSampleData, single), errors);
  EXPECT_THAT(Paths(errors), UnorderedElementsAre("/x", "/n", "/r", "/arr/0/id"));
  EXPECT_EQ(log.Lines().size(), 0u);
}

// --- validateObject, documents and apply files -------------------------------

class SchemaStoreValidationTest : public ::testing::Test {
 protected:
  std::shared_ptr<SetvaultObject> Object(const SetvaultObjectId& id, const char* data) {
    auto object = std::make_shared<SetvaultObject>(id);
    object->SetData(data);
    return object;
  }
  ExampleSchemas schemas_;
};

TEST_F(SchemaStoreValidationTest, ValidateObjectSkipsDataForNoneAndRead) {
  LogCapture log(2);
  auto bad = Object(SetvaultObjectId("host", "system", "korvo"), R"({"memoryBytes":-1})");
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
  errors.clear();
  EXPECT_TRUE(
      validateObject(Object(SetvaultObjectId("host", "system", "korvo"), R"({"hostname":"h"})"),
                     kModify, errors, ""));
}

TEST_F(SchemaStoreValidationTest, ValidateObjectWithoutSchemaFailsForEveryAction) {
  LogCapture log(0);
  SetvaultObjectImpl::Parts parts;
  parts.id = SetvaultObjectId("nothing", "here", "korvo", "i1");
  parts.document = CreateDocumentFromString("{}");
  auto object = std::make_shared<SetvaultObject>(std::make_shared<SetvaultObjectImpl>(parts));
  for (ACTION action : {kNone, kRead, kCreate}) {
    std::vector<ErrorInfo> errors;
    EXPECT_FALSE(validateObject(object, action, errors, ""));
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].path, "korvo/nothing");
    EXPECT_EQ(errors[0].message, "Schema not found.");
  }
  EXPECT_TRUE(log.Contains(0, "Schema not found for comp korvo grp here key nothing id i1"));
}

TEST_F(SchemaStoreValidationTest, ImportDocumentIsCheckedAgainstEveryTypeAndGetsGeneratedIds) {
  auto document = CreateDocumentFromString(R"({"korvo":{
      "net":{"firewall":{"enabled":true,"rules":[{"service":"ssh","port":22}]},
             "vswitch":[{"name":"vs0","mtu":9000},{"name":"vs1","mtu":100}]},
      "system":{"host":{"hostname":"h"}}}})");
  JsonDocument& root = document->GetDocument();
  std::vector<ErrorInfo> errors;
  EXPECT_FALSE(ValidateImportDocument(root, KorvoSchemaStore::SchemaStore::GetCache(), errors));
  EXPECT_THAT(Paths(errors), ElementsAre("/korvo/net/vswitch/1/mtu"));
  const JsonValue& rule = root["korvo"]["net"]["firewall"]["rules"][0];
  ASSERT_TRUE(rule.HasMember("sv_generated_id"));
  EXPECT_EQ(rule["sv_generated_id"].GetStringLength(), 36u);
}

TEST_F(SchemaStoreValidationTest, DocumentFindingsOfTheGeneratorComeFirst) {
  auto document = CreateDocumentFromString(
      R"({"korvo":{"net":{"dns":{"servers":[1]}}},"other":{"g":{"k":{}}}})");
  std::vector<ErrorInfo> errors;
  EXPECT_FALSE(ValidateImportDocument(document->GetDocument(),
                                      KorvoSchemaStore::SchemaStore::GetCache(), errors));
  ASSERT_EQ(errors.size(), 2u);
  EXPECT_EQ(errors[0].path, "/other/g/k");
  EXPECT_EQ(errors[1].path, "/korvo/net/dns/servers/0");
}

TEST_F(SchemaStoreValidationTest, DocumentThatIsNotAnObject) {
  auto document = CreateDocumentFromString("[1]");
  std::vector<ErrorInfo> errors;
  EXPECT_FALSE(ValidateImportDocument(document->GetDocument(),
                                      KorvoSchemaStore::SchemaStore::GetCache(), errors));
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].path, "/");
  EXPECT_EQ(errors[0].message, "INCORRECT TYPE: expected object.");
}

TEST_F(SchemaStoreValidationTest, ValidateDocumentUsesUserDataOptions) {
  auto make = [](const char* data) {
    SetvaultObjectImpl::Parts parts;
    parts.id = SetvaultObjectId("document", "import", "korvo");
    parts.document = CreateDocumentFromString(data);
    return std::make_shared<SetvaultObject>(std::make_shared<SetvaultObjectImpl>(parts));
  };
  std::vector<ErrorInfo> errors;
  EXPECT_TRUE(ValidateDocument(make(R"({"korvo":{"system":{"host":{"hostname":"h"}}}})"), errors));
  // A vital member is not user data.
  EXPECT_FALSE(
      ValidateDocument(make(R"({"korvo":{"system":{"host":{"systemUuid":"u"}}}})"), errors));
  EXPECT_THAT(Paths(errors), ElementsAre("/korvo/system/host/systemUuid"));
  // An earlier entry makes even a valid document fail.
  EXPECT_FALSE(ValidateDocument(make(R"({"korvo":{"system":{"host":{"hostname":"h"}}}})"), errors));
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
  auto good = CreateDocumentFromString(R"({"s":1,"n":2})");
  ValidateApplyFile(*good->GetJsonValuePtr(), *schema->GetJsonValuePtr());
}

}  // namespace
}  // namespace KorvoSetvault
