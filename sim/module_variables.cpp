#include "sim/module_variables.h"

#include <link.h>
#include <unistd.h>

#include <algorithm>

#include "sim/sim_error.h"

namespace erps::sim {

namespace {

struct Segment {
  uintptr_t load_address = 0;
  uintptr_t begin = 0;
  uintptr_t end = 0;
};

int find_writable(dl_phdr_info* info, size_t /*size*/, void* data) {
  auto& segment = *static_cast<Segment*>(data);
  if (info->dlpi_addr != segment.load_address) {
    return 0;
  }
  const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  uintptr_t read_only_end = 0;
  for (ElfW(Half) i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)& header = info->dlpi_phdr[i];
    const uintptr_t begin = info->dlpi_addr + header.p_vaddr;
    const uintptr_t end = begin + header.p_memsz;
    if (header.p_type == PT_GNU_RELRO) {
      read_only_end = end & ~(page - 1);
    } else if (header.p_type == PT_LOAD && (header.p_flags & PF_W) != 0) {
      segment.begin = begin;
      segment.end = end;
    }
  }
  segment.begin = std::max(segment.begin, read_only_end);
  return 1;
}

}  // namespace

ModuleVariables variables_at(uintptr_t load_address) {
  constexpr uintptr_t kWord = sizeof(uint64_t);
  Segment segment;
  segment.load_address = load_address;
  dl_iterate_phdr(find_writable, &segment);
  segment.begin = segment.begin / kWord * kWord;
  segment.end = (segment.end + kWord - 1) / kWord * kWord;
  if (segment.begin >= segment.end) {
    throw SimError("the variables of the module are not found in its memory");
  }
  auto* words = reinterpret_cast<uint64_t*>(segment.begin);  // NOLINT(performance-no-int-to-ptr)
  return {words, (segment.end - segment.begin) / kWord};
}

}  // namespace erps::sim
