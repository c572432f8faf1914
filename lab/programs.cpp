#include "lab/programs.h"

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sstream>
#include <vector>

#include "lab/lab_error.h"

#ifndef ERPS_INSTALLED_MODULE
#define ERPS_INSTALLED_MODULE ""
#endif

namespace erps::lab {

namespace {

std::string own_directory() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  const std::string text(path, length > 0 ? static_cast<size_t>(length) : 0);
  return text.substr(0, text.rfind('/'));
}

std::string absolute(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) == nullptr ? path : resolved;
}

// The first of the candidates that may be used; `option` is named where there is none.
std::string find_file(const char* what, const std::string& given,
                      const std::vector<std::string>& candidates, int mode, const char* option) {
  if (!given.empty()) {
    if (access(given.c_str(), mode) != 0) {
      throw system_error(given);
    }
    return absolute(given);
  }
  std::string tried;
  for (const std::string& candidate : candidates) {
    if (access(candidate.c_str(), mode) == 0) {
      return absolute(candidate);
    }
    tried += (tried.empty() ? "" : ", ") + candidate;
  }
  throw LabError(std::string(what) + " is not there (looked for " + tried + "); build it, or say " +
                 "where it is with " + option);
}

}  // namespace

std::string find_daemon(const std::string& given) {
  std::vector<std::string> daemons = {own_directory() + "/erpsd"};
  const char* path_text = getenv("PATH");
  std::istringstream path(path_text == nullptr ? "" : path_text);
  for (std::string directory; std::getline(path, directory, ':');) {
    daemons.push_back(directory + "/erpsd");
  }
  return find_file("erpsd", given, daemons, X_OK, "--erpsd");
}

std::string find_module(const std::string& given) {
  return find_file("liberps.so", given,
                   {own_directory() + "/../lib/liberps.so", ERPS_INSTALLED_MODULE}, R_OK,
                   "--module");
}

UniqueFd open_directory(const std::string& path) {
  if (path.empty()) {
    return {};
  }
  if (mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) {
    throw system_error(path);
  }
  UniqueFd fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd.is_open()) {
    throw system_error(path);
  }
  return fd;
}

}  // namespace erps::lab
