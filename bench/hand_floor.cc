#include "hand_floor.h"

#include <string_view>

#include "db/object_split.h"
#include "db/statements.h"
#include "floor_sql.h"
#include "jsonschema/json_validator.h"
#include "schema/schema_store.h"
#include "validation/schema_validation.h"

namespace floor_bench {

using KorvoSetvault::JsonDocument;
using KorvoSetvault::JsonValue;
using KorvoSetvault::SetvaultObjectId;

namespace {

const KorvoSchemaStore::SchemaObject& SwitchSchemaObject() {
  static auto schema =
      KorvoSchemaStore::SchemaStore::GetStore(false)->GetSchemaObject("korvo", "net", "vswitch");
  if (!schema) Die("no vswitch schema");
  return *schema;
}

// The same compiled validator the library runs, found as the library finds it (by the schema
// object's stamp).
void RunValidator(const JsonValue& data, JsonDocument& result,
                  const KorvoSetvault::OptionSet& options) {
  const KorvoSchemaStore::SchemaObject& schema = SwitchSchemaObject();
  JsonValidator::ValidateStamped(schema.GetSchemaJson(), schema.Stamp(), data, result, options);
}

}  // namespace

const JsonValue& SwitchSchema() { return SwitchSchemaObject().GetSchemaJson(); }

namespace {

// Objects merge member by member, anything else replaces; the portgroups instance array
// merges element by element by "name".
void Merge(JsonValue& target, const JsonValue& source, KorvoSetvault::JsonAllocator& allocator) {
  for (const auto& member : source.GetObject()) {
    auto existing = target.FindMember(member.name);
    if (existing == target.MemberEnd()) {
      target.AddMember(JsonValue(member.name, allocator), JsonValue(member.value, allocator),
                       allocator);
    } else if (existing->value.IsObject() && member.value.IsObject()) {
      Merge(existing->value, member.value, allocator);
    } else if (existing->value.IsArray() && member.value.IsArray() &&
               std::string_view(member.name.GetString()) == "portgroups") {
      for (const JsonValue& element : member.value.GetArray()) {
        JsonValue* known = nullptr;
        for (JsonValue& candidate : existing->value.GetArray()) {
          if (candidate.IsObject() && element.IsObject() && candidate.HasMember("name") &&
              element.HasMember("name") && candidate["name"] == element["name"]) {
            known = &candidate;
          }
        }
        if (known) {
          Merge(*known, element, allocator);
        } else {
          existing->value.PushBack(JsonValue(element, allocator), allocator);
        }
      }
    } else {
      existing->value.CopyFrom(member.value, allocator);
    }
  }
}

void AddColumn(Decoded& decoded, sqlite3_stmt* stmt, int column) {
  const unsigned char* text = sqlite3_column_text(stmt, column);
  if (text == nullptr) return;
  const auto length = static_cast<size_t>(sqlite3_column_bytes(stmt, column));
  if (decoded.empty) {
    decoded.document.Parse(reinterpret_cast<const char*>(text), length);
    decoded.empty = false;
    return;
  }
  JsonDocument part;
  part.Parse(reinterpret_cast<const char*>(text), length);
  Merge(decoded.document, part, decoded.document.GetAllocator());
}

// Column numbers of one read's result.
struct Columns {
  int version, id, autoconf, user, vital, cached, success, creation, modified, revision;
};
// READ_TABLE_CONFIG and GET_INSTANCES.
constexpr Columns kRowColumns{0, -1, 1, 2, 3, 4, 6, 7, 8, 9};
constexpr Columns kTypeColumns{0, 2, 6, 3, 4, 5, 1, 8, 9, 10};

Decoded DecodeRow(sqlite3_stmt* stmt, const Columns& c) {
  Decoded decoded;
  AddColumn(decoded, stmt, c.vital);
  AddColumn(decoded, stmt, c.cached);
  AddColumn(decoded, stmt, c.autoconf);
  if (sqlite3_column_int(stmt, c.success) == 1) AddColumn(decoded, stmt, c.user);
  decoded.version = ColumnText(stmt, c.version).value_or("");
  if (c.id >= 0) decoded.id = ColumnText(stmt, c.id).value_or("");
  decoded.creation = ColumnText(stmt, c.creation).value_or("");
  decoded.modified = ColumnText(stmt, c.modified).value_or("");
  decoded.revision = sqlite3_column_int(stmt, c.revision);
  return decoded;
}

// The parse, validation (with `options`, same compiled validator) and split of a caller's
// text.
bool PrepareWrite(const std::string& text, const KorvoSetvault::OptionSet& options,
                  KorvoSetvault::SplitParts* parts) {
  JsonDocument data;
  data.Parse(text.c_str(), text.size());
  if (data.HasParseError()) return false;
  JsonDocument result;
  RunValidator(data, result, options);
  if (!result.IsArray() || !result.Empty()) return false;
  *parts = KorvoSetvault::SplitObjectData(data, SwitchSchema());
  return true;
}

constexpr char kWriteCompleteSql[] =
    "INSERT OR REPLACE INTO Config ( Identifier, Name, ConfigGroup, Component, Version, Success, "
    "AutoConfValue, UserValue, VitalValue, CachedValue, CreationTime, Revision ) VALUES ( ?1, ?2, "
    "?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, COALESCE( ( SELECT CreationTime FROM Config WHERE "
    "Identifier = ?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), COALESCE(?11, "
    "(DATETIME(CURRENT_TIMESTAMP))) ), COALESCE( ( SELECT Revision FROM Config WHERE Identifier = "
    "?1 AND Name = ?2 AND ConfigGroup = ?3 AND Component = ?4 ), (?12) ) + 1 )";
constexpr char kCarriedSql[] =
    "SELECT AutoConfValue, UserValue, VitalValue, CachedValue FROM Config WHERE Name = ?1 AND "
    "ConfigGroup = ?2 AND Component = ?3 AND Identifier = ?4";
constexpr char kUpdateUserSql[] =
    "UPDATE Config SET UserValue = ?, VitalValue = ?, CachedValue = ?, DesiredValue = NULL WHERE "
    "Name = ? AND ConfigGroup = ? AND Component = ? AND Identifier = ?";

}  // namespace

Hand::Hand(sqlite3* handle)
    : db(handle),
      read_(PrepareOnce(db, KorvoSetvault::READ_TABLE_CONFIG.sql())),
      instances_(PrepareOnce(db, KorvoSetvault::GET_INSTANCES.sql())),
      carried_(PrepareOnce(db, kCarriedSql)),
      write_(PrepareOnce(db, kWriteCompleteSql)),
      update_(PrepareOnce(db, kUpdateUserSql)) {}

Hand::~Hand() {
  for (sqlite3_stmt* stmt : {read_, instances_, carried_, write_, update_}) sqlite3_finalize(stmt);
}

Decoded Hand::Get(const SetvaultObjectId& id) {
  BindType(read_, 1, id);
  BindText(read_, 4, id.instanceId);
  Decoded decoded;
  if (sqlite3_step(read_) == SQLITE_ROW) decoded = DecodeRow(read_, kRowColumns);
  sqlite3_reset(read_);
  return decoded;
}

std::vector<Decoded> Hand::GetInstances(const SetvaultObjectId& type) {
  std::vector<Decoded> objects;
  BindType(instances_, 1, type);
  while (sqlite3_step(instances_) == SQLITE_ROW) {
    objects.push_back(DecodeRow(instances_, kTypeColumns));
  }
  sqlite3_reset(instances_);
  return objects;
}

void Hand::Set(const std::string& id, const std::string& text) {
  KorvoSetvault::SplitParts parts;
  if (!PrepareWrite(text, KorvoSetvault::SetOptions, &parts)) Die("invalid switch");
  BindType(carried_, 1, kSwitchType);
  BindText(carried_, 4, id);
  std::optional<std::string> autoconf;
  if (sqlite3_step(carried_) == SQLITE_ROW) autoconf = ColumnText(carried_, 0);
  sqlite3_reset(carried_);
  BindText(write_, 1, id);
  BindType(write_, 2, kSwitchType);
  sqlite3_bind_text(write_, 5, "", 0, SQLITE_STATIC);
  sqlite3_bind_int(write_, 6, 1);
  BindNullable(write_, 7, autoconf);
  BindNullable(write_, 8, parts.user);
  BindNullable(write_, 9, parts.vital);
  BindNullable(write_, 10, parts.cached);
  sqlite3_bind_null(write_, 11);
  sqlite3_bind_int(write_, 12, 0);
  if (sqlite3_step(write_) != SQLITE_DONE) Die("hand write");
  sqlite3_reset(write_);
}

void Hand::Update(const std::string& id, const std::string& text) {
  JsonDocument given;
  given.Parse(text.c_str(), text.size());
  JsonDocument result;
  RunValidator(given, result, KorvoSetvault::UpdateOptions);
  BindType(carried_, 1, kSwitchType);
  BindText(carried_, 4, id);
  JsonDocument stored;
  stored.SetObject();
  if (sqlite3_step(carried_) == SQLITE_ROW) {
    for (int column : {2, 3, 1}) {
      const auto part_text = ColumnText(carried_, column);
      if (!part_text) continue;
      JsonDocument part;
      part.Parse(part_text->c_str(), part_text->size());
      Merge(stored, part, stored.GetAllocator());
    }
  }
  sqlite3_reset(carried_);
  Merge(stored, given, stored.GetAllocator());
  RunValidator(stored, result, KorvoSetvault::SetOptions);
  if (!result.IsArray() || !result.Empty()) Die("hand update invalid");
  const auto parts = KorvoSetvault::SplitObjectData(stored, SwitchSchema());
  BindNullable(update_, 1, parts.user);
  BindNullable(update_, 2, parts.vital);
  BindNullable(update_, 3, parts.cached);
  BindType(update_, 4, kSwitchType);
  BindText(update_, 7, id);
  if (sqlite3_step(update_) != SQLITE_DONE) Die("hand update");
  sqlite3_reset(update_);
}

}  // namespace floor_bench
