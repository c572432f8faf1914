// What ThreadSanitizer has to be told to see two tasks of a module as two threads, although they
// are fibers of one: which of them runs, and where the platform lets one wait for the other.
//
// A switch between fibers orders nothing. The simulator's own code runs in all of them and keeps to
// its own rules, so that only what the module itself does counts. All of it is empty without
// ThreadSanitizer.
//
// Threading: one thread. Errors: none.
#pragma once

#ifndef ERPS_THREAD_SANITIZER
#define ERPS_THREAD_SANITIZER 0
#endif

#if ERPS_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>

extern "C" {
void AnnotateIgnoreReadsBegin(const char* file, int line);
void AnnotateIgnoreReadsEnd(const char* file, int line);
void AnnotateIgnoreWritesBegin(const char* file, int line);
void AnnotateIgnoreWritesEnd(const char* file, int line);
}
#endif

namespace erps::sim::races {

#if ERPS_THREAD_SANITIZER

// Everything before a release() of an address comes before what follows an acquire() of it.
inline void acquire(void* address) {
  __tsan_acquire(address);
}
inline void release(void* address) {
  __tsan_release(address);
}

inline void begin_own_code() {
  AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
  AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
}
inline void end_own_code() {
  AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
  AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
}

inline constexpr bool kDetects = true;

#else

inline void acquire(void* /*address*/) {}
inline void release(void* /*address*/) {}
inline void begin_own_code() {}
inline void end_own_code() {}
inline constexpr bool kDetects = false;

#endif

// The simulator's code, while this lives. From a task, or from outside of all.
class OwnCode {
 public:
  OwnCode() { begin_own_code(); }
  ~OwnCode() { end_own_code(); }
  OwnCode(const OwnCode&) = delete;
  OwnCode& operator=(const OwnCode&) = delete;
};

// The module's code, called from the simulator's.
class ModuleCode {
 public:
  ModuleCode() { end_own_code(); }
  ~ModuleCode() { begin_own_code(); }
  ModuleCode(const ModuleCode&) = delete;
  ModuleCode& operator=(const ModuleCode&) = delete;
};

// A call of the module, led through OwnCode.
template <auto call, typename Type = decltype(call)>
struct Guarded;
template <auto call, typename Result, typename... Arguments>
struct Guarded<call, Result (*)(Arguments...)> {
  static Result run(Arguments... arguments) {
    const OwnCode own_code;
    return call(arguments...);
  }
};

// What the module is to call in place of `call`.
template <auto call>
auto guarded() {
  if constexpr (kDetects) {
    return &Guarded<call>::run;
  } else {
    return call;
  }
}

}  // namespace erps::sim::races
