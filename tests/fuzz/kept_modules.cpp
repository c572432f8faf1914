// Keeps the simulator's copies of the module loaded from one input to the next.
//
// An unloaded copy would take its coverage counters with it, which the fuzzer still reads. Instead,
// a copy that is "loaded" again gets the writable memory back that it had when it was fresh. Led
// here by the linker (--wrap).
#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/fuzz/fail.h"

namespace erps::fuzz {
namespace {

struct Span {
  uint8_t* start = nullptr;
  size_t size = 0;
};

// Not memcpy: the space between two variables may not be touched for AddressSanitizer, but has to
// be copied along.
__attribute__((no_sanitize("address", "undefined"), no_builtin("memcpy"))) void copy(
    uint8_t* to, const uint8_t* from, size_t size) {
  for (size_t i = 0; i < size; i += sizeof(uint64_t)) {
    *reinterpret_cast<uint64_t*>(to + i) = *reinterpret_cast<const uint64_t*>(from + i);
  }
}

// The memory of a shared object that stays writable after it was loaded.
class WritableMemory {
 public:
  explicit WritableMemory(uintptr_t base) : base_(base) {
    dl_iterate_phdr([](dl_phdr_info* info, size_t,
                       void* self) { return static_cast<WritableMemory*>(self)->find(*info); },
                    this);
    require(!spans_.empty(), "a module without variables");
    for (const Span& span : spans_) {
      std::vector<uint8_t>& fresh = fresh_.emplace_back(span.size);
      copy(fresh.data(), span.start, span.size);
    }
  }

  void restore() const {
    for (size_t i = 0; i < spans_.size(); ++i) {
      copy(spans_[i].start, fresh_[i].data(), spans_[i].size);
    }
  }

 private:
  int find(const dl_phdr_info& info) {
    if (info.dlpi_addr != base_) {
      return 0;
    }
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    uintptr_t read_only_end = 0;
    for (ElfW(Half) i = 0; i < info.dlpi_phnum; ++i) {
      const ElfW(Phdr)& header = info.dlpi_phdr[i];
      if (header.p_type == PT_GNU_RELRO) {
        read_only_end = (base_ + header.p_vaddr + header.p_memsz) & ~(page - 1);
      }
    }
    for (ElfW(Half) i = 0; i < info.dlpi_phnum; ++i) {
      const ElfW(Phdr)& header = info.dlpi_phdr[i];
      if (header.p_type != PT_LOAD || (header.p_flags & PF_W) == 0) {
        continue;
      }
      const uintptr_t first = base_ + header.p_vaddr;
      const uintptr_t start = first < read_only_end ? read_only_end : (first + 7) & ~uintptr_t{7};
      const uintptr_t end = (first + header.p_memsz) & ~uintptr_t{7};
      if (start < end) {
        auto* bytes = reinterpret_cast<uint8_t*>(start);  // NOLINT(performance-no-int-to-ptr)
        spans_.push_back({bytes, end - start});
      }
    }
    return 1;
  }

  uintptr_t base_;
  std::vector<Span> spans_;
  std::vector<std::vector<uint8_t>> fresh_;
};

struct Kept {
  void* handle = nullptr;
  WritableMemory memory;
};

std::map<std::string, Kept>& kept() {
  static std::map<std::string, Kept> modules;
  return modules;
}

}  // namespace
}  // namespace erps::fuzz

extern "C" {

void* __real_dlopen(const char* path, int flags);
void* __wrap_dlopen(const char* path, int flags) {
  using erps::fuzz::kept;
  if (const auto found = kept().find(path); found != kept().end()) {
    found->second.memory.restore();
    return found->second.handle;
  }
  void* handle = __real_dlopen(path, flags);
  const link_map* map = nullptr;
  if (handle == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0) {
    return handle;
  }
  kept().insert({path, {handle, erps::fuzz::WritableMemory(map->l_addr)}});
  return handle;
}

int __wrap_dlclose(void* /*handle*/) {
  return 0;
}
}
