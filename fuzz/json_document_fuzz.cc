// Fuzzes document parsing and typed access: any input must end in a parsed
// document or a library exception, never a crash, a hang or another
// exception type.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "setvault/setvault.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  KorvoSetvault::SVLogger::SetThreshold(-1);
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    KorvoSetvault::StoreObject object(KorvoSetvault::SetvaultObjectId("k", "g", "c"));
    object.SetData(text.c_str());
    if (object.IsEmpty()) return 0;
    for (const char* key : {"a", "b", "list", "blob"}) {
      std::string s;
      int i = 0;
      double d = 0;
      std::vector<std::string> strings;
      try { object.GetValue(key, &s); } catch (const KorvoSetvault::SetvaultException&) {}
      try { object.GetValue(key, &i); } catch (const KorvoSetvault::SetvaultException&) {}
      try { object.GetValue(key, &d); } catch (const KorvoSetvault::SetvaultException&) {}
      try { object.GetValue(key, &strings); } catch (const KorvoSetvault::SetvaultException&) {}
      unsigned char* bytes = nullptr;
      unsigned long length = 0;
      try {
        if (object.GetValueBinary(key, &bytes, &length) != 0) delete[] bytes;
      } catch (const KorvoSetvault::SetvaultException&) {}
    }
    object.GetData();
  } catch (const KorvoSetvault::SetvaultException&) {
    // Refused input: the expected outcome for most of it.
  }
  return 0;
}
