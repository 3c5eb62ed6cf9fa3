// Reads of stored configuration: one object, the instances of a type, and
// raw rows for bulk export. None of them writes or opens a transaction; a
// read that finds nothing returns an empty pointer or an empty list.
#ifndef SETVAULT_SRC_DB_CONFIG_READS_H_
#define SETVAULT_SRC_DB_CONFIG_READS_H_

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "db/row_readers.h"
#include "setvault/filter_spec_object.h"
#include "setvault/user_context.h"

namespace KorvoSetvault {

using ObjectList = std::vector<ObjectPtr>;

// --- One object -----------------------------------------------------------

// The stored object: vital, cached, auto-configuration and current user parts.
ObjectPtr GetInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                      const SchemaPtr& schema);
// Which origin supplied each top-level member of the data of the object
// GetInternal reads: "vital", "cached", "auto" or "user" (the user view
// GetInternal shows, the pending value during an upgrade included), the last
// of them in merge order that holds the member; and "default" for each
// member with a non-null value in the schema's defaults that no origin
// holds. Empty when nothing is stored. Throws what GetInternal's read throws.
std::map<std::string, std::string> GetMemberOriginsInternal(const SetvaultObjectId& id,
                                                            const ConnectionPtr& conn,
                                                            const SchemaPtr& schema);
// The auto-configuration and confirmed user parts.
ObjectPtr GetCurrentConfigInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                   const SchemaPtr& schema);
// The part a writer with `context` works on (auto-configuration for kinds
// other than external; the user part otherwise, current or confirmed by the
// upgrade context, the boot flag and the schema), with vital and cached.
ObjectPtr GetConfigByBootAndContext(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                    const USERDATA_CONTEXT& context, const SchemaPtr& schema);
// The shipped default instance (user, vital and cached parts). Logs
// "Object not found: <id>" when there is none.
ObjectPtr GetDefaultConfigInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                   const SchemaPtr& schema);
// The user part of the shipped default instance only.
ObjectPtr GetDefaultUserConfigInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                       const SchemaPtr& schema);
// The user value the next boot applies; with `flag` 1 also vital and cached.
ObjectPtr GetDesiredInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                             const SchemaPtr& schema, int flag);
// The value staged with boot action "SET" for a reboot-required type.
ObjectPtr GetRebootRequiredConfigInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                          const SchemaPtr& schema);

// --- Instances ------------------------------------------------------------

// Calls `visit` with each stored instance of the type `type` names (built as
// GetConfigInstancesInternal builds them), in row order, one row at a time:
// a read of many instances holds only the row being visited. An exception of
// `visit` ends the read and reaches the caller unchanged. Throws 2000 "Read
// Instances failed for: <id>" when the statement fails.
void VisitConfigInstancesInternal(const SetvaultObjectId& type, const ConnectionPtr& conn,
                                  const SchemaPtr& schema,
                                  const std::function<void(const ObjectPtr&)>& visit);
// Every stored instance of the filter's type whose data match the filter;
// a row that shows no value gives an object holding only its instance id.
ObjectList GetConfigInstancesInternal(const std::shared_ptr<FilterSpecObject>& filter,
                                      const ConnectionPtr& conn, const SchemaPtr& schema);
// Every instance's auto-configuration and confirmed user parts.
ObjectList GetCurrentConfigInstancesInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                             const SchemaPtr& schema);
// Every shipped default instance matching the filter.
ObjectList GetDefaultConfigInstancesInternal(const std::shared_ptr<FilterSpecObject>& filter,
                                             const ConnectionPtr& conn, const SchemaPtr& schema);
// The user parts of the shipped default instances (one, when `id` names it).
ObjectList GetDefaultUserConfigInstancesInternal(const SetvaultObjectId& id,
                                                 const ConnectionPtr& conn,
                                                 const SchemaPtr& schema);
// Every instance's next-boot user value; with `flag` 1 also vital and cached.
ObjectList GetDesiredUserConfigInstancesInternal(const SetvaultObjectId& id,
                                                 const ConnectionPtr& conn,
                                                 const SchemaPtr& schema, int flag);
// Every instance staged with boot action "SET", matching the filter.
ObjectList GetRebootRequiredConfigInstancesInternal(const std::shared_ptr<FilterSpecObject>& filter,
                                                    const SchemaPtr& schema,
                                                    const ConnectionPtr& conn);

// --- Raw rows -------------------------------------------------------------

// Value, Identifier and Version of the shipped defaults of the id's type (of
// its one instance when the id names one).
StoreRows GetDefaultUserConfigMapList(const SetvaultObjectId& id, const ConnectionPtr& conn);
// Every row whose `column` (an SQL expression of the library's, never caller
// text) is not NULL, as Name, Value, AutoConfValue, Component, Identifier,
// Version, ConfigGroup, CreationTime, ModifiedTime, Revision. For the plain
// user value without `flag`, only confirmed rows (Success=1).
StoreRows GetStoreContentsInternalST(const std::string& column, const ConnectionPtr& conn,
                                     bool flag);
// Every confirmed user value of the store.
StoreRows GetUserConfigContents(const ConnectionPtr& conn);
// Every next-boot user value of the store.
StoreRows GetDesiredUserConfigContents(const ConnectionPtr& conn);
// The effective values of every type whose definition has value type
// "korvo-shared". Throws 2000 "Failed to attach schema store" when the schema
// database cannot be attached.
StoreRows GetSmartnicConfiguration(const ConnectionPtr& conn);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DB_CONFIG_READS_H_
