#include "sim/shared_code.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>

#include "sim/sim_error.h"

namespace erps::sim {

namespace {

struct Search {
  uintptr_t base;
  int file;
  int error = 0;
};

void map_again(Search& search, const ElfW(Phdr) & segment) {
  const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const uintptr_t address = search.base + segment.p_vaddr;
  if (address % page != 0 || segment.p_offset % page != 0) {
    return;
  }
  void* code = reinterpret_cast<void*>(address);  // NOLINT(performance-no-int-to-ptr)
  if (mmap(code, segment.p_filesz, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_FIXED, search.file,
           static_cast<off_t>(segment.p_offset)) == MAP_FAILED) {
    search.error = errno;
  }
}

int map_code_again(dl_phdr_info* info, size_t /*size*/, void* data) {
  auto& search = *static_cast<Search*>(data);
  if (info->dlpi_addr != search.base) {
    return 0;
  }
  for (ElfW(Half) i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)& segment = info->dlpi_phdr[i];
    if (segment.p_type == PT_LOAD && (segment.p_flags & (PF_X | PF_W)) == PF_X) {
      map_again(search, segment);
    }
  }
  return 1;
}

}  // namespace

void share_code(const link_map& object, int file) {
  Search search{object.l_addr, file};
  dl_iterate_phdr(map_code_again, &search);
  if (search.error != 0) {
    throw SimError(std::string("cannot share the code of the module among its copies: ") +
                   std::strerror(search.error));
  }
}

}  // namespace erps::sim
