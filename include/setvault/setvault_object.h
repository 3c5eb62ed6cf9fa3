// SetvaultObject: one configuration object.
//
// A configuration object has an identity, JSON data with typed access (all of
// StoreObject), the metadata of its stored row (version, creation and
// modification time, revision) and sub-objects. The type's schema supplies
// the id map (which members are arrays of instances, and which member of each
// instance holds its id) and default values: getters return 2 for a value
// taken from the defaults.
//
// Sub-object handles are views into their parent's data: a change through a
// handle is a change of the parent. A handle carries the parent's version and
// creation time but no defaults (the type's defaults describe the top-level
// object): its getters never return 2. Values nest at most 512 levels deep,
// counted from the top-level object, whether they are parsed or built here.
// A handle stays usable only while its element exists; once the element is
// deleted from the parent, every access through the handle throws
// SetvaultException 2000.
//
//   KorvoSetvault::SetvaultObject vswitch(
//       KorvoSetvault::SetvaultObjectId("vswitch", "net", "korvo", "vs0"));  // sets "name"
//   auto pg = vswitch.CreateSubObject(KorvoSetvault::SubObjectId("portgroups", "mgmt"));
//   pg->SetValue("vlanId", 10);
//   vswitch.GetData();   // {"name":"vs0","portgroups":[{"name":"mgmt","vlanId":10}]}
#ifndef SETVAULT_SETVAULT_OBJECT_H_
#define SETVAULT_SETVAULT_OBJECT_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "setvault/export.h"
#include "setvault/filter_spec_object.h"
#include "setvault/json_doc.h"
#include "setvault/object_id.h"
#include "setvault/store_object.h"

namespace KorvoSetvault {

class SetvaultObjectImpl;

class SETVAULT_EXPORT SetvaultObject : public StoreObject {
 public:
  // A new, empty object of the type `id` names. Takes the id map and defaults
  // from the type's schema and, for a multi-instance type, writes the id's
  // instance id into the instance-id member. Throws SetvaultException 1037
  // when the schema store has no schema for the type, and
  // InvalidArgumentException 2000 "Instance id cannot contain a NUL byte" or
  // "Instance id must be valid UTF-8" for such an instance id.
  explicit SetvaultObject(const SetvaultObjectId& id);
  // Wraps `impl` (must not be null); the handle shares it.
  explicit SetvaultObject(const std::shared_ptr<SetvaultObjectImpl>& impl);
  ~SetvaultObject() override;

  // The stored row's version and times, unchanged ("" for a new object).
  std::string GetVersion() const;
  std::string GetCreationTime() const;
  std::string GetModifiedTime() const;
  // The stored revision; kDefaultRevision (-1) when the object has none.
  int32_t GetRevision() const;

  // The data as JSON text without generated instance ids ("sv_generated_id").
  std::string GetData() const;
  // The data as held, generated ids included: what the store writes.
  std::string GetSerializedData() const;
  // The id map as JSON text, "{}" when the object has none.
  std::string GetIdMapStr() const;

  // Replaces the member `key` with a deep copy of `value` (appended last);
  // nothing happens when the member already holds an equal value. `value`
  // may be (part of) this object's own data. Throws InvalidArgumentException
  // 2000 "key cannot be null" for a null key and "Value nested deeper than
  // 512 levels: <key>" when the copy would nest too deep, and
  // InvalidTypeException 2000 "Invalid type specified for: <key>" when
  // `value` holds NaN or an infinity; the data is then unchanged.
  void SetValueEx(const char* key, const JsonValue& value);
  // Writes the id's instance id into the member the id map names for the
  // object's key; nothing for a type without one. Throws as the constructor
  // does for an instance id with a NUL byte or invalid UTF-8.
  void SetInstanceIdFromSvoId();

  // A handle on an existing sub-object, or empty when the data lacks it.
  // Throws SetvaultException 2000 when a non-singleton id has no instance id
  // or a singleton id has one, InvalidArgumentException 2000 when a singleton
  // member is not an object.
  std::shared_ptr<SetvaultObject> GetSubObject(const SubObjectId& id) const;
  // Adds an empty sub-object (an instance holding only its id, for a
  // non-singleton key) and returns a handle on it. Throws SetvaultException
  // 2000 "Object already exists." when it exists, and
  // InvalidArgumentException 2000 "Value nested deeper than 512 levels: <key>"
  // when it would nest too deep.
  std::shared_ptr<SetvaultObject> CreateSubObject(const SubObjectId& id);
  // Removes a sub-object or one instance; absent ones are ignored (logged).
  void DeleteSubObject(const SubObjectId& id);
  // Handles on the instances of the non-singleton sub-object that
  // `filter`'s key names (only the instance `filter`'s instance id names, when
  // set) whose data match `filter`, in array order. Throws SetvaultException
  // 1046 for a key that is not a non-singleton sub-object.
  std::vector<std::shared_ptr<SetvaultObject>> GetSubObjectInstances(
      const std::shared_ptr<FilterSpecObject>& filter) const;
  // Deletes the instances GetSubObjectInstances(filter) selects.
  void DeleteSubObjectInstances(const std::shared_ptr<FilterSpecObject>& filter);

  // The JSON Pointer (RFC 6901) of member `key` of this object inside the
  // data of the configuration object it belongs to, e.g. "/net/1/name".
  std::string GetPath(const char* key) const;

  const std::shared_ptr<SetvaultObjectImpl>& GetImpl() const { return object_impl_; }

 private:
  std::shared_ptr<SetvaultObjectImpl> object_impl_;
};

// The objects of `objects` whose data contain every value `filter` states, in
// input order. An empty filter (or no filter) keeps every object.
SETVAULT_EXPORT std::vector<std::shared_ptr<SetvaultObject>> FilterSetvaultObjects(
    std::vector<std::shared_ptr<SetvaultObject>>& objects,
    const std::shared_ptr<FilterSpecObject>& filter);

}  // namespace KorvoSetvault

#endif  // SETVAULT_SETVAULT_OBJECT_H_
