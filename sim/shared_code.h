// Lets all copies of the module run the same code in memory.
//
// Every copy has files and addresses of its own, but code that needs no relocation is the same in
// all of them. Mapped from one file it is there once, and a processor that serves hundreds of nodes
// in turn finds it in its caches.
#pragma once

#include <link.h>

namespace erps::sim {

// Maps the executable segments of a loaded object anew, from a file of the same content. Errors:
// SimError. Nothing happens when the object has no such segment that stands alone in its pages.
void share_code(const link_map& object, int file);

}  // namespace erps::sim
