// Removes the private directory when a signal ends the process, and says which seed was running.
//
// Only signals that nobody else handles are taken, and each goes on to its default action.
#pragma once

#include <cstdint>
#include <string>

namespace erps::sim {

// directory holds files named kCopyPrefix<number>kCopySuffix and nothing else.
inline constexpr char kCopyPrefix[] = "copy-";
inline constexpr char kCopySuffix[] = ".so";

void clean_up_on_signals(const std::string& directory);
// Files 0 to count - 1 exist.
void set_files_to_clean(unsigned count);
void set_crash_seed(uint64_t seed);
// From normal code as well as from a signal handler.
void remove_directory();

}  // namespace erps::sim
