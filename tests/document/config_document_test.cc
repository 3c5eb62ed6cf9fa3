// Import and export of whole configuration documents and the shipped default instances,
// through the public calls, on a real store: round trips, all-or-nothing imports, refused
// documents and one-snapshot exports.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "document/config_document.h"
#include "document/setvault_document.h"
#include "setvault/config_document.h"
#include "setvault/default_instances.h"
#include "setvault/schema_setup.h"
#include "store/store_fixture.h"
#include "support/reliability_processes.h"

namespace setvault_test {
namespace {

using KorvoSetvault::AddDefaultConfigInstances;
using KorvoSetvault::ErrorInfo;
using KorvoSetvault::Export;
using KorvoSetvault::ExportStore;
using KorvoSetvault::FilterDefaultConfigInstances;
using KorvoSetvault::Import;

const SetvaultObjectId kFirewall("firewall", "net", "korvo");
const SetvaultObjectId kFirmware("firmware", "hw", "nicmgr", "0000:01:00.0");
std::shared_ptr<KorvoSetvault::FilterSpecObject> Filter(const SetvaultObjectId& id) {
  return std::make_shared<KorvoSetvault::FilterSpecObject>(id);
}

// True when the two texts hold equal JSON (object members in any order).
bool SameJson(const std::string& a, const std::string& b) {
  return KorvoSetvault::SetvaultDocument::ValuesEqual(
      *KorvoSetvault::CreateDocumentFromString(a)->GetJsonValuePtr(),
      *KorvoSetvault::CreateDocumentFromString(b)->GetJsonValuePtr());
}

class ConfigDocumentTest : public WriteStoreTest {
 protected:
  // Singletons and instances with vital and cached members, sub-object instance arrays,
  // generated ids and a type that is cached as a whole.
  void Populate() {
    store_->Set(Object(kHost, R"({"hostname":"h0","systemUuid":"u-1","memoryBytes":1024,)"
                              R"("ntp":{"enabled":true,"servers":["ntp1"]}})"),
                kExternal);
    store_->Set(Object(kFirewall, R"({"enabled":true,"rules":[{"service":"ssh","port":22},)"
                                  R"({"service":"dns","port":53}]})"),
                kExternal);
    store_->SetInstances(
        {Object(Vswitch("a"), R"({"name":"a","mtu":9000,"portgroups":[{"name":"pg1",)"
                              R"("vlanId":10,"activePorts":3},{"name":"pg2"}]})"),
         Object(Vswitch("b"), R"({"name":"b","mtu":1500,"uplinks":["vmnic1"]})")},
        kExternal);
    store_->SetInstances({Object(Datastore("d1"), R"({"label":"d1","capacityBytes":77})")},
                         kExternal);
    store_->Set(Object(kFirmware, R"({"pciAddress":"0000:01:00.0","vendor":"x"})"), kExternal);
  }

  // Imports `document`, expecting success.
  void ImportOk(const std::string& document) {
    std::vector<ErrorInfo> errors;
    EXPECT_TRUE(Import(document, errors));
    for (const auto& e : errors) ADD_FAILURE() << e.path << ": " << e.message;
  }
};

TEST_F(ConfigDocumentTest, ExportSelectsByFilterAndSkipsWhatIsNotStored) {
  Populate();
  store_->Delete(kFirewall);
  auto jumbo = Filter(Vswitch(""));
  jumbo->SetValue("mtu", 9000);
  const std::string document =
      Export({Filter(kHost), jumbo, nullptr, Filter(kHost), Filter(kFirewall)});
  EXPECT_TRUE(
      SameJson(document, R"({"korvo":{"net":{"vswitch":[)" + store_->Get(Vswitch("a"))->GetData() +
                             R"(]},"system":{"host":)" + store_->Get(kHost)->GetData() + "}}}"))
      << document;
  auto unknown = Filter(SetvaultObjectId("nope", "net", "korvo"));
  ExpectThrow<KorvoSetvault::SetvaultException>([&] { Export({jumbo, unknown}); }, 1037);
  // An empty list opens nothing: even an unusable store path answers "{}".
  KorvoSetvault::SetStorePath(dir_.path());
  EXPECT_EQ(Export({}), "{}");
  EXPECT_THROW(Export({jumbo}), KorvoSetvault::SetvaultException);
}

TEST_F(ConfigDocumentTest, RefusedDocumentsImportNothingAndSayWhere) {
  Populate();
  const std::string stored = ExportStore();
  const struct {
    std::string document;
    std::string path;     // of one finding
    std::string message;  // part of that finding's message
  } cases[] = {
      {"not json", "/", "not valid JSON at offset "},
      {R"({"korvo":{}} {})", "/", "not valid JSON"},
      {"[]", "/", "INCORRECT TYPE: expected object."},
      {R"({"korvo":5})", "/korvo", ""},
      {R"({"korvo":{"net":[]}})", "/korvo/net", ""},
      {R"({"korvo":{"net":{"nope":{}}}})", "/korvo/net/nope", "comp korvo grp net key nope"},
      {R"({"korvo":{"system":{"host":[]}}})", "/korvo/system/host", ""},
      {R"({"korvo":{"net":{"vswitch":{"name":"a"}}}})", "/korvo/net/vswitch", ""},
      {R"({"korvo":{"net":{"vswitch":[{"mtu":1500}]}}})", "/korvo/net/vswitch/0/name", "missing"},
      {R"({"korvo":{"net":{"vswitch":[{"name":"a"},{"name":"a"}]}}})", "/korvo/net/vswitch/1/name",
       "duplicate"},
      {R"({"korvo":{"net":{"vswitch":[{"name":""}]}}})", "/korvo/net/vswitch/0/name", "empty"},
      {R"({"korvo":{"net":{"vswitch":[{"name":"a"}],"vswitch":[{"name":"b"}]}}})",
       "/korvo/net/vswitch", "more than once"},
      // One invalid object among valid ones.
      {R"({"korvo":{"system":{"host":{"hostname":"new"}},"net":{"vswitch":[{"name":"c"},)"
       R"({"name":"d","mtu":5}]}}})",
       "/korvo/net/vswitch/1/mtu", ""},
  };
  for (const auto& c : cases) {
    std::vector<ErrorInfo> errors;
    EXPECT_FALSE(Import(c.document, errors)) << c.document;
    EXPECT_TRUE(std::any_of(errors.begin(), errors.end(), [&](const ErrorInfo& e) {
      return e.path == c.path && e.message.find(c.message) != std::string::npos;
    })) << c.document;
    EXPECT_EQ(ExportStore(), stored) << c.document;
  }
  ImportOk("{}");
  EXPECT_EQ(ExportStore(), stored);
}

TEST_F(ConfigDocumentTest, DatabaseFailureDuringImportLeavesTheStoreAsItWas) {
  Populate();
  const std::string stored = ExportStore();
  EXPECT_EQ(stored.find("sv_generated_id"), std::string::npos);
  // The host and vswitch "a" are written before vswitch "b" fails.
  Fault("INSERT ON Config WHEN NEW.Identifier = 'b'");
  std::vector<ErrorInfo> errors;
  ExpectThrow<KorvoSetvault::SetvaultException>([&] { Import(stored, errors); }, 2000);
  EXPECT_EQ(ExportStore(), stored);
  EXPECT_NE(sqlite3_get_autocommit(Db()), 0);  // no transaction left open
  DropFault();
  // An import replaces the instances of the types it names, and only those, counting each
  // row's revision on; into an empty store, the export comes out again.
  ImportOk(R"({"korvo":{"net":{"vswitch":[{"name":"b","mtu":9000}]}}})");
  EXPECT_EQ(RowCount(Vswitch("")), 1);
  EXPECT_EQ(store_->GetRevision(Vswitch("b")), 2);
  EXPECT_EQ(store_->GetRevision(Datastore("d1")), 1);
  KorvoSetvault::SetStorePath(dir_.File("empty.db"));
  ImportOk(stored);
  EXPECT_TRUE(SameJson(ExportStore(), stored)) << ExportStore() << "\n" << stored;
}

TEST_F(ConfigDocumentTest, ExportIsOneSnapshotWhileAnotherProcessWrites) {
  Populate();
  const std::string before = ExportStore();
  // Another process, forked before the export (a process forked inside a store operation
  // may not use the store), changes the store and commits after the first type is written.
  Pipe go;
  const pid_t child = Spawn([&] {
    if (!go.Await()) return 2;
    auto store = KorvoSetvault::Setvault::GetStore("");
    store->SetInstances({Object(Vswitch("c"), R"({"name":"c"})")}, kExternal);
    store->Set(Object(kHost, R"({"hostname":"changed"})"), kExternal);
    return 0;
  });
  bool changed = false;
  KorvoSetvault::SetExportTypeHookForTesting([&](const SetvaultObjectId&) {
    if (changed) return;
    changed = true;
    EXPECT_TRUE(go.Signal());
    EXPECT_EQ(Wait(child), 0);
  });
  const std::string during = ExportStore();
  KorvoSetvault::SetExportTypeHookForTesting(nullptr);
  EXPECT_TRUE(changed);
  EXPECT_EQ(during, before);
  EXPECT_NE(ExportStore(), before);  // the change is there once the export is done
}

// Shipped defaults: loaded with the definitions into the store's default configuration;
// lists of instances completed with, or cleared of, the shipped default instances.
TEST_F(ConfigDocumentTest, ShippedDefaultInstances) {
  using ::testing::ElementsAre;
  KorvoSetvault::LoadSchemaDefinitions(ExampleSchemaDir());
  EXPECT_EQ(store_->GetDefaultConfig(kHost)->GetData(),
            R"({"timezone":"UTC","powerPolicy":"balanced"})");
  const Objects shipped = store_->GetDefaultConfigInstances(Filter(Vswitch("")));
  ASSERT_EQ(shipped.size(), 1u);
  EXPECT_EQ(shipped[0]->GetSetvaultObjectId(), Vswitch("vSwitch0"));
  EXPECT_EQ(shipped[0]->GetData(), R"({"name":"vSwitch0","mtu":1500,"uplinks":["vmnic0"],)"
                                   R"("portgroups":[{"name":"Management","vlanId":0}]})");

  auto own = Object(Vswitch("vs1"), R"({"name":"vs1"})");
  auto changed = Object(Vswitch("vSwitch0"), R"({"name":"vSwitch0","mtu":9000})");
  EXPECT_THAT(Ids(AddDefaultConfigInstances({nullptr, own})), ElementsAre("vs1", "vSwitch0"));
  EXPECT_THAT(Ids(AddDefaultConfigInstances({changed, own})), ElementsAre("vSwitch0", "vs1"));
  // The shipped instance as stored (members in another order) is equal to its default.
  store_->Set(Object(Vswitch("vSwitch0"),
                     R"({"portgroups":[{"vlanId":0,"name":"Management"}],"uplinks":["vmnic0"],)"
                     R"("mtu":1500,"name":"vSwitch0"})"),
              kExternal);
  auto stored = store_->Get(Vswitch("vSwitch0"));
  EXPECT_THAT(Ids(FilterDefaultConfigInstances({stored, own})), ElementsAre("vs1"));
  EXPECT_THAT(Ids(FilterDefaultConfigInstances({changed, own})), ElementsAre("vSwitch0", "vs1"));

  using Call = Objects (*)(Objects);
  const std::pair<Objects, int> refused[] = {
      {{}, 1061}, {{nullptr}, 1061}, {{own, Object(Datastore("d1"), R"({"label":"d1"})")}, 1062}};
  for (Call call : {&AddDefaultConfigInstances, &FilterDefaultConfigInstances}) {
    for (const auto& c : refused) {
      ExpectThrow<KorvoSetvault::InvalidArgumentException>([&] { call(c.first); }, c.second);
    }
    EXPECT_EQ(ExpectThrow<KorvoSetvault::ValidationException>(
                  [&] { call({Object(kHost, R"({"hostname":"h"})")}); }, 2000),
              "API called for singleton object, non-singleton expected");
  }
}

}  // namespace
}  // namespace setvault_test
