// Change notification end to end: store writes reach the daemon (a process of its own) as one
// HTTP/1.1 POST carrying a JSON-RPC 2.0 request, once per type after the outermost commit, only for
// allowlisted types and only while notification is switched on; failures are logged and never fail
// the write. UdsClient against real sockets: calling order, endpoint length limits, a
// descriptor that is closed exactly once, and a peer that went away.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <vector>

#include "notify/notifier.h"
#include "notify/uds_client.h"
#include "reliability/store_processes.h"
#include "setvault/host_functions.h"
#include "support/example_schemas.h"
#include "support/log_capture.h"
#include "support/thrown.h"

namespace setvault_test {
namespace {

using KorvoSetvault::FilterSpecObject;
using KorvoSetvault::UdsClient;
using Types = std::vector<std::string>;

const SetvaultObjectId kDns("dns", "net", "korvo");

// The Unix-domain address of `path` (cut to fit).
sockaddr_un Address(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), std::min(path.size(), sizeof address.sun_path - 1));
  return address;
}

// A Unix-domain stream listener: binds a path, and collects what clients send, one received
// buffer per accepted connection (read until the client closes).
class SocketListener {
 public:
  // Listens on `path` with the given backlog; the socket is non-blocking so that a test can ask
  // "was there a connection?" without waiting.
  explicit SocketListener(const std::string& path, int backlog = 16) : path_(path) {
    const sockaddr_un address = Address(path);
    unlink(path.c_str());
    if (bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(fd_, backlog) != 0) {
      throw std::runtime_error("listening on " + path + " failed: " + std::strerror(errno));
    }
  }
  ~SocketListener() {
    close(fd_);
    unlink(path_.c_str());
  }
  SocketListener(const SocketListener&) = delete;
  SocketListener& operator=(const SocketListener&) = delete;

  // Accepts every connection already queued and reads each to its end.
  std::vector<std::string> TakeAll() {
    std::vector<std::string> received;
    for (std::string one; TakeNext(0, &one);) received.push_back(one);
    return received;
  }

  // Waits up to `timeout_ms` for one connection and reads it to its end; false when none came.
  // The writer has closed its side by the time its call returned, so reads end promptly; a read
  // waits at most 2 s for data so that a broken client fails the test instead of hanging it.
  bool TakeNext(int timeout_ms, std::string* received) {
    pollfd ready{fd_, POLLIN, 0};
    const int client = poll(&ready, 1, timeout_ms) > 0 ? accept(fd_, nullptr, nullptr) : -1;
    if (client < 0) return false;
    received->clear();
    char buffer[4096];
    for (pollfd data{client, POLLIN, 0}; poll(&data, 1, 2000) > 0;) {
      const ssize_t count = read(client, buffer, sizeof buffer);
      if (count <= 0) break;
      received->append(buffer, static_cast<size_t>(count));
    }
    close(client);
    return true;
  }

 private:
  std::string path_;
  int fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
};

// The type a received request names.
std::string TypeOf(const std::string& request) {
  constexpr char kMarker[] = "identifiers\":[\"";
  const size_t from = request.find(kMarker) + sizeof kMarker - 1;
  return from < sizeof kMarker ? "none" : request.substr(from, request.find('"', from) - from);
}

class NotifierTest : public ::testing::Test {
 protected:
  void SetUp() override {
    KorvoSetvault::SetNotifySocketDirectory(schemas_.dir().path());
    AllowOnly(R"(["korvo.system.host","korvo.storage.datastore"])");
    KorvoSetvault::SetKeyValue("NOTIFY_NEXD", "true");
  }
  void TearDown() override {
    KorvoSetvault::SetNotifySocketDirectory("");
    KorvoSetvault::SetNotifyAllowlistPath(KorvoSetvault::kNotifyAllowlistPath);
  }

  void AllowOnly(const std::string& json) {
    KorvoSetvault::SetNotifyAllowlistPath(schemas_.dir().WriteFile("allowlist.json", json));
  }
  void SetHost(const std::string& name) {
    store_->Set(Object(kHost, "{\"hostname\":\"" + name + "\"}"), kExternal);
  }
  std::string SocketPath() const { return schemas_.dir().File(KorvoSetvault::kNotifyEndpoint); }
  // The types named by the requests received since the last call, in order.
  Types Told() {
    Types types;
    for (const std::string& request : listener_.TakeAll()) types.push_back(TypeOf(request));
    return types;
  }

  ExampleSchemas schemas_;
  std::shared_ptr<Setvault> store_ = Setvault::GetStore("");
  SocketListener listener_{SocketPath()};
};

TEST_F(NotifierTest, EveryWriteOperationNotifiesOnce) {
  const auto host = [](const char* json) { return Object(kHost, json); };
  const auto d1 = [](const char* json) { return std::vector{Object(Datastore("d1"), json)}; };
  const char* label = R"({"label":"d1"})";
  const std::vector<std::pair<const char*, std::function<void()>>> writes = {
      {"Set", [&] { SetHost("a"); }},
      {"SetUserData", [&] { store_->SetUserData(host(R"({"hostname":"b"})"), kExternal); }},
      {"SetVitalData", [&] { store_->SetVitalData(host(R"({"systemUuid":"u"})")); }},
      {"SetCachedData", [&] { store_->SetCachedData(host(R"({"cpuModel":"c"})")); }},
      {"Update", [&] { store_->Update(host(R"({"timezone":"UTC"})"), kExternal); }},
      {"Delete", [&] { store_->Delete(kHost); }},
      {"SetInstances", [&] { store_->SetInstances(d1(label), kExternal); }},
      {"SetUserDataInstances", [&] { store_->SetUserDataInstances(d1(label), kExternal); }},
      {"SetVitalDataInstances", [&] { store_->SetVitalDataInstances(d1(label)); }},
      {"SetCachedDataInstances",
       [&] { store_->SetCachedDataInstances(d1(R"({"capacityBytes":5})")); }},
      {"DeleteInstances",
       [&] { store_->DeleteInstances(std::make_shared<FilterSpecObject>(Datastore(""))); }},
  };
  for (const auto& [name, write] : writes) {
    write();
    const bool instances = std::string(name).find("Instances") != std::string::npos;
    EXPECT_EQ(Told(), Types{instances ? "korvo.storage.datastore" : "korvo.system.host"}) << name;
  }
}

// The request, one HTTP/1.1 POST carrying JSON-RPC 2.0, that tells of a change of `type` by this
// process.
std::string Request(const std::string& type) {
  const std::string body =
      R"({"method":"invoke","id":"9","params":{"serviceId":"com.tarsel.korvo.nexd.notifier",)"
      R"("operationId":"notify","input":{"STRUCTURE":{"operation-input":{"identifiers":[")" +
      type + R"("],"cartel_id":)" + std::to_string(getpid()) +
      R"(}}},"ctx":{"securityCtx":{"schemeId":"com.tarsel.mirk.std.security.no_authentication"}}},)"
      R"("jsonrpc":"2.0"})";
  return "POST /api HTTP/1.1\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\nContent-Type: application/json\r\n\r\n" + body;
}

// Plays the daemon in a process of its own while `run` runs: takes `expected` requests on the
// daemon's socket (and any other within 200 ms) and reads the store at each through its own
// connection, as the daemon would. Returns "<request> saw <host name>/<switches stored>" per
// request, in order.
std::string WithDaemon(const std::string& path, size_t expected, const std::function<void()>& run) {
  SocketListener listener(path);  // listening before the daemon process exists
  return RunInChild(
      [&] {
        std::string request, text;
        for (size_t n = 0; listener.TakeNext(n < expected ? 5000 : 200, &request); ++n) {
          auto store = Setvault::GetStore("");
          std::string name = "-";
          if (auto host = store->Get(kHost)) host->GetValue("hostname", &name);
          const size_t switches = store->GetInstanceIds(Vswitch("")).size();
          text += request + " saw " + name + "/" + std::to_string(switches) + "\n";
        }
        return text;
      },
      run);
}

TEST_F(NotifierTest, TheDaemonIsToldAfterTheCommitOncePerType) {
  AllowOnly(R"(["korvo.system.host","korvo.net.vswitch"])");
  const std::string host = Request("korvo.system.host");
  EXPECT_EQ(WithDaemon(SocketPath(), 1, [&] { SetHost("a"); }), host + " saw a/0\n");
  const auto in_one_transaction = [&] {
    KorvoSetvault::SetvaultTransaction transaction(store_);
    for (const std::string name : {"vs0", "vs1", "vs2"}) {
      store_->Set(Object(Vswitch(name), "{\"name\":\"" + name + "\"}"), kExternal);
    }
    SetHost("b");
    transaction.Commit();
  };
  EXPECT_EQ(WithDaemon(SocketPath(), 2, in_one_transaction),
            Request("korvo.net.vswitch") + " saw b/3\n" + host + " saw b/3\n");
}

TEST_F(NotifierTest, ARolledBackTransactionOrAFailedWriteSendsNothing) {
  const std::vector<std::pair<const char*, std::function<void()>>> cases = {
      {"cancelled",
       [&] {
         KorvoSetvault::SetvaultTransaction transaction(store_);
         store_->SetInstances({Object(Datastore("d1"), R"({"label":"d1"})")}, kExternal);
         SetHost("h");
       }},
      {"commit refused after an inner cancel",
       [&] {
         auto conn = DBStore::GetConnection(DBStore::kConfigStore, true);
         store_->BeginTransaction();
         SetHost("h");
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
    EXPECT_EQ(Told(), Types{}) << name;
    EXPECT_EQ(store_->GetRevision(kHost), -1) << name;
  }
  // The next committed write is told as usual: nothing queued was left behind.
  SetHost("h");
  EXPECT_EQ(Told(), Types{"korvo.system.host"});
}

// A full name or a group's wildcard lets a type through; a bare group entry and an unlisted type do
// not, and a malformed file lets nothing through, warning at each write.
TEST_F(NotifierTest, TheAllowlistChoosesTheTypesTold) {
  const struct {
    const char* allowlist;
    Types told;
    bool malformed;
  } cases[] = {
      {R"(["korvo.net.*","korvo.system"])", {"korvo.net.dns", "korvo.net.vswitch"}, false},
      {R"(["korvo.system.host"])", {"korvo.system.host"}, false},
      {R"(["korvo.storage.datastore"])", {}, false},
      {R"({"a":1})", {}, true},
      {"[1,2]", {}, true},
      {"not json", {}, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.allowlist);
    AllowOnly(c.allowlist);
    LogCapture log(2);
    store_->Set(Object(kDns, R"({"servers":["10.0.0.1"]})"), kExternal);
    store_->Set(Object(Vswitch("vs0"), R"({"name":"vs0"})"), kExternal);
    SetHost("h");
    EXPECT_EQ(Told(), c.told);
    EXPECT_EQ(log.CountStartingWith(1, "Failed to read notify list: "), c.malformed ? 3 : 0);
  }
}

TEST_F(NotifierTest, OnlyTrueSwitchesNotificationOn) {
  for (const char* value : {"false", "TRUE", "1", "", "true"}) {
    KorvoSetvault::SetKeyValue("NOTIFY_NEXD", value);
    SetHost("h");
    EXPECT_EQ(Told().size(), std::string(value) == "true" ? 1u : 0u) << value;
  }
}

// A missing allowlist warns at every write; a failed read is not kept, but one that succeeded is
// kept for the life of the process, even when the file later breaks.
TEST_F(NotifierTest, TheAllowlistIsReadUntilItIsFoundThenKept) {
  const std::string path = schemas_.dir().File("later.json");
  KorvoSetvault::SetNotifyAllowlistPath(path);
  LogCapture log(2);
  SetHost("a");
  SetHost("b");
  EXPECT_EQ(log.CountStartingWith(1, "Failed to read notify list: Notification allowlist " + path +
                                         " missing.. Defaulting to empty list."),
            2);
  EXPECT_EQ(store_->GetRevision(kHost), 2);
  EXPECT_EQ(Told(), Types{});
  for (const char* allowlist : {R"(["korvo.system.host"])", "not json"}) {
    schemas_.dir().WriteFile("later.json", allowlist);
    SetHost("c");
    EXPECT_EQ(Told(), Types{"korvo.system.host"});
  }
  KorvoSetvault::ResetNotifyAllowlistForTesting();
  SetHost("j");
  EXPECT_EQ(Told(), Types{});
  EXPECT_EQ(log.CountStartingWith(1, "Failed to read notify list"), 3);
}

// A daemon that is missing, or that accepts nothing (connecting gives up after the client's
// time-out: a hang here would be the fault), costs one info line per write, and the write stands.
TEST_F(NotifierTest, AMissingOrStuckDaemonLogsOneInfoLineAndTheWriteStands) {
  unlink(SocketPath().c_str());
  LogCapture log(2);
  SetHost("h");
  const std::string failed =
      "Error while sending notification for config object '" + kHost.toString() + "' to NexD: ";
  EXPECT_TRUE(log.Contains(2, failed + "Failed to connect socket: No such file or directory"));
  SocketListener full(SocketPath(), 0);
  std::vector<int> fillers;  // connections nobody accepts, until the queue is full
  const sockaddr_un address = Address(SocketPath());
  for (int fd; (fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0)) >= 0;) {
    fillers.push_back(fd);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) break;
    ASSERT_LT(fillers.size(), 1000u) << "listen queue never filled";
  }
  SetHost("i");
  EXPECT_EQ(store_->GetRevision(kHost), 2);
  EXPECT_EQ(log.CountStartingWith(2, failed), 2);
  for (int fd : fillers) close(fd);
}

// The message of the std::runtime_error a call throws, or "" when none.
constexpr auto Error = &setvault_test::MessageOf<std::runtime_error, std::function<void()>>;

// The lowest free descriptor number.
int LowestFree() {
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(fd);
  return fd;
}

// Through a relative endpoint of 107 characters (the longest that fits): Send needs a connection, a
// second Connect keeps the first, Disconnect may repeat and a disconnected client connects again;
// the whole buffer arrives, NULs and all. A peer that went away gives an error, not SIGPIPE. A
// refused connect holds no socket afterwards and closes it only once: a second close would close
// whatever file took the number meanwhile.
TEST(UdsClientTest, SendsWholeBuffersOverOneConnectionAndRefusedConnectsCloseOnce) {
  TempDir dir;
  char previous[4096];
  ASSERT_NE(getcwd(previous, sizeof previous), nullptr);
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  const std::string endpoint(107, 's');
  auto listener = std::make_unique<SocketListener>(endpoint);
  std::string data = "POST /api HTTP/1.1\r\n\r\n" + std::string(100000, 'x');  // several reads
  data += std::string(1, '\0') + "tail";
  UdsClient client(endpoint);
  EXPECT_EQ(Error([&] { client.Send("x"); }), "Not connected to an endpoint.");
  client.Connect();
  client.Connect();
  EXPECT_TRUE(client.IsConnected());
  client.Send(data);
  client.Disconnect();
  client.Disconnect();
  EXPECT_FALSE(client.IsConnected());
  client.Connect();
  client.Send("again");
  client.Disconnect();
  EXPECT_EQ(listener->TakeAll(), (std::vector<std::string>{data, "again"}));
  client.Connect();
  listener.reset();  // closes the queued connection's peer
  const std::string error = Error([&] {
    client.Send("x");
    client.Send("y");
  });
  EXPECT_EQ(error.rfind("Failed to send data: ", 0), 0u) << error;
  const std::pair<std::string, const char*> refused[] = {
      {"absent", "Failed to connect socket: No such file or directory"},
      {endpoint + "s", "Endpoint address too long."},
  };
  for (const auto& [path, message] : refused) {
    const int before = LowestFree();
    int reused = -1;
    {
      UdsClient refusing(path);
      EXPECT_EQ(Error([&] { refusing.Connect(); }), message);
      EXPECT_FALSE(refusing.IsConnected()) << message;
      EXPECT_EQ(LowestFree(), before) << message;
      reused = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    EXPECT_NE(fcntl(reused, F_GETFD), -1) << message;
    close(reused);
    EXPECT_EQ(LowestFree(), before) << message;
  }
  ASSERT_EQ(chdir(previous), 0);
}

}  // namespace
}  // namespace setvault_test
