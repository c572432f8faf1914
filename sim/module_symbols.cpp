#include "sim/module_symbols.h"

#include <cxxabi.h>
#include <elf.h>
#include <link.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>

#include "sim/sim_error.h"

namespace erps::sim {

namespace {

// The bytes of a file, read where the tables in it say.
class Image {
 public:
  explicit Image(const std::string& path) : path_(path) {
    std::ifstream file(path, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(file), {});
    if (bytes_.empty()) {
      throw SimError("cannot read the module " + path + ": " + std::strerror(errno));
    }
  }

  template <typename T>
  T at(uint64_t offset) const {
    if (offset > bytes_.size() || bytes_.size() - offset < sizeof(T)) {
      throw SimError(path_ + " is cut short: its tables point behind its end");
    }
    T value;
    std::memcpy(&value, bytes_.data() + offset, sizeof value);
    return value;
  }

  std::string text_at(uint64_t offset) const {
    if (offset >= bytes_.size()) {
      throw SimError(path_ + " is cut short: its tables point behind its end");
    }
    return {bytes_.data() + offset, strnlen(bytes_.data() + offset, bytes_.size() - offset)};
  }

 private:
  const std::string& path_;
  std::vector<char> bytes_;
};

ElfW(Ehdr) read_header(const Image& image, const std::string& path) {
  const auto header = image.at<ElfW(Ehdr)>(0);
  constexpr unsigned char kClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
  if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != kClass) {
    throw SimError(path + " is no shared object of this machine");
  }
  return header;
}

std::string without_mangling(const std::string& name) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> text(
      abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status), &std::free);
  return status == 0 ? text.get() : name;
}

bool is_named(const std::string& symbol, std::string_view name) {
  if (symbol.find(name) == std::string::npos) {
    return false;
  }
  const std::string plain = without_mangling(symbol);
  const std::string qualified = "::" + std::string(name);
  return plain == name ||
         (plain.size() > qualified.size() &&
          plain.compare(plain.size() - qualified.size(), qualified.size(), qualified) == 0);
}

}  // namespace

ModuleSymbols::ModuleSymbols(const std::string& path) : path_(path) {
  const Image image(path_);
  const auto header = read_header(image, path_);
  const auto section = [&](uint64_t index) {
    return image.at<ElfW(Shdr)>(header.e_shoff + index * header.e_shentsize);
  };
  for (uint64_t index = 0; index < header.e_shnum; ++index) {
    const auto table = section(index);
    if (table.sh_type != SHT_SYMTAB) {
      continue;
    }
    const uint64_t names = section(table.sh_link).sh_offset;
    for (uint64_t at = 0; at + sizeof(ElfW(Sym)) <= table.sh_size; at += sizeof(ElfW(Sym))) {
      const auto symbol = image.at<ElfW(Sym)>(table.sh_offset + at);
      if (ELF64_ST_TYPE(symbol.st_info) == STT_OBJECT && symbol.st_shndx != SHN_UNDEF) {
        variables_.push_back(
            {image.text_at(names + symbol.st_name), symbol.st_value, symbol.st_size});
      }
    }
  }
  if (variables_.empty()) {
    throw SimError("the module " + path_ +
                   " names no variables, it has been stripped: its records are found in an "
                   "unstripped build only");
  }
}

const ModuleSymbols::Variable& ModuleSymbols::variable(std::string_view name) const {
  const Variable* found = nullptr;
  for (const Variable& variable : variables_) {
    if (!is_named(variable.name, name)) {
      continue;
    }
    if (found != nullptr) {
      throw SimError("the module " + path_ + " has more than one variable " + std::string(name));
    }
    found = &variable;
  }
  if (found == nullptr) {
    throw SimError("the module " + path_ + " has no variable " + std::string(name));
  }
  return *found;
}

}  // namespace erps::sim
