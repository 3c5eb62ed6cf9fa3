// Splitting object data into the user, vital and cached parts by the tags of a schema.
#include "db/object_split.h"

#include <gtest/gtest.h>

#include "setvault/json_doc.h"

namespace setvault_test {
namespace {

using KorvoSetvault::SplitObjectData;
using KorvoSetvault::SplitParts;

const char kSchema[] = R"({
  "type": "object",
  "properties": {
    "name": {"type": "string"},
    "serial": {"type": "string", "vital": true},
    "load": {"type": "integer", "cached": true},
    "tags": {"type": "array", "items": {"type": "string"}},
    "facts": {"type": "object", "cached": true,
              "properties": {"a": {"type": "string"}}},
    "limits": {"type": "object", "properties": {
      "max": {"type": "integer"},
      "seen": {"type": "integer", "cached": true},
      "inner": {"type": "object", "properties": {"key": {"type": "string", "vital": true}}}}},
    "ports": {"type": "array", "instanceIdProperty": "id", "items": {
      "type": "object", "properties": {
        "id": {"type": "string"},
        "speed": {"type": "integer"},
        "link": {"type": "string", "cached": true},
        "mac": {"type": "string", "vital": true}}}},
    "rules": {"type": "array", "generatedInstanceId": true, "items": {
      "type": "object", "properties": {
        "sv_generated_id": {"type": "string"},
        "port": {"type": "integer"},
        "hits": {"type": "integer", "cached": true}}}}
  }})";

SplitParts Split(const std::string& data, const std::string& schema = kSchema) {
  auto data_doc = KorvoSetvault::CreateDocumentFromString(data);
  auto schema_doc = KorvoSetvault::CreateDocumentFromString(schema);
  return SplitObjectData(*data_doc->GetJsonValuePtr(), *schema_doc->GetJsonValuePtr());
}

std::string Text(const std::optional<std::string>& part) { return part ? *part : "<absent>"; }

TEST(ObjectSplitTest, TaggedMembersGoToTheirPartAndTheRestToUser) {
  const SplitParts parts =
      Split(R"({"name":"n","serial":"s1","load":4,"tags":["x"],"facts":{"a":"b"},"other":1})");
  EXPECT_EQ(Text(parts.user), R"({"name":"n","tags":["x"],"other":1})");
  EXPECT_EQ(Text(parts.vital), R"({"serial":"s1"})");
  EXPECT_EQ(Text(parts.cached), R"({"load":4,"facts":{"a":"b"}})");
}

TEST(ObjectSplitTest, PartsWithoutMembersAreAbsent) {
  SplitParts parts = Split(R"({"name":"n"})");
  EXPECT_EQ(Text(parts.user), R"({"name":"n"})");
  EXPECT_FALSE(parts.vital);
  EXPECT_FALSE(parts.cached);
  parts = Split(R"({"load":1})");
  EXPECT_FALSE(parts.user);
  EXPECT_EQ(Text(parts.cached), R"({"load":1})");
  parts = Split("{}");
  EXPECT_FALSE(parts.user);
  EXPECT_FALSE(parts.vital);
  EXPECT_FALSE(parts.cached);
}

TEST(ObjectSplitTest, SingletonSubObjectsSplitMemberByMemberAtEveryDepth) {
  const SplitParts parts = Split(R"({"limits":{"max":9,"seen":3,"inner":{"key":"k"}}})");
  EXPECT_EQ(Text(parts.user), R"({"limits":{"max":9}})");
  EXPECT_EQ(Text(parts.cached), R"({"limits":{"seen":3}})");
  EXPECT_EQ(Text(parts.vital), R"({"limits":{"inner":{"key":"k"}}})");
}

TEST(ObjectSplitTest, EmptySubObjectStaysInTheUserPart) {
  const SplitParts parts = Split(R"({"limits":{}})");
  EXPECT_EQ(Text(parts.user), R"({"limits":{}})");
  EXPECT_FALSE(parts.cached);
}

TEST(ObjectSplitTest, InstancesKeepTheirIdInEveryPartTheyAppearIn) {
  const SplitParts parts =
      Split(R"({"ports":[{"id":"p1","speed":10,"link":"up","mac":"m1"},{"id":"p2","speed":20},)"
            R"({"link":"down","id":"p3"}]})");
  EXPECT_EQ(Text(parts.user), R"({"ports":[{"id":"p1","speed":10},{"id":"p2","speed":20},)"
                              R"({"id":"p3"}]})");
  EXPECT_EQ(Text(parts.cached), R"({"ports":[{"id":"p1","link":"up"},{"id":"p3","link":"down"}]})");
  EXPECT_EQ(Text(parts.vital), R"({"ports":[{"id":"p1","mac":"m1"}]})");
}

TEST(ObjectSplitTest, GeneratedIdsTravelWithTheirInstances) {
  const SplitParts parts = Split(
      R"({"rules":[{"sv_generated_id":"g1","port":22,"hits":5},{"sv_generated_id":"g2","port":80}]})");
  EXPECT_EQ(Text(parts.user),
            R"({"rules":[{"sv_generated_id":"g1","port":22},{"sv_generated_id":"g2","port":80}]})");
  EXPECT_EQ(Text(parts.cached), R"({"rules":[{"sv_generated_id":"g1","hits":5}]})");
}

TEST(ObjectSplitTest, NonObjectElementsOfAnInstanceArrayStayUser) {
  const SplitParts parts = Split(R"({"ports":["loose",{"id":"p1","link":"up"}]})");
  EXPECT_EQ(Text(parts.user), R"({"ports":["loose",{"id":"p1"}]})");
  EXPECT_EQ(Text(parts.cached), R"({"ports":[{"id":"p1","link":"up"}]})");
}

TEST(ObjectSplitTest, TypeTaggedAtTheTopGoesWholeToThatPart) {
  const char vital_type[] =
      R"({"type":"object","vital":true,"properties":{"a":{"type":"integer","cached":true}}})";
  SplitParts parts = Split(R"({"a":1,"b":"x"})", vital_type);
  EXPECT_FALSE(parts.user);
  EXPECT_FALSE(parts.cached);
  EXPECT_EQ(Text(parts.vital), R"({"a":1,"b":"x"})");

  const char cached_type[] = R"({"type":"object","cached":true,"properties":{}})";
  parts = Split(R"({"a":1})", cached_type);
  EXPECT_FALSE(parts.user);
  EXPECT_FALSE(parts.vital);
  EXPECT_EQ(Text(parts.cached), R"({"a":1})");
}

TEST(ObjectSplitTest, TagsThatAreNotTrueBooleansDoNotSplit) {
  const char schema[] = R"({"type":"object","properties":{
      "a":{"type":"string","vital":false},"b":{"type":"string","cached":"true"}}})";
  const SplitParts parts = Split(R"({"a":"x","b":"y"})", schema);
  EXPECT_EQ(Text(parts.user), R"({"a":"x","b":"y"})");
  EXPECT_FALSE(parts.vital);
  EXPECT_FALSE(parts.cached);
}

TEST(ObjectSplitTest, ValuesAreCopiedExactly) {
  const std::string data =
      R"({"name":"q\"uote\\ \u0001 caf\u00e9","serial":"x'; DROP TABLE Config;--","load":-0.5e3})";
  const SplitParts parts = Split(data);
  auto user = KorvoSetvault::CreateDocumentFromString(Text(parts.user));
  EXPECT_EQ(std::string((*user->GetJsonValuePtr())["name"].GetString()),
            "q\"uote\\ \x01 caf\xc3\xa9");
  auto vital = KorvoSetvault::CreateDocumentFromString(Text(parts.vital));
  EXPECT_EQ(std::string((*vital->GetJsonValuePtr())["serial"].GetString()),
            "x'; DROP TABLE Config;--");
  auto cached = KorvoSetvault::CreateDocumentFromString(Text(parts.cached));
  EXPECT_EQ((*cached->GetJsonValuePtr())["load"].GetDouble(), -500.0);
}

}  // namespace
}  // namespace setvault_test
