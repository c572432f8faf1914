// What must agree between the nodes of a ring, and no node can see alone.
#pragma once

#include "lab/check/daemon_files.h"

namespace erps::lab {

// Everything that the files say about each other, and the times and modes that a daemon accepts
// and a ring suffers from.
void check_daemons(const std::vector<DaemonFile>& files, const Rings& rings, Findings& findings);

// The ends of sub-rings at their interconnection nodes. Part of check_daemons.
void check_interconnections(const Rings& rings, Findings& findings);

// A finding about an option of a ring in a file.
void add(Findings& findings, Severity severity, const char* rule, const RingEntry& entry,
         const std::string& option, std::string why, std::string advice);

}  // namespace erps::lab
