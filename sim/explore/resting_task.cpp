#include "sim/explore/resting_task.h"

#include <sys/mman.h>

#include <boost/context/detail/fcontext.hpp>
#include <cstdlib>
#include <cstring>

#include "sim/sim_error.h"

namespace erps::sim::explore {

namespace {

namespace context = boost::context::detail;

// Unoptimised and instrumented code needs several times what the module needs otherwise.
constexpr size_t kPage = 4096;
constexpr size_t kStackBytes = size_t{256} * 1024;

}  // namespace

RestingTask::RestingTask() {
  void* memory = mmap(nullptr, kPage + kStackBytes, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
  if (memory == MAP_FAILED || mprotect(memory, kPage, PROT_NONE) != 0) {
    throw SimError("no memory for the stack of a task");
  }
  memory_ = static_cast<std::byte*>(memory);
  top_ = memory_ + kPage + kStackBytes;
}

RestingTask::~RestingTask() {
  munmap(memory_, kPage + kStackBytes);
}

void RestingTask::start(void (*body)(void*), void* argument) {
  body_ = body;
  argument_ = argument;
  ended_ = false;
  jump(context::make_fcontext(top_, kStackBytes, [](context::transfer_t from) {
    static_cast<RestingTask*>(from.data)->outside_ = from.fctx;
    enter(from.data);
  }));
}

void RestingTask::enter(void* self) {
  auto* task = static_cast<RestingTask*>(self);
  task->body_(task->argument_);
  task->ended_ = true;
  context::jump_fcontext(task->outside_, nullptr);
  std::abort();
}

void RestingTask::jump(void* to) {
  inside_ = context::jump_fcontext(to, this).fctx;
  if (ended_) {
    return;
  }
  if (resting_place_ == nullptr) {
    resting_place_ = inside_;
    const auto* live = static_cast<const std::byte*>(inside_);
    resting_stack_.assign(live, static_cast<const std::byte*>(top_));
  } else if (inside_ != resting_place_) {
    throw SimError("a task of the module rests at another place than before");
  }
}

void RestingTask::resume() {
  std::memcpy(resting_place_, resting_stack_.data(), resting_stack_.size());
  jump(resting_place_);
}

void RestingTask::rest() {
  outside_ = context::jump_fcontext(outside_, nullptr).fctx;
}

}  // namespace erps::sim::explore
