// Splitting object data into the user, vital and cached parts by the tags of a schema.
#include "db/object_split.h"

#include <gtest/gtest.h>

#include "setvault/json_doc.h"

namespace setvault_test {
namespace {

// Only what the split reads: properties, items, the tags and the instance-id members.
const char kSchema[] = R"({"properties": {
  "name": {}, "tags": {"items": {}}, "serial": {"vital": true}, "load": {"cached": true},
  "limits": {"properties": {"max": {}, "seen": {"cached": true},
                            "inner": {"properties": {"key": {"vital": true}}}}},
  "ports": {"instanceIdProperty": "id", "items": {"properties": {
    "id": {}, "speed": {}, "link": {"cached": true}, "mac": {"vital": true}}}},
  "rules": {"generatedInstanceId": true, "items": {"properties": {
    "sv_generated_id": {}, "port": {}, "hits": {"cached": true}}}}}})";

// Each part as text; "-" when the split leaves it absent (stored as NULL).
struct SplitCase {
  const char* data;
  const char* user;
  const char* vital;
  const char* cached;
  const char* schema = kSchema;
};

std::string Text(const std::optional<std::string>& part) { return part ? *part : "-"; }

TEST(ObjectSplitTest, MembersGoToThePartTheirTagsName) {
  const SplitCase cases[] = {
      {R"({"name":"n","serial":"s1","load":4,"tags":["x"],"other":1})",
       R"({"name":"n","tags":["x"],"other":1})", R"({"serial":"s1"})", R"({"load":4})"},
      // A part without members is absent.
      {R"({"load":1})", "-", "-", R"({"load":1})"},
      // Singleton sub-objects split member by member at every depth; an empty one is user data.
      {R"({"limits":{"max":9,"seen":3,"inner":{"key":"k"}}})", R"({"limits":{"max":9}})",
       R"({"limits":{"inner":{"key":"k"}}})", R"({"limits":{"seen":3}})"},
      {R"({"limits":{}})", R"({"limits":{}})", "-", "-"},
      // Instances keep their id (given or generated) in every part they appear in.
      {R"({"ports":[{"id":"p1","speed":10,"link":"up","mac":"m1"},{"id":"p2","speed":20},)"
       R"({"link":"down","id":"p3"}]})",
       R"({"ports":[{"id":"p1","speed":10},{"id":"p2","speed":20},{"id":"p3"}]})",
       R"({"ports":[{"id":"p1","mac":"m1"}]})",
       R"({"ports":[{"id":"p1","link":"up"},{"id":"p3","link":"down"}]})"},
      {R"({"rules":[{"sv_generated_id":"g1","port":22,"hits":5},{"sv_generated_id":"g2"}]})",
       R"({"rules":[{"sv_generated_id":"g1","port":22},{"sv_generated_id":"g2"}]})", "-",
       R"({"rules":[{"sv_generated_id":"g1","hits":5}]})"},
      // Elements of an instance array that are not objects stay user data.
      {R"({"ports":["loose",{"id":"p1","link":"up"}]})", R"({"ports":["loose",{"id":"p1"}]})", "-",
       R"({"ports":[{"id":"p1","link":"up"}]})"},
      // A type tagged at the top goes whole to that part.
      {R"({"a":1,"b":"x"})", "-", R"({"a":1,"b":"x"})", "-",
       R"({"vital":true,"properties":{"a":{"cached":true}}})"},
      {R"({"a":1})", "-", "-", R"({"a":1})", R"({"cached":true})"},
      // Tags that are not the boolean true do not split.
      {R"({"a":"x","b":"y"})", R"({"a":"x","b":"y"})", "-", "-",
       R"({"properties":{"a":{"vital":false},"b":{"cached":"true"}}})"},
  };
  for (const SplitCase& c : cases) {
    SCOPED_TRACE(c.data);
    auto data = KorvoSetvault::CreateDocumentFromString(c.data);
    auto schema = KorvoSetvault::CreateDocumentFromString(c.schema);
    const KorvoSetvault::SplitParts parts =
        KorvoSetvault::SplitObjectData(*data->GetJsonValuePtr(), *schema->GetJsonValuePtr());
    EXPECT_EQ(Text(parts.user), c.user);
    EXPECT_EQ(Text(parts.vital), c.vital);
    EXPECT_EQ(Text(parts.cached), c.cached);
  }
}

}  // namespace
}  // namespace setvault_test
