#include "setvault/store_object.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "model/store_object_impl.h"
#include "model/thrown.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using Strings = std::vector<std::string>;

class StoreObjectTest : public ::testing::Test {
 protected:
  // Stores `value` under `key` and returns what a read (which must find it) gives back.
  template <typename T>
  T RoundTrip(const char* key, const T& value) {
    object_.SetValue(key, value);
    T out{};
    EXPECT_EQ(object_.GetValue(key, &out), 1) << key;
    return out;
  }

  StoreObject object_{SetvaultObjectId("vswitch", "net", "korvo")};
  setvault_test::LogCapture log_{0};
};

TEST_F(StoreObjectTest, ValuesRoundTrip) {
  const std::string with_nul("a\0b", 3);
  const long long min = std::numeric_limits<long long>::min();
  EXPECT_EQ(RoundTrip("s", with_nul), with_nul);
  EXPECT_EQ(RoundTrip("i", -7), -7);
  EXPECT_EQ(RoundTrip("l", 1L << 40), 1L << 40);
  EXPECT_EQ(RoundTrip("ll", min), min);
  EXPECT_EQ(RoundTrip("u", 4000000000u), 4000000000u);
  EXPECT_EQ(RoundTrip("d", 3.0), 3.0);
  EXPECT_TRUE(RoundTrip("b", true));
  EXPECT_EQ(RoundTrip("vs", Strings{"a", "", "c"}), (Strings{"a", "", "c"}));
  EXPECT_EQ(RoundTrip("vi", std::vector<int>{1, -2}), (std::vector<int>{1, -2}));
  EXPECT_EQ(RoundTrip("vl", std::vector<long long>{1LL << 50}), std::vector<long long>{1LL << 50});
  EXPECT_EQ(RoundTrip("vd", std::vector<double>{0.5, -1.25}), (std::vector<double>{0.5, -1.25}));
  EXPECT_EQ(RoundTrip("vb", std::vector<bool>{true, false}), (std::vector<bool>{true, false}));
  // Narrow setters store unsigned integers, a float is widened to double, and
  // narrow getters truncate without a range check.
  object_.SetData(R"({"v": 300, "w": 70000})");
  object_.SetValue("c", static_cast<unsigned char>(200));
  object_.SetValue("s", static_cast<unsigned short>(60000));
  object_.SetValue("f", 0.1f);
  EXPECT_EQ(object_.GetData(), R"({"v":300,"w":70000,"c":200,"s":60000,"f":0.10000000149011612})");
  unsigned char narrow = 0;
  unsigned short shorter = 0;
  EXPECT_EQ(object_.GetValue("v", &narrow), 1);
  EXPECT_EQ(object_.GetValue("w", &shorter), 1);
  EXPECT_EQ(narrow, 44);
  EXPECT_EQ(shorter, 70000 - 65536);
}

// Reads give only the kind asked for, and absent or null members leave the output untouched.
// JSON holds no NaN or infinity: setters refuse them, not a later write. An append checks only the
// first element: a double needs a floating-point one, an integer goes after either.
TEST_F(StoreObjectTest, ValuesOfAnotherKindAreRefused) {
  object_.SetData(R"({"three": 3, "big": 5000000000, "neg": -1, "n": null, "strings": ["x"],
                      "mixed": ["x", 5], "ints": [1], "doubles": [1.5], "names": []})");
  double d = 0;
  int i = 17;
  unsigned char narrow = 0;
  Strings strings;
  EXPECT_EQ(object_.GetValue("n", &i) + object_.GetValue("absent", &i), 0);
  EXPECT_EQ(i, 17);
  const double nan = std::nan("");
  const std::vector<double> infinite = {1.0, std::numeric_limits<double>::infinity()};
  const std::pair<const char*, std::function<void()>> refused[] = {
      {"three", [&] { object_.GetValue("three", &d); }},
      {"big", [&] { object_.GetValue("big", &i); }},
      {"neg", [&] { object_.GetValue("neg", &narrow); }},
      {"three", [&] { object_.GetValue("three", &strings); }},
      {"d", [&] { object_.SetValue("d", nan); }},
      {"l", [&] { object_.SetValue("l", infinite); }},
      {"doubles", [&] { object_.AppendValue("doubles", nan); }},
      {"strings", [&] { object_.AppendValue("strings", 1); }},
      {"three", [&] { object_.AppendValue("three", 1); }},
      {"n", [&] { object_.AppendValue("n", 1); }},
      {"ints", [&] { object_.AppendValue("ints", 2.5); }},
  };
  for (const auto& [key, call] : refused) {
    EXPECT_EQ(MessageOf<InvalidTypeException>(call),
              std::string("Invalid type specified for: ") + key);
  }
  object_.AppendValue("mixed", std::string("y"));
  object_.AppendValue("doubles", 2.0);
  object_.AppendValue("ints", 7LL);
  object_.AppendValue("names", "eth0");
  // The vector setter keeps the elements before the refused one.
  EXPECT_EQ(object_.GetData(), R"({"three":3,"big":5000000000,"neg":-1,"n":null,"strings":["x"],)"
                               R"("mixed":["x",5,"y"],"ints":[1,7],"doubles":[1.5,2.0],)"
                               R"("names":["eth0"],"l":[1.0]})");
}

TEST_F(StoreObjectTest, BadArgumentsAreRefusedAndChangeNothing) {
  object_.SetData(R"({"list": [1.5], "empty": []})");
  int i = 0;
  unsigned char* data = nullptr;
  const char* null_text = nullptr;
  const struct {
    std::function<void()> call;
    const char* message;
  } invalid_arguments[] = {
      {[&] { object_.GetValue("", &i); }, "key cannot be empty"},
      {[&] { object_.GetValue(nullptr, &i); }, "key cannot be null"},
      {[&] { object_.AppendValue("", 1); }, "Key not found: "},
      {[&] { object_.GetValue("list", static_cast<int*>(nullptr)); }, "output cannot be null"},
      {[&] { object_.GetValueBinary("list", &data, nullptr); }, "output cannot be null"},
      {[&] { object_.SetValue("k", null_text); }, "value cannot be null"},
      {[&] { object_.AppendValue("empty", null_text); }, "value cannot be null"},
  };
  for (const auto& c : invalid_arguments) {
    EXPECT_EQ(MessageOf<InvalidArgumentException>(c.call), c.message);
  }
  EXPECT_EQ(object_.GetData(), R"({"list":[1.5],"empty":[]})");
  // List reads: a double list takes integers; a wrong element throws 1082 and keeps the elements
  // before it; the output must start empty.
  object_.SetData(R"({"d": [1, 2.5], "i": [1, 2, "three", 4]})");
  std::vector<double> list;
  EXPECT_EQ(object_.GetValue("d", &list), 1);
  EXPECT_EQ(list, (std::vector<double>{1.0, 2.5}));
  std::vector<int> out;
  EXPECT_EQ(CodeOf([&] { object_.GetValue("i", &out); }), 1082);
  EXPECT_EQ(out, (std::vector<int>{1, 2}));
  EXPECT_EQ(MessageOf<InvalidArgumentException>([&] { object_.GetValue("i", &out); }),
            "Output vector must be empty.");
}

TEST_F(StoreObjectTest, RemoveValueErasesTheFirstEqualElement) {
  object_.SetValue("i", std::vector<int>{2, 3, 2});
  object_.RemoveValue("i", 2);
  object_.RemoveValue("i", 42);  // absent: nothing changes
  object_.SetValue("s", Strings{"a", "b", "a"});
  object_.RemoveValue("s", "a");
  object_.SetValue("b", std::vector<bool>{false, true});
  object_.RemoveValue("b", true);
  EXPECT_EQ(object_.GetData(), R"({"i":[3,2],"s":["b","a"],"b":[false]})");
  object_.SetData(R"({"d": [1.5, 2, 2.0], "s": ["a", 5, "b"]})");
  object_.RemoveValue("d", 2.0);  // integer 2 equals 2.0 after conversion
  // An element of another kind before the match is an error, and nothing is removed.
  EXPECT_EQ(CodeOf([&] { object_.RemoveValue("s", "b"); }), 1082);
  EXPECT_EQ(object_.GetData(), R"({"d":[1.5,2.0],"s":["a",5,"b"]})");
}

// Every byte value survives a binary round trip (every length modulo 3, for each padding case);
// text that is not base64 is refused.
TEST_F(StoreObjectTest, BinaryValues) {
  std::vector<unsigned char> bytes(256);
  for (int i = 0; i < 256; ++i) bytes[i] = static_cast<unsigned char>(i);
  unsigned char* data = nullptr;
  unsigned long length = 0;
  for (size_t size : {size_t{1}, size_t{2}, size_t{3}, size_t{255}, size_t{256}}) {
    object_.SetValueBinary("blob", bytes.data(), size);
    ASSERT_EQ(object_.GetValueBinary("blob", &data, &length), 1);
    std::unique_ptr<unsigned char[]> owned(data);
    ASSERT_EQ(length, size);
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.begin() + size, data));
  }
  const unsigned char* first = bytes.data();
  for (const unsigned char* value : {first, static_cast<const unsigned char*>(nullptr)}) {
    EXPECT_EQ(MessageOf<InvalidArgumentException>(
                  [&] { object_.SetValueBinary("b", value, value == nullptr ? 4 : 0); }),
              "Value pointer cannot be null and length cannot be zero");
  }
  data = nullptr;
  for (const char* bad : {"abc", "ab=c", "a!==", "AB==AB==", "AQ=", "AR=="}) {
    object_.SetValue("bad", bad);
    EXPECT_EQ(MessageOf([&] { object_.GetValueBinary("bad", &data, &length); }),
              "Failed to decode binary value")
        << bad;
  }
  EXPECT_EQ(data, nullptr);
}

TEST_F(StoreObjectTest, WholeObjectOperations) {
  EXPECT_TRUE(object_.IsEmpty());
  object_.SetData(R"({"n": null, "a": 1})");
  EXPECT_FALSE(object_.IsEmpty());
  EXPECT_TRUE(object_.CheckKey("n"));  // a null member is present
  EXPECT_FALSE(object_.CheckKey("z"));
  object_.Remove("z");
  object_.Remove("n");
  object_.SetData(nullptr);  // ignored
  EXPECT_EQ(CodeOf([&] { object_.SetData("{broken"); }), 1080);
  object_.SetValueEmptyList("list");
  EXPECT_EQ(object_.GetData(), R"({"a":1,"list":[]})");
  // A root that is not an object gives JSON errors.
  object_.SetData("[1, 2]");
  int i = 0;
  EXPECT_EQ(CodeOf([&] { object_.GetValue("a", &i); }), 1082);
  EXPECT_EQ(CodeOf([&] { object_.IsEmpty(); }), 1082);
  EXPECT_FALSE(object_.CheckKey("a"));
}

TEST(StoreObjectImplTest, CopiesAJsonValueIntoItsOwnDocument) {
  auto source = CreateDocumentFromString(R"({"a": [1, 2]})");
  StoreObjectImpl impl(SetvaultObjectId("k", "g", "c"), *source->GetJsonValuePtr());
  (*source->GetJsonValuePtr())["a"].PushBack(3, source->GetAllocator());
  EXPECT_EQ(impl.GetData(), R"({"a":[1,2]})");
}

}  // namespace
}  // namespace KorvoSetvault
