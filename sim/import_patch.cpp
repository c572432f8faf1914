#include "sim/import_patch.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "sim/import_table.h"
#include "sim/sim_error.h"

namespace erps::sim {

namespace {

#if defined(__x86_64__)
constexpr uint32_t kSymbolRelocations[] = {R_X86_64_JUMP_SLOT, R_X86_64_GLOB_DAT, R_X86_64_64};
#elif defined(__aarch64__)
constexpr uint32_t kSymbolRelocations[] = {R_AARCH64_JUMP_SLOT, R_AARCH64_GLOB_DAT,
                                           R_AARCH64_ABS64};
#else
#error "the relocations of this machine are not known here"
#endif

struct Tables {
  const ElfW(Sym) * symbols = nullptr;
  const char* names = nullptr;
  const ElfW(Rela) * relocations = nullptr;
  size_t relocation_bytes = 0;
  const ElfW(Rela) * jumps = nullptr;
  size_t jump_bytes = 0;
};

Tables read_tables(const link_map& object) {
  // The dynamic section holds addresses or offsets, as the loader likes it.
  const auto at = [&](ElfW(Addr) value) {
    const uintptr_t address = value < object.l_addr ? object.l_addr + value : value;
    return reinterpret_cast<const void*>(address);  // NOLINT(performance-no-int-to-ptr)
  };
  Tables tables;
  for (const ElfW(Dyn)* entry = object.l_ld; entry->d_tag != DT_NULL; ++entry) {
    switch (entry->d_tag) {
      case DT_SYMTAB:
        tables.symbols = static_cast<const ElfW(Sym)*>(at(entry->d_un.d_ptr));
        break;
      case DT_STRTAB:
        tables.names = static_cast<const char*>(at(entry->d_un.d_ptr));
        break;
      case DT_RELA:
        tables.relocations = static_cast<const ElfW(Rela)*>(at(entry->d_un.d_ptr));
        break;
      case DT_RELASZ:
        tables.relocation_bytes = entry->d_un.d_val;
        break;
      case DT_JMPREL:
        tables.jumps = static_cast<const ElfW(Rela)*>(at(entry->d_un.d_ptr));
        break;
      case DT_PLTRELSZ:
        tables.jump_bytes = entry->d_un.d_val;
        break;
      default:
        break;
    }
  }
  if (tables.symbols == nullptr || tables.names == nullptr) {
    throw SimError("the module has no table of its symbols");
  }
  if (tables.relocations == nullptr) {
    tables.relocation_bytes = 0;
  }
  if (tables.jumps == nullptr) {
    tables.jump_bytes = 0;
  }
  return tables;
}

// Makes what the loader has made read-only after relocation writable, for the life of this object.
class WritableRelocations {
 public:
  explicit WritableRelocations(const link_map& object) : base_(object.l_addr) {
    dl_iterate_phdr([](dl_phdr_info* info, size_t,
                       void* self) { return static_cast<WritableRelocations*>(self)->find(*info); },
                    this);
    protect(PROT_READ | PROT_WRITE);
  }
  ~WritableRelocations() { mprotect(start_, size_, PROT_READ); }
  WritableRelocations(const WritableRelocations&) = delete;
  WritableRelocations& operator=(const WritableRelocations&) = delete;

 private:
  int find(const dl_phdr_info& info) {
    if (info.dlpi_addr != base_) {
      return 0;
    }
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    for (ElfW(Half) i = 0; i < info.dlpi_phnum; ++i) {
      const ElfW(Phdr)& header = info.dlpi_phdr[i];
      if (header.p_type == PT_GNU_RELRO) {
        const uintptr_t start = (base_ + header.p_vaddr) & ~(page - 1);
        const uintptr_t end = (base_ + header.p_vaddr + header.p_memsz) & ~(page - 1);
        start_ = reinterpret_cast<void*>(start);  // NOLINT(performance-no-int-to-ptr)
        size_ = end - start;
      }
    }
    return 1;
  }

  void protect(int protection) {
    if (size_ != 0 && mprotect(start_, size_, protection) != 0) {
      throw SimError("cannot make the module's imports writable");
    }
  }

  uintptr_t base_;
  void* start_ = nullptr;
  size_t size_ = 0;
};

bool names_a_symbol(uint32_t type) {
  for (const uint32_t known : kSymbolRelocations) {
    if (type == known) {
      return true;
    }
  }
  return false;
}

void redirect(const link_map& object, const Tables& tables, const ElfW(Rela) & relocation,
              ImportLookup supplied, Redirected& result) {
  if (!names_a_symbol(ELF64_R_TYPE(relocation.r_info))) {
    return;
  }
  const ElfW(Sym)& symbol = tables.symbols[ELF64_R_SYM(relocation.r_info)];
  const std::string name = tables.names + symbol.st_name;
  const uintptr_t address = object.l_addr + relocation.r_offset;
  auto* slot = reinterpret_cast<uintptr_t*>(address);  // NOLINT(performance-no-int-to-ptr)
  if (ELF64_ST_BIND(symbol.st_info) == STB_GNU_UNIQUE) {
    throw SimError("the module shares " + name + " among all its copies in a process");
  }
  if (symbol.st_shndx != SHN_UNDEF) {
    if (*slot != object.l_addr + symbol.st_value + static_cast<uintptr_t>(relocation.r_addend)) {
      throw SimError("the module's " + name + " has been captured by another object");
    }
    return;
  }
  if (void* replacement = supplied(name); replacement != nullptr) {
    *slot = reinterpret_cast<uintptr_t>(replacement);
  } else if (!is_allowed_import(name)) {
    throw SimError("the module imports " + name +
                   ", which the simulator neither supplies nor allows: runs of one seed would "
                   "differ");
  } else {
    result.keeps_books = result.keeps_books || keeps_books(name);
  }
}

}  // namespace

Redirected redirect_imports(const link_map& object, ImportLookup supplied) {
  const Tables tables = read_tables(object);
  const WritableRelocations writable(object);
  Redirected result;
  for (size_t i = 0; i < tables.relocation_bytes / sizeof(ElfW(Rela)); ++i) {
    redirect(object, tables, tables.relocations[i], supplied, result);
  }
  for (size_t i = 0; i < tables.jump_bytes / sizeof(ElfW(Rela)); ++i) {
    redirect(object, tables, tables.jumps[i], supplied, result);
  }
  return result;
}

}  // namespace erps::sim
