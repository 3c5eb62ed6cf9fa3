// UdsClient: a one-shot client of a local stream socket. Connects to a named
// endpoint, writes buffers, closes; nothing is read back.
#ifndef SETVAULT_SRC_NOTIFY_UDS_CLIENT_H_
#define SETVAULT_SRC_NOTIFY_UDS_CLIENT_H_

#include <string>

namespace KorvoSetvault {

class UdsClient {
 public:
  // Longest endpoint name that fits a socket address with its NUL.
  static constexpr size_t kMaxEndpointLength = 107;
  // Bound on how long Connect and Send may wait for a busy peer (a full
  // listen queue, a peer that does not read), in milliseconds.
  static constexpr int kTimeoutMs = 250;

  // Stores the endpoint (a socket path; relative to the current directory
  // unless absolute). Does not connect.
  explicit UdsClient(const std::string& endpoint);
  ~UdsClient();
  UdsClient(const UdsClient&) = delete;
  UdsClient& operator=(const UdsClient&) = delete;

  // Connects; nothing when already connected. Throws std::runtime_error
  // "Failed to create socket: <reason>", "Endpoint address too long." or
  // "Failed to connect socket: <reason>".
  void Connect();
  // Writes `data` in one call. Throws std::runtime_error "Not connected to an
  // endpoint.", "Failed to send data: <reason>" or "Partial write: <n>B
  // written, expected <size>B.". A peer that went away never raises SIGPIPE.
  void Send(const std::string& data);
  // Closes the socket if open; logs a failing close. Never throws.
  void Disconnect() noexcept;

  bool IsConnected() const { return descriptor_ >= 0; }

 private:
  std::string endpoint_;
  int descriptor_ = -1;
};

}  // namespace KorvoSetvault

#endif  // SETVAULT_SRC_NOTIFY_UDS_CLIENT_H_
