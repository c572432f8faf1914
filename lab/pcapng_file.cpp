#include "lab/pcapng_file.h"

#include <unistd.h>

#include <cstring>

#include "lab/lab_error.h"

namespace erps::lab {

namespace {

constexpr uint32_t kSectionHeader = 0x0A0D0D0A;
constexpr uint32_t kInterfaceDescription = 1;
constexpr uint32_t kEnhancedPacket = 6;
constexpr uint32_t kByteOrderMagic = 0x1A2B3C4D;
constexpr uint16_t kEndOfOptions = 0;
constexpr uint16_t kApplicationOption = 4;    // of a section
constexpr uint16_t kInterfaceNameOption = 2;  // of an interface
constexpr uint16_t kStampResolutionOption = 9;
constexpr uint16_t kFlagsOption = 2;  // of a frame
constexpr uint8_t kNanoseconds = 9;   // 10 to the power of minus 9
constexpr uint16_t kEthernet = 1;
constexpr uint32_t kInbound = 1;
constexpr uint32_t kOutbound = 2;

class Body {
 public:
  template <typename Number>
  void put(Number number) {
    put_bytes(&number, sizeof number);
  }
  void put_bytes(const void* bytes, size_t length) {
    const size_t at = bytes_.size();
    bytes_.resize(at + length);
    std::memcpy(bytes_.data() + at, bytes, length);
  }
  void pad() { bytes_.resize((bytes_.size() + 3) / 4 * 4, 0); }
  void put_option(uint16_t code, const void* value, size_t length) {
    put(code);
    put(static_cast<uint16_t>(length));
    put_bytes(value, length);
    pad();
  }
  void end_options() {
    put(kEndOfOptions);
    put(uint16_t{0});
  }
  const std::vector<uint8_t>& bytes() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace

PcapngFile::PcapngFile(UniqueFd file, const std::string& application,
                       const std::vector<std::string>& interfaces)
    : file_(std::move(file)) {
  Body section;
  section.put(kByteOrderMagic);
  section.put(uint16_t{1});  // version 1.0
  section.put(uint16_t{0});
  section.put(int64_t{-1});  // length of the section: not given
  section.put_option(kApplicationOption, application.data(), application.size());
  section.end_options();
  write_block(kSectionHeader, section.bytes());
  for (const std::string& name : interfaces) {
    Body interface;
    interface.put(kEthernet);
    interface.put(uint16_t{0});
    interface.put(uint32_t{0});  // frames are not cut short
    interface.put_option(kInterfaceNameOption, name.data(), name.size());
    interface.put_option(kStampResolutionOption, &kNanoseconds, 1);
    interface.end_options();
    write_block(kInterfaceDescription, interface.bytes());
  }
}

void PcapngFile::write(const CapturedFrame& frame) {
  Body body;
  const auto stamp = static_cast<uint64_t>(frame.real_ns);
  const auto length = static_cast<uint32_t>(frame.bytes.size());
  const uint32_t flags = frame.outgoing ? kOutbound : kInbound;
  body.put(frame.interface);
  body.put(static_cast<uint32_t>(stamp >> 32));
  body.put(static_cast<uint32_t>(stamp));
  body.put(length);
  body.put(length);
  body.put_bytes(frame.bytes.data(), frame.bytes.size());
  body.pad();
  body.put_option(kFlagsOption, &flags, sizeof flags);
  body.end_options();
  write_block(kEnhancedPacket, body.bytes());
}

void PcapngFile::write_block(uint32_t type, const std::vector<uint8_t>& body) {
  const auto length = static_cast<uint32_t>(body.size() + 12);
  Body block;
  block.put(type);
  block.put(length);
  block.put_bytes(body.data(), body.size());
  block.put(length);
  const auto& bytes = block.bytes();
  if (::write(file_.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    throw system_error("capture file");
  }
}

}  // namespace erps::lab
