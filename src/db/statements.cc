#include "db/statements.h"

namespace KorvoSetvault {

constexpr KeyStatement3 GET_INSTANCES(
    "SELECT Version, Success, Identifier, UserValue, VitalValue, CachedValue, AutoConfValue, "
    "DesiredValue, CreationTime, ModifiedTime, Revision FROM Config WHERE Name = ? AND "
    "ConfigGroup = ? AND Component = ?");

constexpr KeyStatement4 READ_TABLE_USER_AUTO_CONFIG(
    "SELECT Version, AutoConfValue, UserValue, Success, CreationTime, ModifiedTime, Revision "
    "FROM Config WHERE Name = ? AND ConfigGroup = ? AND Component = ? AND Identifier = ?");

constexpr KeyStatement4 GET_DEFAULT_INSTANCE(
    "SELECT Value, VitalValue, CachedValue, Identifier, Version FROM DefaultConfig WHERE "
    "Name = ? AND ConfigGroup = ? AND Component = ? AND Identifier = ?");

constexpr KeyStatement4 READ_TABLE_CONFIG(
    "SELECT Version, AutoConfValue, UserValue, VitalValue, CachedValue, DesiredValue, Success, "
    "CreationTime, ModifiedTime, Revision FROM Config WHERE Name = ? AND ConfigGroup = ? AND "
    "Component = ? AND Identifier = ?");

const char kBootModeKey[] = "BOOT_MODE";
const char kBootModeNormal[] = "0";
const char kBootModeRemediated[] = "1";
const char kBootModeChanged[] = "4";

}  // namespace KorvoSetvault
