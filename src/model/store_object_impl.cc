#include "model/store_object_impl.h"

#include <cstring>

#include "document/setvault_document.h"
#include "document/value_limits.h"
#include "platform/base64.h"
#include "platform/utf8.h"
#include "setvault/exceptions.h"

namespace KorvoSetvault {
namespace {

// Refuses text that is not valid UTF-8: every JSON string and member name is.
void RequireUtf8(std::string_view text, const char* what) {
  if (!IsValidUtf8(text)) {
    throw InvalidArgumentException(SV_ERR_GENERIC,
                                   (std::string(what) + " is not valid UTF-8").c_str());
  }
}

// How each C++ type maps to JSON: the kind a stored value must have to be
// read as the type (Is), the conversion, which asserts the kind through
// RapidJSON (Read), and the JSON value a setter stores (Make).
template <typename T>
struct Kind;

template <>
struct Kind<std::string> {
  static bool Is(const JsonValue& v) { return v.IsString(); }
  static std::string Read(const JsonValue& v) { return std::string(v.GetString(), v.GetStringLength()); }
  static JsonValue Make(const std::string& s, JsonAllocator& a) {
    RequireUtf8(s, "String value");
    return JsonValue(s.data(), static_cast<rapidjson::SizeType>(s.size()), a);
  }
};
template <>
struct Kind<int> {
  static bool Is(const JsonValue& v) { return v.IsInt(); }
  static int Read(const JsonValue& v) { return v.GetInt(); }
  static JsonValue Make(int i, JsonAllocator&) { return JsonValue(i); }
};
template <>
struct Kind<long long> {
  static bool Is(const JsonValue& v) { return v.IsInt64(); }
  static long long Read(const JsonValue& v) { return v.GetInt64(); }
  static JsonValue Make(long long i, JsonAllocator&) { return JsonValue(static_cast<int64_t>(i)); }
};
template <>
struct Kind<long> {
  static bool Is(const JsonValue& v) { return v.IsInt64(); }
  static long Read(const JsonValue& v) { return static_cast<long>(v.GetInt64()); }
};
template <>
struct Kind<unsigned int> {
  static bool Is(const JsonValue& v) { return v.IsUint(); }
  static unsigned int Read(const JsonValue& v) { return v.GetUint(); }
};
// The narrow unsigned types read any 32-bit unsigned integer and keep its
// low bits: 300 read as unsigned char is 44.
template <>
struct Kind<unsigned short> {
  static bool Is(const JsonValue& v) { return v.IsUint(); }
  static unsigned short Read(const JsonValue& v) { return static_cast<unsigned short>(v.GetUint()); }
};
template <>
struct Kind<unsigned char> {
  static bool Is(const JsonValue& v) { return v.IsUint(); }
  static unsigned char Read(const JsonValue& v) { return static_cast<unsigned char>(v.GetUint()); }
};
// A scalar double must be stored as floating point; list elements and
// comparisons accept any number.
template <>
struct Kind<double> {
  static bool Is(const JsonValue& v) { return v.IsDouble(); }
  static double Read(const JsonValue& v) { return v.GetDouble(); }
  static JsonValue Make(double d, JsonAllocator&) { return JsonValue(d); }
};
template <>
struct Kind<bool> {
  static bool Is(const JsonValue& v) { return v.IsBool(); }
  static bool Read(const JsonValue& v) { return v.GetBool(); }
  static JsonValue Make(bool b, JsonAllocator&) { return JsonValue(b); }
};

void RequireKeyPointer(const char* key) {
  if (key == nullptr) throw InvalidArgumentException(SV_ERR_GENERIC, "key cannot be null");
}

void RequireKey(const char* key) {
  RequireKeyPointer(key);
  if (key[0] == '\0') throw InvalidArgumentException(SV_ERR_GENERIC, "key cannot be empty");
}

void RequireOutput(const void* out) {
  if (out == nullptr) throw InvalidArgumentException(SV_ERR_GENERIC, "output cannot be null");
}

[[noreturn]] void ThrowInvalidType(const char* key) {
  throw InvalidTypeException(SV_ERR_GENERIC,
                             (std::string("Invalid type specified for: ") + key).c_str());
}

}  // namespace

StoreObjectImpl::StoreObjectImpl(const SetvaultObjectId& id)
    : id_(id), document_(CreateDocument()) {
  document_->GetDocument().SetObject();
}

StoreObjectImpl::StoreObjectImpl(const SetvaultObjectId& id, const JsonValue& value)
    : StoreObjectImpl(id) {
  document_->GetDocument().CopyFrom(value, document_->GetAllocator());
}

StoreObjectImpl::StoreObjectImpl(const SetvaultObjectId& id, std::shared_ptr<JsonDoc> document)
    : id_(id), document_(std::move(document)) {}

StoreObjectImpl::~StoreObjectImpl() = default;

const JsonValue* StoreObjectImpl::GetValuePtrDefault(const char* key, bool& from_default) const {
  from_default = false;
  return GetValuePtr(key);
}

JsonValue* StoreObjectImpl::GetValuePtr(const char* key) const {
  RequireKey(key);
  JsonValue& root = Root();
  auto member = root.FindMember(key);
  if (member == root.MemberEnd() || member->value.IsNull()) return nullptr;
  return &member->value;
}

void StoreObjectImpl::SetData(const char* json) {
  if (json == nullptr) return;
  ReplaceDocument(CreateDocumentFromString(json));
}

std::string StoreObjectImpl::GetData() const { return SetvaultDocument::SerializeValue(Root()); }

bool StoreObjectImpl::IsEmpty() const { return Root().ObjectEmpty(); }

bool StoreObjectImpl::CheckKey(const char* key) const {
  RequireKeyPointer(key);
  return SetvaultDocument::ValueExists(Root(), key);
}

void StoreObjectImpl::Remove(const char* key) {
  if (CheckKey(key)) Root().RemoveMember(key);
}

template <typename T>
int StoreObjectImpl::GetScalar(const char* key, T* out) const {
  RequireOutput(out);
  bool from_default = false;
  const JsonValue* value = GetValuePtrDefault(key, from_default);
  if (value == nullptr) return 0;
  if (!Kind<T>::Is(*value)) ThrowInvalidType(key);
  *out = Kind<T>::Read(*value);
  return from_default ? 2 : 1;
}

template <typename T>
int StoreObjectImpl::GetList(const char* key, std::vector<T>* out) const {
  RequireOutput(out);
  if (!out->empty()) {
    throw InvalidArgumentException(SV_ERR_GENERIC, "Output vector must be empty.");
  }
  bool from_default = false;
  const JsonValue* value = GetValuePtrDefault(key, from_default);
  if (value == nullptr) return 0;
  if (!value->IsArray()) ThrowInvalidType(key);
  for (const JsonValue& element : value->GetArray()) out->push_back(Kind<T>::Read(element));
  return from_default ? 2 : 1;
}

int StoreObjectImpl::GetValue(const char* key, std::string* out) const { return GetScalar(key, out); }
int StoreObjectImpl::GetValue(const char* key, double* out) const { return GetScalar(key, out); }
int StoreObjectImpl::GetValue(const char* key, int* out) const { return GetScalar(key, out); }
int StoreObjectImpl::GetValue(const char* key, long* out) const { return GetScalar(key, out); }
int StoreObjectImpl::GetValue(const char* key, long long* out) const { return GetScalar(key, out); }
int StoreObjectImpl::GetValue(const char* key, unsigned int* out) const { return GetScalar(key, out); }
int StoreObjectImpl::GetValue(const char* key, unsigned short* out) const { return GetScalar(key, out); }
int StoreObjectImpl::GetValue(const char* key, unsigned char* out) const { return GetScalar(key, out); }
int StoreObjectImpl::GetValue(const char* key, bool* out) const { return GetScalar(key, out); }
int StoreObjectImpl::GetValue(const char* key, std::vector<std::string>* out) const { return GetList(key, out); }
int StoreObjectImpl::GetValue(const char* key, std::vector<int>* out) const { return GetList(key, out); }
int StoreObjectImpl::GetValue(const char* key, std::vector<long long>* out) const { return GetList(key, out); }
int StoreObjectImpl::GetValue(const char* key, std::vector<double>* out) const { return GetList(key, out); }

int StoreObjectImpl::GetValue(const char* key, std::vector<bool>* out) const { return GetList(key, out); }

int StoreObjectImpl::GetValueBinary(const char* key, unsigned char** data,
                                    unsigned long* length) const {
  RequireOutput(data);
  RequireOutput(length);
  std::string text;
  const int result = GetValue(key, &text);
  if (result == 0) return 0;
  std::vector<unsigned char> bytes;
  if (!Base64Decode(text.data(), text.size(), &bytes)) {
    throw SetvaultException(SV_ERR_GENERIC, "Failed to decode binary value");
  }
  auto* buffer = new unsigned char[bytes.size()];
  if (!bytes.empty()) std::memcpy(buffer, bytes.data(), bytes.size());
  *data = buffer;
  *length = bytes.size();
  return result;
}

void StoreObjectImpl::Store(const char* key, JsonValue&& value) {
  JsonValue* existing = GetValuePtr(key);
  CheckStorableValue(value, 0, key);  // refuses NaN and infinities (scalars only here)
  if (existing != nullptr) {
    *existing = value;  // moves
    return;
  }
  RequireUtf8(key, "Member name");
  JsonAllocator& allocator = Allocator();
  Root().AddMember(JsonValue(key, static_cast<rapidjson::SizeType>(std::strlen(key)), allocator),
                   value, allocator);
}

void StoreObjectImpl::SetValue(const char* key, std::string_view value) {
  const char* text = value.data() != nullptr ? value.data() : "";
  RequireUtf8(value, "String value");
  Store(key, JsonValue(text, static_cast<rapidjson::SizeType>(value.size()), Allocator()));
}

void StoreObjectImpl::SetValue(const char* key, const char* value) {
  if (value == nullptr) throw InvalidArgumentException(SV_ERR_GENERIC, "value cannot be null");
  SetValue(key, std::string_view(value));
}

void StoreObjectImpl::SetValue(const char* key, int value) { Store(key, JsonValue(value)); }
void StoreObjectImpl::SetValue(const char* key, long value) {
  Store(key, JsonValue(static_cast<int64_t>(value)));
}
void StoreObjectImpl::SetValue(const char* key, long long value) {
  Store(key, JsonValue(static_cast<int64_t>(value)));
}
void StoreObjectImpl::SetValue(const char* key, unsigned int value) { Store(key, JsonValue(value)); }
void StoreObjectImpl::SetValue(const char* key, unsigned short value) {
  SetValue(key, static_cast<unsigned int>(value));
}
void StoreObjectImpl::SetValue(const char* key, unsigned char value) {
  SetValue(key, static_cast<unsigned int>(value));
}
void StoreObjectImpl::SetValue(const char* key, double value) { Store(key, JsonValue(value)); }
void StoreObjectImpl::SetValue(const char* key, float value) {
  SetValue(key, static_cast<double>(value));
}
void StoreObjectImpl::SetValue(const char* key, bool value) { Store(key, JsonValue(value)); }

void StoreObjectImpl::SetValueBinary(const char* key, const unsigned char* data,
                                     unsigned long length) {
  if (data == nullptr || length == 0) {
    throw InvalidArgumentException(SV_ERR_GENERIC,
                                   "Value pointer cannot be null and length cannot be zero");
  }
  const std::string text = Base64Encode(data, length);
  if (text.empty()) throw SetvaultException(SV_ERR_GENERIC, "Failed to encode input binary value");
  SetValue(key, std::string_view(text));
}

void StoreObjectImpl::SetValueEmptyList(const char* key) {
  RequireKey(key);
  RequireUtf8(key, "Member name");
  Remove(key);
  JsonAllocator& allocator = Allocator();
  Root().AddMember(JsonValue(key, static_cast<rapidjson::SizeType>(std::strlen(key)), allocator),
                   JsonValue(rapidjson::kArrayType), allocator);
}

template <typename T>
void StoreObjectImpl::SetList(const char* key, const std::vector<T>& values) {
  SetValueEmptyList(key);
  for (const auto& value : values) AppendValue(key, static_cast<T>(value));
}

void StoreObjectImpl::SetValue(const char* key, const std::vector<std::string>& values) { SetList(key, values); }
void StoreObjectImpl::SetValue(const char* key, const std::vector<int>& values) { SetList(key, values); }
void StoreObjectImpl::SetValue(const char* key, const std::vector<long long>& values) { SetList(key, values); }
void StoreObjectImpl::SetValue(const char* key, const std::vector<double>& values) { SetList(key, values); }

void StoreObjectImpl::SetValue(const char* key, const std::vector<bool>& values) { SetList(key, values); }

JsonValue& StoreObjectImpl::ArrayForAppend(const char* key,
                                           bool (*kind_test)(const JsonValue&)) const {
  RequireKeyPointer(key);
  JsonValue& root = Root();
  auto member = root.FindMember(key);
  if (member == root.MemberEnd()) {
    throw InvalidArgumentException(SV_ERR_GENERIC, (std::string("Key not found: ") + key).c_str());
  }
  JsonValue& array = member->value;
  if (!array.IsArray()) ThrowInvalidType(key);
  // Only the first element is checked; a list is expected to hold one kind.
  if (!array.Empty() && !kind_test(array[0])) ThrowInvalidType(key);
  return array;
}

template <typename T>
void StoreObjectImpl::Append(const char* key, T value) {
  JsonValue& array = ArrayForAppend(key, &Kind<T>::Is);
  JsonAllocator& allocator = Allocator();
  JsonValue element = Kind<T>::Make(value, allocator);
  CheckStorableValue(element, 0, key);
  array.PushBack(element, allocator);
}

template <typename T>
void StoreObjectImpl::RemoveFirst(const char* key, const T& value) {
  JsonValue& array = ArrayForAppend(key, &Kind<T>::Is);
  for (auto element = array.Begin(); element != array.End(); ++element) {
    if (Kind<T>::Read(*element) == value) {
      array.Erase(element);
      return;
    }
  }
}

void StoreObjectImpl::AppendValue(const char* key, int value) { Append(key, value); }
void StoreObjectImpl::AppendValue(const char* key, long long value) { Append(key, value); }
void StoreObjectImpl::AppendValue(const char* key, double value) { Append(key, value); }
void StoreObjectImpl::AppendValue(const char* key, bool value) { Append(key, value); }
void StoreObjectImpl::AppendValue(const char* key, const std::string& value) { Append(key, value); }

void StoreObjectImpl::RemoveValue(const char* key, int value) { RemoveFirst(key, value); }
void StoreObjectImpl::RemoveValue(const char* key, long long value) { RemoveFirst(key, value); }
void StoreObjectImpl::RemoveValue(const char* key, double value) { RemoveFirst(key, value); }
void StoreObjectImpl::RemoveValue(const char* key, bool value) { RemoveFirst(key, value); }
void StoreObjectImpl::RemoveValue(const char* key, const std::string& value) { RemoveFirst(key, value); }

}  // namespace KorvoSetvault
