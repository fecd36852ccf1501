#ifndef OSTREL_HELPER_PIPE_SECURITY_H
#define OSTREL_HELPER_PIPE_SECURITY_H

#include <windows.h>

#include <string>

#include "util/unique_handle.h"

namespace ostrel::helper {

// Who may use the pipe: the local system, as which the library runs in a service, and the user of this
// process, as whom it runs in an application; neither over the network.
class PipeSecurity {
 public:
  PipeSecurity();

  SECURITY_ATTRIBUTES* Attributes() noexcept { return &attributes_; }

 private:
  struct LocalBlockPolicy {
    using Handle = void*;
    static Handle Invalid() noexcept { return nullptr; }
    static void Close(Handle block) noexcept { LocalFree(block); }
  };

  static std::wstring OwnSecurityIdentifier();

  UniqueHandle<LocalBlockPolicy> descriptor_;
  SECURITY_ATTRIBUTES attributes_{};
};

}  // namespace ostrel::helper

#endif
