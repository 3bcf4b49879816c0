#include "platform/scheduler/backtrace.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>

#include <cstdlib>

namespace platform {

std::string SymbolAt(const void* code) {
  Dl_info info;
  if (!code || !dladdr(code, &info) || !info.dli_sname) return {};
  int status = 0;
  char* plain = abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status);
  std::string name = status == 0 ? plain : info.dli_sname;
  std::free(plain);
  return name;
}

std::vector<std::string> Backtrace() {
  void* frames[48];
  const int count = backtrace(frames, 48);
  std::vector<std::string> names;
  for (int i = 1; i < count; ++i) {
    std::string name = SymbolAt(frames[i]);
    if (!name.empty()) names.push_back(std::move(name));
  }
  return names;
}

}  // namespace platform
