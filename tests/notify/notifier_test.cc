// Change notification end to end: store writes reach a listener on the daemon's socket as
// one HTTP/1.1 POST carrying a JSON-RPC 2.0 request, only for allowlisted types and only
// while notification is switched on; failures are logged and never fail the write.
#include <rapidjson/document.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <map>
#include <sstream>

#include "db/key_value.h"
#include "notify/notifier.h"
#include "notify/socket_listener.h"
#include "store/store_fixture.h"
#include "support/log_capture.h"

namespace setvault_test {
namespace {

using KorvoSetvault::FilterSpecObject;

const SetvaultObjectId kHost("host", "system", "korvo");
const SetvaultObjectId kDns("dns", "net", "korvo");

SetvaultObjectId Vswitch(const std::string& name) {
  return SetvaultObjectId("vswitch", "net", "korvo", name);
}
SetvaultObjectId Datastore(const std::string& label) {
  return SetvaultObjectId("datastore", "storage", "korvo", label);
}

// One received request, split into its parts.
struct HttpRequest {
  std::string request_line;
  std::map<std::string, std::string> headers;
  std::string body;
};

// Parses `text` as an HTTP/1.1 request with CRLF line ends; fails the test when it is not.
HttpRequest ParseHttp(const std::string& text) {
  HttpRequest request;
  const size_t head_end = text.find("\r\n\r\n");
  EXPECT_NE(head_end, std::string::npos) << text;
  if (head_end == std::string::npos) return request;
  const std::string head = text.substr(0, head_end + 2);
  request.body = text.substr(head_end + 4);
  size_t start = 0;
  for (size_t end; (end = head.find("\r\n", start)) != std::string::npos; start = end + 2) {
    const std::string line = head.substr(start, end - start);
    if (request.request_line.empty()) {
      request.request_line = line;
      continue;
    }
    const size_t colon = line.find(": ");
    EXPECT_NE(colon, std::string::npos) << line;
    if (colon != std::string::npos) request.headers[line.substr(0, colon)] = line.substr(colon + 2);
  }
  return request;
}

const rapidjson::Value& Member(const rapidjson::Value& object, const char* name) {
  static const rapidjson::Value kNull;
  if (!object.IsObject() || !object.HasMember(name)) {
    ADD_FAILURE() << "no member " << name;
    return kNull;
  }
  return object[name];
}

// Checks one received request for the type `full_name` (component.group.key).
void ExpectNotifyRequest(const std::string& received, const std::string& full_name) {
  HttpRequest request = ParseHttp(received);
  EXPECT_EQ(request.request_line, "POST /api HTTP/1.1");
  EXPECT_EQ(request.headers.size(), 2u);
  EXPECT_EQ(request.headers["Content-Type"], "application/json");
  EXPECT_EQ(request.headers["Content-Length"], std::to_string(request.body.size()));
  EXPECT_EQ(request.body.find('\n'), std::string::npos);

  rapidjson::Document body;
  body.Parse(request.body.c_str(), request.body.size());
  ASSERT_FALSE(body.HasParseError()) << request.body;
  EXPECT_STREQ(Member(body, "jsonrpc").GetString(), "2.0");
  EXPECT_STREQ(Member(body, "method").GetString(), "invoke");
  EXPECT_STREQ(Member(body, "id").GetString(), "9");
  const rapidjson::Value& params = Member(body, "params");
  EXPECT_STREQ(Member(params, "serviceId").GetString(), "com.tarsel.korvo.nexd.notifier");
  EXPECT_STREQ(Member(params, "operationId").GetString(), "notify");
  const rapidjson::Value& input =
      Member(Member(Member(params, "input"), "STRUCTURE"), "operation-input");
  const rapidjson::Value& identifiers = Member(input, "identifiers");
  ASSERT_TRUE(identifiers.IsArray());
  ASSERT_EQ(identifiers.Size(), 1u);
  EXPECT_EQ(std::string(identifiers[0].GetString()), full_name);
  ASSERT_TRUE(Member(input, "cartel_id").IsInt64());
  EXPECT_EQ(Member(input, "cartel_id").GetInt64(), static_cast<int64_t>(getpid()));
  EXPECT_STREQ(Member(Member(Member(params, "ctx"), "securityCtx"), "schemeId").GetString(),
               "com.tarsel.mirk.std.security.no_authentication");
}

class NotifierTest : public WriteStoreTest {
 protected:
  void SetUp() override {
    WriteStoreTest::SetUp();
    KorvoSetvault::SetNotifySocketDirectory(dir_.path());
    AllowOnly(R"(["korvo.system.host","korvo.storage.datastore"])");
    KorvoSetvault::SetKeyValue("NOTIFY_NEXD", "true");
  }
  void TearDown() override {
    KorvoSetvault::SetNotifySocketDirectory("");
    KorvoSetvault::SetNotifyAllowlistPath(KorvoSetvault::kNotifyAllowlistPath);
    WriteStoreTest::TearDown();
  }

  void AllowOnly(const std::string& json) {
    KorvoSetvault::SetNotifyAllowlistPath(dir_.WriteFile("allowlist.json", json));
  }
  std::string SocketPath() const { return dir_.File(KorvoSetvault::kNotifyEndpoint); }
};

TEST_F(NotifierTest, SetSendsOneJsonRpcRequestOverHttp) {
  SocketListener listener(SocketPath());
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  const auto received = listener.TakeAll();
  ASSERT_EQ(received.size(), 1u);
  ExpectNotifyRequest(received[0], "korvo.system.host");
  EXPECT_EQ(Column(kHost, "UserValue"), R"({"hostname":"h"})");
}

TEST_F(NotifierTest, EveryWriteOperationNotifiesOnce) {
  SocketListener listener(SocketPath());
  const std::vector<std::pair<const char*, std::function<void()>>> writes = {
      {"Set", [&] { store_->Set(Object(kHost, R"({"hostname":"a"})"), kExternal); }},
      {"SetUserData",
       [&] { store_->SetUserData(Object(kHost, R"({"hostname":"b"})"), kExternal); }},
      {"SetVitalData", [&] { store_->SetVitalData(Object(kHost, R"({"systemUuid":"u"})")); }},
      {"SetCachedData", [&] { store_->SetCachedData(Object(kHost, R"({"cpuModel":"c"})")); }},
      {"Update", [&] { store_->Update(Object(kHost, R"({"timezone":"UTC"})"), kExternal); }},
      {"Delete", [&] { store_->Delete(kHost); }},
      {"SetInstances",
       [&] { store_->SetInstances({Object(Datastore("d1"), R"({"label":"d1"})")}, kExternal); }},
      {"SetUserDataInstances",
       [&] {
         store_->SetUserDataInstances({Object(Datastore("d1"), R"({"label":"d1"})")}, kExternal);
       }},
      {"SetVitalDataInstances",
       [&] { store_->SetVitalDataInstances({Object(Datastore("d1"), R"({"label":"d1"})")}); }},
      {"SetCachedDataInstances",
       [&] {
         store_->SetCachedDataInstances({Object(Datastore("d1"), R"({"capacityBytes":5})")});
       }},
      {"DeleteInstances",
       [&] { store_->DeleteInstances(std::make_shared<FilterSpecObject>(Datastore(""))); }},
  };
  for (const auto& [name, write] : writes) {
    write();
    const auto received = listener.TakeAll();
    ASSERT_EQ(received.size(), 1u) << name;
    const bool host = std::string(name).find("Instances") == std::string::npos;
    ExpectNotifyRequest(received[0], host ? "korvo.system.host" : "korvo.storage.datastore");
  }
}

// Plays the daemon in a process of its own while `run` runs: takes `expected` requests on
// the daemon's socket (and any other within 200 ms) and reads the store at each through its
// own connection, as the daemon would. Returns "<type> saw <look()>" per request, in order.
std::vector<std::string> WithDaemon(const std::string& path, size_t expected,
                                    const std::function<std::string()>& look,
                                    const std::function<void()>& run) {
  SocketListener listener(path);  // listening before the daemon process exists
  int reports[2];
  if (pipe(reports) != 0) return {"no pipe"};
  const pid_t child = fork();
  if (child == 0) {
    std::string request, text;
    try {
      for (size_t n = 0; listener.TakeNext(n < expected ? 5000 : 200, &request); ++n) {
        constexpr char kMarker[] = "identifiers\":[\"";
        const size_t from = request.find(kMarker) + sizeof kMarker - 1;
        text += request.substr(from, request.find('"', from) - from) + " saw " + look() + "\n";
      }
    } catch (...) {
      _exit(1);  // never back into the test runner
    }
    _exit(write(reports[1], text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1);
  }
  if (child > 0) run();
  close(reports[1]);
  int status = 0;
  char buffer[4096];
  const bool served = child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) &&
                      WEXITSTATUS(status) == 0;
  const ssize_t count = served ? read(reports[0], buffer, sizeof buffer) : -1;
  close(reports[0]);
  if (count < 0) return {"the daemon failed"};
  std::vector<std::string> lines;
  std::istringstream in(std::string(buffer, static_cast<size_t>(count)));
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST_F(NotifierTest, TheDaemonIsToldAfterTheCommitOncePerType) {
  AllowOnly(R"(["korvo.system.host","korvo.net.vswitch"])");
  // What the daemon sees: the host's name and the number of stored switches.
  const auto look = [] {
    auto store = KorvoSetvault::Setvault::GetStore("");
    std::string name = "-";
    if (auto host = store->Get(kHost)) host->GetValue("hostname", &name);
    return name + "/" + std::to_string(store->GetInstanceIds(Vswitch("")).size());
  };
  const auto in_one_transaction = [&] {
    KorvoSetvault::SetvaultTransaction transaction(store_);
    for (const char* name : {"vs0", "vs1", "vs2"}) {
      store_->Set(Object(Vswitch(name), std::string(R"({"name":")") + name + "\"}"), kExternal);
    }
    store_->Set(Object(kHost, R"({"hostname":"b"})"), kExternal);
    transaction.Commit();
  };
  EXPECT_EQ(
      WithDaemon(SocketPath(), 1, look,
                 [&] { store_->SetUserData(Object(kHost, R"({"hostname":"a"})"), kExternal); }),
      std::vector<std::string>{"korvo.system.host saw a/0"});
  EXPECT_EQ(WithDaemon(SocketPath(), 2, look, in_one_transaction),
            (std::vector<std::string>{"korvo.net.vswitch saw b/3", "korvo.system.host saw b/3"}));
}

TEST_F(NotifierTest, ARolledBackTransactionOrAFailedWriteSendsNothing) {
  SocketListener listener(SocketPath());
  const auto set_host = [&] { store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal); };
  const std::vector<std::pair<const char*, std::function<void()>>> cases = {
      {"cancelled",
       [&] {
         KorvoSetvault::SetvaultTransaction transaction(store_);
         store_->SetInstances({Object(Datastore("d1"), R"({"label":"d1"})")}, kExternal);
         set_host();
         store_->SetUserData(Object(kHost, R"({"hostname":"i"})"), kExternal);
       }},
      {"commit refused after an inner cancel",
       [&] {
         auto conn = DBStore::GetConnection(DBStore::kConfigStore, true);
         store_->BeginTransaction();
         set_host();
         DBStore::BeginTransaction(conn);
         DBStore::CancelTransaction(conn);
         EXPECT_THROW(store_->CommitTransaction(), KorvoSetvault::SetvaultException);
       }},
      {"the only write failed",
       [&] {
         KorvoSetvault::SetvaultTransaction transaction(store_);
         EXPECT_ANY_THROW(store_->Set(Object(kHost, R"({"hostname":5})"), kExternal));
         transaction.Commit();
       }},
  };
  for (const auto& [name, run] : cases) {
    run();
    EXPECT_TRUE(listener.TakeAll().empty()) << name;
    EXPECT_EQ(store_->GetRevision(kHost), -1) << name;
  }
  // The next committed write is told as usual: nothing queued was left behind.
  set_host();
  EXPECT_EQ(listener.TakeAll().size(), 1u);
}

TEST_F(NotifierTest, WildcardEntryCoversTheGroupAndABareGroupEntryNothing) {
  SocketListener listener(SocketPath());
  AllowOnly(R"(["korvo.net.*","korvo.system"])");
  store_->Set(Object(kDns, R"({"servers":["10.0.0.1"]})"), kExternal);
  store_->Set(Object(Vswitch("vs0"), R"({"name":"vs0"})"), kExternal);
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  const auto received = listener.TakeAll();
  ASSERT_EQ(received.size(), 2u);
  ExpectNotifyRequest(received[0], "korvo.net.dns");
  ExpectNotifyRequest(received[1], "korvo.net.vswitch");
}

TEST_F(NotifierTest, TypesNotListedAreNotNotified) {
  SocketListener listener(SocketPath());
  store_->Set(Object(kDns, R"({"servers":["10.0.0.1"]})"), kExternal);
  EXPECT_TRUE(listener.TakeAll().empty());
}

TEST_F(NotifierTest, SwitchedOffSendsNothing) {
  SocketListener listener(SocketPath());
  for (const char* value : {"false", "TRUE", "1", ""}) {
    KorvoSetvault::SetKeyValue("NOTIFY_NEXD", value);
    store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
    EXPECT_TRUE(listener.TakeAll().empty()) << value;
  }
  KorvoSetvault::SetKeyValue("NOTIFY_NEXD", "true");
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  EXPECT_EQ(listener.TakeAll().size(), 1u);
}

TEST_F(NotifierTest, MissingAllowlistWarnsOnEveryWriteAndIsReadOnceItExists) {
  SocketListener listener(SocketPath());
  const std::string path = dir_.File("later.json");
  KorvoSetvault::SetNotifyAllowlistPath(path);
  LogCapture log(2);
  const std::string warning = "Failed to read notify list: Notification allowlist " + path +
                              " missing.. Defaulting to empty list.";
  store_->Set(Object(kHost, R"({"hostname":"a"})"), kExternal);
  store_->Set(Object(kHost, R"({"hostname":"b"})"), kExternal);
  EXPECT_EQ(log.CountStartingWith(1, warning), 2);
  EXPECT_EQ(store_->GetRevision(kHost), 2);
  EXPECT_TRUE(listener.TakeAll().empty());

  // A failed read is not kept: once the file exists, the next write reads it.
  dir_.WriteFile("later.json", R"(["korvo.system.host"])");
  store_->Set(Object(kHost, R"({"hostname":"c"})"), kExternal);
  EXPECT_EQ(listener.TakeAll().size(), 1u);
  EXPECT_EQ(log.CountStartingWith(1, "Failed to read notify list"), 2);
}

TEST_F(NotifierTest, MalformedAllowlistWarnsAndNotifiesNothing) {
  SocketListener listener(SocketPath());
  for (const char* text : {"{\"a\":1}", "[1,2]", "not json", "[\"korvo.system.host\","}) {
    AllowOnly(text);
    LogCapture log(2);
    store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
    EXPECT_EQ(log.CountStartingWith(1, "Failed to read notify list: "), 1) << text;
    EXPECT_TRUE(listener.TakeAll().empty()) << text;
  }
}

TEST_F(NotifierTest, AllowlistIsKeptOnceRead) {
  SocketListener listener(SocketPath());
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  ASSERT_EQ(listener.TakeAll().size(), 1u);
  // Changing the file later has no effect on this process.
  dir_.WriteFile("allowlist.json", "[]");
  store_->Set(Object(kHost, R"({"hostname":"i"})"), kExternal);
  EXPECT_EQ(listener.TakeAll().size(), 1u);
  KorvoSetvault::ResetNotifyAllowlistForTesting();
  store_->Set(Object(kHost, R"({"hostname":"j"})"), kExternal);
  EXPECT_TRUE(listener.TakeAll().empty());
}

TEST_F(NotifierTest, MissingDaemonSocketLogsOneInfoLineAndTheWriteStands) {
  LogCapture log(2);
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  EXPECT_EQ(store_->GetRevision(kHost), 1);
  EXPECT_TRUE(
      log.Contains(2, "Error while sending notification for config object '" + kHost.toString() +
                          "' to NexD: Failed to connect socket: No such file or directory"));
  EXPECT_EQ(log.CountStartingWith(2, "Error while sending notification"), 1);
}

TEST_F(NotifierTest, ListenerThatNeverReadsCostsTheWriterLittle) {
  SocketListener listener(SocketPath());
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 20; ++i) {
    store_->Set(Object(kHost, R"({"hostname":"h)" + std::to_string(i) + R"("})"), kExternal);
    listener.AcceptAndHold();
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_EQ(store_->GetRevision(kHost), 20);
}

TEST_F(NotifierTest, FullListenQueueCostsABoundedTimeAndTheWriteSucceeds) {
  SocketListener listener(SocketPath(), 0);
  // Fill the queue with connections nobody accepts.
  std::vector<int> fillers;
  while (true) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    ASSERT_GE(fd, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, SocketPath().data(), SocketPath().size());
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      close(fd);
      break;
    }
    fillers.push_back(fd);
    ASSERT_LT(fillers.size(), 1000u) << "listen queue never filled";
  }
  LogCapture log(2);
  const auto start = std::chrono::steady_clock::now();
  store_->Set(Object(kHost, R"({"hostname":"h"})"), kExternal);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_EQ(store_->GetRevision(kHost), 1);
  EXPECT_EQ(log.CountStartingWith(2, "Error while sending notification for config object '" +
                                         kHost.toString() + "' to NexD: "),
            1);
  for (int fd : fillers) close(fd);
}

TEST_F(NotifierTest, ContentLengthCountsBytesOfTheBody) {
  for (const std::string& key :
       std::vector<std::string>{"k", std::string(200, 'x'), "s\xc3\xa9rie"}) {
    const std::string request =
        KorvoSetvault::BuildNotifyRequest(SetvaultObjectId(key, "g", "c"), 1234567);
    const HttpRequest parsed = ParseHttp(request);
    EXPECT_EQ(parsed.headers.at("Content-Length"), std::to_string(parsed.body.size()));
    EXPECT_NE(parsed.body.find("\"c.g." + key + "\""), std::string::npos);
    EXPECT_NE(parsed.body.find("\"cartel_id\":1234567}"), std::string::npos);
  }
}

}  // namespace
}  // namespace setvault_test
