// Numeric error codes carried by every libsetvault exception, and the message
// table that turns a code into its text.
#ifndef SETVAULT_ERROR_CODES_H_
#define SETVAULT_ERROR_CODES_H_

#include "setvault/export.h"

namespace KorvoSetvault {

// The codes are part of the ABI: their numbers never change.
enum SVErrorCodes : int {
  SV_ERR_DB_FILE = 1002,                  // the store database cannot be reached (%s: path)
  SV_ERR_JSON_TYPE = 1030,                // data of the wrong JSON type (%s: detail)
  SV_ERR_INSTANCE_ID_VALUE = 1032,        // an instance id value is unusable (%s: detail)
  SV_ERR_SCHEMA_NOT_FOUND = 1037,         // no schema for an identity (%s: identity)
  SV_ERR_NULL_OBJECT = 1041,              // an empty object pointer was passed
  SV_ERR_SUBOBJECT_INSTANCES = 1046,      // no instances for a sub-object (%s: sub-object id)
  SV_ERR_SUBOBJECT_NEEDS_INSTANCE = 1048, // non-singleton without instance id (%s: id)
  SV_ERR_SUBOBJECT_NOT_ARRAY = 1049,      // singleton given an instance id (%s: id)
  SV_ERR_EMPTY_OBJECT_LIST = 1061,        // an object list holds no object
  SV_ERR_MIXED_TYPES = 1062,              // objects of one call differ in type
  SV_ERR_JSON_PARSE = 1080,               // a JSON text does not parse (%s: where, why)
  SV_ERR_JSON_FILE = 1081,                // a JSON file cannot be read or parsed (%s: path)
  SV_ERR_JSON = 1082,                     // a RapidJSON assertion failed
  SV_ERR_VALIDATION = 1083,               // one validation finding (%s: field, %s: error)
  SV_ERR_CACHED_DATA_INVALID = 1084,      // cached data fails its schema
  SV_ERR_VITAL_DATA_INVALID = 1086,       // vital data fails its schema
  SV_ERR_USER_DATA_INVALID = 1087,        // user data fails its schema
  SV_ERR_PARTIAL_CONFIG_INVALID = 1088,   // partial boot-status data fails its schema
  SV_ERR_SET_DATA_INVALID = 1089,         // data of a set fails its schema
  SV_ERR_UPDATE_DATA_INVALID = 1090,      // data of an update fails its schema
  SV_ERR_APPLY_FILE_INVALID = 1091,       // an apply file fails its schema
  SV_ERR_SPAWN = 1102,                    // a command could not be started (%s: reason)
  SV_ERR_WAIT = 1103,                     // waiting for a command failed (%d: pid, %s: reason)
  SV_ERR_EXIT_STATUS = 1104,              // a command exited non-zero (%d: status)
  SV_ERR_REVISION_CONFLICT = 1105,        // a conditional write found another revision
                                          // (%s: identity, %d: expected, %d: stored)
  SV_ERR_GENERIC = 2000,                  // message spelled out at the throw site (%s)
};

// Returns the printf format of `code`'s message: a static NUL-terminated text
// that the caller must not free. The conversions of each format are those
// listed beside the code above. An unknown code gives a fixed text without
// conversions.
SETVAULT_EXPORT const char* ErrorMessageForId(SVErrorCodes code);

}  // namespace KorvoSetvault

#endif  // SETVAULT_ERROR_CODES_H_
