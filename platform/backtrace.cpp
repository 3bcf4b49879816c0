#include "platform/backtrace.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <execinfo.h>

#include <cstdlib>

namespace platform {

std::vector<std::string> Backtrace() {
  void* frames[48];
  const int count = backtrace(frames, 48);
  std::vector<std::string> names;
  for (int i = 1; i < count; ++i) {
    Dl_info info;
    if (!dladdr(frames[i], &info) || !info.dli_sname) continue;
    int status = 0;
    char* plain = abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status);
    names.emplace_back(status == 0 ? plain : info.dli_sname);
    std::free(plain);
  }
  return names;
}

}  // namespace platform
