// UdsClient against real sockets: endpoint length limits, calling order, sending, and a
// descriptor that is closed exactly once.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <csignal>

#include "notify/socket_listener.h"
#include "notify/uds_client.h"
#include "support/temp_dir.h"

namespace setvault_test {
namespace {

using KorvoSetvault::UdsClient;

// Runs `call`, expecting std::runtime_error with exactly `message`.
template <typename Call>
void ExpectRuntimeError(Call call, const std::string& message) {
  try {
    call();
    ADD_FAILURE() << "no exception, expected " << message;
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(std::string(e.what()), message);
  }
}

// A path inside `dir` of exactly `length` characters.
std::string PathOfLength(const TempDir& dir, size_t length) {
  const std::string prefix = dir.path() + "/";
  EXPECT_LT(prefix.size(), length);
  return prefix + std::string(length - prefix.size(), 's');
}

bool IsOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

TEST(UdsClientTest, SendsTheWholeBufferToTheListener) {
  TempDir dir;
  SocketListener listener(dir.File("sock"));
  std::string data = "POST /api HTTP/1.1\r\n\r\n";
  data += std::string(100000, 'x');  // larger than one read
  data.push_back('\0');
  data += "tail";
  {
    UdsClient client(dir.File("sock"));
    EXPECT_FALSE(client.IsConnected());
    client.Connect();
    EXPECT_TRUE(client.IsConnected());
    client.Send(data);
  }
  const auto received = listener.TakeAll();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0], data);
}

TEST(UdsClientTest, EndpointOf107CharactersIsUsedAnd108IsRefused) {
  TempDir dir;
  const std::string longest = PathOfLength(dir, 107);
  SocketListener listener(longest);
  UdsClient client(longest);
  client.Connect();
  client.Send("hello");
  client.Disconnect();
  EXPECT_EQ(listener.TakeAll(), std::vector<std::string>{"hello"});

  UdsClient too_long(PathOfLength(dir, 108));
  ExpectRuntimeError([&] { too_long.Connect(); }, "Endpoint address too long.");
}

TEST(UdsClientTest, RelativeEndpointResolvesAgainstTheCurrentDirectory) {
  TempDir dir;
  SocketListener listener(dir.File("relative.sock"));
  char previous[4096];
  ASSERT_NE(getcwd(previous, sizeof previous), nullptr);
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  UdsClient client("relative.sock");
  client.Connect();
  client.Send("r");
  client.Disconnect();
  ASSERT_EQ(chdir(previous), 0);
  EXPECT_EQ(listener.TakeAll(), std::vector<std::string>{"r"});
}

TEST(UdsClientTest, SendBeforeConnectIsRefused) {
  UdsClient client("/nonexistent/socket");
  ExpectRuntimeError([&] { client.Send("x"); }, "Not connected to an endpoint.");
}

TEST(UdsClientTest, SecondConnectKeepsTheFirstConnection) {
  TempDir dir;
  SocketListener listener(dir.File("sock"));
  UdsClient client(dir.File("sock"));
  client.Connect();
  client.Connect();
  client.Send("once");
  client.Disconnect();
  // Exactly one connection reached the listener, carrying the data.
  EXPECT_EQ(listener.TakeAll(), std::vector<std::string>{"once"});
}

TEST(UdsClientTest, FailedConnectClosesItsSocketOnceAndSaysWhy) {
  TempDir dir;
  int reused = -1;
  {
    UdsClient client(dir.File("absent"));
    ExpectRuntimeError([&] { client.Connect(); },
                       "Failed to connect socket: No such file or directory");
    EXPECT_FALSE(client.IsConnected());
    // The descriptor number the failed socket had is free again; take it, so that a second
    // close by the destructor would close this file instead.
    reused = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(reused, 0);
    ExpectRuntimeError([&] { client.Send("x"); }, "Not connected to an endpoint.");
  }  // destroys the client
  EXPECT_TRUE(IsOpen(reused));
  close(reused);
}

TEST(UdsClientTest, TooLongEndpointLeavesNoDescriptorBehind) {
  TempDir dir;
  const int before = open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(before, 0);
  close(before);
  {
    UdsClient client(PathOfLength(dir, 200));
    EXPECT_THROW(client.Connect(), std::runtime_error);
  }
  // The socket of the refused connect was closed by the destructor: the lowest free
  // descriptor is the same as before.
  const int after = open("/dev/null", O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(after, before);
  close(after);
}

TEST(UdsClientTest, SendToAPeerThatWentAwayThrowsWithoutSignal) {
  TempDir dir;
  auto listener = std::make_unique<SocketListener>(dir.File("sock"));
  UdsClient client(dir.File("sock"));
  client.Connect();
  listener.reset();  // closes the queued connection's peer
  // The process would die of SIGPIPE if the client wrote without suppressing it.
  try {
    client.Send("x");
    client.Send("y");
    ADD_FAILURE() << "sending to a closed peer succeeded";
  } catch (const std::runtime_error& e) {
    const std::string message = e.what();
    EXPECT_EQ(message.rfind("Failed to send data: ", 0), 0u) << message;
  }
}

TEST(UdsClientTest, DisconnectIsIdempotent) {
  TempDir dir;
  SocketListener listener(dir.File("sock"));
  UdsClient client(dir.File("sock"));
  client.Connect();
  client.Disconnect();
  client.Disconnect();
  EXPECT_FALSE(client.IsConnected());
  ExpectRuntimeError([&] { client.Send("x"); }, "Not connected to an endpoint.");
  // A disconnected client connects again.
  client.Connect();
  client.Send("again");
  client.Disconnect();
  const auto received = listener.TakeAll();
  ASSERT_EQ(received.size(), 2u);
  EXPECT_EQ(received[1], "again");
}

}  // namespace
}  // namespace setvault_test
