#ifndef OSTREL_HELPER_PIPE_SECURITY_H
#define OSTREL_HELPER_PIPE_SECURITY_H

#include <windows.h>

#include "util/unique_handle.h"

namespace ostrel::helper {

// What the system allocates for its caller in these matters.
struct LocalBlockPolicy {
  using Handle = void*;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle block) noexcept { LocalFree(block); }
};

// Who may use the pipe: the local system, as which the library runs in a service, and the user of this
// process, as whom it runs in an application; neither over the network, and neither with less integrity than
// this process has, so that what runs elevated is not asked by what does not.
class PipeSecurity {
 public:
  PipeSecurity();

  SECURITY_ATTRIBUTES* Attributes() noexcept { return &attributes_; }

 private:
  UniqueHandle<LocalBlockPolicy> descriptor_;
  SECURITY_ATTRIBUTES attributes_{};
};

}  // namespace ostrel::helper

#endif
