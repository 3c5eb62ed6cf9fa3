// Host-level functions: the host's boot flags, boot confirmation of
// next-boot configuration, desired (next-boot) reads, kernel options, schema
// versions, objects made from JSON text and the key-value table of host flags.
//
// Each function opens the calling thread's own connection to the configured
// store (the one the thread's stores share), so it joins a transaction the
// thread holds open.
//
//   if (!KorvoSetvault::IsBoot()) { ... }
//   KorvoSetvault::SetBootStatus(KorvoSetvault::SetvaultObjectId("options", "hvcore", "korvo"),
//                                true);  // the staged kernel options were applied
//   auto options = KorvoSetvault::GetKernelOptions(
//       KorvoSetvault::SetvaultObjectId("options", "hvcore", "korvo"));
#ifndef SETVAULT_HOST_FUNCTIONS_H_
#define SETVAULT_HOST_FUNCTIONS_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "setvault/export.h"
#include "setvault/object_id.h"
#include "setvault/setvault_object.h"

namespace KorvoSetvault {

// The selector of the desired-configuration reads: kDesiredWithAllParts (1)
// adds the vital and cached parts to the next-boot user value; any other
// value reads the user value alone.
using FLAG = int32_t;
constexpr FLAG kDesiredUserOnly = 0;
constexpr FLAG kDesiredWithAllParts = 1;

// --- Host flags (key-value table) -----------------------------------------

// The text stored under `key` ("" when absent). Throws SetvaultException 1002
// (with the store path) when the store cannot be opened and 2000 "Failed to
// read KV table for key: <key>" when the read fails.
SETVAULT_EXPORT std::string GetKeyValue(const std::string& key);
// Stores `value` under `key` (committed at once outside a transaction).
// Throws 1002 as GetKeyValue and 2000 "Failed to write KV table for key:
// <key>" when the write fails. The host's start-up code sets "IS_BOOT",
// "NOTIFY_NEXD", "BOOT_INFO" and "BOOT_MODE" with it.
SETVAULT_EXPORT void SetKeyValue(const std::string& key, const std::string& value);

// True exactly when "IS_BOOT" holds "true". Throws 1002 when the store cannot
// be opened and 2000 "Failed to read value from database." when the read
// fails.
SETVAULT_EXPORT bool IsBoot();
// True exactly when "NOTIFY_NEXD" holds "true"; a failed read counts as
// false. Never throws.
SETVAULT_EXPORT bool IsNexdNotificationEnabled();
// The integer member "type" of the JSON object stored under "BOOT_INFO".
// Throws 2000 "Failed to read BOOT_INFO database." when the key cannot be
// read or its text is not JSON, and 1082 when the text is not an object with
// an integer "type".
SETVAULT_EXPORT int GetBootInfo();

// --- Boot confirmation -------------------------------------------------------

// Confirms the next-boot value of `id` (of every instance when `id` names
// none) after a boot that applied it: the desired value becomes the user
// value, Success becomes 1. Does nothing when `status` is false. Returns 0;
// throws 2000 "SetBootStatus: Failed to mark success status for given
// svoId." when the update fails.
SETVAULT_EXPORT int SetBootStatus(const SetvaultObjectId& id, bool status);
// Confirms the part of the next-boot value that `object` carries: merges it
// into the confirmed user value and clears the desired value once the two are
// equal. A pending value held in an unconfirmed UserValue is staged first; a
// confirmed row's desired value is kept as it is. The type's schema is checked
// before the data. All writes are one transaction: a refusal changes nothing.
// Returns
// quietly for an empty pointer; throws SetvaultException 1037 for a type
// without schema, ValidationException 1088 for invalid data, and 2000
// "desired config is empty" or "partial config being restored is not part of
// desired config" when there is nothing (or not this) to confirm.
SETVAULT_EXPORT void SetPartialBootStatus(std::shared_ptr<SetvaultObject> object);

// --- Desired (next-boot) reads --------------------------------------------

// The user value the next boot applies (with `flag` kDesiredWithAllParts also
// the vital and cached parts), or empty when none is stored. Throws 1037 for
// a type without schema and ValidationException 2000 when the instance id
// does not fit the type. The caller owns the returned object.
SETVAULT_EXPORT std::shared_ptr<SetvaultObject> GetDesiredUserConfig(const SetvaultObjectId& id,
                                                                     FLAG flag);
// The same for every stored instance of a multi-instance type, in database
// order. Throws ValidationException 2000 for a singleton type.
SETVAULT_EXPORT std::vector<std::shared_ptr<SetvaultObject>> GetDesiredUserConfigInstances(
    const SetvaultObjectId& id, FLAG flag);

// The version of the type's schema, or "" (logged) when it has none.
SETVAULT_EXPORT std::string GetSchemaVersion(const SetvaultObjectId& id);

// --- Kernel options (korvo / hvcore / options) -------------------------------

// The kernel options the next boot uses: the staged value when one is staged,
// the current one otherwise (while the host is being remediated, the value
// staged as reboot-required configuration), with the vital part. Throws
// ValidationException 2000 for any other identity.
SETVAULT_EXPORT std::shared_ptr<SetvaultObject> GetKernelOptions(const SetvaultObjectId& id);
// Merges `object` into the kernel options and stages the result for the next
// boot (the current user value is kept), in one transaction. Returns quietly
// for an empty pointer and writes nothing for an empty object. Throws
// ValidationException 2000 for another identity or during boot, and
// ValidationException 1090 / 1089 (with every finding) for invalid data; the
// library's other exceptions pass unchanged, a foreign exception becomes
// SetvaultException 2000 "Transaction failed<what>".
SETVAULT_EXPORT void UpdateKernelOptions(std::shared_ptr<SetvaultObject> object);

// --- Objects from JSON text ----------------------------------------------------

// A new object of the type `id` names holding the JSON text `json` (generated
// instance ids filled in), with revision `revision` (kDefaultRevision when
// absent). The caller owns it. Throws InvalidArgumentException 1080 when the
// text does not parse and SetvaultException 1037 for a type without schema.
SETVAULT_EXPORT std::shared_ptr<SetvaultObject> CreateObject(const SetvaultObjectId& id,
                                                             const std::string& json);
SETVAULT_EXPORT std::shared_ptr<SetvaultObject> CreateObject(const SetvaultObjectId& id,
                                                             const std::string& json,
                                                             std::optional<unsigned long> revision);

}  // namespace KorvoSetvault

#endif  // SETVAULT_HOST_FUNCTIONS_H_
