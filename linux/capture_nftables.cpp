#include <nftables/libnftables.h>

#include <cctype>
#include <cstdio>
#include <stdexcept>

#include "linux/capture_mechanism.h"

namespace erps::linux_platform {
namespace {

struct ContextDeleter {
  void operator()(nft_ctx* context) const { nft_ctx_free(context); }
};

std::string mac_text(const MacAddress& mac) {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                mac[4], mac[5]);
  return text;
}

// A table name may hold letters, digits and underscores; anything else of the bridge's name is
// written as a number.
std::string table_name(const std::string& bridge) {
  std::string name = "erps_";
  for (const char c : bridge) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) != 0) {
      name += c;
    } else {
      char text[8];
      std::snprintf(text, sizeof text, "_%02x", byte);
      name += text;
    }
  }
  return name;
}

// One transaction each: what was there goes when what comes is there, so no frame slips through.
class NftablesCapture final : public CaptureMechanism {
 public:
  explicit NftablesCapture(const std::string& bridge)
      : table_(table_name(bridge)), context_(nft_ctx_new(NFT_CTX_DEFAULT)) {
    if (context_ != nullptr) {
      nft_ctx_buffer_output(context_.get());
      nft_ctx_buffer_error(context_.get());
    }
  }

  std::string name() const override { return "nftables netdev ingress"; }

  std::string probe(const std::vector<CaptureEntry>& entries) override {
    std::string error = install(entries);
    remove();
    return error;
  }

  std::string install(const std::vector<CaptureEntry>& entries) override {
    std::string script = "add table netdev " + table_ + "\ndelete table netdev " + table_ + "\n";
    if (!entries.empty()) {
      script += "add table netdev " + table_ + "\n";
    }
    size_t number = 0;
    for (const CaptureEntry& entry : entries) {
      if (entry.interface.find_first_of("\"\\") != std::string::npos) {
        return "interface name " + entry.interface + " cannot be written in a rule";
      }
      const std::string chain = table_ + " raps" + std::to_string(number++);
      // "meta protocol": the EtherType behind a tag that the kernel has taken out of the frame.
      char match[128];
      std::snprintf(match, sizeof match, "meta protocol 0x%04x ether daddr & %s == %s",
                    entry.match.ether_type, mac_text(entry.match.mask).c_str(),
                    mac_text(masked(entry.match)).c_str());
      script += "add chain netdev " + chain + " { type filter hook ingress device \"" +
                entry.interface + "\" priority -450 ; policy accept ; }\n";
      script += "add rule netdev " + chain + " " + match + " counter drop\n";
    }
    return run(script);
  }

  void remove() override { install({}); }

 private:
  static MacAddress masked(const FrameMatch& match) {
    MacAddress result{};
    for (size_t i = 0; i < result.size(); ++i) {
      result[i] = match.destination[i] & match.mask[i];
    }
    return result;
  }

  std::string run(const std::string& script) {
    if (context_ == nullptr) {
      return "libnftables cannot be used";
    }
    const bool done = nft_run_cmd_from_buffer(context_.get(), script.c_str()) == 0;
    std::string error = nft_ctx_get_error_buffer(context_.get());
    nft_ctx_get_output_buffer(context_.get());
    if (done) {
      return {};
    }
    error = error.substr(0, error.find('\n'));
    return error.empty() ? "refused" : error;
  }

  const std::string table_;
  std::unique_ptr<nft_ctx, ContextDeleter> context_;
};

}  // namespace

std::unique_ptr<CaptureMechanism> make_nftables_capture(const std::string& bridge) {
  return std::make_unique<NftablesCapture>(bridge);
}

}  // namespace erps::linux_platform
