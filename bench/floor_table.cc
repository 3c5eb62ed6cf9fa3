// The store's operations beside their floor, interleaved in one process, printed as a
// Markdown table of medians.
//
// The floor of an operation is the same work written by hand: the same SQL on the sqlite3 C
// API with statements prepared once, the same RapidJSON parsing, merging and serialization,
// and for writes the same compiled validator and split into value columns. Each repetition
// times the library and then the floor (the order alternates between repetitions) on the
// same store file through connections with the same settings; the table reports the median
// time per operation over the repetitions.
//
// Reads run twice: with the schema database written long ago (its time stamps set an hour
// back) and written just before the repetition (one untimed call first lets the schema store
// notice the change; the timed calls then run in the seconds after a load). Writes and
// reads also run against stores holding few and many instances of the type, to show that
// their cost follows the objects handled and not the objects stored.
//
// Run: floor_table [repetitions (at least 7)] [only operations holding this text] > table.md
// (bench/run.sh does this)
#include <sqlite3.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "db/object_split.h"
#include "db/statements.h"
#include "platform/db_store.h"
#include "platform/json_validator.h"
#include "platform/schema_store.h"
#include "setvault/host_setup.h"
#include "setvault/json_doc.h"
#include "setvault/logger.h"
#include "setvault/schema_setup.h"
#include "setvault/setvault_object.h"
#include "setvault/setvault_store.h"
#include "validation/schema_validation.h"

namespace {

using KorvoSetvault::JsonDocument;
using KorvoSetvault::JsonValue;
using KorvoSetvault::SetvaultObject;
using KorvoSetvault::SetvaultObjectId;
using ObjectList = std::vector<std::shared_ptr<SetvaultObject>>;

// --- Data ------------------------------------------------------------------------------

// A host object of about 500 bytes over four value columns.
constexpr char kHostVital[] =
    R"({"systemUuid":"4c4c4544-0042-3510-8052-b4c04f4e3232","installDate":"2026-01-15T08:30:00Z"})";
constexpr char kHostCached[] =
    R"({"cpuModel":"Example CPU 7763 64-Core Processor","memoryBytes":549755813888,)"
    R"("bmc":{"address":"10.20.30.40","firmware":"2.18.1"}})";
constexpr char kHostAuto[] =
    R"({"timezone":"Europe/Berlin","ntp":{"enabled":true,"servers":["0.pool.example.org",)"
    R"("1.pool.example.org"]}})";
constexpr char kHostUser[] =
    R"({"hostname":"host-017.rack-04.dc1.example.org","powerPolicy":"performance",)"
    R"("ntp":{"servers":["ntp1.example.org","ntp2.example.org"]},)"
    R"("syslog":{"remoteHost":"logs.example.org","level":"info","rotation":{"sizeKiB":4096,"keep":8}}})";

std::string Name(int i) { return "vs" + std::to_string(i); }

std::string SwitchJson(const std::string& name, int mtu) {
  return R"({"name":")" + name + R"(","mtu":)" + std::to_string(mtu) +
         R"(,"uplinks":["nic0","nic1"],"teaming":{"policy":"failover","notifySwitches":true},)"
         R"("portgroups":[{"name":"mgmt","vlanId":10,"activePorts":3},{"name":"vm","vlanId":20}]})";
}
std::string UpdateJson(const std::string& name, int mtu) {
  return R"({"name":")" + name + R"(","mtu":)" + std::to_string(mtu) +
         R"(,"teaming":{"notifySwitches":false}})";
}
constexpr char kStoredVital[] = R"({"uplinks":["nic0"]})";

const SetvaultObjectId kHost("host", "system", "korvo");
const SetvaultObjectId kSwitchType("vswitch", "net", "korvo");

[[noreturn]] void Die(const std::string& what) {
  std::fprintf(stderr, "floor_table: %s\n", what.c_str());
  std::exit(1);
}

void Exec(sqlite3* db, const std::string& sql) {
  char* message = nullptr;
  if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
    Die(sql + ": " + (message ? message : "?"));
  }
}

sqlite3_stmt* PrepareOnce(sqlite3* db, std::string_view sql) {
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v3(db, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT,
                         &stmt, nullptr) != SQLITE_OK) {
    Die(std::string("prepare: ") + sqlite3_errmsg(db));
  }
  return stmt;
}

void BindText(sqlite3_stmt* stmt, int index, const std::string& text) {
  sqlite3_bind_text(stmt, index, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
}
void BindNullable(sqlite3_stmt* stmt, int index, const std::optional<std::string>& text) {
  if (text) {
    BindText(stmt, index, *text);
  } else {
    sqlite3_bind_null(stmt, index);
  }
}
void BindType(sqlite3_stmt* stmt, int first, const SetvaultObjectId& type) {
  BindText(stmt, first, type.key);
  BindText(stmt, first + 1, type.group);
  BindText(stmt, first + 2, type.component);
}
std::optional<std::string> ColumnText(sqlite3_stmt* stmt, int column) {
  const unsigned char* text = sqlite3_column_text(stmt, column);
  if (text == nullptr) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(text),
                     static_cast<size_t>(sqlite3_column_bytes(stmt, column)));
}

// --- Files -----------------------------------------------------------------------------

struct Files {
  std::string dir;
  std::string schema;
  std::string Store(const std::string& name) const { return dir + "/" + name + ".db"; }
};

Files& TheFiles() {
  static Files files = [] {
    Files made;
    std::string pattern = "/tmp/setvault-floor-XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) Die("mkdtemp");
    made.dir = pattern;
    made.schema = made.dir + "/schema.db";
    return made;
  }();
  return files;
}

void Insert(sqlite3* db, const SetvaultObjectId& id, const std::string& user, const char* vital,
            const char* cached, const char* autoconf) {
  static const char kSql[] =
      "INSERT INTO Config (Name, ConfigGroup, Component, Identifier, Version, UserValue, "
      "VitalValue, CachedValue, AutoConfValue) VALUES (?1, ?2, ?3, ?4, '1.0', ?5, ?6, ?7, ?8)";
  static std::unordered_map<sqlite3*, sqlite3_stmt*> statements;  // one per store, kept
  sqlite3_stmt*& stmt = statements[db];
  if (stmt == nullptr) stmt = PrepareOnce(db, kSql);
  BindType(stmt, 1, id);
  BindText(stmt, 4, id.instanceId);
  BindText(stmt, 5, user);
  const char* rest[] = {vital, cached, autoconf};
  for (int i = 0; i < 3; ++i) {
    if (rest[i]) {
      sqlite3_bind_text(stmt, 6 + i, rest[i], -1, SQLITE_STATIC);
    } else {
      sqlite3_bind_null(stmt, 6 + i);
    }
  }
  if (sqlite3_step(stmt) != SQLITE_DONE) Die("insert");
  sqlite3_reset(stmt);
}

// A store with the host object and `switches` vswitch instances, with the library's tables
// (made by opening it through the library once).
void MakeStore(const std::string& path, int switches) {
  KorvoSetvault::SetStorePath(path);
  auto conn = DBStore::GetConnection(DBStore::kConfigStore, true);
  if (!conn) Die("cannot open " + path);
  sqlite3* db = DBStore::GetSqliteHandle(*conn);
  Exec(db, "BEGIN");
  Insert(db, kHost, kHostUser, kHostVital, kHostCached, kHostAuto);
  for (int i = 0; i < switches; ++i) {
    Insert(db, SetvaultObjectId("vswitch", "net", "korvo", Name(i)), SwitchJson(Name(i), 1500),
           kStoredVital, nullptr, nullptr);
  }
  Exec(db, "COMMIT");
}

// One store file with its library handle and its hand-run connection (same settings).
struct Side {
  std::string path;
  std::shared_ptr<KorvoSetvault::Setvault> store;
  sqlite3* hand = nullptr;
};

Side OpenSide(const std::string& name, int switches) {
  Side side;
  side.path = TheFiles().Store(name);
  MakeStore(side.path, switches);
  side.store = KorvoSetvault::Setvault::GetStore("");
  if (sqlite3_open_v2(side.path.c_str(), &side.hand, SQLITE_OPEN_READWRITE, nullptr) !=
      SQLITE_OK) {
    Die("open " + side.path);
  }
  Exec(side.hand, "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL");
  sqlite3_busy_timeout(side.hand, DBStore::kBusyTimeoutMs);
  return side;
}

// Makes `side` the store the library's own lookups (host flags) go to, and reads once so
// that the thread's connection is open before anything is timed.
void Use(const Side& side) {
  KorvoSetvault::SetStorePath(side.path);
  side.store->Get(kHost);
}

// --- Schema database age -----------------------------------------------------------------

enum class SchemaAge { kOld, kJustLoaded };

// Leaves the schema database as a host finds it: written long ago, or just now.
void AgeSchemaDatabase(SchemaAge age, const Side& side) {
  const std::string& path = TheFiles().schema;
  if (age == SchemaAge::kJustLoaded) {
    sqlite3* db = nullptr;
    if (sqlite3_open(path.c_str(), &db) != SQLITE_OK) Die("open schema database");
    // A real change (trailing blank added or taken away) on one row.
    Exec(db,
         "UPDATE SmartnicSchema SET Definition = CASE WHEN Definition LIKE '% ' THEN "
         "rtrim(Definition) ELSE Definition || ' ' END WHERE rowid = (SELECT min(rowid) FROM "
         "SmartnicSchema)");
    sqlite3_close(db);
  } else {
    struct timespec times[2];
    clock_gettime(CLOCK_REALTIME, &times[0]);
    times[0].tv_sec -= 3600;
    times[1] = times[0];
    utimensat(AT_FDCWD, path.c_str(), times, 0);
  }
  side.store->Get(kHost);  // the schema store notices a change here, untimed
}

// --- The hand-written floors ------------------------------------------------------------

const JsonValue& SwitchSchema() {
  static auto schema =
      KorvoSchemaStore::SchemaStore::GetStore(false)->GetSchemaObject("korvo", "net", "vswitch");
  if (!schema) Die("no vswitch schema");
  return schema->GetSchemaJson();
}

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

// One decoded row: its columns parsed and merged in merge order, with its metadata.
struct Decoded {
  JsonDocument document;
  std::string version, id, creation, modified;
  int revision = -1;
  bool empty = true;
};

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
  JsonValidator::Validate(SwitchSchema(), data, result, options, "");
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

// The hand-run statements of one store.
struct Hand {
  explicit Hand(sqlite3* handle)
      : db(handle),
        read(PrepareOnce(db, KorvoSetvault::READ_TABLE_CONFIG.sql())),
        instances(PrepareOnce(db, KorvoSetvault::GET_INSTANCES.sql())),
        carried(PrepareOnce(db, kCarriedSql)),
        write(PrepareOnce(db, kWriteCompleteSql)),
        update(PrepareOnce(db, kUpdateUserSql)) {}
  ~Hand() {
    for (sqlite3_stmt* stmt : {read, instances, carried, write, update}) sqlite3_finalize(stmt);
  }

  Decoded Get(const SetvaultObjectId& id) {
    BindType(read, 1, id);
    BindText(read, 4, id.instanceId);
    Decoded decoded;
    if (sqlite3_step(read) == SQLITE_ROW) decoded = DecodeRow(read, kRowColumns);
    sqlite3_reset(read);
    return decoded;
  }

  std::vector<Decoded> GetInstances(const SetvaultObjectId& type) {
    std::vector<Decoded> objects;
    BindType(instances, 1, type);
    while (sqlite3_step(instances) == SQLITE_ROW) {
      objects.push_back(DecodeRow(instances, kTypeColumns));
    }
    sqlite3_reset(instances);
    return objects;
  }

  // Set of one switch: validate and split, read the columns carried over, write the row.
  void Set(const std::string& id, const std::string& text) {
    KorvoSetvault::SplitParts parts;
    if (!PrepareWrite(text, KorvoSetvault::SetOptions, &parts)) Die("invalid switch");
    BindType(carried, 1, kSwitchType);
    BindText(carried, 4, id);
    std::optional<std::string> autoconf;
    if (sqlite3_step(carried) == SQLITE_ROW) autoconf = ColumnText(carried, 0);
    sqlite3_reset(carried);
    BindText(write, 1, id);
    BindType(write, 2, kSwitchType);
    sqlite3_bind_text(write, 5, "", 0, SQLITE_STATIC);
    sqlite3_bind_int(write, 6, 1);
    BindNullable(write, 7, autoconf);
    BindNullable(write, 8, parts.user);
    BindNullable(write, 9, parts.vital);
    BindNullable(write, 10, parts.cached);
    sqlite3_bind_null(write, 11);
    sqlite3_bind_int(write, 12, 0);
    if (sqlite3_step(write) != SQLITE_DONE) Die("hand write");
    sqlite3_reset(write);
  }

  // Update of one switch: validate the given members, merge them into the stored parts,
  // validate the result, split it and update the row in place.
  void Update(const std::string& id, const std::string& text) {
    JsonDocument given;
    given.Parse(text.c_str(), text.size());
    JsonDocument result;
    JsonValidator::Validate(SwitchSchema(), given, result, KorvoSetvault::UpdateOptions, "");
    BindType(carried, 1, kSwitchType);
    BindText(carried, 4, id);
    JsonDocument stored;
    stored.SetObject();
    if (sqlite3_step(carried) == SQLITE_ROW) {
      for (int column : {2, 3, 1}) {
        const auto part_text = ColumnText(carried, column);
        if (!part_text) continue;
        JsonDocument part;
        part.Parse(part_text->c_str(), part_text->size());
        Merge(stored, part, stored.GetAllocator());
      }
    }
    sqlite3_reset(carried);
    Merge(stored, given, stored.GetAllocator());
    JsonValidator::Validate(SwitchSchema(), stored, result, KorvoSetvault::SetOptions, "");
    if (!result.IsArray() || !result.Empty()) Die("hand update invalid");
    const auto parts = KorvoSetvault::SplitObjectData(stored, SwitchSchema());
    BindNullable(update, 1, parts.user);
    BindNullable(update, 2, parts.vital);
    BindNullable(update, 3, parts.cached);
    BindType(update, 4, kSwitchType);
    BindText(update, 7, id);
    if (sqlite3_step(update) != SQLITE_DONE) Die("hand update");
    sqlite3_reset(update);
  }

  sqlite3* db;
  sqlite3_stmt* read;
  sqlite3_stmt* instances;
  sqlite3_stmt* carried;
  sqlite3_stmt* write;
  sqlite3_stmt* update;
};

// --- Timing -------------------------------------------------------------------------------

// One operation timed on both sides. `prepare` runs untimed before each side's timed calls
// (and `finish` after them); `run` is called `calls` times.
struct Timed {
  std::function<void()> prepare;
  std::function<void(int)> run;  // the call's number
  std::function<void()> finish;
};

struct Comparison {
  std::string operation;
  int calls;
  Timed library;
  Timed floor;
  std::string target;  // the ratio aimed at, for the table
};

double TimeSide(const Timed& side, int calls) {
  if (side.prepare) side.prepare();
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < calls; ++i) side.run(i);
  const auto end = std::chrono::steady_clock::now();
  if (side.finish) side.finish();
  return std::chrono::duration<double, std::micro>(end - start).count() / calls;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t n = values.size();
  return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

struct Result {
  std::string operation;
  double library, floor;
  std::string target;
};

Result Measure(const Comparison& comparison, int repetitions) {
  std::vector<double> library, floor;
  for (int r = 0; r < repetitions; ++r) {
    if (r % 2 == 0) {
      library.push_back(TimeSide(comparison.library, comparison.calls));
      floor.push_back(TimeSide(comparison.floor, comparison.calls));
    } else {
      floor.push_back(TimeSide(comparison.floor, comparison.calls));
      library.push_back(TimeSide(comparison.library, comparison.calls));
    }
  }
  std::fprintf(stderr, "%-60s %10.2f %10.2f\n", comparison.operation.c_str(), Median(library),
               Median(floor));
  return {comparison.operation, Median(library), Median(floor), comparison.target};
}

std::string Micros(double value) {
  char text[32];
  std::snprintf(text, sizeof text, value >= 1000 ? "%.0f" : value >= 10 ? "%.1f" : "%.2f",
                value);
  return text;
}

// The operations run against stores of several sizes: the library's time at each size, and
// its growth and its floor's from the smallest to the largest store.
void PrintGrowth(const std::vector<Result>& results) {
  const std::string marker = " stored)";
  std::vector<std::string> order;
  struct Point {
    std::string stored;
    double library, floor;
  };
  std::unordered_map<std::string, std::vector<Point>> sizes;
  for (const Result& result : results) {
    const size_t open = result.operation.rfind(" (");
    if (open == std::string::npos || result.operation.size() < marker.size() ||
        result.operation.compare(result.operation.size() - marker.size(), marker.size(),
                                 marker) != 0) {
      continue;
    }
    const std::string base = result.operation.substr(0, open);
    const std::string size = result.operation.substr(
        open + 2, result.operation.size() - open - 2 - marker.size());
    if (sizes.find(base) == sizes.end()) order.push_back(base);
    sizes[base].push_back({size, result.library, result.floor});
  }
  if (order.empty()) return;
  std::printf("\n| Operation (library) | Stored: time (µs/op) | Largest / smallest | "
              "Floor: largest / smallest |\n");
  std::printf("|---|---|---:|---:|\n");
  for (const std::string& base : order) {
    const auto& points = sizes[base];
    if (points.size() < 2) continue;
    std::string cells;
    for (const auto& point : points) {
      if (!cells.empty()) cells += ", ";
      cells += point.stored + ": " + Micros(point.library);
    }
    std::printf("| %s | %s | %.2f | %.2f |\n", base.c_str(), cells.c_str(),
                points.back().library / points.front().library,
                points.back().floor / points.front().floor);
  }
}

}  // namespace

// --- The suite ----------------------------------------------------------------------------

int main(int argc, char** argv) {
  const int repetitions = argc > 1 ? std::max(7, std::atoi(argv[1])) : 7;
  KorvoSetvault::SVLogger::SetCallbackSink([](int, const std::string&) {});
  Files& files = TheFiles();
  KorvoSetvault::SetSchemaStorePath(files.schema);
  KorvoSetvault::SetStorePath(files.Store("defaults"));  // loading writes shipped defaults
  if (KorvoSetvault::LoadSchemaDefinitions(SETVAULT_SOURCE_DIR "/examples/schemas") == 0) {
    Die("no example schemas under " SETVAULT_SOURCE_DIR);
  }
  constexpr int kInstances = 10000;
  Side main_side = OpenSide("main", kInstances);
  Side few = OpenSide("few", 100);
  Side thousand = OpenSide("thousand", 1000);
  Side many = OpenSide("many", 100000);
  const KorvoSetvault::USERDATA_CONTEXT external{KorvoSetvault::kExternalContext};

  std::vector<Result> results;
  // An optional second argument runs only the operations whose name holds it (for perf).
  const std::string only = argc > 2 ? argv[2] : "";
  auto add = [&](Comparison comparison) {
    if (comparison.operation.find(only) == std::string::npos) return;
    results.push_back(Measure(comparison, repetitions));
  };

  // Reads of the host object and of 10,000 instances, in both schema database ages.
  for (SchemaAge age : {SchemaAge::kOld, SchemaAge::kJustLoaded}) {
    const std::string when =
        age == SchemaAge::kOld ? " (schema db loaded long ago)" : " (schema db just loaded)";
    Hand hand(main_side.hand);
    auto aged = [&, age] {
      Use(main_side);
      AgeSchemaDatabase(age, main_side);
    };
    auto floor_get = Timed{nullptr, [&](int) {
                             Decoded decoded = hand.Get(kHost);
                             if (decoded.empty) Die("no host row");
                           }};
    for (bool cached : {true, false}) {
      add({std::string("Get, ") + (cached ? "repeated (object cache)" : "object cache off") +
               when,
           2000,
           {[&, aged, cached] {
              KorvoSetvault::SetObjectCacheEnabled(cached);
              aged();
            },
            [&](int) {
              if (!main_side.store->Get(kHost)) Die("no host object");
            },
            [] { KorvoSetvault::SetObjectCacheEnabled(true); }},
           floor_get,
           cached ? "<= 0.6" : "<= 1.3"});
    }
    // Objects not in the cache: 10,000 instances read in turn, more than the cache keeps.
    std::vector<SetvaultObjectId> ids;
    for (int n = 0; n < kInstances; ++n) ids.emplace_back("vswitch", "net", "korvo", Name(n));
    add({"Get of 10,000 objects in turn (not in the object cache)" + when,
         2000,
         {aged,
          [&, ids](int i) {
            static int next = 0;
            if (!main_side.store->Get(ids[next++ % kInstances])) Die("no switch");
          }},
         {nullptr,
          [&, ids](int) {
            static int next = 0;
            if (hand.Get(ids[next++ % kInstances]).empty) Die("no switch row");
          }},
         "<= 1.3"});
    auto filter = std::make_shared<KorvoSetvault::FilterSpecObject>(kSwitchType);
    add({"GetInstances of 10,000" + when,
         3,
         {aged,
          [&](int) {
            if (main_side.store->GetInstances(filter).size() != kInstances) Die("instances");
          }},
         {nullptr,
          [&](int) {
            if (hand.GetInstances(kSwitchType).size() != kInstances) Die("hand instances");
          }},
         "<= 1.5"});
  }

  // Writes. Each side writes its own ids, so that both replace rows of the same shape.
  constexpr int kIds = 16;
  std::vector<std::string> texts, updates;
  for (int n = 0; n < kIds; ++n) {
    texts.push_back(SwitchJson(Name(n), 1400 + n));
    updates.push_back(UpdateJson(Name(n), 2000 + n));
  }
  auto make_object = [](const SetvaultObjectId& id, const std::string& text) {
    auto object = std::make_shared<SetvaultObject>(id);
    object->SetData(text.c_str());
    return object;
  };
  auto switch_id = [](int n) { return SetvaultObjectId("vswitch", "net", "korvo", Name(n)); };

  for (Side* side : {&main_side}) {
    Hand hand(side->hand);
    auto begin_library = [side] {
      Use(*side);
      side->store->BeginTransaction();
    };
    auto commit_library = [side] { side->store->CommitTransaction(); };
    auto begin_hand = [&hand] { Exec(hand.db, "BEGIN IMMEDIATE"); };
    auto commit_hand = [&hand] { Exec(hand.db, "COMMIT"); };
    add({"Set in the caller's transaction",
         500,
         {begin_library,
          [&, side](int i) {
            side->store->Set(make_object(switch_id(i % kIds), texts[i % kIds]), external);
          },
          commit_library},
         {begin_hand, [&](int i) { hand.Set(Name(i % kIds), texts[i % kIds]); }, commit_hand},
         "<= 1.5"});
    add({"Update in the caller's transaction",
         500,
         {begin_library,
          [&, side](int i) {
            side->store->Update(make_object(switch_id(i % kIds), updates[i % kIds]), external);
          },
          commit_library},
         {begin_hand, [&](int i) { hand.Update(Name(i % kIds), updates[i % kIds]); }, commit_hand},
         "<= 1.5"});
    add({"Set on its own (commit with sync)",
         40,
         {[side] { Use(*side); },
          [&, side](int i) {
            side->store->Set(make_object(switch_id(i % kIds), texts[i % kIds]), external);
          }},
         {nullptr,
          [&](int i) {
            Exec(hand.db, "BEGIN IMMEDIATE");
            hand.Set(Name(i % kIds), texts[i % kIds]);
            Exec(hand.db, "COMMIT");
          }},
         "<= 1.1"});
    std::vector<std::string> instance_texts;
    for (int n = 0; n < kInstances; ++n) instance_texts.push_back(SwitchJson(Name(n), 1600));
    add({"SetInstances of 10,000 (10,000 stored)",
         1,
         {[side] { Use(*side); },
          [&, side](int) {
            ObjectList objects;
            objects.reserve(kInstances);
            for (int n = 0; n < kInstances; ++n) {
              objects.push_back(make_object(switch_id(n), instance_texts[n]));
            }
            side->store->SetInstances(std::move(objects), external);
          }},
         {nullptr,
          [&](int) {
            Exec(hand.db, "BEGIN IMMEDIATE");
            for (int n = 0; n < kInstances; ++n) hand.Set(Name(n), instance_texts[n]);
            Exec(hand.db, "COMMIT");
          }},
         "<= 1.5"});
  }

  // The same small operations against stores holding few and many instances of the type.
  struct Sized {
    Side* side;
    const char* stored;
  };
  for (const Sized& sized : {Sized{&few, "100"}, Sized{&thousand, "1,000"},
                             Sized{&many, "100,000"}}) {
    Side* side = sized.side;
    Hand hand(side->hand);
    const std::string at = std::string(" (") + sized.stored + " stored)";
    add({"SetInstances of 100" + at,
         5,
         {[side] { Use(*side); },
          [&, side](int) {
            ObjectList objects;
            for (int n = 0; n < 100; ++n) objects.push_back(make_object(switch_id(n), texts[n % kIds]));
            side->store->SetInstances(std::move(objects), external);
          }},
         {nullptr,
          [&](int) {
            Exec(hand.db, "BEGIN IMMEDIATE");
            for (int n = 0; n < 100; ++n) hand.Set(Name(n), texts[n % kIds]);
            Exec(hand.db, "COMMIT");
          }},
         "flat"});
    if (side == &few) continue;
    add({"Get, object cache off" + at,
         1000,
         {[side] {
            KorvoSetvault::SetObjectCacheEnabled(false);
            Use(*side);
          },
          [&, side](int i) { side->store->Get(switch_id(i % kIds)); },
          [] { KorvoSetvault::SetObjectCacheEnabled(true); }},
         {nullptr, [&](int i) { hand.Get(switch_id(i % kIds)); }},
         "flat"});
    add({"Set in the caller's transaction" + at,
         300,
         {[side] {
            Use(*side);
            side->store->BeginTransaction();
          },
          [&, side](int i) {
            side->store->Set(make_object(switch_id(i % kIds), texts[i % kIds]), external);
          },
          [side] { side->store->CommitTransaction(); }},
         {[&] { Exec(hand.db, "BEGIN IMMEDIATE"); },
          [&](int i) { hand.Set(Name(i % kIds), texts[i % kIds]); },
          [&] { Exec(hand.db, "COMMIT"); }},
         "flat"});
    add({"Update in the caller's transaction" + at,
         300,
         {[side] {
            Use(*side);
            side->store->BeginTransaction();
          },
          [&, side](int i) {
            side->store->Update(make_object(switch_id(i % kIds), updates[i % kIds]), external);
          },
          [side] { side->store->CommitTransaction(); }},
         {[&] { Exec(hand.db, "BEGIN IMMEDIATE"); },
          [&](int i) { hand.Update(Name(i % kIds), updates[i % kIds]); },
          [&] { Exec(hand.db, "COMMIT"); }},
         "flat"});
  }

  std::printf("| Operation | Library (µs/op) | Floor (µs/op) | Ratio | Target |\n");
  std::printf("|---|---:|---:|---:|---|\n");
  for (const Result& result : results) {
    std::printf("| %s | %s | %s | %.2f | %s |\n", result.operation.c_str(),
                Micros(result.library).c_str(), Micros(result.floor).c_str(),
                result.library / result.floor, result.target.c_str());
  }
  std::printf("\nMedians of %d repetitions per side, library and floor interleaved.\n",
              repetitions);
  PrintGrowth(results);
  for (Side* side : {&main_side, &few, &thousand, &many}) {
    side->store.reset();
    sqlite3_close_v2(side->hand);
  }
  std::string remove = "rm -rf '" + files.dir + "'";
  return std::system(remove.c_str()) == 0 ? 0 : 1;
}
