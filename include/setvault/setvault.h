// libsetvault: the host's configuration store.
//
// This umbrella header brings the whole public API.
//
//   #include <setvault/setvault.h>
//
//   KorvoSetvault::StoreObject object(KorvoSetvault::SetvaultObjectId("vswitch", "net", "korvo"));
//   object.SetValue("mtu", 9000);
#ifndef SETVAULT_SETVAULT_H_
#define SETVAULT_SETVAULT_H_

// RapidJSON's configuration comes first (see the header's comment).
#include "setvault/rapidjson_config.h"

#include "setvault/config_document.h"
#include "setvault/default_instances.h"
#include "setvault/drift.h"
#include "setvault/drift_object.h"
#include "setvault/error_codes.h"
#include "setvault/exceptions.h"
#include "setvault/export.h"
#include "setvault/filter_spec_object.h"
#include "setvault/format.h"
#include "setvault/host_functions.h"
#include "setvault/host_setup.h"
#include "setvault/json_doc.h"
#include "setvault/logger.h"
#include "setvault/object_id.h"
#include "setvault/schema_setup.h"
#include "setvault/setvault_object.h"
#include "setvault/setvault_store.h"
#include "setvault/store_object.h"
#include "setvault/user_context.h"

#endif  // SETVAULT_SETVAULT_H_
