#include "pipe_server.h"

#include <aclapi.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include <sstream>
#include <vector>

#include "failure.h"
#include "helper_process.h"
#include "pipe_security.h"
#include "support/import_table.h"
#include "thread.h"
#include "watchdog.h"

namespace {

using namespace ostrel::helper;
using namespace std::chrono_literals;
using ostrel::UniqueFileHandle;
using ostrel::UniqueKernelHandle;
using ostrel::test::ImportPatch;
using ostrel_test::Ask;
using ostrel_test::Connect;
using ostrel_test::Exchange;
using ostrel_test::NewChannelName;
using ostrel_test::PATIENCE;
using ::testing::ElementsAre;
using ::testing::StartsWith;

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds SHORT = 50ms;

template <typename Call>
void ExpectFailure(ExitCode exitCode, const std::string& start, Call call) {
  try {
    call();
    ADD_FAILURE() << "no failure";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), exitCode);
    EXPECT_THAT(failure.what(), StartsWith(start));
  }
}

Clock::time_point Soon() {
  return Clock::now() + PATIENCE;
}

// Whatever the reply fills, which Ask would not allow.
Exchange AskWith(const std::wstring& channel, DWORD replyBytes) {
  EXPECT_TRUE(ostrel_test::WaitForPipe(channel));
  std::wstring question = L"question";
  std::vector<wchar_t> reply(replyBytes / sizeof(wchar_t) + 1);
  DWORD read = 0;
  if (!CallNamedPipeW(ostrel_test::PipeName(channel).c_str(), question.data(),
                      static_cast<DWORD>(question.size() * sizeof(wchar_t)), reply.data(), replyBytes, &read,
                      2000)) {
    return {GetLastError(), {}};
  }
  return {ERROR_SUCCESS, std::wstring(reply.data())};
}

class ThePipeServer : public ::testing::Test {
 protected:
  // What the client makes of a reply of so many units, and the server of that client.
  Exchange Deliver(std::size_t units, DWORD replyBytes, ExitCode& code) {
    Exchange exchange;
    code = ExitCode::Answered;
    {
      const Thread client([&] { exchange = AskWith(channel_, replyBytes); });
      EXPECT_TRUE(pipe_.WaitForClient(Soon()));
      EXPECT_EQ(pipe_.ReadRequest(PATIENCE), L"question");
      try {
        pipe_.Deliver(std::wstring(units, L'r'), PATIENCE);
      } catch (const Failure& failure) {
        code = failure.Code();
      }
    }
    return exchange;
  }

  std::wstring channel_ = NewChannelName();
  PipeServer pipe_{channel_};
};

TEST_F(ThePipeServer, HearsOneQuestionAndDeliversTheReply) {
  Exchange exchange;
  {
    const Thread client([&] { exchange = Ask(channel_, L"question", 4400); });
    EXPECT_TRUE(pipe_.WaitForClient(Soon()));
    EXPECT_EQ(pipe_.ReadRequest(PATIENCE), L"question");
    pipe_.Deliver(L"reply", PATIENCE);
  }
  EXPECT_EQ(exchange.error, 0U);
  EXPECT_EQ(exchange.reply, L"reply");
}

// Those of the library, by the type of the request.
TEST_F(ThePipeServer, FillsTheBufferOfItsClientToTheLastByte) {
  ExitCode code{};
  for (const DWORD bytes : {2048U, 4400U, 10240U}) {
    const std::size_t units = bytes / sizeof(wchar_t);
    const Exchange exchange = Deliver(units, bytes, code);
    EXPECT_EQ(code, ExitCode::Answered);
    EXPECT_EQ(exchange.reply, std::wstring(units, L'r'));
    pipe_.Disconnect();
  }
}

TEST_F(ThePipeServer, HasNotDeliveredWhatItsClientCouldNotHold) {
  ExitCode code{};
  for (const DWORD bytes : {2048U, 4400U, 10240U}) {
    EXPECT_EQ(Deliver(bytes / sizeof(wchar_t) + 1, bytes, code).error, static_cast<DWORD>(ERROR_MORE_DATA));
    EXPECT_EQ(code, ExitCode::NotDelivered);
    pipe_.Disconnect();
  }
}

TEST_F(ThePipeServer, TakesAClientThatWasQuickerThanTheServer) {
  const UniqueFileHandle client = Connect(channel_);
  ASSERT_TRUE(client);
  EXPECT_TRUE(pipe_.WaitForClient(Soon()));
  ExpectFailure(ExitCode::NoRequest, "no request came in time", [this] { pipe_.ReadRequest(SHORT); });
}

TEST_F(ThePipeServer, DoesNotTakeAClientThatHasLeftAlready) {
  Connect(channel_).Close();
  EXPECT_FALSE(pipe_.WaitForClient(Clock::now() + SHORT));
}

TEST_F(ThePipeServer, TakesTheNextClientAfterOneThatHasLeftAlready) {
  Connect(channel_).Close();
  UniqueFileHandle client;
  {
    const Thread next([&] { client = Connect(channel_); });
    EXPECT_TRUE(pipe_.WaitForClient(Soon()));
  }
  EXPECT_TRUE(client);
}

TEST_F(ThePipeServer, TakesTheNextClientAfterSendingOneAway) {
  const UniqueFileHandle first = Connect(channel_);
  EXPECT_TRUE(pipe_.WaitForClient(Soon()));
  pipe_.Disconnect();
  UniqueFileHandle second;
  {
    const Thread next([&] { second = Connect(channel_); });
    EXPECT_TRUE(pipe_.WaitForClient(Soon()));
  }
  EXPECT_TRUE(second);
  DWORD written = 0;
  EXPECT_FALSE(WriteFile(first.Get(), "ab", 2, &written, nullptr));
}

TEST_F(ThePipeServer, DoesNotWaitForeverForAClient) {
  EXPECT_FALSE(pipe_.WaitForClient(Clock::now() + SHORT));
}

TEST_F(ThePipeServer, DoesNotWaitAtAllAfterTheDeadline) {
  const UniqueFileHandle client = Connect(channel_);
  ASSERT_TRUE(client);
  EXPECT_FALSE(pipe_.WaitForClient(Clock::now()));
}

TEST_F(ThePipeServer, DoesNotWaitForeverForARequest) {
  const UniqueFileHandle client = Connect(channel_);
  EXPECT_TRUE(pipe_.WaitForClient(Soon()));
  ExpectFailure(ExitCode::NoRequest, "no request came in time", [this] { pipe_.ReadRequest(SHORT); });
}

TEST_F(ThePipeServer, DoesNotWaitForeverForTheReplyToBeFetched) {
  const UniqueFileHandle client = Connect(channel_);
  EXPECT_TRUE(pipe_.WaitForClient(Soon()));
  ExpectFailure(ExitCode::NotDelivered, "the reply was not fetched in time",
                [this] { pipe_.Deliver(L"reply", SHORT); });
}

TEST_F(ThePipeServer, HasNotDeliveredWhatAClientLeavesBehind) {
  UniqueFileHandle client = Connect(channel_);
  EXPECT_TRUE(pipe_.WaitForClient(Soon()));
  const Thread leaving([&] {
    EXPECT_TRUE(ostrel_test::WaitForBytes(client.Get()));
    client.Close();
  });
  ExpectFailure(ExitCode::NotDelivered, "the reply was not fetched (error ",
                [this] { pipe_.Deliver(L"reply", PATIENCE); });
}

TEST_F(ThePipeServer, HasNotDeliveredWhatAClientFetchesHalfOf) {
  UniqueFileHandle client = Connect(channel_);
  EXPECT_TRUE(pipe_.WaitForClient(Soon()));
  const Thread leaving([&] {
    char half[5];
    DWORD read = 0;
    EXPECT_TRUE(ReadFile(client.Get(), half, sizeof(half), &read, nullptr));
    client.Close();
  });
  ExpectFailure(ExitCode::NotDelivered, "the reply was not fetched (error ",
                [this] { pipe_.Deliver(L"reply", PATIENCE); });
}

TEST_F(ThePipeServer, FailsWhenTheClientIsGone) {
  UniqueFileHandle client = Connect(channel_);
  EXPECT_TRUE(pipe_.WaitForClient(Soon()));
  client.Close();
  ExpectFailure(ExitCode::NoRequest, "no request can be read (error ",
                [this] { pipe_.ReadRequest(PATIENCE); });
}

TEST_F(ThePipeServer, FailsWhenThereIsNobodyToDeliverTo) {
  UniqueFileHandle client = Connect(channel_);
  EXPECT_TRUE(pipe_.WaitForClient(Soon()));
  client.Close();
  ExpectFailure(ExitCode::NotDelivered, "the reply was not fetched (error ",
                [this] { pipe_.Deliver(L"reply", PATIENCE); });
}

// Without the end of the process: that may have to wait for a call of the system.
TEST_F(ThePipeServer, BreaksThePipeUnderTheClientThatWaits) {
  Exchange exchange;
  {
    const Thread client([&] { exchange = AskWith(channel_, 100); });
    ASSERT_TRUE(pipe_.WaitForClient(Soon()));
    EXPECT_EQ(pipe_.ReadRequest(PATIENCE), L"question");
    pipe_.Break();
  }
  EXPECT_EQ(exchange.error, static_cast<DWORD>(ERROR_BROKEN_PIPE));
}

TEST_F(ThePipeServer, IsTheOnlyOneOfItsName) {
  ExpectFailure(ExitCode::PipeNotCreated, "the pipe cannot be created (error ",
                [this] { const PipeServer second(channel_); });
}

// As it is when a stranger made the pipe to have the helper join it.
TEST(ThePipeServersName, IsNotSharedWithAPipeThatAllowsMoreOfItsKind) {
  const std::wstring channel = NewChannelName();
  const UniqueFileHandle stranger(CreateNamedPipeW(ostrel_test::PipeName(channel).c_str(), PIPE_ACCESS_DUPLEX,
                                                   PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT,
                                                   PIPE_UNLIMITED_INSTANCES, 0, 0, 0, nullptr));
  ASSERT_TRUE(stranger);
  ExpectFailure(ExitCode::PipeNotCreated, "the pipe ", [&] { const PipeServer server(channel); });
}

// Patched functions carry no context.
BOOL WINAPI FailingCancelIoEx(HANDLE, OVERLAPPED*) {
  SetLastError(ERROR_INVALID_FUNCTION);
  return FALSE;
}

// Each ends for good: with the pipe.
TEST_F(ThePipeServer, DoesNotWaitForeverForWhatCannotBeCancelled) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "CancelIoEx",
                          reinterpret_cast<void*>(&FailingCancelIoEx));
  PipeServer alone(NewChannelName());
  EXPECT_FALSE(alone.WaitForClient(Clock::now() + SHORT));
  const UniqueFileHandle client = Connect(channel_);
  EXPECT_TRUE(pipe_.WaitForClient(Soon()));
  ExpectFailure(ExitCode::NoRequest, "no request ", [this] { pipe_.ReadRequest(SHORT); });
  DWORD written = 0;
  EXPECT_FALSE(WriteFile(client.Get(), "ab", 2, &written, nullptr));
}

DWORD WINAPI FailingWaitForSingleObject(HANDLE, DWORD) {
  SetLastError(ERROR_INVALID_HANDLE);
  return WAIT_FAILED;
}

TEST_F(ThePipeServer, FailsWhenItCannotWait) {
  const UniqueFileHandle client = Connect(channel_);
  EXPECT_TRUE(pipe_.WaitForClient(Soon()));
  const ImportPatch patch(GetModuleHandleW(nullptr), "WaitForSingleObject",
                          reinterpret_cast<void*>(&FailingWaitForSingleObject));
  ExpectFailure(ExitCode::NoRequest, "no request can be read (error 995)",
                [this] { pipe_.ReadRequest(PATIENCE); });
  PipeServer alone(NewChannelName());
  ExpectFailure(ExitCode::NobodyCame, "no client could be connected (error 995)",
                [&alone] { alone.WaitForClient(Soon()); });
}

BOOL WINAPI FailingConnectNamedPipe(HANDLE, OVERLAPPED*) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return FALSE;
}

TEST_F(ThePipeServer, FailsWhenNobodyCanBeConnected) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "ConnectNamedPipe",
                          reinterpret_cast<void*>(&FailingConnectNamedPipe));
  ExpectFailure(ExitCode::NobodyCame, "no client could be connected (error 8)",
                [this] { pipe_.WaitForClient(Soon()); });
}

struct Creation {
  std::wstring name;
  DWORD openMode = 0;
  DWORD pipeMode = 0;
  DWORD instances = 0;
  DWORD replyBytes = 0;
  DWORD requestBytes = 0;
  BOOL isInherited = TRUE;
};

// The patched function carries no context.
Creation creation;

HANDLE WINAPI RecordingCreateNamedPipeW(const wchar_t* name, DWORD openMode, DWORD pipeMode, DWORD instances,
                                        DWORD outBytes, DWORD inBytes, DWORD, SECURITY_ATTRIBUTES* security) {
  creation = {name, openMode, pipeMode, instances, outBytes, inBytes, security->bInheritHandle};
  SetLastError(ERROR_ACCESS_DENIED);
  return INVALID_HANDLE_VALUE;
}

TEST(ThePipeServersPipe, IsMadeForOneLocalClientAtATimeAndNoChildProcess) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "CreateNamedPipeW",
                          reinterpret_cast<void*>(&RecordingCreateNamedPipeW));
  ExpectFailure(ExitCode::PipeNotCreated, "the pipe cannot be created (error 5)",
                [] { const PipeServer server(L"c0ffee"); });
  EXPECT_EQ(creation.name, L"\\\\.\\pipe\\OstrelUserHelper\\c0ffee");
  EXPECT_EQ(creation.openMode,
            static_cast<DWORD>(PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE));
  EXPECT_EQ(creation.pipeMode, static_cast<DWORD>(PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT |
                                                  PIPE_REJECT_REMOTE_CLIENTS));
  EXPECT_EQ(creation.instances, 1U);
  EXPECT_EQ(creation.replyBytes, 0U);
  EXPECT_EQ(creation.requestBytes, 131'072U);
  EXPECT_FALSE(creation.isInherited);
}

// One entry, such as "allow S-1-5-18 0xc0000000 flags 0".
std::string TextOf(const ACE_HEADER* entry) {
  // Entries that allow, deny and label have one layout.
  const auto* allowing = reinterpret_cast<const ACCESS_ALLOWED_ACE*>(entry);
  char* identifier = nullptr;
  EXPECT_TRUE(ConvertSidToStringSidA(const_cast<DWORD*>(&allowing->SidStart), &identifier));
  std::ostringstream text;
  text << (entry->AceType == ACCESS_ALLOWED_ACE_TYPE           ? "allow "
           : entry->AceType == ACCESS_DENIED_ACE_TYPE          ? "deny "
           : entry->AceType == SYSTEM_MANDATORY_LABEL_ACE_TYPE ? "label "
                                                               : "other ")
       << identifier << " 0x" << std::hex << allowing->Mask << " flags " << int{entry->AceFlags};
  LocalFree(identifier);
  return text.str();
}

std::vector<std::string> TextsOf(ACL* list) {
  std::vector<std::string> entries;
  for (DWORD index = 0; list != nullptr && index < list->AceCount; ++index) {
    void* entry = nullptr;
    EXPECT_TRUE(GetAce(list, index, &entry));
    entries.push_back(TextOf(static_cast<ACE_HEADER*>(entry)));
  }
  return entries;
}

std::string OwnIdentifier(TOKEN_INFORMATION_CLASS kind) {
  HANDLE token = nullptr;
  EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token));
  const UniqueKernelHandle owner(token);
  alignas(SID_AND_ATTRIBUTES) std::byte information[256];
  DWORD length = 0;
  EXPECT_TRUE(GetTokenInformation(token, kind, information, sizeof(information), &length));
  char* identifier = nullptr;
  EXPECT_TRUE(ConvertSidToStringSidA(reinterpret_cast<SID_AND_ATTRIBUTES*>(information)->Sid, &identifier));
  const std::string text(identifier);
  LocalFree(identifier);
  return text;
}

// Generic reading and writing, 0xc0000000, is what CallNamedPipeW asks for; 0x3 forbids whoever has less
// integrity to write and to read.
TEST(ThePipesSecurity, LetsInTheSystemAndItsOwnUserButNobodyFromTheNetworkOrOfLessIntegrity) {
  PipeSecurity security;
  EXPECT_EQ(security.Attributes()->nLength, sizeof(SECURITY_ATTRIBUTES));
  void* descriptor = security.Attributes()->lpSecurityDescriptor;
  BOOL isPresent = FALSE;
  BOOL isDefault = FALSE;
  ACL* list = nullptr;
  ASSERT_TRUE(GetSecurityDescriptorDacl(descriptor, &isPresent, &list, &isDefault));
  ASSERT_TRUE(isPresent);
  EXPECT_THAT(TextsOf(list),
              ElementsAre("deny S-1-5-2 0x10000000 flags 0", "allow S-1-5-18 0xc0000000 flags 0",
                          "allow " + OwnIdentifier(TokenUser) + " 0xc0000000 flags 0"));
  ASSERT_TRUE(GetSecurityDescriptorSacl(descriptor, &isPresent, &list, &isDefault));
  ASSERT_TRUE(isPresent);
  EXPECT_THAT(TextsOf(list), ElementsAre("label " + OwnIdentifier(TokenIntegrityLevel) + " 0x3 flags 0"));
}

TEST(ThePipesSecurity, InheritsNothing) {
  PipeSecurity security;
  SECURITY_DESCRIPTOR_CONTROL control = 0;
  DWORD revision = 0;
  ASSERT_TRUE(GetSecurityDescriptorControl(security.Attributes()->lpSecurityDescriptor, &control, &revision));
  EXPECT_TRUE(control & SE_DACL_PROTECTED);
  EXPECT_FALSE(security.Attributes()->bInheritHandle);
}

// Mapped to the rights of a file.
TEST_F(ThePipeServer, HasThatSecurity) {
  const UniqueFileHandle client = Connect(channel_);
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ACL* list = nullptr;
  ASSERT_EQ(GetSecurityInfo(client.Get(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                            &list, nullptr, &descriptor),
            0U);
  const std::vector<std::string> entries = TextsOf(list);
  LocalFree(descriptor);
  EXPECT_THAT(entries, ElementsAre(StartsWith("deny S-1-5-2 "), StartsWith("allow S-1-5-18 "),
                                   StartsWith("allow " + OwnIdentifier(TokenUser) + " ")));
}

TEST(TheWatchdog, BarksAfterItsTime) {
  const UniqueKernelHandle barked(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  const Watchdog watchdog(1ms, [&] { SetEvent(barked.Get()); });
  EXPECT_EQ(WaitForSingleObject(barked.Get(), 30'000), static_cast<DWORD>(WAIT_OBJECT_0));
}

// The wait for its time fails, the one for its start does not.
DWORD WINAPI FailTimedWait(HANDLE handle, DWORD milliseconds) {
  if (milliseconds == INFINITE) return WaitForSingleObjectEx(handle, milliseconds, FALSE);
  SetLastError(ERROR_INVALID_HANDLE);
  return WAIT_FAILED;
}

// What nobody watches must not go on.
TEST(TheWatchdog, BarksAtOnceWhenItCannotWait) {
  const UniqueKernelHandle barked(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  const ostrel::test::ImportPatch patch(GetModuleHandleW(nullptr), "WaitForSingleObject",
                                        reinterpret_cast<void*>(&FailTimedWait));
  const Watchdog watchdog(1h, [&] { SetEvent(barked.Get()); });
  EXPECT_EQ(WaitForSingleObjectEx(barked.Get(), 10000, FALSE), WAIT_OBJECT_0);
}

TEST(TheWatchdog, IsSilentWhenCalledOffInTime) {
  bool hasBarked = false;
  {
    const Watchdog watchdog(1h, [&] { hasBarked = true; });
  }
  EXPECT_FALSE(hasBarked);
}

}  // namespace
