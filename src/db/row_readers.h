// Shared steps of every read: running a statement into rows, turning a value
// column of a row into an object, and merging the parts of one row.
#ifndef SETVAULT_SRC_DB_ROW_READERS_H_
#define SETVAULT_SRC_DB_ROW_READERS_H_

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>

#include "db/statements.h"
#include "db/store_row.h"
#include "dbstore/db_store.h"
#include "schema/schema_store.h"
#include "setvault/setvault_object.h"

namespace KorvoSetvault {

using ConnectionPtr = std::shared_ptr<DBStore::StoreConnection>;
using SchemaPtr = std::shared_ptr<KorvoSchemaStore::SchemaObject>;
using ObjectPtr = std::shared_ptr<SetvaultObject>;

// Column names of Config rows, as the readers see them.
extern const char kVersionColumn[];
extern const char kSuccessColumn[];
extern const char kIdentifierColumn[];
extern const char kUserValueColumn[];
extern const char kVitalValueColumn[];
extern const char kCachedValueColumn[];
extern const char kAutoConfValueColumn[];
extern const char kDesiredValueColumn[];
extern const char kValueColumn[];  // the alias of default and desired values
extern const char kCreationTimeColumn[];
extern const char kModifiedTimeColumn[];
extern const char kRevisionColumn[];

// One result row as the statement delivers it, read in place: the column
// names and texts (null for SQL NULL) of a row callback, valid only while the
// callback runs. The readers below take a StoreRow or a RowView alike.
class RowView {
 public:
  RowView(int count, const char* const* texts, const char* const* names)
      : count_(count), texts_(texts), names_(names) {}

  // The text of `column`; null when the row has no such column or it is NULL.
  const char* Find(const char* column) const;
  // The row as a StoreRow that outlives the callback (as RowIntoMapCallback fills one).
  StoreRow Copy() const;

 private:
  int count_;
  const char* const* texts_;
  const char* const* names_;
};

// Runs `statement` bound with the id's key, group, component and instance id
// and calls `visit` with each row (at most one for a statement by the whole
// key), in place. Throws SetvaultException 2000 "Get failed: <id>" when the
// statement fails, and what `visit` throws.
void VisitStoreRow(const SetvaultObjectId& id, const ConnectionPtr& conn,
                   const KeyStatement4& statement,
                   const std::function<void(const RowView&)>& visit);

// Runs `statement` bound with the id's key, group, component and instance id
// into one row; an empty row when nothing matches. Throws SetvaultException
// 2000 "Get failed: <id>" when the statement fails.
StoreRow ReadStoreRow(const SetvaultObjectId& id, const ConnectionPtr& conn,
                      const KeyStatement4& statement);
// Runs `statement` bound with the id's key, group and component into rows.
// Throws 2000 "Read Instances failed for: <id>" when it fails.
StoreRows ReadStoreRows(const SetvaultObjectId& id, const ConnectionPtr& conn,
                        const KeyStatement3& statement);
// Runs a prepared statement into rows. Throws 2000 "Get store rows failed."
// when it fails (an empty statement fails).
StoreRows ReadAllRows(const ConnectionPtr& conn, const DBStore::StmtPtr& statement);

// The object held in `column` of `row`, with the row's version, times and
// revision; empty when the column is NULL. Throws InvalidArgumentException
// 1080 when the stored text is not JSON.
ObjectPtr RowToObject(const StoreRow& row, const char* column, const SetvaultObjectId& id,
                      const SchemaPtr& schema);
// The user value when the row's Success is "1"; empty otherwise.
ObjectPtr RowToConfirmedUserObject(const StoreRow& row, const SetvaultObjectId& id,
                                   const SchemaPtr& schema);
// The user value the next boot applies: the desired value when one is
// stored, otherwise the user value (confirmed or not).
ObjectPtr RowToPendingUserObject(const StoreRow& row, const SetvaultObjectId& id,
                                 const SchemaPtr& schema);
// True when the confirmed and the pending user value of the row differ (a
// desired value is stored, or the user value is not confirmed).
bool UserViewsDiffer(const StoreRow& row);
bool UserViewsDiffer(const RowView& row);
// During an upgrade the desired value (or the user value when none is
// stored); otherwise the confirmed user value.
ObjectPtr RowToCurrentUserObject(const StoreRow& row, const SetvaultObjectId& id,
                                 const SchemaPtr& schema);
// The same with the upgrade context already read: reads of many rows read it
// once per call instead of once per row.
ObjectPtr RowToCurrentUserObject(const StoreRow& row, const SetvaultObjectId& id,
                                 const SchemaPtr& schema, int upgradeCtx);

// Which column holds the user value a view shows, or null when the row shows
// none: the confirmed view (UserValue when Success is "1"), the pending view
// (DesiredValue when stored, otherwise UserValue), and the current view
// (pending during an upgrade, confirmed otherwise).
const char* ConfirmedUserColumn(const StoreRow& row);
const char* ConfirmedUserColumn(const RowView& row);
const char* PendingUserColumn(const StoreRow& row);
const char* PendingUserColumn(const RowView& row);
const char* CurrentUserColumn(const StoreRow& row, int upgradeCtx);
// The current view; reads the upgrade context only when the views differ.
const char* CurrentUserColumn(const StoreRow& row);

// One object from the value columns `columns` of `row` (null entries and
// NULL columns skipped), merged in that order with the update merge, with the
// row's metadata; empty when none is present. The same as MergeConfig of the
// columns' objects, without building an object per column.
ObjectPtr RowToMergedObject(const StoreRow& row, std::initializer_list<const char*> columns,
                            const SetvaultObjectId& id, const SchemaPtr& schema);
// The same over the `count` columns at `columns`.
ObjectPtr RowToMergedObject(const StoreRow& row, const char* const* columns, size_t count,
                            const SetvaultObjectId& id, const SchemaPtr& schema);
// The same, read in place.
ObjectPtr RowToMergedObject(const RowView& row, std::initializer_list<const char*> columns,
                            const SetvaultObjectId& id, const SchemaPtr& schema);
ObjectPtr RowToMergedObject(const RowView& row, const char* const* columns, size_t count,
                            const SetvaultObjectId& id, const SchemaPtr& schema);

// The object of a row that shows no value (its values are all NULL, or only
// an unconfirmed user value is stored): the row's metadata and the instance
// id, written into the member the type's id map names.
ObjectPtr RowToValuelessObject(const StoreRow& row, const SetvaultObjectId& id,
                               const SchemaPtr& schema);

// Applies `first`, `second` and `third` onto `base` in that order with the
// update merge and returns the result; empty parts count as empty objects.
// Empty when all four are empty. When `base` is empty the result is a new
// object with the metadata of the first part present.
ObjectPtr MergeConfig(ObjectPtr base, const ObjectPtr& first, const ObjectPtr& second,
                      const ObjectPtr& third);

// The instance id of an instance row (its "Identifier"), as an id of `type`.
SetvaultObjectId InstanceIdOfRow(const StoreRow& row, const SetvaultObjectId& type);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_DB_ROW_READERS_H_
