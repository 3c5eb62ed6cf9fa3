// A program built against the installed library: it must see the public API,
// and a RapidJSON assertion in its own code must become the library's
// exception (code 1082), not an abort.
#include <setvault/setvault.h>

#include <cstdio>
#include <string>

int main() {
  KorvoSetvault::SVLogger::SetThreshold(-1);
  KorvoSetvault::StoreObject object(KorvoSetvault::SetvaultObjectId("options", "hvcore", "korvo"));
  object.SetValue("mtu", 300);
  unsigned char narrow = 0;
  if (object.GetValue("mtu", &narrow) != 1 || narrow != 44) {
    std::puts("FAIL: typed access");
    return 1;
  }
  auto doc = KorvoSetvault::CreateDocumentFromString(R"({"a": 1})");
  try {
    (*doc->GetJsonValuePtr())["a"].GetString();  // wrong kind: asserts inside RapidJSON
    std::puts("FAIL: no exception");
    return 1;
  } catch (const KorvoSetvault::SetvaultException& e) {
    if (e.GetErrorCode() != 1082 || std::string(e.what()).rfind("JSON error:\"", 0) != 0) {
      std::printf("FAIL: wrong exception %d %s\n", e.GetErrorCode(), e.what());
      return 1;
    }
  }
  std::puts("consumer ok");
  return 0;
}
