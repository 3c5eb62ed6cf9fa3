#include "notify/uds_client.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "setvault/logger.h"

namespace KorvoSetvault {
namespace {

std::string Reason() { return std::strerror(errno); }

// Bounds blocking connects and writes on the socket.
void SetSendTimeout(int descriptor) {
  timeval timeout{};
  timeout.tv_sec = UdsClient::kTimeoutMs / 1000;
  timeout.tv_usec = static_cast<suseconds_t>(UdsClient::kTimeoutMs % 1000) * 1000;
  setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
}

}  // namespace

UdsClient::UdsClient(const std::string& endpoint) : endpoint_(endpoint) {}

UdsClient::~UdsClient() { Disconnect(); }

void UdsClient::Connect() {
  if (descriptor_ >= 0) return;
  // Checked before the socket exists, so that a refused endpoint leaves the
  // client unconnected with no descriptor held.
  if (endpoint_.size() > kMaxEndpointLength) throw std::runtime_error("Endpoint address too long.");
  descriptor_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (descriptor_ < 0) throw std::runtime_error("Failed to create socket: " + Reason());
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, endpoint_.data(), endpoint_.size());
  SetSendTimeout(descriptor_);
  const socklen_t length = static_cast<socklen_t>(sizeof(address.sun_family) + endpoint_.size());
  if (connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
    const std::string reason = Reason();
    Disconnect();
    throw std::runtime_error("Failed to connect socket: " + reason);
  }
}

void UdsClient::Send(const std::string& data) {
  if (descriptor_ < 0) throw std::runtime_error("Not connected to an endpoint.");
  // send() with MSG_NOSIGNAL rather than write(): a daemon that closed its
  // end must not kill the writing process with SIGPIPE.
  const ssize_t written = send(descriptor_, data.data(), data.size(), MSG_NOSIGNAL);
  if (written < 0) throw std::runtime_error("Failed to send data: " + Reason());
  if (static_cast<size_t>(written) != data.size()) {
    throw std::runtime_error("Partial write: " + std::to_string(written) + "B written, expected " +
                             std::to_string(data.size()) + "B.");
  }
}

void UdsClient::Disconnect() noexcept {
  if (descriptor_ < 0) return;
  if (close(descriptor_) != 0) {
    SVLogger::Log(0, "Failed to close socket: %s", std::strerror(errno));
  }
  descriptor_ = -1;
}

}  // namespace KorvoSetvault
