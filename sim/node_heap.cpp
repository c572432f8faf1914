#include "sim/node_heap.h"

#include <cstdlib>

namespace erps::sim {

void* NodeHeap::allocate(size_t bytes) {
  auto* block = static_cast<Block*>(std::malloc(sizeof(Block) + bytes));
  if (block == nullptr) {
    return nullptr;
  }
  *block = {this, nullptr, first_};
  if (first_ != nullptr) {
    first_->before = block;
  }
  first_ = block;
  ++blocks_;
  return block + 1;
}

bool NodeHeap::release(void* memory) {
  if (memory == nullptr) {
    return true;
  }
  Block* block = static_cast<Block*>(memory) - 1;
  if (block->heap != this) {
    return false;
  }
  block->heap = nullptr;
  (block->before != nullptr ? block->before->behind : first_) = block->behind;
  if (block->behind != nullptr) {
    block->behind->before = block->before;
  }
  --blocks_;
  std::free(block);
  return true;
}

void NodeHeap::release_all() {
  while (first_ != nullptr) {
    Block* block = first_;
    first_ = block->behind;
    block->heap = nullptr;
    std::free(block);
  }
  blocks_ = 0;
}

}  // namespace erps::sim
