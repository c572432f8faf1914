// Preloaded into a program, this steps its clock: by as many seconds as the file says that
// ERPS_STEPPED_CLOCK names, at the time of the call.
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

namespace {

long step_s() {
  const char* path = getenv("ERPS_STEPPED_CLOCK");
  const int fd = path != nullptr ? open(path, O_RDONLY | O_CLOEXEC) : -1;
  if (fd < 0) {
    return 0;
  }
  char text[32] = {};
  const ssize_t length = read(fd, text, sizeof text - 1);
  close(fd);
  return length > 0 ? std::strtol(text, nullptr, 10) : 0;
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)) {
    time->tv_sec += step_s();
  }
  return result;
}

extern "C" int gettimeofday(timeval* now, void* /*zone*/) noexcept {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  *now = {.tv_sec = time.tv_sec, .tv_usec = time.tv_nsec / 1000};
  return 0;
}

extern "C" time_t time(time_t* seconds) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (seconds != nullptr) {
    *seconds = now.tv_sec;
  }
  return now.tv_sec;
}
