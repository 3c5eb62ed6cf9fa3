// StoreObjectImpl: the data behind a StoreObject handle, and the base of the
// configuration object and filter implementations.
#ifndef SETVAULT_SRC_MODEL_STORE_OBJECT_IMPL_H_
#define SETVAULT_SRC_MODEL_STORE_OBJECT_IMPL_H_

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "setvault/json_doc.h"
#include "setvault/object_id.h"

namespace KorvoSetvault {

class StoreObjectImpl {
 public:
  // An empty object (root {}).
  explicit StoreObjectImpl(const SetvaultObjectId& id);
  // A deep copy of `value` as the root.
  StoreObjectImpl(const SetvaultObjectId& id, const JsonValue& value);
  // Over an existing document or view; the object shares it.
  StoreObjectImpl(const SetvaultObjectId& id, std::shared_ptr<JsonDoc> document);
  virtual ~StoreObjectImpl();

  // The member `key`, or the default value of that name where the object has
  // defaults (`from_default` then true). Null when neither holds a non-null
  // value. The base has no defaults.
  virtual const JsonValue* GetValuePtrDefault(const char* key, bool& from_default) const;

  // The member `key` of the root, or null when absent or JSON null. Throws
  // InvalidArgumentException "key cannot be empty" for an empty key.
  JsonValue* GetValuePtr(const char* key) const;

  const SetvaultObjectId& GetSetvaultObjectId() const { return id_; }
  const std::shared_ptr<JsonDoc>& GetDocument() const { return document_; }
  // The object's root value (resolves the document's path).
  JsonValue& Root() const { return *document_->GetJsonValuePtr(); }
  JsonAllocator& Allocator() const { return document_->GetAllocator(); }

  void SetData(const char* json);
  // The data as compact JSON text.
  virtual std::string GetData() const;
  bool IsEmpty() const;
  bool CheckKey(const char* key) const;
  void Remove(const char* key);

  int GetValue(const char* key, std::string* out) const;
  int GetValue(const char* key, double* out) const;
  int GetValue(const char* key, int* out) const;
  int GetValue(const char* key, long* out) const;
  int GetValue(const char* key, long long* out) const;
  int GetValue(const char* key, unsigned int* out) const;
  int GetValue(const char* key, unsigned short* out) const;
  int GetValue(const char* key, unsigned char* out) const;
  int GetValue(const char* key, bool* out) const;
  int GetValue(const char* key, std::vector<std::string>* out) const;
  int GetValue(const char* key, std::vector<int>* out) const;
  int GetValue(const char* key, std::vector<long long>* out) const;
  int GetValue(const char* key, std::vector<double>* out) const;
  int GetValue(const char* key, std::vector<bool>* out) const;
  int GetValueBinary(const char* key, unsigned char** data, unsigned long* length) const;

  void SetValue(const char* key, std::string_view value);
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
  void SetValueBinary(const char* key, const unsigned char* data, unsigned long length);

  void SetValueEmptyList(const char* key);
  void SetValue(const char* key, const std::vector<std::string>& values);
  void SetValue(const char* key, const std::vector<int>& values);
  void SetValue(const char* key, const std::vector<long long>& values);
  void SetValue(const char* key, const std::vector<double>& values);
  void SetValue(const char* key, const std::vector<bool>& values);

  void AppendValue(const char* key, int value);
  void AppendValue(const char* key, long long value);
  void AppendValue(const char* key, double value);
  void AppendValue(const char* key, bool value);
  void AppendValue(const char* key, const std::string& value);

  void RemoveValue(const char* key, int value);
  void RemoveValue(const char* key, long long value);
  void RemoveValue(const char* key, double value);
  void RemoveValue(const char* key, bool value);
  void RemoveValue(const char* key, const std::string& value);

 protected:
  // Replaces the document (SetData, and owners that load data).
  void ReplaceDocument(std::shared_ptr<JsonDoc> document) { document_ = std::move(document); }

 private:
  // Writes `value` over the non-null member `key`, or appends it as a new member.
  void Store(const char* key, JsonValue&& value);
  // The array member `key`, after checking that its first element (if any)
  // passes `kind_test`. Throws as AppendValue documents.
  JsonValue& ArrayForAppend(const char* key, bool (*kind_test)(const JsonValue&)) const;

  template <typename T>
  int GetScalar(const char* key, T* out) const;
  template <typename T>
  int GetList(const char* key, std::vector<T>* out) const;
  template <typename T>
  void SetList(const char* key, const std::vector<T>& values);
  template <typename T>
  void Append(const char* key, T value);
  template <typename T>
  void RemoveFirst(const char* key, const T& value);

  SetvaultObjectId id_;
  std::shared_ptr<JsonDoc> document_;
};

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_MODEL_STORE_OBJECT_IMPL_H_
