// The memory of one node: what its copy of the module has allocated and not released. A node that
// loses its power loses it all.
//
// Threading: one thread. Errors: release() answers false for what is not a live block.
#pragma once

#include <cstddef>

namespace erps::sim {

class NodeHeap {
 public:
  NodeHeap() = default;
  ~NodeHeap() { release_all(); }
  NodeHeap(const NodeHeap&) = delete;
  NodeHeap& operator=(const NodeHeap&) = delete;

  void* allocate(size_t bytes);
  [[nodiscard]] bool release(void* memory);
  void release_all();
  size_t blocks() const { return blocks_; }

 private:
  struct alignas(std::max_align_t) Block {
    NodeHeap* heap;  // null once released
    Block* before;
    Block* behind;
  };

  Block* first_ = nullptr;
  size_t blocks_ = 0;
};

}  // namespace erps::sim
