#include "setvault/object_id.h"

#include <gtest/gtest.h>

#include <unordered_map>

namespace KorvoSetvault {
namespace {

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

}  // namespace
}  // namespace KorvoSetvault
