#include "sim/fiber.h"

#include <cxxabi.h>
#include <sys/mman.h>

#include <boost/context/detail/fcontext.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "sim/race_detector.h"
#include "sim/sim_error.h"

#if defined(__has_feature)
#define ERPS_HAS_FEATURE(feature) __has_feature(feature)
#else
#define ERPS_HAS_FEATURE(feature) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || ERPS_HAS_FEATURE(address_sanitizer)
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#define ERPS_ADDRESS_SANITIZER 1
#else
#define ERPS_ADDRESS_SANITIZER 0
#endif

namespace erps::sim {

namespace {

namespace context = boost::context::detail;

constexpr size_t kPage = 4096;
// The sanitizers and unoptimised code need several times what the module needs otherwise.
constexpr size_t kStackBytes = size_t{256} * 1024;

// Stacks are kept for the next fiber: a campaign makes millions.
class StackPool {
 public:
  std::byte* take() {
    if (!free_.empty()) {
      std::byte* stack = free_.back();
      free_.pop_back();
      return stack;
    }
    void* memory = mmap(nullptr, kPage + kStackBytes, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED || mprotect(memory, kPage, PROT_NONE) != 0) {
      throw SimError(std::string("no memory for the stack of a task: ") + std::strerror(errno));
    }
    return static_cast<std::byte*>(memory) + kPage;
  }

  void give_back(std::byte* stack) {
#if ERPS_ADDRESS_SANITIZER
    __asan_unpoison_memory_region(stack, kStackBytes);
#endif
    races::release(stack);  // for enter()
    free_.push_back(stack);
  }

 private:
  std::vector<std::byte*> free_;  // never unmapped
};

StackPool& stack_pool() {
  static StackPool pool;
  return pool;
}

#if ERPS_ADDRESS_SANITIZER
void leave_stack(void** shadow, const void* to_bottom, size_t to_size) {
  __sanitizer_start_switch_fiber(shadow, to_bottom, to_size);
}
void arrive_on_stack(void* shadow, const void** from_bottom, size_t* from_size) {
  __sanitizer_finish_switch_fiber(shadow, from_bottom, from_size);
}
#else
void leave_stack(void**, const void*, size_t) {}
void arrive_on_stack(void*, const void**, size_t*) {}
#endif

#if ERPS_THREAD_SANITIZER
void* make_thread() {
  return __tsan_create_fiber(0);
}
void* present_thread() {
  return __tsan_get_current_fiber();
}
void become_thread(void* thread) {
  __tsan_switch_to_fiber(thread, __tsan_switch_to_fiber_no_sync);
}
// Whatever it has done lies behind whoever drops it. It waits in the simulator's code, if at all.
void drop_thread(void* thread, bool waits) {
  void* const present = present_thread();
  become_thread(thread);
  if (waits) {
    races::end_own_code();
  }
  __tsan_release(thread);
  become_thread(present);
  __tsan_acquire(thread);
  __tsan_destroy_fiber(thread);
}
#else
void* make_thread() {
  return nullptr;
}
void* present_thread() {
  return nullptr;
}
void become_thread(void*) {}
void drop_thread(void*, bool) {}
#endif

_Unwind_Reason_Code keep_unwinding(int, _Unwind_Action actions, _Unwind_Exception_Class,
                                   _Unwind_Exception*, _Unwind_Context*, void*) {
  if ((actions & _UA_END_OF_STACK) != 0) {
    std::abort();  // the fiber's first frame did not stop it
  }
  return _URC_NO_REASON;
}

}  // namespace

Fiber::Fiber(std::function<void()> body)
    : body_(std::move(body)), stack_(stack_pool().take()), inside_thread_(make_thread()) {
  inside_ = context::make_fcontext(stack_ + kStackBytes, kStackBytes, [](context::transfer_t from) {
    auto* fiber = static_cast<Fiber*>(from.data);
    fiber->outside_ = from.fctx;
    enter(fiber);
  });
}

Fiber::~Fiber() {
  drop_thread(inside_thread_, started_ && !finished_);
  stack_pool().give_back(stack_);
}

void Fiber::enter(void* self) {
  auto* fiber = static_cast<Fiber*>(self);
  arrive_on_stack(nullptr, &fiber->outside_stack_, &fiber->outside_size_);
  fiber->started_ = true;
  races::acquire(fiber->stack_);
  try {
    const races::OwnCode own_code;
    fiber->body_();
  } catch (const abi::__forced_unwind&) {  // unwind(): it ends here
  }
  fiber->finished_ = true;
  leave_stack(nullptr, fiber->outside_stack_, fiber->outside_size_);
  become_thread(fiber->outside_thread_);
  context::jump_fcontext(fiber->outside_, nullptr);
  std::abort();
}

void Fiber::resume() {
  leave_stack(&outside_shadow_, stack_, kStackBytes);
  outside_thread_ = present_thread();
  become_thread(inside_thread_);
  const context::transfer_t back = context::jump_fcontext(inside_, this);
  arrive_on_stack(outside_shadow_, nullptr, nullptr);
  inside_ = back.fctx;
}

void Fiber::suspend() {
  leave_stack(&inside_shadow_, outside_stack_, outside_size_);
  become_thread(outside_thread_);
  const context::transfer_t back = context::jump_fcontext(outside_, nullptr);
  outside_ = back.fctx;
  arrive_on_stack(inside_shadow_, &outside_stack_, &outside_size_);
}

void Fiber::unwind() {
  unwinding_ = {};
  unwinding_.exception_cleanup = [](_Unwind_Reason_Code, _Unwind_Exception*) {};
  _Unwind_ForcedUnwind(&unwinding_, keep_unwinding, nullptr);
  std::abort();
}

}  // namespace erps::sim
