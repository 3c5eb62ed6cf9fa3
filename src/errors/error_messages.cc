// The message table behind ErrorMessageForId.
#include "errors/error_messages.h"

#include <iterator>

namespace KorvoSetvault {
namespace {

// One row per code: its printf format and the conversions the format takes,
// one letter per argument ('s' text, 'd' integer). A test checks every format
// against its letters, so a format never reads an argument its callers do not
// pass.
constexpr ErrorMessageEntry kMessages[] = {
    {SV_ERR_DB_FILE, "Cannot open the configuration store database %s", "s"},
    {SV_ERR_JSON_TYPE, "Invalid JSON data: %s", "s"},
    {SV_ERR_INSTANCE_ID_VALUE, "Invalid instance id value: %s", "s"},
    {SV_ERR_SCHEMA_NOT_FOUND, "Schema not found for %s", "s"},
    {SV_ERR_NULL_OBJECT, "No object was given (empty object pointer)", ""},
    {SV_ERR_SUBOBJECT_INSTANCES, "Cannot get the instances of sub-object %s", "s"},
    {SV_ERR_SUBOBJECT_NEEDS_INSTANCE,
     "%s is a non-singleton object and needs an instance id", "s"},
    {SV_ERR_SUBOBJECT_NOT_ARRAY, "%s is a singleton object and takes no instance id", "s"},
    {SV_ERR_EMPTY_OBJECT_LIST, "The object list is empty", ""},
    {SV_ERR_MIXED_TYPES,
     "All objects of the list must have the same component, group and key", ""},
    {SV_ERR_JSON_PARSE, "Invalid JSON text %s", "s"},
    {SV_ERR_JSON_FILE, "Cannot read a JSON document from file %s", "s"},
    {SV_ERR_JSON, "JSON error: %s", "s"},
    {SV_ERR_VALIDATION, "Validation error at %s: %s", "ss"},
    {SV_ERR_CACHED_DATA_INVALID, "Cached configuration data is invalid", ""},
    {SV_ERR_VITAL_DATA_INVALID, "Vital configuration data is invalid", ""},
    {SV_ERR_USER_DATA_INVALID, "User configuration data is invalid", ""},
    {SV_ERR_PARTIAL_CONFIG_INVALID, "Partial boot status data is invalid", ""},
    {SV_ERR_SET_DATA_INVALID, "Configuration data is invalid", ""},
    {SV_ERR_UPDATE_DATA_INVALID, "Configuration update data is invalid", ""},
    {SV_ERR_APPLY_FILE_INVALID, "Apply file is invalid", ""},
    {SV_ERR_SPAWN, "Cannot start command: %s", "s"},
    {SV_ERR_WAIT, "Cannot wait for process %d: %s", "ds"},
    {SV_ERR_EXIT_STATUS, "Command exited with status %d", "d"},
    {SV_ERR_REVISION_CONFLICT,
     "Revision conflict for %s: expected revision %d, stored revision %d", "sdd"},
    {SV_ERR_GENERIC, "%s", "s"},
};

constexpr const char kUnknownCode[] = "Unknown error code";

}  // namespace

const char* ErrorMessageForId(SVErrorCodes code) {
  for (const auto& entry : kMessages) {
    if (entry.code == code) return entry.format;
  }
  return kUnknownCode;
}

const ErrorMessageEntry* ErrorMessageTableBegin() { return std::begin(kMessages); }
const ErrorMessageEntry* ErrorMessageTableEnd() { return std::end(kMessages); }

}  // namespace KorvoSetvault
