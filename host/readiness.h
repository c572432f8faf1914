// Tells whoever started the daemon that it is ready, and that it stops: the service manager by
// datagrams to the socket in $NOTIFY_SOCKET, and a script by a line on a descriptor.
//
// Threading: one thread. A receiver that is gone is no error. Logs nothing.
#pragma once

namespace erps::host {

class Readiness {
 public:
  // fd: open for writing, or -1 for none.
  explicit Readiness(int fd) : fd_(fd) {}

  // Writes "READY\n" to the descriptor and closes it.
  void ready();
  void stopping() const;

 private:
  int fd_;
};

}  // namespace erps::host
