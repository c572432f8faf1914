// A module whose management server is the stand-in of the client tests; it says on standard error
// when its lifecycle is called.
//
// STAND_IN_MODULE_FAILS=init|start makes that call fail, STAND_IN_MODULE_REFUSES=COMMAND:CODE makes
// it answer a management command with a return code.
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <iostream>
#include <memory>

#include "tests/client/fake_module.h"

namespace {

std::unique_ptr<erps::test::FakeModule> g_server;

int said(const char* what) {
  std::cerr << "module " << what << std::endl;
  const char* failure = getenv("STAND_IN_MODULE_FAILS");
  return failure != nullptr && strcmp(failure, what) == 0 ? -1 : 0;
}

void refuse_as_asked() {
  const char* refusal = getenv("STAND_IN_MODULE_REFUSES");
  if (refusal == nullptr) {
    return;
  }
  char* code = nullptr;
  const auto command = static_cast<erps::mgmt::Command>(strtoul(refusal, &code, 10));
  const uint8_t byte =
      erps::mgmt::ret_code_of(static_cast<uint32_t>(strtoul(code + 1, nullptr, 10)));
  g_server->answer(command, [byte](const auto&, uint8_t* text, size_t* length) {
    text[offsetof(erps::mgmt::ReplyText, ret_code)] = byte;
    *length = erps::mgmt::kReplyOverhead;
    return true;
  });
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int erps_module_init() {
  return said("init");
}

__attribute__((visibility("default"))) int erps_module_start() {
  const int result = said("start");
  if (result == 0) {
    erps::test::FakeModule::Options options;
    options.adopt_queue = true;
    g_server = std::make_unique<erps::test::FakeModule>(options);
    refuse_as_asked();
  }
  return result;
}

__attribute__((visibility("default"))) int erps_module_stop() {
  g_server.reset();
  return said("stop");
}

__attribute__((visibility("default"))) int erps_module_list() {
  return 0;
}

__attribute__((visibility("default"))) int erps_start() {
  return 0;
}

__attribute__((visibility("default"))) int erps_exit() {
  return said("exit");
}

}  // extern "C"
