#include "host/readiness.h"

#include <errno.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>

namespace erps::host {

namespace {

void notify(const std::string& state) {
  const char* path = getenv("NOTIFY_SOCKET");
  sockaddr_un address{};
  if (path == nullptr || (*path != '/' && *path != '@') ||
      strlen(path) >= sizeof address.sun_path) {
    return;
  }
  address.sun_family = AF_UNIX;
  memcpy(address.sun_path, path, strlen(path));
  if (*path == '@') {
    address.sun_path[0] = '\0';  // an abstract socket
  }
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    return;
  }
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strlen(path));
  sendto(fd, state.data(), state.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
         reinterpret_cast<const sockaddr*>(&address), length);
  close(fd);
}

}  // namespace

void Readiness::ready() {
  notify("READY=1");
  if (fd_ < 0) {
    return;
  }
  constexpr char kLine[] = "READY\n";
  while (write(fd_, kLine, sizeof kLine - 1) < 0 && errno == EINTR) {
  }
  close(fd_);
  fd_ = -1;
}

void Readiness::stopping() const {
  notify("STOPPING=1");
}

}  // namespace erps::host
