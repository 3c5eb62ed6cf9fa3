// Next-boot staging: pending actions of reboot-required configuration (table
// DesiredUserConfig, one row per instance, boot action "SET", "DELETE" or
// "DELETE_INSTANCE") and the kernel options' next-boot value (DesiredValue of
// their Config row). Every function runs on the caller's connection inside
// the caller's transaction and throws SetvaultException 2000 when a statement
// fails; the caller cancels.
//
// The writes of DesiredUserConfig first refuse while the host is being
// remediated ("BOOT_MODE" is "1"): 2000 "Korvo host is being remediated by
// QCM, cannot set next-boot configuration.", nothing written. A successful
// set or delete then stores "4" under "BOOT_MODE".
#ifndef SETVAULT_SRC_DB_REBOOT_REQUIRED_H_
#define SETVAULT_SRC_DB_REBOOT_REQUIRED_H_

#include <memory>
#include <vector>

#include "db/row_readers.h"
#include "setvault/filter_spec_object.h"

namespace KorvoSetvault {

// Stage the objects (split into user, vital and cached parts) with "SET".
// Throws 2000 "Failed to update reboot-required configuraition." when a row
// cannot be written.
void SetRebootRequiredConfigInternal(const ObjectPtr& object, const SchemaPtr& schema,
                                     const ConnectionPtr& conn);
void SetRebootRequiredConfigInstancesInternal(const std::vector<ObjectPtr>& objects,
                                              const SchemaPtr& schema, const ConnectionPtr& conn);

// Stage the deletion of the id ("DELETE_INSTANCE" for a multi-instance type,
// "DELETE" otherwise; the row's version is the schema's, its value columns
// NULL). Throws 2000 "Failed to delete reboot-required configuraition." when
// the row cannot be written.
void DeleteRebootRequiredConfigInternal(const SetvaultObjectId& id, const SchemaPtr& schema,
                                        const ConnectionPtr& conn);
// The same for every instance the filter names: the one its id names when
// it carries an instance id and no criteria; otherwise every instance stored
// in Config or staged with "SET" whose next-boot value (the staged one where
// staged, the stored one otherwise) matches the filter, restricted to the
// filter's instance id when it carries one.
void DeleteRebootRequiredConfigInstancesInternal(const std::shared_ptr<FilterSpecObject>& filter,
                                                 const SchemaPtr& schema,
                                                 const ConnectionPtr& conn);

// Drops every staged action of the id's type. Refused while remediated like
// the writes, but writes no boot-mode mark. Throws 2000 "Failed to clear
// RebootRequired config for svoId: <id>" when the delete fails.
void ClearRebootRequiredConfigInstances(const SetvaultObjectId& id, const SchemaPtr& schema,
                                        const ConnectionPtr& conn);

// Stages the kernel options: the user part becomes DesiredValue, the vital
// part VitalValue; UserValue is carried over, Success, AutoConfValue and
// CachedValue take their defaults. Throws 2000 "Database call to update
// Kernel options configuration failed for: <id>" when the write fails.
void SetKernelOptionsInternal(const ObjectPtr& object, const SchemaPtr& schema,
                              const ConnectionPtr& conn);
// The kernel options the next boot uses (the staged value, or the current
// one), with the vital part; while remediated the value staged in
// DesiredUserConfig wins. Empty when nothing is stored. Throws 2000 "Get
// failed: <id>" when the read fails.
ObjectPtr GetKernelOptionsInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                   const SchemaPtr& schema);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DB_REBOOT_REQUIRED_H_
