// StoreObject: typed access to the top-level members of one JSON object.
//
// Configuration objects, filter specifications and sub-objects all offer this
// interface. A "key" is always the name of one member of the object's root.
// Getters return 0 when the key is absent or holds null (the output is left
// untouched), 1 when the value came from the object's own data, and 2 when it
// came from the type's default values.
//
//   KorvoSetvault::StoreObject object(KorvoSetvault::SetvaultObjectId("vswitch", "net", "korvo"));
//   object.SetValue("mtu", 9000);
//   object.SetValue("names", std::vector<std::string>{"a", "b"});
//   int mtu = 0;
//   if (object.GetValue("mtu", &mtu) == 0) { /* not set */ }
//   object.GetData();   // {"mtu":9000,"names":["a","b"]}
//
// Failures are exceptions: an empty key throws InvalidArgumentException "key
// cannot be empty" (AppendValue and RemoveValue: "Key not found: "), a null
// key "key cannot be null" and a null output pointer "output cannot be null"
// (all code 2000); a value of another kind throws InvalidTypeException
// "Invalid type specified for: <key>", and so does storing NaN or an infinity,
// which JSON cannot hold; a JSON kind violation deeper inside a conversion
// throws SetvaultException 1082. A failed call leaves the data as it was,
// except a partly filled output vector or a partly built array.
#ifndef SETVAULT_STORE_OBJECT_H_
#define SETVAULT_STORE_OBJECT_H_

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "setvault/export.h"
#include "setvault/object_id.h"

namespace KorvoSetvault {

class StoreObjectImpl;

class SETVAULT_EXPORT StoreObject {
 public:
  // A new, empty object (root {}) named `id`.
  explicit StoreObject(const SetvaultObjectId& id);
  // Wraps `impl`, which must not be null; the handle shares it.
  explicit StoreObject(std::shared_ptr<StoreObjectImpl> impl);
  virtual ~StoreObject();

  // The object's identity; valid while this handle lives.
  const SetvaultObjectId& GetSetvaultObjectId() const;

  // Replaces the data with the parsed `json`; null is ignored. Throws
  // InvalidArgumentException 1080 when the text does not parse.
  void SetData(const char* json);
  // The data as compact JSON text.
  std::string GetData() const;
  // True when the root object has no members.
  bool IsEmpty() const;
  // True when the root has a member `key` (a null member counts).
  bool CheckKey(const char* key) const;
  // Removes the member `key` if present. The root's last member takes its
  // place, so member order may change.
  void Remove(const char* key);

  // Scalar getters; see the top of this file for the results. The double
  // getter accepts only numbers stored as floating point; the narrow unsigned
  // getters keep the low 16 or 8 bits of any 32-bit unsigned integer.
  int GetValue(const char* key, std::string* out) const;
  int GetValue(const char* key, double* out) const;
  int GetValue(const char* key, int* out) const;
  int GetValue(const char* key, long* out) const;
  int GetValue(const char* key, long long* out) const;
  int GetValue(const char* key, unsigned int* out) const;
  int GetValue(const char* key, unsigned short* out) const;
  int GetValue(const char* key, unsigned char* out) const;
  int GetValue(const char* key, bool* out) const;

  // List getters: `out` must be empty (InvalidArgumentException otherwise).
  // Elements are appended in array order; an element of the wrong kind throws
  // 1082 and keeps the elements before it. The double list accepts integers.
  int GetValue(const char* key, std::vector<std::string>* out) const;
  int GetValue(const char* key, std::vector<int>* out) const;
  int GetValue(const char* key, std::vector<long long>* out) const;
  int GetValue(const char* key, std::vector<double>* out) const;
  int GetValue(const char* key, std::vector<bool>* out) const;

  // Reads a base64 string member into a new buffer of `*length` bytes that the
  // caller frees with delete[]. Throws SetvaultException 2000 "Failed to decode
  // binary value" for text that is not base64. On 0 the outputs are untouched.
  int GetValueBinary(const char* key, unsigned char** data, unsigned long* length) const;

  // Setters overwrite a present, non-null member in place; otherwise they
  // append a new member at the end. A member holding null is not replaced: a
  // second member of that name is appended (Remove the key first to replace).
  // Text that is not valid UTF-8 throws InvalidArgumentException 2000
  // "String value is not valid UTF-8" (a value, a list element) or "Member
  // name is not valid UTF-8" (the name of a new member); nothing is changed.
  void SetValue(const char* key, std::string_view value);
  // Throws InvalidArgumentException "value cannot be null" for null.
  void SetValue(const char* key, const char* value);
  void SetValue(const char* key, int value);
  void SetValue(const char* key, long value);
  void SetValue(const char* key, long long value);
  void SetValue(const char* key, unsigned int value);
  void SetValue(const char* key, unsigned short value);
  void SetValue(const char* key, unsigned char value);
  void SetValue(const char* key, double value);
  void SetValue(const char* key, float value);
  void SetValue(const char* key, bool value);

  // Stores `length` bytes as base64 text. Throws InvalidArgumentException for
  // a null pointer or a zero length.
  void SetValueBinary(const char* key, const unsigned char* data, unsigned long length);

  // Replaces the member with an empty array, placed last.
  void SetValueEmptyList(const char* key);
  // SetValueEmptyList, then AppendValue of each element in order.
  void SetValue(const char* key, const std::vector<std::string>& values);
  void SetValue(const char* key, const std::vector<int>& values);
  void SetValue(const char* key, const std::vector<long long>& values);
  void SetValue(const char* key, const std::vector<double>& values);
  void SetValue(const char* key, const std::vector<bool>& values);

  // Appends to the array member `key`. Throws InvalidArgumentException "Key
  // not found: <key>" when the member is absent, and InvalidTypeException when
  // it is not an array or its first element is of another kind.
  void AppendValue(const char* key, int value);
  void AppendValue(const char* key, long long value);
  void AppendValue(const char* key, double value);
  void AppendValue(const char* key, bool value);
  void AppendValue(const char* key, const std::string& value);
  // A string literal appends a string (not a bool). Null throws "value cannot be null".
  void AppendValue(const char* key, const char* value);

  // Erases the first element equal to `value` (order kept); nothing when none
  // is. Same checks as AppendValue; an element that cannot be compared with
  // the value throws 1082.
  void RemoveValue(const char* key, int value);
  void RemoveValue(const char* key, long long value);
  void RemoveValue(const char* key, double value);
  void RemoveValue(const char* key, bool value);
  void RemoveValue(const char* key, const std::string& value);
  void RemoveValue(const char* key, const char* value);

 protected:
  const std::shared_ptr<StoreObjectImpl>& impl() const { return impl_; }

 private:
  std::shared_ptr<StoreObjectImpl> impl_;
};

}  // namespace KorvoSetvault

#endif  // SETVAULT_STORE_OBJECT_H_
