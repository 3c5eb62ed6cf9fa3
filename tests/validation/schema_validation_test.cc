// Schema validation of objects and documents: clean-up of user data before it
// is written, the option set and code of each per-operation check (told apart
// by the findings on one sample), the store's Validate path, validateObject
// and the whole-document checks; the argument and schema-kind guards.
#include "validation/schema_validation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "document/setvault_document.h"
#include "model/setvault_object_impl.h"
#include "schema/schema_store.h"
#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "store/setvault_impl.h"
#include "support/example_schemas.h"
#include "support/log_capture.h"
#include "support/thrown.h"
#include "validation/cleanup.h"
#include "validation/guards.h"

namespace KorvoSetvault {
namespace {

using setvault_test::LogCapture;
using setvault_test::Thrown;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const SetvaultObjectId kHost("host", "system", "korvo");
const SetvaultObjectId kVswitches("vswitch", "net", "korvo");

// A type whose instances are told apart by `instance_property` (a singleton
// when empty); "bootbank" is its one non-user instance.
class InlineSchema : public KorvoSchemaStore::SchemaObject {
 public:
  explicit InlineSchema(const std::string& schema, std::string instance_property = "", int kind = 0)
      : schema_(CreateDocumentFromString(schema)),
        instance_property_(std::move(instance_property)),
        kind_(kind) {}
  const JsonValue& GetSchemaJson() const override { return *schema_->GetJsonValuePtr(); }
  bool IsNonSingleton() const override { return !instance_property_.empty(); }
  std::string GetInstanceIdProperty() const override { return instance_property_; }
  int GetConfigKind() const override { return kind_; }
  std::vector<std::string> GetNonUserInstanceIds() const override { return {"bootbank"}; }

 private:
  std::shared_ptr<JsonDoc> schema_;
  std::string instance_property_;
  int kind_;
};

// An object of `schema` holding `data` (any JSON text).
std::shared_ptr<SetvaultObject> MakeObject(
    const std::string& data, const std::shared_ptr<KorvoSchemaStore::SchemaObject>& schema,
    const SetvaultObjectId& id = SetvaultObjectId("k", "g", "c")) {
  SetvaultObjectImpl::Parts parts;
  parts.id = id;
  parts.document = CreateDocumentFromString(data);
  parts.schema = schema;
  return std::make_shared<SetvaultObject>(std::make_shared<SetvaultObjectImpl>(parts));
}

const char kUserSchema[] = R"({"type": "object", "properties": {
    "a": {"type": "object", "properties": {"b": {"type": "object", "properties": {}}}},
    "kept": {"type": "object", "cached": true, "properties": {}},
    "list": {"type": "array", "items": {"type": "object", "properties": {
        "x": {"type": "integer"}, "sv_generated_id": {"type": "string"}}}},
    "scalars": {"type": "array", "items": {"type": "integer"}},
    "sv_generated_id": {"type": "string"}}})";

std::string Cleaned(const std::string& data, const std::shared_ptr<InlineSchema>& schema,
                    const std::string& instance_id = "") {
  auto object = MakeObject(data, schema, SetvaultObjectId("k", "g", "c", instance_id));
  CleanupObject(object, schema);
  return object->GetSerializedData();
}

TEST(CleanupObjectTest, RemovesEmptyUserObjectsInstancesAndArrays) {
  LogCapture log(2);
  auto schema = std::make_shared<InlineSchema>(kUserSchema);
  const struct {
    const char* data;
    const char* cleaned;
  } cases[] = {
      {R"({"a": {"b": {}}, "z": 1})", R"({"z":1})"},
      {R"({"kept": {}, "undescribed": {}, "scalars": []})",
       R"({"kept":{},"undescribed":{},"scalars":[]})"},
      {R"({"list": [{}, {"x": 1}, 5, {}]})", R"({"list":[{"x":1},5]})"},
      {R"({"list": [{"sv_generated_id": "g"}, {"sv_generated_id": "h", "x": 2}]})",
       R"({"list":[{"sv_generated_id":"h","x":2}]})"},
      {R"({"list": [{}], "sv_generated_id": "g1"})", "{}"},
      {R"({"sv_generated_id": "g1", "x": 1})", R"({"sv_generated_id":"g1","x":1})"},
      {"[1]", "[1]"},
  };
  for (const auto& c : cases) EXPECT_EQ(Cleaned(c.data, schema), c.cleaned) << c.data;
}

TEST(CleanupObjectTest, KindsDecideWhetherToClean) {
  LogCapture log(3);
  // Kind 5 keeps the data of its non-user instances only; other kinds
  // clean every instance, whatever instance ids they call non-user.
  const struct {
    int kind;
    const char* instance;
    bool cleaned;
  } cases[] = {{0, "", true},          {1, "", false},     {2, "", true},
               {3, "", false},         {4, "", false},     {6, "", true},
               {5, "bootbank", false}, {5, "data1", true}, {0, "bootbank", true}};
  for (const auto& c : cases) {
    auto schema = std::make_shared<InlineSchema>(kUserSchema, *c.instance ? "label" : "", c.kind);
    EXPECT_EQ(Cleaned(R"({"a": {}})", schema, c.instance), c.cleaned ? "{}" : R"({"a":{}})")
        << c.kind << " " << c.instance;
  }
}

// "r" is required, "n" has a maximum, "v", "c" and "s" are vital, cached and
// solution-user members, the element of the instance array "arr" lacks its
// id (and is not empty, so clean-up keeps it) and "x" is undescribed.
const char kSampleSchema[] = R"({"type":"object","required":["r"],"properties":{
    "r":{"type":"string"}, "n":{"type":"integer","maximum":5}, "v":{"type":"integer","vital":true},
    "c":{"type":"integer","cached":true}, "s":{"type":"integer","solutionUser":true},
    "arr":{"type":"array","instanceIdProperty":"id","items":{"type":"object",
           "properties":{"id":{"type":"string"},"q":{"type":"integer"}}}}}})";
const char kSampleData[] = R"({"n":9,"v":1,"c":1,"s":1,"x":1,"arr":[{"q":1}]})";

std::vector<std::string> Paths(const std::vector<ErrorInfo>& errors) {
  std::vector<std::string> paths;
  for (const auto& error : errors) paths.push_back(error.path);
  return paths;
}

using Check = void (*)(const std::shared_ptr<SchemaObject>&,
                       const std::shared_ptr<SetvaultObject>&);

void ApplyFile(const std::shared_ptr<SchemaObject>& schema,
               const std::shared_ptr<SetvaultObject>& object) {
  ValidateApplyFile(object->GetImpl()->Root(), schema->GetSchemaJson());
}

TEST(PerOperationChecksTest, EachThrowsItsCodeWithEveryFindingOfItsOptionSet) {
  const char r[] = R"({"r":"a"})";
  const struct {
    Check check;
    int code;
    std::vector<std::string> paths;
    const char* valid;
  } cases[] = {
      {ValidateCachedConfig, 1084, {"/n", "/v", "/s", "/x", "/arr"}, "{}"},
      {ValidateVitalConfig, 1086, {"/n", "/c", "/s", "/x", "/arr"}, "{}"},
      {ValidateUserConfig, 1087, {"/v", "/c", "/s", "/x", "/n", "/r", "/arr/0/id"}, r},
      {ValidatePartialConfig, 1088, {"/v", "/c", "/s", "/x", "/n", "/r"}, r},
      {ValidateSet, 1089, {"/x", "/n", "/r", "/arr/0/id"}, r},
      {ValidateUpdate, 1090, {"/x", "/n"}, R"({"n":5})"},
      // Solution-user members are allowed; required members are not checked.
      {ApplyFile, 1091, {"/v", "/c", "/x", "/n", "/arr/0/id"}, R"({"s":1})"},
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
      EXPECT_STREQ(e.what(), ErrorMessageForId(static_cast<SVErrorCodes>(c.code)));
      EXPECT_THAT(Paths(e.GetErrors()), ::testing::UnorderedElementsAreArray(c.paths));
    }
  }
  // The user-data checks clean the object first (an empty instance and then
  // its array go); the checks of other data see it as it is.
  auto cleaned = MakeObject(R"({"r":"a","arr":[{}]})", schema);
  ValidateSet(schema, cleaned);
  EXPECT_EQ(cleaned->GetData(), R"({"r":"a"})");
  EXPECT_THROW(ValidateCachedConfig(schema, MakeObject(R"({"arr":[{}]})", schema)),
               ValidationException);
}

TEST(ValidateSvoTest, OptionSetFollowsTheTypesTopLevelTag) {
  // "n" passes the options of a vital type and of a cached type but fails
  // the other's; the whole-object options require "m".
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
  EXPECT_FALSE(
      ValidateObjectData(vital, MakeObject(R"({"n":1})", vital), CachedDataOptions, errors, true));
  EXPECT_FALSE(
      ValidateObjectData(cached, MakeObject(R"({"n":1})", cached), VitalDataOptions, errors, true));
  EXPECT_THAT(Paths(errors), ElementsAre("/n", "/n"));
  // A tag that is not a boolean is a JSON error.
  auto odd = std::make_shared<InlineSchema>(R"({"type":"object","vital":"true"})");
  EXPECT_THAT(Thrown([&] { ValidateSVO(odd, MakeObject("{}", odd), errors); }),
              ::testing::StartsWith(std::to_string(SV_ERR_JSON) + " "));
}

TEST(SchemaStoreValidationTest, ObjectsAndDocumentsAreCheckedAsUserData) {
  setvault_test::ExampleSchemas schemas;
  LogCapture log(2);
  auto bad = MakeObject(R"({"memoryBytes":-1})", nullptr, kHost);
  std::vector<ErrorInfo> errors;
  EXPECT_TRUE(validateObject(bad, kNone, errors, ""));
  EXPECT_TRUE(validateObject(bad, kRead, errors, "ignored"));
  EXPECT_THAT(errors, IsEmpty());
  EXPECT_FALSE(validateObject(bad, kCreate, errors, ""));
  // User-data options: the cached member is refused (and its value not checked).
  ASSERT_THAT(Paths(errors), ElementsAre("/memoryBytes"));
  EXPECT_EQ(errors[0].message,
            "member 'memoryBytes' is not allowed in user data (it is cached data)");
  EXPECT_TRUE(
      validateObject(MakeObject(R"({"hostname":"h"})", nullptr, kHost), kModify, errors, ""));
  EXPECT_EQ(log.CountStartingWith(2, "validate completed successfully"), 3);
  EXPECT_EQ(log.CountStartingWith(0, "validate completed with errors"), 1);
  // Without a schema every action fails.
  auto unknown = MakeObject("{}", nullptr, SetvaultObjectId("nothing", "here", "korvo", "i1"));
  for (ACTION action : {kNone, kRead, kCreate}) {
    errors.clear();
    EXPECT_FALSE(validateObject(unknown, action, errors, ""));
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors[0].path + ": " + errors[0].message, "korvo/nothing: Schema not found.");
  }
  EXPECT_TRUE(log.Contains(0, "Schema not found for comp korvo grp here key nothing id i1"));
  // Whole documents are checked with the user-data options too.
  const SetvaultObjectId id("document", "import", "korvo");
  const char good[] = R"({"korvo":{"system":{"host":{"hostname":"h"}}}})";
  errors.clear();
  EXPECT_TRUE(ValidateDocument(MakeObject(good, nullptr, id), errors));
  // A vital member is not user data.
  EXPECT_FALSE(ValidateDocument(
      MakeObject(R"({"korvo":{"system":{"host":{"systemUuid":"u"}}}})", nullptr, id), errors));
  EXPECT_THAT(Paths(errors), ElementsAre("/korvo/system/host/systemUuid"));
  // An earlier entry makes even a valid document fail.
  EXPECT_FALSE(ValidateDocument(MakeObject(good, nullptr, id), errors));
}

// Argument and schema-kind guards: exact codes and messages, the order of their checks, and
// that none of them touches the store.
const char kNeedsId[] = "2000 Non-Singleton object should contain instanceId";
const char kNotKernelOptions[] =
    "2000 API should only be invoked for Kernel options configuration.";

// Example schemas, and a store path whose file does not exist: a guard that
// reads the store would create it (or fail), so its absence afterwards shows
// that no database was touched.
class GuardsTest : public ::testing::Test {
 protected:
  void SetUp() override { SetStorePath(dir_.File("never/store.db")); }
  void TearDown() override {
    struct stat info;
    EXPECT_NE(stat(dir_.File("never").c_str(), &info), 0) << "a guard opened the store";
    SetStorePath(kDefaultStorePath);
  }

  setvault_test::ExampleSchemas schemas_;
  setvault_test::TempDir dir_;
};

// The store's tests check each guard's message through the public calls;
// these are the overloads and orders those calls do not reach.
TEST_F(GuardsTest, CodesAndMessagesInTheOrderOfTheChecks) {
  auto host = LookUpSchema(kHost);
  auto vswitch = LookUpSchema(kVswitches);
  auto filter = [](const SetvaultObjectId& id) { return std::make_shared<FilterSpecObject>(id); };
  const SetvaultObjectId unknown_with_id("nothing", "here", "korvo", "x");
  const auto no_id = std::make_shared<SetvaultObject>(kVswitches);
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[&] { validateSingletonNonSingleton(no_id, vswitch); }, kNeedsId},
      {[&] { ValidateSvoId(no_id, vswitch); }, kNeedsId},
      // Both rules broken: the missing schema is reported.
      {[&] { ValidateSvoId(unknown_with_id, nullptr); },
       "1037 Schema not found for " + unknown_with_id.toString()},
      {[&] { ValidateSvoIdInstances(filter(kHost), host); },
       "2000 API called for singleton object, non-singleton expected"},
      {[&] { ValidateSvoIdInstances(filter(kVswitches), vswitch); }, ""},
      {[&] { ValidateKernelOptionsSvoId(SetvaultObjectId("options", "hvcore", "korvo", "x")); },
       ""},
      // The kernel options are matched exactly.
      {[&] { ValidateKernelOptionsSvoId(SetvaultObjectId("options", "HVCORE", "korvo")); },
       kNotKernelOptions},
      {[&] { ValidateKernelOptionsSvoId(SetvaultObjectId("options", "hvcore", "korvo2")); },
       kNotKernelOptions},
      // The user context outside boot asks nothing (the store cannot be opened).
      {[&] { checkUserContext(false, USERDATA_CONTEXT{kExternalContext}); }, ""},
      {[&] { checkUserContext(true, USERDATA_CONTEXT{kAutoConfigContext}); }, ""},
  };
  for (const auto& [call, outcome] : cases) EXPECT_EQ(Thrown(call), outcome) << outcome;
}

TEST_F(GuardsTest, EmptyObjectsAreLogged) {
  auto full = std::make_shared<SetvaultObject>(kHost);
  full->SetData(R"({"hostname":"h"})");
  LogCapture log(2);
  EXPECT_FALSE(ObjIsEmpty(full, "Set"));
  EXPECT_TRUE(ObjIsEmpty(std::make_shared<SetvaultObject>(kHost), "SetUserData"));
  EXPECT_THAT(log.Lines(), ElementsAre(std::make_pair(
                               1,
                               "SetUserData, Configuration object for comp korvo grp system "
                               "key host is empty, will not be persisted in the db")));
}

}  // namespace
}  // namespace KorvoSetvault
