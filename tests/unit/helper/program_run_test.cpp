// How the program ends on a system that fails it, which nobody can have it meet from outside.
#include "program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <new>
#include <vector>

#include "helper_process.h"
#include "support/heap_watch.h"
#include "support/import_table.h"
#include "temporary_folder.h"
#include "thread.h"

namespace {

using ostrel::UniqueKernelHandle;
using ostrel::helper::ExitCode;
using ostrel::helper::RunProgram;
using ostrel::helper::Thread;
using ostrel::test::HeapWatch;
using ostrel::test::ImportPatch;
using ostrel_test::Exchange;
using ostrel_test::NewChannelName;
using ostrel_test::PipeName;
using ::testing::StartsWith;

// What this program would write to standard error goes here meanwhile.
class RedirectedErrors {
 public:
  RedirectedErrors() : before_(GetStdHandle(STD_ERROR_HANDLE)) {
    HANDLE reading = nullptr;
    HANDLE writing = nullptr;
    EXPECT_TRUE(CreatePipe(&reading, &writing, nullptr, 64 * 1024));
    reading_.Reset(reading);
    writing_.Reset(writing);
    SetStdHandle(STD_ERROR_HANDLE, writing);
  }
  RedirectedErrors(const RedirectedErrors&) = delete;
  RedirectedErrors& operator=(const RedirectedErrors&) = delete;
  ~RedirectedErrors() { SetStdHandle(STD_ERROR_HANDLE, before_); }

  // Once, after the last line.
  std::string Take() {
    SetStdHandle(STD_ERROR_HANDLE, before_);
    writing_.Reset();
    std::string all(64 * 1024, '\0');
    DWORD length = 0;
    if (!ReadFile(reading_.Get(), all.data(), static_cast<DWORD>(all.size()), &length, nullptr)) length = 0;
    all.resize(length);
    return all;
  }

 private:
  HANDLE before_;
  UniqueKernelHandle reading_;
  UniqueKernelHandle writing_;
};

// That nobody asks, on a system where one call fails.
template <typename Function>
void ExpectEnd(const char* call, Function* failing, ExitCode code, const std::string& message) {
  const ImportPatch patch(GetModuleHandleW(nullptr), call, reinterpret_cast<void*>(failing));
  RedirectedErrors errors;
  EXPECT_EQ(RunProgram(L"c0ffee " + NewChannelName()), code);
  EXPECT_EQ(errors.Take(), "OstrelUserHelper: " + message + "\n");
}

HANDLE WINAPI FailingCreateEventW(SECURITY_ATTRIBUTES*, BOOL, BOOL, const wchar_t*) {
  SetLastError(ERROR_NO_SYSTEM_RESOURCES);
  return nullptr;
}

TEST(TheProgram, EndsWithItsCodeForWhatIsUnexpectedWhenThereIsNoEvent) {
  ExpectEnd("CreateEventW", &FailingCreateEventW, ExitCode::Internal,
            "no event could be created (error 1450)");
}

HANDLE WINAPI CreateNamedPipeWWithoutMemory(const wchar_t*, DWORD, DWORD, DWORD, DWORD, DWORD, DWORD,
                                            SECURITY_ATTRIBUTES*) {
  throw std::bad_alloc();
}

TEST(TheProgram, EndsWithItsCodeForWhatIsUnexpectedWhenMemoryIsShort) {
  ExpectEnd("CreateNamedPipeW", &CreateNamedPipeWWithoutMemory, ExitCode::Internal,
            "unexpected error: std::bad_alloc");
}

BOOL WINAPI FailingSetDefaultDllDirectories(DWORD) {
  SetLastError(ERROR_INVALID_PARAMETER);
  return FALSE;
}

TEST(TheProgram, DoesNotServeWhereItMightLoadAnybodysLibrary) {
  ExpectEnd("SetDefaultDllDirectories", &FailingSetDefaultDllDirectories, ExitCode::Internal,
            "other folders than the system's cannot be shut out (error 87)");
}

BOOL WINAPI FailingOpenProcessToken(HANDLE, DWORD, HANDLE*) {
  SetLastError(ERROR_ACCESS_DENIED);
  return FALSE;
}

BOOL WINAPI FailingGetTokenInformation(HANDLE, TOKEN_INFORMATION_CLASS, void*, DWORD, DWORD*) {
  SetLastError(ERROR_INVALID_HANDLE);
  return FALSE;
}

BOOL WINAPI FailingConvertSidToStringSidW(void*, wchar_t**) {
  SetLastError(ERROR_INVALID_SID);
  return FALSE;
}

TEST(TheProgram, MakesNoPipeWithoutKnowingForWhom) {
  ExpectEnd("OpenProcessToken", &FailingOpenProcessToken, ExitCode::PipeNotCreated,
            "the process's token cannot be opened (error 5)");
  ExpectEnd("GetTokenInformation", &FailingGetTokenInformation, ExitCode::PipeNotCreated,
            "user and integrity cannot be found out (error 6)");
  ExpectEnd("ConvertSidToStringSidW", &FailingConvertSidToStringSidW, ExitCode::PipeNotCreated,
            "user and integrity cannot be found out (error 1337)");
}

BOOL WINAPI FailingDescription(const wchar_t*, DWORD, void**, ULONG*) {
  SetLastError(ERROR_INVALID_ACL);
  return FALSE;
}

TEST(TheProgram, MakesNoPipeWithoutSecurity) {
  ExpectEnd("ConvertStringSecurityDescriptorToSecurityDescriptorW", &FailingDescription,
            ExitCode::PipeNotCreated, "the pipe's security cannot be described (error 1336)");
}

BOOL WINAPI FailingGetNamedPipeHandleStateW(HANDLE, DWORD*, DWORD*, DWORD*, DWORD*, wchar_t*, DWORD) {
  SetLastError(ERROR_ACCESS_DENIED);
  return FALSE;
}

TEST(TheProgram, ServesOnNoPipeThatMayBeSomebodyElses) {
  ExpectEnd("GetNamedPipeHandleStateW", &FailingGetNamedPipeHandleStateW, ExitCode::PipeNotCreated,
            "whose the pipe is cannot be found out (error 5)");
}

BOOL WINAPI FailingConnectNamedPipe(HANDLE, OVERLAPPED*) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return FALSE;
}

TEST(TheProgram, EndsWithItsCodeForNobodyWhenNobodyCanBeConnected) {
  ExpectEnd("ConnectNamedPipe", &FailingConnectNamedPipe, ExitCode::NobodyCame,
            "no client could be connected (error 8)");
}

// How a client fares, and the program.
struct Outcome {
  Exchange exchange;
  ExitCode code{};
  std::string errors;
};

// Asks as soon as there is a pipe, unless the program has ended before.
Exchange AskWhileItRuns(const std::wstring& channel, std::wstring request,
                        const std::atomic<bool>& hasEnded) {
  const std::wstring pipe = PipeName(channel);
  while (!WaitNamedPipeW(pipe.c_str(), 1)) {
    if (hasEnded) return {ERROR_FILE_NOT_FOUND, {}};
    Sleep(1);
  }
  std::vector<wchar_t> reply(5121);
  DWORD read = 0;
  if (!CallNamedPipeW(pipe.c_str(), request.data(), static_cast<DWORD>(request.size() * sizeof(wchar_t)),
                      reply.data(), 10240, &read, 2000)) {
    return {GetLastError(), {}};
  }
  return {ERROR_SUCCESS, reply.data()};
}

template <typename Run>
Outcome Serve(const std::wstring& request, Run run) {
  Outcome outcome;
  RedirectedErrors errors;
  {
    const std::wstring channel = NewChannelName();
    std::atomic<bool> hasEnded{false};
    const Thread client([&] { outcome.exchange = AskWhileItRuns(channel, request, hasEnded); });
    outcome.code = run(L"c0ffee " + channel);
    hasEnded = true;
  }
  outcome.errors = errors.Take();
  return outcome;
}

DWORD firstThread = 0;
decltype(&::CreateThread) originalCreateThread = nullptr;

HANDLE WINAPI CreateThreadFailingHere(SECURITY_ATTRIBUTES* security, SIZE_T stack,
                                      LPTHREAD_START_ROUTINE entry, void* parameter, DWORD flags, DWORD* id) {
  if (GetCurrentThreadId() != firstThread) {
    return originalCreateThread(security, stack, entry, parameter, flags, id);
  }
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

const std::wstring PROXY_REQUEST = L"1,2,6,c0ffee,4,ab12,";

TEST(TheProgram, GivesNoAnswerWhoseTimeItCannotWatch) {
  const Outcome outcome = Serve(PROXY_REQUEST, [](const std::wstring& commandLine) {
    firstThread = GetCurrentThreadId();
    const ImportPatch patch(GetModuleHandleW(nullptr), "CreateThread",
                            reinterpret_cast<void*>(&CreateThreadFailingHere));
    originalCreateThread = reinterpret_cast<decltype(originalCreateThread)>(patch.Original());
    return RunProgram(commandLine);
  });
  EXPECT_EQ(outcome.code, ExitCode::Internal);
  EXPECT_THAT(outcome.errors, StartsWith("OstrelUserHelper: unexpected error: CreateThread: "));
  EXPECT_EQ(outcome.exchange.error, static_cast<DWORD>(ERROR_BROKEN_PIPE));
}

std::wstring Counted(const std::wstring& text) {
  return std::to_wstring(text.size()) + L"," + text;
}

// One allocation after the other: the whole answer, an answer with a code, or an end that says why.
void ExpectAnEndWithoutAnyAllocation(const std::wstring& request, const std::wstring& reply,
                                     const std::wstring& failedReply) {
  int failed = 0;
  for (int allocation = 1;; ++allocation) {
    SCOPED_TRACE(allocation);
    bool hasRefused = false;
    const Outcome outcome = Serve(request, [&](const std::wstring& commandLine) {
      const HeapWatch heap(GetModuleHandleW(nullptr));
      HeapWatch::Begin(allocation);
      const ExitCode code = RunProgram(commandLine);
      hasRefused = HeapWatch::HasRefused();
      return code;
    });
    if (outcome.code == ExitCode::Answered) {
      EXPECT_EQ(outcome.exchange.error, 0U);
      if (outcome.exchange.reply != reply) {
        EXPECT_TRUE(hasRefused);
        EXPECT_EQ(outcome.exchange.reply, failedReply);
      }
    } else {
      EXPECT_EQ(outcome.code, ExitCode::Internal);
      EXPECT_THAT(outcome.errors, StartsWith("OstrelUserHelper: "));
      EXPECT_NE(outcome.exchange.error, 0U);
      ++failed;
    }
    if (!hasRefused) break;
  }
  EXPECT_GE(failed, 10);
}

TEST(TheProgram, AnswersAboutTheProxyOrEndsWhicheverAllocationFails) {
  ExpectAnEndWithoutAnyAllocation(PROXY_REQUEST, L"2,4,ab12,0,0,", L"");
}

TEST(TheProgram, AnswersAboutTitlesOrEndsWhicheverAllocationFails) {
  ExpectAnEndWithoutAnyAllocation(L"1,0,6,c0ffee,4,ab12,4294967295,10,chrome.exe", L"0,4,ab12,4,0", L"");
}

TEST(TheProgram, AnswersAboutACloudLoginOrEndsWhicheverAllocationFails) {
  ExpectAnEndWithoutAnyAllocation(L"1,3,6,c0ffee,4,ab12,8,OneDrive,12,C:\\Users\\ann", L"3,4,ab12,9,0,", L"");
}

TEST(TheProgram, AnswersAboutAFileOrEndsWhicheverAllocationFails) {
  const ostrel_test::TemporaryFolder folder;
  const std::wstring path = (folder / L"file.txt").wstring();
  ostrel_test::WriteWholeFile(path, "abc");
  ExpectAnEndWithoutAnyAllocation(
      L"1,1,6,c0ffee,4,ab12," + Counted(path),
      L"1,4,ab12,0,ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad,"
      L"900150983cd24fb0d6963f7d28e17f72,3," +
          Counted(path),
      L"1,4,ab12,19," + std::wstring(64, L'0') + L"," + std::wstring(32, L'0') + L",0,0,");
}

}  // namespace
