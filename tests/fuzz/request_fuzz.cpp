// Management requests of any content and length into the server, in any order, with links, frames,
// timers and failing platform calls between them.
#include "tests/fuzz/session.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using erps::fuzz::Session;
  constexpr int kMostSteps = 64;
  erps::fuzz::Input input(data, size);
  Session session(input);
  for (int step = 0; step < kMostSteps && !input.empty(); ++step) {
    switch (input.byte() % 16) {
      case 0:
      case 1:
        session.raw_request();
        break;
      case 2:
        session.link_change();
        break;
      case 3:
        session.time_passes();
        break;
      case 4:
        session.short_frame();
        break;
      case 5:
        session.platform_fails();
        break;
      case 6:
        session.hold_events();
        break;
      default:
        session.request();
        break;
    }
  }
  return 0;
}
