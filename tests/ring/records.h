// What a simulation recorded, for tests to look through.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "sim/observer.h"

namespace erps::sim {

class Records final : public Observer {
 public:
  void on_record(const Record& record) override { records_.push_back(record); }

  template <typename Chosen>
  size_t count(Chosen chosen) const {
    return static_cast<size_t>(std::count_if(records_.begin(), records_.end(), chosen));
  }
  size_t count(RecordKind kind, NodeIndex node) const {
    return count([=](const Record& record) { return record.kind == kind && record.node == node; });
  }
  size_t count(RecordKind kind) const {
    return count([=](const Record& record) { return record.kind == kind; });
  }

 private:
  std::vector<Record> records_;
};

}  // namespace erps::sim
