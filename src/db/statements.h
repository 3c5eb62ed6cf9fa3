// The long-lived statement objects of the persistence code and the boot-mode texts.
//
// Each object is constant-initialized from its literal text when the library is loaded
// (no run-time construction, so no initialization-order or threading hazard), lives until
// unload and is shared by every thread; preparing it is per call and per connection.
#ifndef SETVAULT_SRC_DB_STATEMENTS_H_
#define SETVAULT_SRC_DB_STATEMENTS_H_

#include <string_view>

#include "dbstore/db_store.h"

namespace KorvoSetvault {

// Bound as Name, ConfigGroup, Component.
using KeyStatement3 = DBStore::SqlStatement<std::string_view, std::string_view, std::string_view>;
// Bound as Name, ConfigGroup, Component, Identifier.
using KeyStatement4 =
    DBStore::SqlStatement<std::string_view, std::string_view, std::string_view, std::string_view>;

// Every instance row of a type, all columns a read needs.
extern const KeyStatement3 GET_INSTANCES;
// The auto-configured and user parts of one row.
extern const KeyStatement4 READ_TABLE_USER_AUTO_CONFIG;
// One shipped default instance.
extern const KeyStatement4 GET_DEFAULT_INSTANCE;
// Every value column of one row.
extern const KeyStatement4 READ_TABLE_CONFIG;

// The key-value key of the host's boot mode and its values.
extern const char kBootModeKey[];         // "BOOT_MODE"
extern const char kBootModeNormal[];      // "0"
extern const char kBootModeRemediated[];  // "1": remediation in progress
extern const char kBootModeChanged[];     // "4": reboot-required configuration changed

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DB_STATEMENTS_H_
