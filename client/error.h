// The two ways in which a request fails: nobody could be asked, or the module said no.
#pragma once

#include <stdint.h>

#include <stdexcept>
#include <string>

namespace erps::client {

enum class ErrorKind {
  kNoDaemon,        // the management queue does not exist
  kPermission,      // a queue exists and may not be used
  kNoDoor,          // the queue on which requests are announced does not exist
  kDoorFull,        // ... is full
  kQueueFull,       // the management queue is full
  kTimeout,         // no reply in time
  kDaemonStopped,   // the management queue went away while the reply was awaited
  kMalformedReply,  // a reply that the protocol does not allow
  kSystem,          // any other failure of the operating system
};

// The request did not reach the module, or no usable answer came back. Whether it took effect is
// known for every kind but kTimeout, kDaemonStopped and kMalformedReply: it did not.
class ClientError : public std::runtime_error {
 public:
  ClientError(ErrorKind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
  ErrorKind kind() const { return kind_; }

 private:
  ErrorKind kind_;
};

// The module answered with a return code other than 0; it changed nothing.
class Refused : public std::runtime_error {
 public:
  // what: the request in an operator's words, for example "enable ring 3".
  Refused(const std::string& what, uint32_t code);
  uint32_t code() const { return code_; }

 private:
  uint32_t code_;
};

// "name: what the errno means (errno text)"; kind kSystem.
[[noreturn]] void throw_system_error(const std::string& what, int error_number);

}  // namespace erps::client
