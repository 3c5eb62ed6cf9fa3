#include "notify/notifier.h"

#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <mutex>

#include "db/host_flags.h"
#include "dbstore/db_store_after_commit.h"
#include "notify/uds_client.h"
#include "setvault/exceptions.h"
#include "setvault/host_setup.h"
#include "setvault/json_doc.h"
#include "setvault/logger.h"

namespace KorvoSetvault {

const char kNotifyAllowlistPath[] = "/usr/lib/tarsel/setwarden/notify-list/allowlist.json";
const char kNotifyEndpoint[] = "trsLocalSocketNexdNotifyMirk";

namespace {

struct NotifyState {
  std::mutex mutex;
  std::string allowlist_path = kNotifyAllowlistPath;
  std::string socket_directory;  // empty: the endpoint name as it is
  std::shared_ptr<const std::unordered_set<std::string>> allowlist;
};

NotifyState& State() {
  static NotifyState* state = new NotifyState();  // leaked: used until exit
  return *state;
}

std::string AllowlistPath() {
  std::lock_guard<std::mutex> lock(State().mutex);
  return State().allowlist_path;
}

std::string Endpoint() {
  std::lock_guard<std::mutex> lock(State().mutex);
  const std::string& directory = State().socket_directory;
  return directory.empty() ? kNotifyEndpoint : directory + "/" + kNotifyEndpoint;
}

bool FileExists(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0;
}

}  // namespace

std::unordered_set<std::string> ReadNotifyAllowlist() {
  const std::string path = AllowlistPath();
  if (!FileExists(path)) {
    throw SetvaultException(SV_ERR_GENERIC,
                            ("Notification allowlist " + path + " missing.").c_str());
  }
  auto doc = CreateDocumentFromFile(path);
  std::unordered_set<std::string> entries;
  for (const JsonValue& entry : doc->GetJsonValuePtr()->GetArray()) {
    entries.emplace(entry.GetString(), entry.GetStringLength());
  }
  return entries;
}

const std::unordered_set<std::string>& GetNotifyAllowlist() {
  NotifyState& state = State();
  {
    std::lock_guard<std::mutex> lock(state.mutex);
    if (state.allowlist) return *state.allowlist;
  }
  auto entries = std::make_shared<const std::unordered_set<std::string>>(ReadNotifyAllowlist());
  std::lock_guard<std::mutex> lock(state.mutex);
  if (!state.allowlist) state.allowlist = std::move(entries);
  return *state.allowlist;
}

std::string BuildNotifyRequest(const SetvaultObjectId& id, long pid) {
  const std::string full_name = id.component + "." + id.group + "." + id.key;
  const std::string body =
      "{\"method\":\"invoke\",\"id\":\"9\","
      "\"params\":{\"serviceId\":\"com.tarsel.korvo.nexd.notifier\","
      "\"operationId\":\"notify\","
      "\"input\":{\"STRUCTURE\":{\"operation-input\":{\"identifiers\":[\"" +
      full_name + "\"],\"cartel_id\":" + std::to_string(pid) +
      "}}},"
      "\"ctx\":{\"securityCtx\":{\"schemeId\":\"com.tarsel.mirk.std.security.no_authentication\"}}},"
      "\"jsonrpc\":\"2.0\"}";
  return "POST /api HTTP/1.1\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\nContent-Type: application/json\r\n\r\n" + body;
}

void NotifyIfAllowlisted(const SetvaultObjectId& id) {
  if (!IsNexdNotificationEnabled()) return;
  const std::string prefix = id.component + "." + id.group + ".";
  const std::unordered_set<std::string>* allowlist = nullptr;
  try {
    allowlist = &GetNotifyAllowlist();
  } catch (const SetvaultException& e) {
    SVLogger::Log(1, "Failed to read notify list: %s. Defaulting to empty list.", e.what());
    return;
  }
  if (allowlist->count(prefix + id.key) == 0 && allowlist->count(prefix + "*") == 0) return;
  try {
    UdsClient client(Endpoint());
    client.Connect();
    client.Send(BuildNotifyRequest(id, static_cast<long>(getpid())));
  } catch (const std::exception& e) {
    SVLogger::Log(2, "Error while sending notification for config object '%s' to NexD: %s",
                  id.toString().c_str(), e.what());
  }
}

void NotifyAfterCommit(const SetvaultObjectId& id,
                       const std::shared_ptr<DBStore::StoreConnection>& connection) {
  // The daemon re-reads the whole type: one request per type and commit is enough.
  DBStore::RunAfterCommit(connection, "notify " + id.component + "." + id.group + "." + id.key,
                          [id] { NotifyIfAllowlisted(id); });
}

void SetNotifyAllowlistPath(const std::string& path) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().allowlist_path = path;
  State().allowlist.reset();
}

void SetNotifySocketDirectory(const std::string& directory) {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().socket_directory = directory;
}

std::string GetNotifySocketPath() { return Endpoint(); }

void ResetNotifyAllowlistForTesting() {
  std::lock_guard<std::mutex> lock(State().mutex);
  State().allowlist.reset();
}

}  // namespace KorvoSetvault
