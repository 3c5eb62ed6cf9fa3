#include "model/update_merge.h"

#include <gtest/gtest.h>

#include "support/example_schemas.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

class UpdateMergeTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { schemas_ = new setvault_test::ExampleSchemas(); }
  static void TearDownTestSuite() { delete schemas_; }

  static std::shared_ptr<SetvaultObject> VSwitch(const std::string& data) {
    auto object = std::make_shared<SetvaultObject>(SetvaultObjectId("vswitch", "net", "korvo", "vs0"));
    object->SetData(data.c_str());
    return object;
  }

  std::string Merged(const std::string& target, const std::string& source) {
    auto into = VSwitch(target);
    UpdateConfigInternal(VSwitch(source), into);
    return into->GetData();
  }

  setvault_test::LogCapture log_{0};
  static setvault_test::ExampleSchemas* schemas_;
};

setvault_test::ExampleSchemas* UpdateMergeTest::schemas_ = nullptr;

TEST_F(UpdateMergeTest, MembersAbsentFromTheSourceKeepTheirValues) {
  EXPECT_EQ(Merged(R"({"name":"vs0","mtu":1500,"uplinks":["a"]})", R"({"mtu":9000})"),
            R"({"name":"vs0","uplinks":["a"],"mtu":9000})");
  EXPECT_EQ(Merged(R"({"name":"vs0"})", R"({"uplinks":["b"]})"), R"({"name":"vs0","uplinks":["b"]})");
  // Equal values stay where they are.
  EXPECT_EQ(Merged(R"({"mtu":9000,"name":"vs0"})", R"({"mtu":9000})"), R"({"mtu":9000,"name":"vs0"})");
}

TEST_F(UpdateMergeTest, ScalarListsAreReplacedNotMerged) {
  EXPECT_EQ(Merged(R"({"uplinks":["a","b"]})", R"({"uplinks":["c"]})"), R"({"uplinks":["c"]})");
}

TEST_F(UpdateMergeTest, SingletonSubObjectsMergeMemberByMember) {
  EXPECT_EQ(Merged(R"({"teaming":{"policy":"failover","notifySwitches":true}})",
                   R"({"teaming":{"policy":"loadBalanceIp"}})"),
            R"({"teaming":{"notifySwitches":true,"policy":"loadBalanceIp"}})");
}

TEST_F(UpdateMergeTest, InstancesMergeByInstanceId) {
  EXPECT_EQ(
      Merged(R"({"portgroups":[{"name":"a","vlanId":1,"security":{"promiscuous":false}},{"name":"b","vlanId":2}]})",
             R"({"portgroups":[{"name":"b","vlanId":20},{"name":"c","vlanId":3},
                               {"name":"a","security":{"forgedTransmits":true}}]})"),
      R"({"portgroups":[{"name":"a","vlanId":1,"security":{"promiscuous":false,"forgedTransmits":true}},)"
      R"({"name":"b","vlanId":20},{"name":"c","vlanId":3}]})");
}

TEST_F(UpdateMergeTest, KindChangesReplaceTheValue) {
  EXPECT_EQ(Merged(R"({"teaming":{"policy":"failover"}})", R"({"teaming":null})"),
            R"({"teaming":null})");
  EXPECT_EQ(Merged(R"({"portgroups":[{"name":"a"}]})", R"({"portgroups":{"x":1}})"),
            R"({"portgroups":{"x":1}})");
}

TEST_F(UpdateMergeTest, NullAndSelfMergesChangeNothing) {
  auto target = VSwitch(R"({"name":"vs0","mtu":1500})");
  UpdateConfigInternal(nullptr, target);
  UpdateConfigInternal(target, target);
  UpdateConfigInternal(target, nullptr);
  EXPECT_EQ(target->GetData(), R"({"name":"vs0","mtu":1500})");
}

}  // namespace
}  // namespace KorvoSetvault
