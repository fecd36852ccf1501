#include "pipe_security.h"

#include <sddl.h>

#include <cstddef>
#include <string>

#include "system_failure.h"

namespace ostrel::helper {

namespace {

UniqueKernelHandle OwnToken() {
  HANDLE token = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) {
    throw SystemFailure(ExitCode::PipeNotCreated, "the process's token cannot be opened", GetLastError());
  }
  return UniqueKernelHandle(token);
}

// `kind` is one whose information is an identifier with its attributes: the user, or the integrity level.
std::wstring IdentifierIn(const UniqueKernelHandle& token, TOKEN_INFORMATION_CLASS kind) {
  alignas(SID_AND_ATTRIBUTES) std::byte information[sizeof(SID_AND_ATTRIBUTES) + SECURITY_MAX_SID_SIZE];
  DWORD length = 0;
  wchar_t* text = nullptr;
  if (!GetTokenInformation(token.Get(), kind, information, sizeof(information), &length) ||
      !ConvertSidToStringSidW(reinterpret_cast<const SID_AND_ATTRIBUTES*>(information)->Sid, &text)) {
    throw SystemFailure(ExitCode::PipeNotCreated, "user and integrity cannot be found out", GetLastError());
  }
  const UniqueHandle<LocalBlockPolicy> block(text);
  return text;
}

}  // namespace

PipeSecurity::PipeSecurity() {
  const UniqueKernelHandle token = OwnToken();
  const std::wstring user = IdentifierIn(token, TokenUser);
  const std::wstring integrity = IdentifierIn(token, TokenIntegrityLevel);
  // Protected against inherited entries: deny everything to network log-ons, then let in the system and the
  // user. Nobody of less integrity writes or reads.
  const std::wstring text =
      L"D:P(D;;GA;;;NU)(A;;GRGW;;;SY)(A;;GRGW;;;" + user + L")S:(ML;;NWNR;;;" + integrity + L")";
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, &descriptor,
                                                            nullptr)) {
    throw SystemFailure(ExitCode::PipeNotCreated, "the pipe's security cannot be described", GetLastError());
  }
  descriptor_.Reset(descriptor);
  attributes_ = {sizeof(attributes_), descriptor, FALSE};
}

}  // namespace ostrel::helper
