#include "setvault/object_id.h"

#include <gtest/gtest.h>

#include <regex>
#include <unordered_map>
#include <unordered_set>

namespace KorvoSetvault {
namespace {

TEST(SetvaultObjectIdText, ComponentComesFirstAndInstanceIdOnlyWhenSet) {
  SetvaultObjectId options("options", "hvcore", "korvo");
  EXPECT_EQ(options.toString(), "comp korvo grp hvcore key options");
  EXPECT_TRUE(options.instanceId.empty());
  SetvaultObjectId instance(std::string("options"), std::string("hvcore"), std::string("korvo"),
                            std::string("a1"));
  EXPECT_EQ(instance.toString(), "comp korvo grp hvcore key options id a1");
  EXPECT_EQ(instance.key, "options");
  EXPECT_EQ(instance.group, "hvcore");
  EXPECT_EQ(instance.component, "korvo");
}

TEST(SetvaultObjectIdEquality, AllFourMembersCount) {
  SetvaultObjectId a("k", "g", "c");
  EXPECT_EQ(a, SetvaultObjectId("k", "g", "c"));
  EXPECT_NE(a, SetvaultObjectId("k", "g", "c", "i"));
  EXPECT_NE(a, SetvaultObjectId("k", "g", "d"));
  EXPECT_NE(a, SetvaultObjectId("k", "h", "c"));
  EXPECT_NE(a, SetvaultObjectId("j", "g", "c"));
  EXPECT_NE(SetvaultObjectId("k", "g", "c", "i1"), SetvaultObjectId("k", "g", "c", "i2"));
}

TEST(SetvaultObjectIdHash, CollidingSplitsStayDistinctKeys) {
  SetvaultObjectId ab_c("ab", "c", "korvo");
  SetvaultObjectId a_bc("a", "bc", "korvo");
  EXPECT_EQ(hashSvoId(ab_c), hashSvoId(a_bc));
  EXPECT_NE(ab_c, a_bc);
  EXPECT_EQ(hashSvoId(ab_c), std::hash<std::string>()("abckorvo"));

  std::unordered_map<SetvaultObjectId, int> map;
  map[ab_c] = 1;
  map[a_bc] = 2;
  EXPECT_EQ(map.size(), 2u);
  EXPECT_EQ(map.at(SetvaultObjectId("ab", "c", "korvo")), 1);
  EXPECT_EQ(map.at(SetvaultObjectId("a", "bc", "korvo")), 2);

  std::unordered_set<SetvaultObjectId> set;
  for (int i = 0; i < 1000; ++i) set.insert(SetvaultObjectId("k", "g", "c", std::to_string(i)));
  set.insert(SetvaultObjectId("k", "g", "c", "7"));
  EXPECT_EQ(set.size(), 1000u);
}

TEST(SubObjectIdText, KeyAndOptionalInstance) {
  EXPECT_EQ(SubObjectId("net").toString(), "key net");
  EXPECT_EQ(SubObjectId("net", "eth0").toString(), "key net id eth0");
  SubObjectId from_object(SetvaultObjectId("port", "net", "korvo", "p1"));
  EXPECT_EQ(from_object.key, "port");
  EXPECT_EQ(from_object.instanceId, "p1");
}

TEST(InstanceIds, GeneratedIdsAreDistinctUuids) {
  const std::regex uuid("^[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$");
  std::unordered_set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    const std::string id = GenerateInstanceId();
    EXPECT_TRUE(std::regex_match(id, uuid)) << id;
    EXPECT_TRUE(seen.insert(id).second);
  }
}

TEST(Constants, HaveTheirValues) {
  EXPECT_EQ(kDefaultComponent, "korvo");
  EXPECT_EQ(kEmptyString, "");
  EXPECT_EQ(kDefaultRevision, -1);
}

}  // namespace
}  // namespace KorvoSetvault
