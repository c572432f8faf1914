// Frames of any content and length into reception, at nodes of every role, with links, timers and
// failing platform calls around them.
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
        session.raw_frame();
        break;
      case 1:
        session.patched_frame();
        break;
      case 2:
        session.link_change();
        break;
      case 3:
        session.time_passes();
        break;
      case 4:
        session.request();
        break;
      case 5:
        session.platform_fails();
        break;
      case 6:
        session.hold_events();
        break;
      default:
        session.short_frame();
        break;
    }
  }
  return 0;
}
