// Shipped defaults: loaded with the definitions into the store's default configuration, and
// lists of instances related to the shipped default instances.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "setvault/default_instances.h"
#include "setvault/schema_setup.h"
#include "store/store_fixture.h"

namespace setvault_test {
namespace {

using KorvoSetvault::AddDefaultConfigInstances;
using KorvoSetvault::FilterDefaultConfigInstances;
using KorvoSetvault::FilterSpecObject;
using ::testing::ElementsAre;

SetvaultObjectId Vswitch(const std::string& name) { return {"vswitch", "net", "korvo", name}; }

std::vector<std::string> Ids(const std::vector<std::shared_ptr<SetvaultObject>>& objects) {
  std::vector<std::string> ids;
  for (const auto& object : objects) ids.push_back(object->GetSetvaultObjectId().instanceId);
  return ids;
}

class DefaultInstancesTest : public WriteStoreTest {
 protected:
  void SetUp() override {
    WriteStoreTest::SetUp();
    KorvoSetvault::LoadSchemaDefinitions(ExampleSchemaDir());
  }
  std::shared_ptr<SetvaultObject> Shipped() {
    auto defaults =
        store_->GetDefaultConfigInstances(std::make_shared<FilterSpecObject>(Vswitch("")));
    return defaults.empty() ? nullptr : defaults.front();
  }
};

TEST_F(DefaultInstancesTest, DefinitionsShipDefaultObjectsAndInstances) {
  EXPECT_EQ(store_->GetDefaultConfig(SetvaultObjectId("host", "system", "korvo"))->GetData(),
            R"({"timezone":"UTC","powerPolicy":"balanced"})");
  ASSERT_NE(Shipped(), nullptr);
  EXPECT_EQ(Shipped()->GetSetvaultObjectId(), Vswitch("vSwitch0"));
  EXPECT_EQ(Shipped()->GetData(), R"({"name":"vSwitch0","mtu":1500,"uplinks":["vmnic0"],)"
                                  R"("portgroups":[{"name":"Management","vlanId":0}]})");
}

TEST_F(DefaultInstancesTest, AddFillsInMissingDefaultsAndFilterDropsUnchangedOnes) {
  auto own = Object(Vswitch("vs1"), R"({"name":"vs1"})");
  EXPECT_THAT(Ids(AddDefaultConfigInstances({nullptr, own})), ElementsAre("vs1", "vSwitch0"));
  auto changed = Object(Vswitch("vSwitch0"), R"({"name":"vSwitch0","mtu":9000})");
  EXPECT_THAT(Ids(AddDefaultConfigInstances({changed, own})), ElementsAre("vSwitch0", "vs1"));

  // The shipped instance as stored (members in another order) is equal to its default.
  store_->Set(Object(Vswitch("vSwitch0"),
                     R"({"portgroups":[{"vlanId":0,"name":"Management"}],"uplinks":["vmnic0"],)"
                     R"("mtu":1500,"name":"vSwitch0"})"),
              kExternal);
  auto stored = store_->Get(Vswitch("vSwitch0"));
  EXPECT_THAT(Ids(FilterDefaultConfigInstances({stored, own})), ElementsAre("vs1"));
  EXPECT_THAT(Ids(FilterDefaultConfigInstances({changed, own})), ElementsAre("vSwitch0", "vs1"));
}

TEST_F(DefaultInstancesTest, BadListsAreRefused) {
  using Call = std::vector<std::shared_ptr<SetvaultObject>> (*)(
      std::vector<std::shared_ptr<SetvaultObject>>);
  const SetvaultObjectId host("host", "system", "korvo");
  for (Call call : {&AddDefaultConfigInstances, &FilterDefaultConfigInstances}) {
    ExpectThrow<KorvoSetvault::InvalidArgumentException>([&] { call({}); }, 1061);
    ExpectThrow<KorvoSetvault::InvalidArgumentException>([&] { call({nullptr}); }, 1061);
    ExpectThrow<KorvoSetvault::InvalidArgumentException>(
        [&] {
          call(
              {Object(Vswitch("a"), R"({"name":"a"})"),
               Object(SetvaultObjectId("datastore", "storage", "korvo", "d"), R"({"label":"d"})")});
        },
        1062);
    const std::string message = ExpectThrow<KorvoSetvault::ValidationException>(
        [&] { call({Object(host, R"({"hostname":"h"})")}); }, 2000);
    EXPECT_EQ(message, "API called for singleton object, non-singleton expected");
  }
}

}  // namespace
}  // namespace setvault_test
