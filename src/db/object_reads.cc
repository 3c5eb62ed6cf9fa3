// Reads of one stored object.
#include "db/config_reads.h"

#include <array>
#include <optional>
#include <utility>
#include <vector>

#include "db/host_flags.h"
#include "db/object_cache.h"
#include "db/upgrade_ctx.h"
#include "setvault/json_doc.h"
#include "setvault/logger.h"

namespace KorvoSetvault {
namespace {

const KeyStatement4 kDesiredWithPartsSql(
    "SELECT Version, CASE Success WHEN 0 THEN UserValue ELSE DesiredValue END Value, VitalValue, "
    "CachedValue, CreationTime, ModifiedTime, Revision FROM Config WHERE Name = ? AND "
    "ConfigGroup = ? AND Component = ? AND Identifier = ? AND (Value NOT NULL OR VitalValue NOT "
    "NULL OR CachedValue NOT NULL)");

const KeyStatement4 kDesiredUserSql(
    "SELECT Version, CASE Success WHEN 0 THEN UserValue ELSE DesiredValue END Value, "
    "CreationTime, ModifiedTime, Revision FROM Config WHERE Name = ? AND ConfigGroup = ? AND "
    "Component = ? AND Identifier = ? AND Value IS NOT NULL");

const KeyStatement4 kRebootRequiredSql(
    "SELECT Version, Value as UserValue, VitalValue, CachedValue FROM DesiredUserConfig WHERE "
    "BootAction = 'SET' AND Name = ? AND ConfigGroup = ? AND Component = ? AND Identifier = ?");

// The value columns of a stored object in merge order, and the origin each
// one holds. The user column is the view the host's state selects (null when
// the row shows no user value).
constexpr size_t kStoredParts = 4;
constexpr const char* kStoredOrigins[kStoredParts] = {"vital", "cached", "auto", "user"};

std::array<const char*, kStoredParts> StoredColumns(const StoreRow& row) {
  return {kVitalValueColumn, kCachedValueColumn, kAutoConfValueColumn, CurrentUserColumn(row)};
}
// The same for a row whose user views do not differ (DecodeStoreRow reads
// only those in place).
std::array<const char*, kStoredParts> StoredColumns(const RowView& row) {
  return {kVitalValueColumn, kCachedValueColumn, kAutoConfValueColumn, ConfirmedUserColumn(row)};
}

ObjectPtr RowToStoredObject(const StoreRow& row, const SetvaultObjectId& id,
                            const SchemaPtr& schema) {
  const auto columns = StoredColumns(row);
  return RowToMergedObject(row, columns.data(), columns.size(), id, schema);
}

// Decodes the row `statement` reads for `id` with `decode` (called with a
// RowView or a StoreRow): in place, or, for a row whose user views differ,
// from a copy once the statement is done, since choosing a view may read host
// flags and so run a statement of its own.
template <typename Decode>
auto DecodeStoreRow(const SetvaultObjectId& id, const ConnectionPtr& conn,
                    const KeyStatement4& statement, Decode decode) {
  decltype(decode(StoreRow())) result{};
  std::optional<StoreRow> copy;
  VisitStoreRow(id, conn, statement, [&](const RowView& row) {
    if (UserViewsDiffer(row)) {
      copy = row.Copy();
    } else {
      result = decode(row);
    }
  });
  if (copy) result = decode(*copy);
  return result;
}

// The parsed parts RowToStoredObject merges, in merge order, with their origins.
std::vector<std::pair<std::shared_ptr<JsonDoc>, const char*>> StoredParts(const StoreRow& row) {
  const auto columns = StoredColumns(row);
  std::vector<std::pair<std::shared_ptr<JsonDoc>, const char*>> parts;
  for (size_t i = 0; i < kStoredParts; ++i) {
    auto value = columns[i] != nullptr ? row.find(columns[i]) : row.end();
    if (value != row.end()) {
      parts.emplace_back(CreateDocumentFromString(value->second), kStoredOrigins[i]);
    }
  }
  return parts;
}

std::string NameOf(const JsonValue& name) {
  return std::string(name.GetString(), name.GetStringLength());
}

ObjectPtr LogIfAbsent(ObjectPtr object, const SetvaultObjectId& id) {
  if (!object) SVLogger::Log(2, "Object not found: %s", id.toString().c_str());
  return object;
}

// During boot and upgrades writers see the pending user value where the
// schema asks for it; otherwise the confirmed one.
bool CurrentUserViewApplies(const SchemaPtr& schema) {
  if (GetUpgradeCtx() != 0) return true;
  return IsBoot() && schema && schema->UsesCurrentValueDuringBoot();
}

}  // namespace

ObjectPtr GetInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                      const SchemaPtr& schema) {
  return GetThroughObjectCache(id, conn, schema, [&] {
    return DecodeStoreRow(id, conn, READ_TABLE_CONFIG, [&](const auto& row) {
      // A row whose user views differ reads by the host's upgrade context: not cached.
      const auto columns = StoredColumns(row);
      return DecodedObject{RowToMergedObject(row, columns.data(), columns.size(), id, schema),
                           !UserViewsDiffer(row)};
    });
  });
}

std::map<std::string, std::string> GetMemberOriginsInternal(const SetvaultObjectId& id,
                                                            const ConnectionPtr& conn,
                                                            const SchemaPtr& schema) {
  std::map<std::string, std::string> origins;
  const StoreRow row = ReadStoreRow(id, conn, READ_TABLE_CONFIG);
  const ObjectPtr merged = RowToStoredObject(row, id, schema);
  if (!merged) return origins;
  const auto data = CreateDocumentFromString(merged->GetData());
  if (!data->GetJsonValuePtr()->IsObject()) return origins;
  // The merge keeps every top-level member of every part, a later part's
  // value winning: the last part that holds a member supplied it.
  const auto parts = StoredParts(row);
  for (const auto& member : data->GetJsonValuePtr()->GetObject()) {
    for (auto part = parts.rbegin(); part != parts.rend(); ++part) {
      const JsonValue& value = *part->first->GetJsonValuePtr();
      if (value.IsObject() && value.HasMember(member.name)) {
        origins.emplace(NameOf(member.name), part->second);
        break;
      }
    }
  }
  const auto defaults = schema ? schema->GetDefaults() : nullptr;
  if (defaults && defaults->GetJsonValuePtr()->IsObject()) {
    for (const auto& member : defaults->GetJsonValuePtr()->GetObject()) {
      if (!member.value.IsNull()) origins.emplace(NameOf(member.name), "default");
    }
  }
  return origins;
}

ObjectPtr GetCurrentConfigInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                   const SchemaPtr& schema) {
  const StoreRow row = ReadStoreRow(id, conn, READ_TABLE_USER_AUTO_CONFIG);
  return RowToMergedObject(row, {kAutoConfValueColumn, ConfirmedUserColumn(row)}, id, schema);
}

ObjectPtr GetConfigByBootAndContext(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                    const USERDATA_CONTEXT& context, const SchemaPtr& schema) {
  return DecodeStoreRow(id, conn, READ_TABLE_CONFIG, [&](const auto& row) {
    const char* main_column;
    if (context.kind != kExternalContext) {
      main_column = kAutoConfValueColumn;
    } else if (UserViewsDiffer(row) && CurrentUserViewApplies(schema)) {
      main_column = PendingUserColumn(row);
    } else {
      main_column = ConfirmedUserColumn(row);
    }
    return RowToMergedObject(row, {kVitalValueColumn, kCachedValueColumn, main_column}, id, schema);
  });
}

ObjectPtr GetDefaultConfigInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                   const SchemaPtr& schema) {
  const StoreRow row = ReadStoreRow(id, conn, GET_DEFAULT_INSTANCE);
  return LogIfAbsent(
      RowToMergedObject(row, {kVitalValueColumn, kCachedValueColumn, kValueColumn}, id, schema),
      id);
}

ObjectPtr GetDefaultUserConfigInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                       const SchemaPtr& schema) {
  const StoreRow row = ReadStoreRow(id, conn, GET_DEFAULT_INSTANCE);
  return LogIfAbsent(RowToObject(row, kValueColumn, id, schema), id);
}

ObjectPtr GetDesiredInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                             const SchemaPtr& schema, int flag) {
  if (flag != 1) {
    const StoreRow row = ReadStoreRow(id, conn, kDesiredUserSql);
    return RowToObject(row, kValueColumn, id, schema);
  }
  const StoreRow row = ReadStoreRow(id, conn, kDesiredWithPartsSql);
  return RowToMergedObject(row, {kVitalValueColumn, kCachedValueColumn, kValueColumn}, id, schema);
}

ObjectPtr GetRebootRequiredConfigInternal(const SetvaultObjectId& id, const ConnectionPtr& conn,
                                          const SchemaPtr& schema) {
  const StoreRow row = ReadStoreRow(id, conn, kRebootRequiredSql);
  return RowToMergedObject(row, {kVitalValueColumn, kCachedValueColumn, kUserValueColumn}, id,
                           schema);
}

}  // namespace KorvoSetvault
