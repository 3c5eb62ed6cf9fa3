// Builds a configuration object through the public API, reads it back by
// type, and shows how failures reach the caller.
#include <setvault/setvault.h>

#include <iostream>

using KorvoSetvault::SetvaultObjectId;
using KorvoSetvault::StoreObject;

int main() {
  KorvoSetvault::SVLogger::SetStderrSink();
  KorvoSetvault::SVLogger::SetThreshold(-1);  // keep the demo output clean

  SetvaultObjectId id("vswitch", "net", KorvoSetvault::kDefaultComponent, "vs0");
  std::cout << "object: " << id.toString() << "\n";

  StoreObject object(id);
  object.SetValue("name", "vs0");
  object.SetValue("mtu", 9000);
  object.SetValue("uplinks", std::vector<std::string>{"eth0", "eth1"});
  object.AppendValue("uplinks", "eth2");
  const unsigned char key[] = {0x00, 0xff, 0x10, 0x80};
  object.SetValueBinary("key", key, sizeof key);
  std::cout << "data:   " << object.GetData() << "\n";

  int mtu = 0;
  std::vector<std::string> uplinks;
  object.GetValue("mtu", &mtu);
  object.GetValue("uplinks", &uplinks);
  std::cout << "mtu " << mtu << ", " << uplinks.size() << " uplinks\n";

  try {
    std::string wrong;
    object.GetValue("mtu", &wrong);
  } catch (const KorvoSetvault::InvalidTypeException& e) {
    std::cout << "expected failure:\n" << e.toString();
  }
  try {
    KorvoSetvault::CreateDocumentFromString("{\"unterminated\": ");
  } catch (const KorvoSetvault::SetvaultException& e) {
    std::cout << "expected failure:\n" << e.toString();
  }
  std::cout << "instance id example: " << KorvoSetvault::GenerateInstanceId() << "\n";
  return 0;
}
