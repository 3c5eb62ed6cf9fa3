#include "setvault/store_object.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "document/setvault_document.h"
#include "model/store_object_impl.h"
#include "setvault/exceptions.h"
#include "support/log_capture.h"

namespace KorvoSetvault {
namespace {

using setvault_test::LogCapture;

class StoreObjectTest : public ::testing::Test {
 protected:
  StoreObject object_{SetvaultObjectId("vswitch", "net", "korvo")};
  LogCapture log_{0};

  // The message of the SetvaultException `call` throws, or "" when none.
  template <typename E, typename F>
  std::string MessageOf(F call) {
    try {
      call();
    } catch (const E& e) {
      return e.what();
    }
    return "";
  }
};

TEST_F(StoreObjectTest, ScalarRoundTrips) {
  object_.SetValue("s", "text");
  object_.SetValue("i", -7);
  object_.SetValue("l", 1L << 40);
  object_.SetValue("ll", std::numeric_limits<long long>::min());
  object_.SetValue("u", 4000000000u);
  object_.SetValue("d", 2.5);
  object_.SetValue("b", true);
  std::string s;
  int i = 0;
  long l = 0;
  long long ll = 0;
  unsigned int u = 0;
  double d = 0;
  bool b = false;
  EXPECT_EQ(object_.GetValue("s", &s), 1);
  EXPECT_EQ(object_.GetValue("i", &i), 1);
  EXPECT_EQ(object_.GetValue("l", &l), 1);
  EXPECT_EQ(object_.GetValue("ll", &ll), 1);
  EXPECT_EQ(object_.GetValue("u", &u), 1);
  EXPECT_EQ(object_.GetValue("d", &d), 1);
  EXPECT_EQ(object_.GetValue("b", &b), 1);
  EXPECT_EQ(s, "text");
  EXPECT_EQ(i, -7);
  EXPECT_EQ(l, 1L << 40);
  EXPECT_EQ(ll, std::numeric_limits<long long>::min());
  EXPECT_EQ(u, 4000000000u);
  EXPECT_EQ(d, 2.5);
  EXPECT_TRUE(b);
}

TEST_F(StoreObjectTest, StringsKeepEmbeddedNulBytes) {
  const std::string with_nul("a\0b", 3);
  object_.SetValue("s", std::string_view(with_nul));
  std::string out;
  EXPECT_EQ(object_.GetValue("s", &out), 1);
  EXPECT_EQ(out, with_nul);
}

TEST_F(StoreObjectTest, NarrowUnsignedGettersTruncateWithoutRangeCheck) {
  object_.SetValue("v", 300);
  unsigned char narrow = 0;
  EXPECT_EQ(object_.GetValue("v", &narrow), 1);
  EXPECT_EQ(narrow, 44);
  object_.SetValue("w", 70000u);
  unsigned short shorter = 0;
  EXPECT_EQ(object_.GetValue("w", &shorter), 1);
  EXPECT_EQ(shorter, 70000 - 65536);
  object_.SetValue("neg", -1);
  EXPECT_EQ(MessageOf<InvalidTypeException>([&] { object_.GetValue("neg", &narrow); }),
            "Invalid type specified for: neg");
}

TEST_F(StoreObjectTest, NarrowSettersStoreUnsignedIntegers) {
  object_.SetValue("c", static_cast<unsigned char>(200));
  object_.SetValue("s", static_cast<unsigned short>(60000));
  EXPECT_EQ(object_.GetData(), R"({"c":200,"s":60000})");
}

TEST_F(StoreObjectTest, KindsAreCheckedBeforeReading) {
  object_.SetValue("three", 3);
  double d = 0;
  EXPECT_EQ(MessageOf<InvalidTypeException>([&] { object_.GetValue("three", &d); }),
            "Invalid type specified for: three");
  object_.SetValue("three_point_zero", 3.0);
  EXPECT_EQ(object_.GetValue("three_point_zero", &d), 1);
  EXPECT_EQ(d, 3.0);

  object_.SetValue("big", 5000000000LL);
  int i = 0;
  EXPECT_EQ(MessageOf<InvalidTypeException>([&] { object_.GetValue("big", &i); }),
            "Invalid type specified for: big");
  std::string s;
  EXPECT_EQ(MessageOf<InvalidTypeException>([&] { object_.GetValue("big", &s); }),
            "Invalid type specified for: big");
  bool b = false;
  EXPECT_EQ(MessageOf<InvalidTypeException>([&] { object_.GetValue("big", &b); }),
            "Invalid type specified for: big");
}

TEST_F(StoreObjectTest, FloatIsWidenedToDouble) {
  object_.SetValue("f", 0.1f);
  EXPECT_EQ(object_.GetData(), R"({"f":0.10000000149011612})");
}

TEST_F(StoreObjectTest, AbsentOrNullLeavesOutputUntouched) {
  object_.SetData(R"({"n": null})");
  int i = 17;
  std::vector<int> list = {};
  EXPECT_EQ(object_.GetValue("n", &i), 0);
  EXPECT_EQ(object_.GetValue("absent", &i), 0);
  EXPECT_EQ(object_.GetValue("n", &list), 0);
  EXPECT_EQ(i, 17);
  unsigned char* data = reinterpret_cast<unsigned char*>(0x1);
  unsigned long length = 99;
  EXPECT_EQ(object_.GetValueBinary("n", &data, &length), 0);
  EXPECT_EQ(data, reinterpret_cast<unsigned char*>(0x1));
  EXPECT_EQ(length, 99u);
}

TEST_F(StoreObjectTest, SetterOnNullMemberAppendsASecondMember) {
  object_.SetData(R"({"n": null, "x": 1})");
  object_.SetValue("n", 5);
  EXPECT_EQ(object_.GetData(), R"({"n":null,"x":1,"n":5})");
  int i = 0;
  EXPECT_EQ(object_.GetValue("n", &i), 0);
  // Removing the null member first gives a clean replacement.
  object_.Remove("n");
  EXPECT_EQ(object_.GetValue("n", &i), 1);
  EXPECT_EQ(i, 5);
}

TEST_F(StoreObjectTest, SetterOverwritesInPlaceWhateverTheOldKind) {
  object_.SetData(R"({"a": [1, 2], "b": "x"})");
  object_.SetValue("a", "now text");
  object_.SetValue("c", false);
  EXPECT_EQ(object_.GetData(), R"({"a":"now text","b":"x","c":false})");
}

TEST_F(StoreObjectTest, BadArgumentsAreRefusedAndChangeNothing) {
  object_.SetData(R"({"list": [1.5]})");
  int i = 0;
  std::vector<int> list;
  unsigned char* data = nullptr;
  const double nan = std::nan("");
  const double inf = std::numeric_limits<double>::infinity();
  struct Case {
    const char* what;
    std::function<void()> call;
    const char* message;
  };
  const Case invalid_arguments[] = {
      {"get, empty key", [&] { object_.GetValue("", &i); }, "key cannot be empty"},
      {"list get, empty key", [&] { object_.GetValue("", &list); }, "key cannot be empty"},
      {"set, empty key", [&] { object_.SetValue("", 1); }, "key cannot be empty"},
      {"text set, empty key", [&] { object_.SetValue("", "x"); }, "key cannot be empty"},
      {"empty list, empty key", [&] { object_.SetValueEmptyList(""); }, "key cannot be empty"},
      {"append, empty key", [&] { object_.AppendValue("", 1); }, "Key not found: "},
      {"remove, empty key", [&] { object_.RemoveValue("", 1); }, "Key not found: "},
      {"get, null key", [&] { object_.GetValue(nullptr, &i); }, "key cannot be null"},
      {"check, null key", [&] { object_.CheckKey(nullptr); }, "key cannot be null"},
      {"remove, null key", [&] { object_.Remove(nullptr); }, "key cannot be null"},
      {"append, null key", [&] { object_.AppendValue(nullptr, 1); }, "key cannot be null"},
      {"get, null output", [&] { object_.GetValue("list", static_cast<int*>(nullptr)); },
       "output cannot be null"},
      {"list get, null output",
       [&] { object_.GetValue("list", static_cast<std::vector<double>*>(nullptr)); },
       "output cannot be null"},
      {"binary get, null outputs", [&] { object_.GetValueBinary("list", nullptr, nullptr); },
       "output cannot be null"},
      {"binary get, null length", [&] { object_.GetValueBinary("list", &data, nullptr); },
       "output cannot be null"},
  };
  for (const Case& c : invalid_arguments) {
    EXPECT_EQ(MessageOf<InvalidArgumentException>(c.call), c.message) << c.what;
  }
  // JSON holds no NaN or infinity: refused at the setter, not at a later write.
  const Case invalid_types[] = {
      {"NaN", [&] { object_.SetValue("d", nan); }, "Invalid type specified for: d"},
      {"infinity", [&] { object_.SetValue("d", -inf); }, "Invalid type specified for: d"},
      {"float NaN", [&] { object_.SetValue("f", std::nanf("")); }, "Invalid type specified for: f"},
      {"list",
       [&] {
         object_.SetValue("l", std::vector<double>{1.0, inf});
       },
       "Invalid type specified for: l"},
      {"append", [&] { object_.AppendValue("list", nan); }, "Invalid type specified for: list"},
  };
  for (const Case& c : invalid_types) {
    EXPECT_EQ(MessageOf<InvalidTypeException>(c.call), c.message) << c.what;
  }
  // The vector setter keeps the elements before the refused one.
  EXPECT_EQ(object_.GetData(), R"({"list":[1.5],"l":[1.0]})");
}

TEST_F(StoreObjectTest, NullTextValuesAreRefused) {
  const char* null_text = nullptr;
  EXPECT_EQ(MessageOf<InvalidArgumentException>([&] { object_.SetValue("k", null_text); }),
            "value cannot be null");
  object_.SetValueEmptyList("k");
  EXPECT_EQ(MessageOf<InvalidArgumentException>([&] { object_.AppendValue("k", null_text); }),
            "value cannot be null");
}

TEST_F(StoreObjectTest, ListRoundTrips) {
  object_.SetValue("s", std::vector<std::string>{"a", "", "c"});
  object_.SetValue("i", std::vector<int>{1, -2});
  object_.SetValue("ll", std::vector<long long>{1LL << 50});
  object_.SetValue("d", std::vector<double>{0.5, -1.25});
  object_.SetValue("b", std::vector<bool>{true, false, true});
  std::vector<std::string> s;
  std::vector<int> i;
  std::vector<long long> ll;
  std::vector<double> d;
  std::vector<bool> b;
  EXPECT_EQ(object_.GetValue("s", &s), 1);
  EXPECT_EQ(object_.GetValue("i", &i), 1);
  EXPECT_EQ(object_.GetValue("ll", &ll), 1);
  EXPECT_EQ(object_.GetValue("d", &d), 1);
  EXPECT_EQ(object_.GetValue("b", &b), 1);
  EXPECT_EQ(s, (std::vector<std::string>{"a", "", "c"}));
  EXPECT_EQ(i, (std::vector<int>{1, -2}));
  EXPECT_EQ(ll, (std::vector<long long>{1LL << 50}));
  EXPECT_EQ(d, (std::vector<double>{0.5, -1.25}));
  EXPECT_EQ(b, (std::vector<bool>{true, false, true}));
}

TEST_F(StoreObjectTest, DoubleListAcceptsIntegers) {
  object_.SetData(R"({"d": [1, 2.5]})");
  std::vector<double> d;
  EXPECT_EQ(object_.GetValue("d", &d), 1);
  EXPECT_EQ(d, (std::vector<double>{1.0, 2.5}));
}

TEST_F(StoreObjectTest, WrongElementThrows1082AndKeepsTheElementsBefore) {
  object_.SetData(R"({"i": [1, 2, "three", 4], "x": 5})");
  std::vector<int> out;
  try {
    object_.GetValue("i", &out);
    FAIL() << "no exception";
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1082);
    EXPECT_EQ(std::string(e.what()).rfind("JSON error:", 0), 0u);
  }
  EXPECT_EQ(out, (std::vector<int>{1, 2}));

  std::vector<std::string> strings;
  EXPECT_EQ(MessageOf<InvalidTypeException>([&] { object_.GetValue("x", &strings); }),
            "Invalid type specified for: x");
}

TEST_F(StoreObjectTest, ListGetterRequiresAnEmptyOutput) {
  object_.SetValue("i", std::vector<int>{1});
  std::vector<int> out = {9};
  EXPECT_EQ(MessageOf<InvalidArgumentException>([&] { object_.GetValue("i", &out); }),
            "Output vector must be empty.");
  EXPECT_EQ(out, (std::vector<int>{9}));
}

TEST_F(StoreObjectTest, EmptyListIsPlacedLast) {
  object_.SetData(R"({"list": [1], "a": 1, "b": 2})");
  object_.SetValue("list", std::vector<int>{});
  // Removal moves the last member into the removed one's place.
  EXPECT_EQ(object_.GetData(), R"({"b":2,"a":1,"list":[]})");
  object_.SetValueEmptyList("fresh");
  EXPECT_EQ(object_.GetData(), R"({"b":2,"a":1,"list":[],"fresh":[]})");
}

TEST_F(StoreObjectTest, AppendChecksOnlyTheFirstElement) {
  object_.SetData(R"({"strings": ["x"], "mixed": ["x", 5], "scalar": 1, "n": null})");
  EXPECT_EQ(MessageOf<InvalidTypeException>([&] { object_.AppendValue("strings", 1); }),
            "Invalid type specified for: strings");
  object_.AppendValue("mixed", std::string("y"));
  EXPECT_EQ(MessageOf<InvalidArgumentException>([&] { object_.AppendValue("absent", 1); }),
            "Key not found: absent");
  EXPECT_EQ(MessageOf<InvalidTypeException>([&] { object_.AppendValue("scalar", 1); }),
            "Invalid type specified for: scalar");
  EXPECT_EQ(MessageOf<InvalidTypeException>([&] { object_.AppendValue("n", 1); }),
            "Invalid type specified for: n");
  EXPECT_EQ(object_.GetData(),
            R"({"strings":["x"],"mixed":["x",5,"y"],"scalar":1,"n":null})");
}

TEST_F(StoreObjectTest, AppendOfAStringLiteralAppendsText) {
  object_.SetValueEmptyList("names");
  object_.AppendValue("names", "eth0");
  EXPECT_EQ(object_.GetData(), R"({"names":["eth0"]})");
}

TEST_F(StoreObjectTest, DoubleAppendRequiresFloatingPointFirstElement) {
  object_.SetData(R"({"ints": [1], "doubles": [1.5]})");
  EXPECT_EQ(MessageOf<InvalidTypeException>([&] { object_.AppendValue("ints", 2.5); }),
            "Invalid type specified for: ints");
  object_.AppendValue("doubles", 2.0);
  object_.AppendValue("ints", 7LL);
  EXPECT_EQ(object_.GetData(), R"({"ints":[1,7],"doubles":[1.5,2.0]})");
}

TEST_F(StoreObjectTest, RemoveValueErasesTheFirstEqualElement) {
  object_.SetValue("i", std::vector<int>{2, 3, 2});
  object_.RemoveValue("i", 2);
  EXPECT_EQ(object_.GetData(), R"({"i":[3,2]})");
  object_.RemoveValue("i", 42);  // absent: nothing changes
  EXPECT_EQ(object_.GetData(), R"({"i":[3,2]})");

  object_.SetValue("s", std::vector<std::string>{"a", "b", "a"});
  object_.RemoveValue("s", "a");
  object_.SetValue("b", std::vector<bool>{false, true});
  object_.RemoveValue("b", true);
  object_.SetData(R"({"d": [1.5, 2, 2.0]})");
  object_.RemoveValue("d", 2.0);  // integer 2 equals 2.0 after conversion
  EXPECT_EQ(object_.GetData(), R"({"d":[1.5,2.0]})");
}

TEST_F(StoreObjectTest, RemoveValueOnAnIncomparableElementThrows1082) {
  object_.SetData(R"({"s": ["a", 5, "b"]})");
  try {
    object_.RemoveValue("s", "b");
    FAIL();
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1082);
  }
  EXPECT_EQ(object_.GetData(), R"({"s":["a",5,"b"]})");
}

TEST_F(StoreObjectTest, EveryByteValueSurvivesABinaryRoundTrip) {
  std::vector<unsigned char> bytes(256);
  for (int i = 0; i < 256; ++i) bytes[i] = static_cast<unsigned char>(i);
  // Every length modulo 3 exercises each padding case.
  for (size_t length : {size_t{1}, size_t{2}, size_t{3}, size_t{255}, size_t{256}}) {
    object_.SetValueBinary("blob", bytes.data(), length);
    unsigned char* data = nullptr;
    unsigned long out_length = 0;
    ASSERT_EQ(object_.GetValueBinary("blob", &data, &out_length), 1);
    std::unique_ptr<unsigned char[]> owned(data);
    ASSERT_EQ(out_length, length);
    EXPECT_TRUE(std::equal(bytes.begin(), bytes.begin() + length, data));
  }
}

TEST_F(StoreObjectTest, BinaryErrors) {
  const unsigned char byte = 1;
  EXPECT_EQ(MessageOf<InvalidArgumentException>([&] { object_.SetValueBinary("b", &byte, 0); }),
            "Value pointer cannot be null and length cannot be zero");
  EXPECT_EQ(MessageOf<InvalidArgumentException>([&] { object_.SetValueBinary("b", nullptr, 4); }),
            "Value pointer cannot be null and length cannot be zero");
  unsigned char* data = nullptr;
  unsigned long length = 0;
  for (const char* bad : {"abc", "ab=c", "a!==", "AB==AB==", "AQ=", "AR=="}) {
    object_.SetValue("bad", bad);
    EXPECT_EQ(MessageOf<SetvaultException>([&] { object_.GetValueBinary("bad", &data, &length); }),
              "Failed to decode binary value")
        << bad;
    object_.Remove("bad");
  }
  EXPECT_EQ(data, nullptr);
  object_.SetValue("number", 5);
  EXPECT_EQ(MessageOf<InvalidTypeException>([&] { object_.GetValueBinary("number", &data, &length); }),
            "Invalid type specified for: number");
}

TEST_F(StoreObjectTest, WholeObjectOperations) {
  EXPECT_TRUE(object_.IsEmpty());
  object_.SetData(R"({"n": null, "a": 1})");
  EXPECT_FALSE(object_.IsEmpty());
  EXPECT_TRUE(object_.CheckKey("n"));  // a null member is present
  EXPECT_FALSE(object_.CheckKey("z"));
  object_.Remove("z");
  object_.Remove("n");
  EXPECT_EQ(object_.GetData(), R"({"a":1})");
  object_.SetData(nullptr);  // ignored
  EXPECT_EQ(object_.GetData(), R"({"a":1})");
  try {
    object_.SetData("{broken");
    FAIL();
  } catch (const InvalidArgumentException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1080);
  }
  EXPECT_EQ(object_.GetData(), R"({"a":1})");
  EXPECT_EQ(object_.GetSetvaultObjectId(), SetvaultObjectId("vswitch", "net", "korvo"));
}

TEST_F(StoreObjectTest, NonObjectRootGivesJsonErrors) {
  object_.SetData("[1, 2]");
  int i = 0;
  try {
    object_.GetValue("a", &i);
    FAIL();
  } catch (const SetvaultException& e) {
    EXPECT_EQ(e.GetErrorCode(), 1082);
  }
  EXPECT_THROW(object_.IsEmpty(), SetvaultException);
  EXPECT_FALSE(object_.CheckKey("a"));
}

TEST(StoreObjectImplTest, CopiesAJsonValueIntoItsOwnDocument) {
  LogCapture log(0);
  auto source = CreateDocumentFromString(R"({"a": {"b": [1, 2]}})");
  StoreObjectImpl impl(SetvaultObjectId("k", "g", "c"), *source->GetJsonValuePtr());
  (*source->GetJsonValuePtr())["a"]["b"].PushBack(3, source->GetAllocator());
  EXPECT_EQ(impl.GetData(), R"({"a":{"b":[1,2]}})");
  EXPECT_NE(impl.GetDocument()->GetJsonValuePtr(), source->GetJsonValuePtr());
}

TEST(StoreObjectImplTest, ObjectOverASharedViewChangesTheParent) {
  LogCapture log(0);
  auto parent = CreateDocumentFromString(R"({"ports": [{"name": "p0", "mtu": 1500}]})");
  JsonNode step;
  step.name = "ports";
  step.instanceKey = "name";
  step.instanceId = "p0";
  StoreObject port(std::make_shared<StoreObjectImpl>(SetvaultObjectId("ports", "net", "korvo", "p0"),
                                                     parent->MakeView(step)));
  port.SetValue("mtu", 9000);
  port.SetValue("speed", "10G");
  EXPECT_EQ(SetvaultDocument::SerializeValue(*parent->GetJsonValuePtr()),
            R"({"ports":[{"name":"p0","mtu":9000,"speed":"10G"}]})");
}

}  // namespace
}  // namespace KorvoSetvault
