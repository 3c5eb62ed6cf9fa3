// Setvault: the configuration store.
//
// A caller opens a store, then reads and writes configuration objects through
// it. Reads never open a transaction.
//
// Writes and transactions: one rule holds for every write operation (Set,
// SetUserData, SetVitalData, SetCachedData, Update, Delete, DeleteInstances,
// SetInstances, SetUserDataInstances, SetCachedDataInstances,
// SetVitalDataInstances and the conditional SetIfRevision, UpdateIfRevision
// and SetInstancesIfRevisions): a write is all or nothing.
//  - Outside a transaction it runs in a transaction of its own, committed
//    before it returns.
//  - Inside the caller's transaction (BeginTransaction or a
//    SetvaultTransaction) its writes join that transaction, which commits or
//    rolls them back with the rest. When it fails, it undoes its own writes
//    only and throws: the caller's transaction stays open and usable, with
//    every earlier write still in it, and the caller decides whether to
//    commit or cancel.
//  - When the host has change notification on, its management daemon is told
//    of a write (of an allowlisted type) once the outermost transaction that
//    holds it has committed: once per type and commit, never for a
//    transaction that rolls back. A notification that cannot be sent is
//    logged and never fails the write.
//
//   auto store = KorvoSetvault::Setvault::GetStore("");
//   {
//     KorvoSetvault::SetvaultTransaction transaction(store);
//     store->Set(object, KorvoSetvault::USERDATA_CONTEXT{});
//     transaction.Commit();          // without Commit, the destructor rolls back
//   }
//   auto stored = store->Get(KorvoSetvault::SetvaultObjectId("host", "system", "korvo"));
//
// A store is used by one thread at a time. All stores of one thread share
// that thread's database connection, and so its transaction state.
//
// Processes: many processes may share one store file. An operation that finds
// the store locked by another process past the busy time-out (3 s) throws
// StoreBusyException (exceptions.h). A forked child may go on using its
// stores, old handles included: it gets connections of its own. fork() waits
// (up to 3 s) for other threads' store operations and transactions to end;
// when one is still open then, or the forking thread is inside one, the child
// must not touch the store, and every store use in it throws
// SetvaultException 2000 with the cause in its detailed message. The parent's
// transaction stays the parent's.
#ifndef SETVAULT_SETVAULT_STORE_H_
#define SETVAULT_SETVAULT_STORE_H_

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "setvault/exceptions.h"
#include "setvault/export.h"
#include "setvault/filter_spec_object.h"
#include "setvault/object_id.h"
#include "setvault/setvault_object.h"
#include "setvault/user_context.h"

namespace KorvoSetvault {

// The only namespace GetStore accepts: the empty string.
SETVAULT_EXPORT extern const std::string sGlobalNamespace;

// The next-boot store: configuration of types tagged "@rebootRequiredSetvault",
// staged for the next boot of the host (Setvault::GetNextBootStore hands it
// out). Each staged object is one pending action per instance: a value to set
// or a deletion; a later action of the same instance replaces the earlier one.
//
//   auto next_boot = store->GetNextBootStore();
//   next_boot->Set(scheduler);       // applied at the next boot
//   auto staged = next_boot->Get(scheduler->GetSetvaultObjectId());
//
// Every operation refuses a type without the tag (ValidationException 2000)
// before touching the database. Each write is one transaction of its own on
// the store's connection (nested in the caller's when one is open); while
// the host is being remediated ("BOOT_MODE" is "1") every write throws
// SetvaultException 2000 "Korvo host is being remediated by QCM, cannot set
// next-boot configuration." and changes nothing; after a successful set or
// delete "BOOT_MODE" holds "4". A handle keeps only the connection alive.
class SETVAULT_EXPORT NextBootStore {
 public:
  // The value staged with "SET" for `id`, or empty when none is staged.
  // Throws 1037 for a type without schema and ValidationException 2000 when
  // the instance id does not fit the type.
  virtual std::shared_ptr<SetvaultObject> Get(const SetvaultObjectId& id) = 0;
  // Stages the object (split into its user, vital and cached parts) to be set
  // at the next boot. Returns quietly for an empty pointer; throws
  // ValidationException 1089 (with every finding) for invalid data and 2000
  // for an empty object.
  virtual void Set(std::shared_ptr<SetvaultObject> object) = 0;
  // Stages the deletion of the object (of its instance, for a multi-instance
  // type). The row records the schema's version.
  virtual void Delete(const SetvaultObjectId& id) = 0;
  // Drops every staged action of the type `id` names (any instance id is
  // ignored). Writes no boot-mode mark.
  virtual void Reset(const SetvaultObjectId& id) = 0;
  // Stages every object of one multi-instance type in one transaction.
  // Empty pointers are skipped; throws InvalidArgumentException 1061 when
  // none is left and 1062 for mixed types, and validates every object before
  // anything is written.
  virtual void SetInstances(std::vector<std::shared_ptr<SetvaultObject>> objects) = 0;
  // The staged "SET" values of the filter's type that match the filter, in
  // database order; empty for an empty pointer.
  virtual std::vector<std::shared_ptr<SetvaultObject>> GetInstances(
      const std::shared_ptr<FilterSpecObject>& filter) = 0;
  // Stages the deletion of the instances the filter names: the one its id
  // names when it carries an instance id and no criteria; otherwise every
  // instance, stored or staged with "SET", whose value matches the filter
  // (the staged value where one is staged). Returns quietly for an empty
  // pointer.
  virtual void DeleteInstances(const std::shared_ptr<FilterSpecObject>& filter) = 0;

 protected:
  // Not virtual, so that the seven operations keep the first slots; a handle
  // is owned only by the shared pointer that made it with its concrete type.
  ~NextBootStore() = default;
};

class SETVAULT_EXPORT Setvault {
 public:
  // A new store on the calling thread's connection to the configured store
  // database. Throws InvalidArgumentException 2000 "Invalid value for
  // namespace." for any namespace but "", and SetvaultException 2000 "Failed
  // to connect to database" when the database cannot be used; its
  // GetDetailedMessage() then names the path and the cause. Which files are
  // refused, which are read-only and when the file is created: see
  // SetStorePath (setvault/host_setup.h). A file missing here is not created:
  // reads through the store then throw the same 2000 (detail "does not
  // exist"), and its first write creates it.
  static std::shared_ptr<Setvault> GetStore(const std::string& nameSpace);

  // A new next-boot store on this store's connection. Throws
  // ValidationException 2000 "NextBootStore is not supported during the
  // upgrade or boot phase" (with no findings) during an upgrade or while the
  // host boots.
  virtual std::shared_ptr<NextBootStore> GetNextBootStore() = 0;
  // The stored object (all its origins merged), or empty when none is stored.
  // The result is the caller's own object; an object read again while the
  // store is unchanged comes from a per-connection cache (see
  // SetObjectCacheEnabled in host_setup.h). Throws SetvaultException 1037 for
  // a type without schema and ValidationException 2000 when the instance id
  // does not fit the type.
  virtual std::shared_ptr<SetvaultObject> Get(const SetvaultObjectId& id) = 0;
  // The shipped default of an object, or empty.
  virtual std::shared_ptr<SetvaultObject> GetDefaultConfig(const SetvaultObjectId& id) = 0;
  // The shipped default instances matching `filter`; empty for no filter.
  virtual std::vector<std::shared_ptr<SetvaultObject>> GetDefaultConfigInstances(
      const std::shared_ptr<FilterSpecObject>& filter) = 0;
  // The instance ids stored for the type `id` names, in database order.
  virtual std::vector<std::string> GetInstanceIds(const SetvaultObjectId& id) = 0;
  // Writes; each is all or nothing, inside or outside a caller's
  // transaction (see the top of this file).
  virtual void Set(std::shared_ptr<SetvaultObject> object, const USERDATA_CONTEXT& context) = 0;
  virtual void SetUserData(std::shared_ptr<SetvaultObject> object,
                           const USERDATA_CONTEXT& context) = 0;
  virtual void SetVitalData(std::shared_ptr<SetvaultObject> object) = 0;
  virtual void SetCachedData(std::shared_ptr<SetvaultObject> object) = 0;
  virtual void Update(std::shared_ptr<SetvaultObject> object, const USERDATA_CONTEXT& context) = 0;
  virtual void Delete(const SetvaultObjectId& id) = 0;
  virtual void DeleteInstances(const std::shared_ptr<FilterSpecObject>& filter) = 0;
  // The stored instances of the filter's type whose data match the filter, in
  // database order; empty for no filter.
  virtual std::vector<std::shared_ptr<SetvaultObject>> GetInstances(
      const std::shared_ptr<FilterSpecObject>& filter) = 0;
  virtual void SetInstances(std::vector<std::shared_ptr<SetvaultObject>> objects,
                            const USERDATA_CONTEXT& context) = 0;
  virtual void SetUserDataInstances(std::vector<std::shared_ptr<SetvaultObject>> objects,
                                    const USERDATA_CONTEXT& context) = 0;
  virtual void SetCachedDataInstances(std::vector<std::shared_ptr<SetvaultObject>> objects) = 0;
  virtual void SetVitalDataInstances(std::vector<std::shared_ptr<SetvaultObject>> objects) = 0;
  // The stored revision of an object; -1 when none is stored.
  virtual int GetRevision(const SetvaultObjectId& id) = 0;
  // (instance id, revision) of each stored instance (only the one `id` names,
  // when it names one), in database order.
  virtual std::vector<std::pair<std::string, int>> GetInstancesRevision(
      const SetvaultObjectId& id) = 0;
  // Begins a transaction (or one more nesting level). Returns 0 on success
  // and the database layer's code otherwise; never throws.
  virtual int BeginTransaction() = 0;
  // Commits one level; the outermost level commits to disk. Returns 0; throws
  // SetvaultException 2000 "Commit transaction failed." when the commit fails.
  virtual int CommitTransaction() = 0;
  // Rolls the outermost transaction back. Cancelling a nested level is a
  // programming error that ends the process.
  virtual int CancelTransaction() noexcept = 0;
  // Every violation of the object against its type's schema, with its path;
  // empty when valid (and for no object). Writes nothing.
  virtual std::vector<ErrorInfo> Validate(std::shared_ptr<SetvaultObject> object) = 0;

  // Conditional writes (compare-and-set), for a caller that reads an object,
  // decides and writes it back: the write of Set, Update or SetInstances, done
  // only while the stored revision is still the one the caller read
  // (GetRevision or SetvaultObject::GetRevision; kDefaultRevision, -1, for
  // "not stored"). The check and the write are one step of one transaction:
  // no other writer, of this process or another, comes in between. On a
  // difference nothing of the call is written and RevisionConflictException
  // (1105) names both revisions; inside a caller's transaction that
  // transaction stays usable, as after any failed write. Every other check
  // and failure is the plain operation's.
  //
  //   auto read = store->Get(id);
  //   ... decide, change `read` ...
  //   store->SetIfRevision(read, read->GetRevision(), context);
  //
  // Writes that raise the revision: every Set, SetUserData, SetVitalData,
  // SetCachedData and SetInstances, a creation, and UpdateIfRevision (which,
  // unlike Update, raises it by one when it changes a stored object). A plain
  // Update, a boot-status confirmation and the clearing of one column keep the
  // revision, so a conditional write does not notice them; a deletion reads
  // as -1.
  virtual void SetIfRevision(std::shared_ptr<SetvaultObject> object, int expectedRevision,
                             const USERDATA_CONTEXT& context) = 0;
  // Update under the rule above. An object without data writes nothing and
  // checks nothing, as Update.
  virtual void UpdateIfRevision(std::shared_ptr<SetvaultObject> object, int expectedRevision,
                                const USERDATA_CONTEXT& context) = 0;
  // SetInstances under the rule above, checking every instance that
  // `expectedRevisions` names (instance id to the revision read, -1 for "not
  // stored"), whether or not the list writes it; instances of the list it
  // does not name are written without a check.
  virtual void SetInstancesIfRevisions(std::vector<std::shared_ptr<SetvaultObject>> objects,
                                       const std::map<std::string, int>& expectedRevisions,
                                       const USERDATA_CONTEXT& context) = 0;
  virtual ~Setvault();
};

// Which origin supplied each top-level member of the object that
// Setvault::Get(id) returns on the calling thread's connection: "vital",
// "cached", "auto" (auto-configuration) or "user". Get merges the stored
// origins in that order, a later origin's value winning, so a member held by
// several origins is named after the last of them (a sub-object merged from
// several origins too; the pending user value Get shows during an upgrade
// counts as "user"). Each member with a non-null value in the type's defaults
// that no origin stores maps to "default". Empty when nothing is stored.
// Reads as Get does and throws what Get throws: SetvaultException 1037 for a
// type without schema, ValidationException 2000 when the instance id does not
// fit the type, and SetvaultException 2000 when the store cannot be read (a
// missing store file included: reads never create it).
//
//   auto origins = KorvoSetvault::GetMemberOrigins(
//       KorvoSetvault::SetvaultObjectId("host", "system", "korvo"));
//   // {"hostname": "user", "systemUuid": "vital", "timezone": "default"}
SETVAULT_EXPORT std::map<std::string, std::string> GetMemberOrigins(const SetvaultObjectId& id);

// Scoped transaction: begins in the constructor, rolls back in the
// destructor unless Commit() or Cancel() ran. Holds a reference to the
// caller's store pointer, which must outlive the guard.
//
// Guards nest: an inner guard opens one more level of the transaction the
// outer one holds. When an exception leaves the scope of an inner guard that
// did not commit (a ValidationException of a write, for example), its
// destructor does not cancel through CancelTransaction, whose nested form
// ends the process: it dooms the enclosing transaction instead and lets the
// exception reach the caller. The outer Commit() then throws
// SetvaultException 2000 "Commit transaction failed." and nothing of the
// transaction is written. Leaving an inner scope normally without Commit()
// cancels a nested level, which stays a programming error that ends the
// process.
//
//   SetvaultTransaction outer(store);
//   try {
//     SetvaultTransaction inner(store);
//     store->Set(object, context);   // throws ValidationException 1089
//     inner.Commit();
//   } catch (const ValidationException&) {
//     // `outer` is doomed: its Commit() throws, and its destructor rolls back.
//   }
class SETVAULT_EXPORT SetvaultTransaction {
 public:
  // Throws SetvaultException 2000 "Failed to use NULL as the store" for an
  // empty store and "Failed to start a transaction." when begin fails.
  explicit SetvaultTransaction(std::shared_ptr<Setvault>& store);
  ~SetvaultTransaction();
  SetvaultTransaction(const SetvaultTransaction&) = delete;
  SetvaultTransaction& operator=(const SetvaultTransaction&) = delete;

  // Commits; throws as Setvault::CommitTransaction (the destructor then rolls
  // back).
  int Commit();
  // Rolls back now.
  int Cancel();

 private:
  std::shared_ptr<Setvault>& store_;
  bool active_;     // true while this guard owns an open transaction
  int uncaught_;    // std::uncaught_exceptions() when the guard was made
};

}  // namespace KorvoSetvault

#endif  // SETVAULT_SETVAULT_STORE_H_
