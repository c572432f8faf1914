// Questions about a network as a graph.
#pragma once

#include "sim/forwarding.h"

namespace erps::sim {

// Whether a frame that nobody takes off the network could travel for ever: through forwarding
// strands, never back out of the port it came in through.
bool has_loop(const Forwarding& forwarding);

// Whether two nodes that working links join cannot reach each other through forwarding ones. A link
// counts where both of its strands do.
bool has_partition(const Forwarding& forwarding);

}  // namespace erps::sim
