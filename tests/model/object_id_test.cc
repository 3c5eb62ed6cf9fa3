#include "setvault/object_id.h"

#include <gtest/gtest.h>

#include <regex>
#include <unordered_map>
#include <unordered_set>

namespace KorvoSetvault {
namespace {

TEST(ObjectIdTest, TextNamesComponentFirstAndInstanceIdOnlyWhenSet) {
  EXPECT_EQ(SetvaultObjectId("options", "hvcore", "korvo").toString(),
            "comp korvo grp hvcore key options");
  EXPECT_EQ(SetvaultObjectId("options", "hvcore", "korvo", "a1").toString(),
            "comp korvo grp hvcore key options id a1");
  EXPECT_EQ(SubObjectId("net").toString(), "key net");
  EXPECT_EQ(SubObjectId(SetvaultObjectId("port", "net", "korvo", "p1")).toString(),
            "key port id p1");
}

TEST(ObjectIdTest, EveryMemberCountsAndCollidingHashesStayDistinctKeys) {
  const SetvaultObjectId a("k", "g", "c", "i");
  EXPECT_EQ(a, SetvaultObjectId("k", "g", "c", "i"));
  for (const auto& other :
       {SetvaultObjectId("k", "g", "c"), SetvaultObjectId("k", "g", "d", "i"),
        SetvaultObjectId("k", "h", "c", "i"), SetvaultObjectId("j", "g", "c", "i")}) {
    EXPECT_NE(a, other) << other.toString();
  }
  const SetvaultObjectId ab_c("ab", "c", "korvo");
  const SetvaultObjectId a_bc("a", "bc", "korvo");
  EXPECT_EQ(hashSvoId(ab_c), std::hash<std::string>()("abckorvo"));
  EXPECT_EQ(hashSvoId(ab_c), hashSvoId(a_bc));
  std::unordered_map<SetvaultObjectId, int> map{{ab_c, 1}, {a_bc, 2}};
  EXPECT_EQ(map.at(SetvaultObjectId("a", "bc", "korvo")), 2);
}

TEST(ObjectIdTest, GeneratedInstanceIdsAreDistinctUuids) {
  const std::regex uuid("^[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$");
  std::unordered_set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    const std::string id = GenerateInstanceId();
    EXPECT_TRUE(std::regex_match(id, uuid)) << id;
    EXPECT_TRUE(seen.insert(id).second);
  }
}

}  // namespace
}  // namespace KorvoSetvault
