#include "pipe_server.h"

#include <aclapi.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sddl.h>

#include "failure.h"
#include "helper_process.h"
#include "thread.h"
#include "watchdog.h"

namespace {

using namespace ostrel::helper;
using namespace std::chrono_literals;
using ostrel::UniqueFileHandle;
using ostrel::UniqueKernelHandle;
using ostrel_test::Ask;
using ostrel_test::Connect;
using ostrel_test::Exchange;
using ostrel_test::NewChannelName;
using ostrel_test::PATIENCE;
using ::testing::ElementsAre;
using ::testing::StartsWith;

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

class ThePipeServer : public ::testing::Test {
 protected:
  std::wstring channel_ = NewChannelName();
  PipeServer pipe_{channel_};
};

TEST_F(ThePipeServer, HearsOneQuestionAndDeliversTheReply) {
  Exchange exchange;
  {
    const Thread client([&] { exchange = Ask(channel_, L"question", 4400); });
    pipe_.WaitForClient(PATIENCE);
    EXPECT_EQ(pipe_.ReadRequest(PATIENCE), L"question");
    pipe_.Deliver(L"reply", PATIENCE);
  }
  EXPECT_EQ(exchange.error, 0U);
  EXPECT_EQ(exchange.reply, L"reply");
}

TEST_F(ThePipeServer, TakesAClientThatWasQuickerThanTheServer) {
  const UniqueFileHandle client = Connect(channel_);
  ASSERT_TRUE(client);
  pipe_.WaitForClient(PATIENCE);
  ExpectFailure(ExitCode::NoRequest, "no request came in time", [this] { pipe_.ReadRequest(SHORT); });
}

TEST_F(ThePipeServer, DoesNotWaitForeverForAClient) {
  ExpectFailure(ExitCode::NobodyCame, "nobody connected in time", [this] { pipe_.WaitForClient(SHORT); });
}

TEST_F(ThePipeServer, DoesNotWaitForeverForARequest) {
  const UniqueFileHandle client = Connect(channel_);
  pipe_.WaitForClient(PATIENCE);
  ExpectFailure(ExitCode::NoRequest, "no request came in time", [this] { pipe_.ReadRequest(SHORT); });
}

TEST_F(ThePipeServer, DoesNotWaitForeverForTheReplyToBeFetched) {
  const UniqueFileHandle client = Connect(channel_);
  pipe_.WaitForClient(PATIENCE);
  ExpectFailure(ExitCode::NotDelivered, "the reply was not fetched in time",
                [this] { pipe_.Deliver(L"reply", SHORT); });
}

TEST_F(ThePipeServer, FailsWhenTheClientIsGone) {
  Connect(channel_).Close();
  ExpectFailure(ExitCode::NoRequest, "no request can be read (error ", [this] {
    try {
      pipe_.WaitForClient(PATIENCE);
    } catch (const Failure&) {
      // Only a client that had left before the server looked is none.
    }
    pipe_.ReadRequest(PATIENCE);
  });
}

TEST_F(ThePipeServer, FailsWhenThereIsNobodyToDeliverTo) {
  UniqueFileHandle client = Connect(channel_);
  pipe_.WaitForClient(PATIENCE);
  client.Close();
  ExpectFailure(ExitCode::NotDelivered, "the reply cannot be written (error ",
                [this] { pipe_.Deliver(L"reply", PATIENCE); });
}

TEST_F(ThePipeServer, IsTheOnlyOneOfItsName) {
  ExpectFailure(ExitCode::PipeNotCreated, "the pipe cannot be created (error ",
                [this] { const PipeServer second(channel_); });
}

// Type and identifier of one entry, such as "allow S-1-5-18".
std::string TextOf(const ACE_HEADER* entry) {
  // An allowing and a denying entry have one layout.
  const auto* allowing = reinterpret_cast<const ACCESS_ALLOWED_ACE*>(entry);
  char* identifier = nullptr;
  EXPECT_TRUE(ConvertSidToStringSidA(const_cast<DWORD*>(&allowing->SidStart), &identifier));
  const std::string text =
      (entry->AceType == ACCESS_DENIED_ACE_TYPE ? "deny " : "allow ") + std::string(identifier);
  LocalFree(identifier);
  return text;
}

std::string OwnIdentifier() {
  HANDLE token = nullptr;
  EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token));
  const UniqueKernelHandle owner(token);
  alignas(TOKEN_USER) std::byte user[256];
  DWORD length = 0;
  EXPECT_TRUE(GetTokenInformation(token, TokenUser, user, sizeof(user), &length));
  char* identifier = nullptr;
  EXPECT_TRUE(ConvertSidToStringSidA(reinterpret_cast<TOKEN_USER*>(user)->User.Sid, &identifier));
  const std::string text(identifier);
  LocalFree(identifier);
  return text;
}

TEST_F(ThePipeServer, LetsInTheSystemAndItsOwnUserButNobodyFromTheNetwork) {
  const UniqueFileHandle client = Connect(channel_);
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ACL* list = nullptr;
  ASSERT_EQ(GetSecurityInfo(client.Get(), SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                            &list, nullptr, &descriptor),
            0U);
  std::vector<std::string> entries;
  for (DWORD index = 0; index < list->AceCount; ++index) {
    void* entry = nullptr;
    ASSERT_TRUE(GetAce(list, index, &entry));
    entries.push_back(TextOf(static_cast<ACE_HEADER*>(entry)));
  }
  LocalFree(descriptor);
  EXPECT_THAT(entries, ElementsAre("deny S-1-5-2", "allow S-1-5-18", "allow " + OwnIdentifier()));
}

TEST(TheWatchdog, BarksAfterItsTime) {
  const UniqueKernelHandle barked(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  const Watchdog watchdog(1ms, [&] { SetEvent(barked.Get()); });
  EXPECT_EQ(WaitForSingleObject(barked.Get(), 30'000), static_cast<DWORD>(WAIT_OBJECT_0));
}

TEST(TheWatchdog, IsSilentWhenCalledOffInTime) {
  bool hasBarked = false;
  {
    const Watchdog watchdog(1h, [&] { hasBarked = true; });
  }
  EXPECT_FALSE(hasBarked);
}

}  // namespace
