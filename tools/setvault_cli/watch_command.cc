// watch: stands in for the host management daemon and prints every change
// notification the library sends to its socket.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <iostream>

#include "setvault_cli/commands.h"
#include "setvault_cli/json_io.h"
#include "setvault_cli/output.h"

namespace setvault_tool {
namespace {

using KorvoSetvault::JsonValue;

struct WatchArgs {
  int count = 0;       // stop after this many; 0: never
  double timeout = 0;  // stop after this many seconds; 0: never
};

volatile std::sig_atomic_t g_stop = 0;

void OnSignal(int) { g_stop = 1; }

std::string Now() {
  char text[32];
  const std::time_t now = std::time(nullptr);
  std::tm utc;
  gmtime_r(&now, &utc);
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

// The request's body reduced to what changed and who changed it; the raw
// body when it is not the expected request.
std::string Describe(const std::string& request) {
  const size_t body = request.find("\r\n\r\n");
  const std::string text = body == std::string::npos ? request : request.substr(body + 4);
  std::string identifiers = "null";
  std::string pid = "null";
  try {
    auto doc = KorvoSetvault::CreateDocumentFromString(text);
    const JsonValue& input =
        (*doc->GetJsonValuePtr())["params"]["input"]["STRUCTURE"]["operation-input"];
    identifiers = Serialize(input["identifiers"]);
    pid = Serialize(input["cartel_id"]);
  } catch (const std::exception&) {
    return "{\"time\":" + Quote(Now()) + ",\"request\":" + Quote(text) + "}";
  }
  return "{\"time\":" + Quote(Now()) + ",\"identifiers\":" + identifiers + ",\"pid\":" + pid + "}";
}

int Listen(const std::string& path) {
  sockaddr_un address{};
  if (path.size() >= sizeof address.sun_path)
    throw ToolError(kExitFailed, "socket path too long: " + path);
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  unlink(path.c_str());  // a socket left by an earlier watch
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(fd, 16) != 0) {
    const std::string reason = std::strerror(errno);
    if (fd >= 0) close(fd);
    throw ToolError(kExitFailed, "cannot listen on " + path + ": " + reason);
  }
  return fd;
}

std::string ReadAll(int fd) {
  std::string data;
  char buffer[4096];
  pollfd wait{fd, POLLIN, 0};
  while (data.size() < (1 << 20) && poll(&wait, 1, 1000) > 0) {
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n <= 0) break;
    data.append(buffer, static_cast<size_t>(n));
  }
  return data;
}

int Watch(const WatchArgs& args) {
  const std::string path = KorvoSetvault::GetNotifySocketPath();
  const int listener = Listen(path);
  std::signal(SIGINT, OnSignal);
  std::signal(SIGTERM, OnSignal);
  Note("listening on " + path +
       " (changes are sent while the host flag NOTIFY_NEXD is \"true\" "
       "and the type is in the allowlist)");
  const auto deadline = std::chrono::steady_clock::now() +
                        std::chrono::milliseconds(static_cast<long>(args.timeout * 1000));
  int received = 0;
  while (!g_stop && (args.count == 0 || received < args.count)) {
    int wait_ms = -1;
    if (args.timeout > 0) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) break;
      wait_ms = static_cast<int>(left.count());
    }
    pollfd wait{listener, POLLIN, 0};
    if (poll(&wait, 1, wait_ms) <= 0) continue;
    const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) continue;
    const std::string request = ReadAll(client);
    close(client);
    PrintJson(Describe(request));
    std::cout.flush();
    ++received;
  }
  close(listener);
  unlink(path.c_str());
  return args.count > 0 && received < args.count ? kExitNotFound : kExitOk;
}

}  // namespace

void AddWatchCommand(CLI::App* app) {
  static WatchArgs args;
  auto* watch = AddCommand(
      app, "watch", "Print the change notifications of the store",
      "Listens on the notification socket, standing in for the host management daemon,\n"
      "and prints one line per notification: time (UTC), changed types and the writer's\n"
      "process id. Writers send them while the host flag NOTIFY_NEXD is \"true\" for the\n"
      "types of the allowlist (--notify-allowlist). Writers and watch must agree on\n"
      "--notify-dir. Exit status 3 when --count notifications did not arrive in time.",
      "setvault --notify-dir /tmp watch --count 1 --timeout 30", [] { return Watch(args); });
  watch->add_option("--count", args.count, "Stop after this many notifications");
  watch->add_option("--timeout", args.timeout, "Stop after this many seconds");
}

}  // namespace setvault_tool
