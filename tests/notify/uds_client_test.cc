// UdsClient against real sockets: calling order, endpoint length limits, a descriptor that is
// closed exactly once, and a peer that went away.
#include <fcntl.h>
#include <gtest/gtest.h>

#include "model/thrown.h"
#include "notify/socket_listener.h"
#include "notify/uds_client.h"
#include "support/temp_dir.h"

namespace setvault_test {
namespace {

using KorvoSetvault::UdsClient;

// The message of the std::runtime_error a call throws, or "" when none.
constexpr auto Error = &KorvoSetvault::MessageOf<std::runtime_error>;

// The lowest free descriptor number.
int LowestFree() {
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(fd);
  return fd;
}

// Through a relative endpoint of 107 characters (the longest that fits): Send needs a connection, a
// second Connect keeps the first, Disconnect may repeat and a disconnected client connects again;
// the whole buffer arrives, NULs and all. A peer that went away gives an error, not SIGPIPE.
TEST(UdsClientTest, SendsWholeBuffersOverOneConnectionAtATime) {
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
  EXPECT_EQ(Error([&] { client.Send("x"); }), "Not connected to an endpoint.");
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
  EXPECT_EQ(Error([&] { UdsClient(endpoint + "s").Connect(); }), "Endpoint address too long.");
  ASSERT_EQ(chdir(previous), 0);
}

// A refused connect holds no socket afterwards and closes it only once: a second close would close
// whatever file took the number meanwhile.
TEST(UdsClientTest, RefusedConnectClosesItsSocketOnceAndSaysWhy) {
  TempDir dir;
  const std::pair<std::string, const char*> cases[] = {
      {dir.File("absent"), "Failed to connect socket: No such file or directory"},
      {dir.File(std::string(108, 's')), "Endpoint address too long."},
  };
  for (const auto& [endpoint, message] : cases) {
    const int before = LowestFree();
    int reused = -1;
    {
      UdsClient client(endpoint);
      EXPECT_EQ(Error([&] { client.Connect(); }), message);
      EXPECT_FALSE(client.IsConnected()) << message;
      EXPECT_EQ(LowestFree(), before) << message;
      reused = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
    EXPECT_NE(fcntl(reused, F_GETFD), -1) << message;
    close(reused);
    EXPECT_EQ(LowestFree(), before) << message;
  }
}

}  // namespace
}  // namespace setvault_test
