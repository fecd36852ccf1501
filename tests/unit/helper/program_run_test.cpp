// Exit codes of the program for a system that fails it, which nobody can have it meet from outside.
#include <gtest/gtest.h>
#include <windows.h>

#include <new>

#include "helper_process.h"
#include "program.h"
#include "support/import_table.h"

namespace {

using ostrel::helper::ExitCode;
using ostrel::helper::RunProgram;
using ostrel::test::ImportPatch;
using ostrel_test::NewChannelName;

HANDLE WINAPI FailingCreateEventW(SECURITY_ATTRIBUTES*, BOOL, BOOL, const wchar_t*) {
  SetLastError(ERROR_NO_SYSTEM_RESOURCES);
  return nullptr;
}

TEST(TheProgram, EndsWithItsCodeForWhatIsUnexpectedWhenThereIsNoEvent) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "CreateEventW",
                          reinterpret_cast<void*>(&FailingCreateEventW));
  EXPECT_EQ(RunProgram(L"c0ffee " + NewChannelName()), ExitCode::Internal);
}

HANDLE WINAPI CreateNamedPipeWWithoutMemory(const wchar_t*, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD,
                                            SECURITY_ATTRIBUTES*) {
  throw std::bad_alloc();
}

TEST(TheProgram, EndsWithItsCodeForWhatIsUnexpectedWhenMemoryIsShort) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "CreateNamedPipeW",
                          reinterpret_cast<void*>(&CreateNamedPipeWWithoutMemory));
  EXPECT_EQ(RunProgram(L"c0ffee " + NewChannelName()), ExitCode::Internal);
}

BOOL WINAPI FailingOpenProcessToken(HANDLE, DWORD, HANDLE*) {
  SetLastError(ERROR_ACCESS_DENIED);
  return FALSE;
}

TEST(TheProgram, MakesNoPipeWithoutKnowingForWhom) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "OpenProcessToken",
                          reinterpret_cast<void*>(&FailingOpenProcessToken));
  EXPECT_EQ(RunProgram(L"c0ffee " + NewChannelName()), ExitCode::PipeNotCreated);
}

BOOL WINAPI FailingDescription(const wchar_t*, DWORD, void**, ULONG*) {
  SetLastError(ERROR_INVALID_ACL);
  return FALSE;
}

TEST(TheProgram, MakesNoPipeWithoutSecurity) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "ConvertStringSecurityDescriptorToSecurityDescriptorW",
                          reinterpret_cast<void*>(&FailingDescription));
  EXPECT_EQ(RunProgram(L"c0ffee " + NewChannelName()), ExitCode::PipeNotCreated);
}

}  // namespace
