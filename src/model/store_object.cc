// StoreObject forwards every call to its StoreObjectImpl.
#include "setvault/store_object.h"

#include "model/store_object_impl.h"
#include "setvault/exceptions.h"

namespace KorvoSetvault {

StoreObject::StoreObject(const SetvaultObjectId& id)
    : impl_(std::make_shared<StoreObjectImpl>(id)) {}
StoreObject::StoreObject(std::shared_ptr<StoreObjectImpl> impl) : impl_(std::move(impl)) {}
StoreObject::~StoreObject() = default;

const SetvaultObjectId& StoreObject::GetSetvaultObjectId() const {
  return impl_->GetSetvaultObjectId();
}
void StoreObject::SetData(const char* json) { impl_->SetData(json); }
std::string StoreObject::GetData() const { return impl_->GetData(); }
bool StoreObject::IsEmpty() const { return impl_->IsEmpty(); }
bool StoreObject::CheckKey(const char* key) const { return impl_->CheckKey(key); }
void StoreObject::Remove(const char* key) { impl_->Remove(key); }

int StoreObject::GetValue(const char* key, std::string* out) const { return impl_->GetValue(key, out); }
int StoreObject::GetValue(const char* key, double* out) const { return impl_->GetValue(key, out); }
int StoreObject::GetValue(const char* key, int* out) const { return impl_->GetValue(key, out); }
int StoreObject::GetValue(const char* key, long* out) const { return impl_->GetValue(key, out); }
int StoreObject::GetValue(const char* key, long long* out) const { return impl_->GetValue(key, out); }
int StoreObject::GetValue(const char* key, unsigned int* out) const { return impl_->GetValue(key, out); }
int StoreObject::GetValue(const char* key, unsigned short* out) const { return impl_->GetValue(key, out); }
int StoreObject::GetValue(const char* key, unsigned char* out) const { return impl_->GetValue(key, out); }
int StoreObject::GetValue(const char* key, bool* out) const { return impl_->GetValue(key, out); }
int StoreObject::GetValue(const char* key, std::vector<std::string>* out) const { return impl_->GetValue(key, out); }
int StoreObject::GetValue(const char* key, std::vector<int>* out) const { return impl_->GetValue(key, out); }
int StoreObject::GetValue(const char* key, std::vector<long long>* out) const { return impl_->GetValue(key, out); }
int StoreObject::GetValue(const char* key, std::vector<double>* out) const { return impl_->GetValue(key, out); }
int StoreObject::GetValue(const char* key, std::vector<bool>* out) const { return impl_->GetValue(key, out); }
int StoreObject::GetValueBinary(const char* key, unsigned char** data, unsigned long* length) const {
  return impl_->GetValueBinary(key, data, length);
}

void StoreObject::SetValue(const char* key, std::string_view value) { impl_->SetValue(key, value); }
void StoreObject::SetValue(const char* key, const char* value) { impl_->SetValue(key, value); }
void StoreObject::SetValue(const char* key, int value) { impl_->SetValue(key, value); }
void StoreObject::SetValue(const char* key, long value) { impl_->SetValue(key, value); }
void StoreObject::SetValue(const char* key, long long value) { impl_->SetValue(key, value); }
void StoreObject::SetValue(const char* key, unsigned int value) { impl_->SetValue(key, value); }
void StoreObject::SetValue(const char* key, unsigned short value) { impl_->SetValue(key, value); }
void StoreObject::SetValue(const char* key, unsigned char value) { impl_->SetValue(key, value); }
void StoreObject::SetValue(const char* key, double value) { impl_->SetValue(key, value); }
void StoreObject::SetValue(const char* key, float value) { impl_->SetValue(key, value); }
void StoreObject::SetValue(const char* key, bool value) { impl_->SetValue(key, value); }
void StoreObject::SetValueBinary(const char* key, const unsigned char* data, unsigned long length) {
  impl_->SetValueBinary(key, data, length);
}

void StoreObject::SetValueEmptyList(const char* key) { impl_->SetValueEmptyList(key); }
void StoreObject::SetValue(const char* key, const std::vector<std::string>& values) { impl_->SetValue(key, values); }
void StoreObject::SetValue(const char* key, const std::vector<int>& values) { impl_->SetValue(key, values); }
void StoreObject::SetValue(const char* key, const std::vector<long long>& values) { impl_->SetValue(key, values); }
void StoreObject::SetValue(const char* key, const std::vector<double>& values) { impl_->SetValue(key, values); }
void StoreObject::SetValue(const char* key, const std::vector<bool>& values) { impl_->SetValue(key, values); }

void StoreObject::AppendValue(const char* key, int value) { impl_->AppendValue(key, value); }
void StoreObject::AppendValue(const char* key, long long value) { impl_->AppendValue(key, value); }
void StoreObject::AppendValue(const char* key, double value) { impl_->AppendValue(key, value); }
void StoreObject::AppendValue(const char* key, bool value) { impl_->AppendValue(key, value); }
void StoreObject::AppendValue(const char* key, const std::string& value) { impl_->AppendValue(key, value); }
void StoreObject::AppendValue(const char* key, const char* value) {
  if (value == nullptr) throw InvalidArgumentException(SV_ERR_GENERIC, "value cannot be null");
  impl_->AppendValue(key, std::string(value));
}

void StoreObject::RemoveValue(const char* key, int value) { impl_->RemoveValue(key, value); }
void StoreObject::RemoveValue(const char* key, long long value) { impl_->RemoveValue(key, value); }
void StoreObject::RemoveValue(const char* key, double value) { impl_->RemoveValue(key, value); }
void StoreObject::RemoveValue(const char* key, bool value) { impl_->RemoveValue(key, value); }
void StoreObject::RemoveValue(const char* key, const std::string& value) { impl_->RemoveValue(key, value); }
void StoreObject::RemoveValue(const char* key, const char* value) {
  if (value == nullptr) throw InvalidArgumentException(SV_ERR_GENERIC, "value cannot be null");
  impl_->RemoveValue(key, std::string(value));
}

}  // namespace KorvoSetvault
