// The one way the library includes valijson: with exceptions enabled, so that
// a malformed schema raises std::exception (turned into SetvaultException by
// the validator) instead of aborting the process. Every translation unit that
// uses valijson includes this header and no valijson header directly, so that
// all of them agree on valijson's inline functions.
#ifndef SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_VALIJSON_H_
#define SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_VALIJSON_H_

#include "setvault/json_doc.h"

#define VALIJSON_USE_EXCEPTIONS 1
#include <valijson/exceptions.hpp>

// The adapter would replace RapidJSON's assertion hook when it sees the
// exceptions switch (and warn that the library already set the hook); the
// library's hook must stay, so the switch is off while the adapter is read.
// Its exception helpers were already defined above, with the switch on.
#undef VALIJSON_USE_EXCEPTIONS
#include <valijson/adapters/rapidjson_adapter.hpp>
#define VALIJSON_USE_EXCEPTIONS 1

#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>

#endif  // SETVAULT_SRC_JSONSCHEMA_JSON_VALIDATOR_VALIJSON_H_
