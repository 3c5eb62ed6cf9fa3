// Processes on one store (support/reliability_processes.h): the objects (switches and datastores)
// and errors tests compare.
#ifndef SETVAULT_TESTS_RELIABILITY_STORE_PROCESSES_H_
#define SETVAULT_TESTS_RELIABILITY_STORE_PROCESSES_H_

#include <sqlite3.h>

#include <functional>
#include <memory>
#include <string>

#include "dbstore/db_store_fixture.h"
#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "setvault/setvault_object.h"
#include "setvault/setvault_store.h"
#include "support/reliability_processes.h"

namespace setvault_test {

using KorvoSetvault::Setvault;
using KorvoSetvault::SetvaultObject;
using KorvoSetvault::SetvaultObjectId;

inline const SetvaultObjectId kHost("host", "system", "korvo");
inline const KorvoSetvault::USERDATA_CONTEXT kExternal{KorvoSetvault::kExternalContext};

inline SetvaultObjectId Vswitch(const std::string& name) {
  return SetvaultObjectId("vswitch", "net", "korvo", name);
}
inline SetvaultObjectId Datastore(const std::string& label) {
  return SetvaultObjectId("datastore", "storage", "korvo", label);
}

inline std::shared_ptr<SetvaultObject> Object(const SetvaultObjectId& id, const std::string& json) {
  auto object = std::make_shared<SetvaultObject>(id);
  object->SetData(json.c_str());
  return object;
}

// "ok <result>", or "<code> <cause>" of the library exception `call` throws (its detailed message
// when the library added no cause).
inline std::string Outcome(const std::function<std::string()>& call) {
  try {
    return "ok " + call();
  } catch (const KorvoSetvault::SetvaultException& e) {
    const std::string detail = e.GetDetailedMessage();
    const size_t cause = detail.find("[cause]: ");
    return std::to_string(e.GetErrorCode()) + " " +
           (cause == std::string::npos ? detail : detail.substr(cause + 9));
  }
}

}  // namespace setvault_test

#endif  // SETVAULT_TESTS_RELIABILITY_STORE_PROCESSES_H_
