#include "pipe_security.h"

#include <sddl.h>

#include <cstddef>
#include <vector>

#include "system_failure.h"

namespace ostrel::helper {

PipeSecurity::PipeSecurity() {
  // Protected against inherited entries: deny everything to network log-ons, then let in the system and the
  // user.
  const std::wstring text = L"D:P(D;;GA;;;NU)(A;;GRGW;;;SY)(A;;GRGW;;;" + OwnSecurityIdentifier() + L")";
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, &descriptor,
                                                            nullptr)) {
    throw SystemFailure(ExitCode::PipeNotCreated, "the pipe's security cannot be described", GetLastError());
  }
  descriptor_.Reset(descriptor);
  attributes_ = {sizeof(attributes_), descriptor, FALSE};
}

std::wstring PipeSecurity::OwnSecurityIdentifier() {
  HANDLE opened = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened)) {
    throw SystemFailure(ExitCode::PipeNotCreated, "the process's token cannot be opened", GetLastError());
  }
  const UniqueKernelHandle token(opened);
  alignas(TOKEN_USER) std::byte user[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
  DWORD length = 0;
  wchar_t* text = nullptr;
  if (!GetTokenInformation(token.Get(), TokenUser, user, sizeof(user), &length) ||
      !ConvertSidToStringSidW(reinterpret_cast<const TOKEN_USER*>(user)->User.Sid, &text)) {
    throw SystemFailure(ExitCode::PipeNotCreated, "the user cannot be found out", GetLastError());
  }
  const UniqueHandle<LocalBlockPolicy> block(text);
  return text;
}

}  // namespace ostrel::helper
