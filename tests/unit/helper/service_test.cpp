// Whom the helper serves, and how long it puts up with everybody else.
#include "service.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include "failure.h"
#include "helper_process.h"
#include "scripted_session.h"
#include "thread.h"

namespace {

using namespace ostrel::helper;
using namespace std::chrono_literals;
using ostrel::UniqueFileHandle;
using ostrel_test::Ask;
using ostrel_test::Connect;
using ostrel_test::Exchange;
using ostrel_test::NewChannelName;
using ostrel_test::PATIENCE;
using ostrel_test::WaitForPipe;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

const std::wstring REQUEST = L"1,2,4,9f3a,4,07c2,";
const std::wstring STRANGERS_REQUEST = L"1,2,4,9f3b,4,07c2,";
const wchar_t* const REPLY = L"2,4,07c2,0,9,http://p/";
const wchar_t* const REFUSAL = L"2,4,07c2,2,61,The request does not carry the command id of the user helper.";
const char* const NO_COMMAND_ID = "the request does not carry the command id";
const char* const NOT_UNDERSTOOD = "the request cannot be understood";
const char* const NOTHING_CAME = "no request came in time";

class TheService : public ::testing::Test {
 protected:
  TheService() { session_.url = {SUCCESS, L"http://p/"}; }

  // Runs the service until it ends, and `clients` meanwhile.
  template <typename Clients>
  void Serve(Service::Patience patience, Clients clients) {
    const Thread thread([&] { clients(); });
    try {
      Service(pipe_, responder_, patience, [this](const std::string& complaint) {
        complaints_.push_back(complaint);
      }).ServeLauncher();
    } catch (const Failure& failure) {
      failure_ = failure.Code();
      EXPECT_EQ(failure.what(), expectedFailure_);
    }
  }
  template <typename Clients>
  void Serve(Clients clients) {
    Serve({.launcher = PATIENCE, .client = 200ms, .delivery = PATIENCE}, clients);
  }

  void ExpectToBeServed() {
    const Exchange exchange = Ask(channel_, REQUEST, 4400);
    EXPECT_EQ(exchange.error, 0U);
    EXPECT_EQ(exchange.reply, REPLY);
  }

  static void Write(const UniqueFileHandle& client, const void* bytes, DWORD size) {
    DWORD written = 0;
    EXPECT_TRUE(WriteFile(client.Get(), bytes, size, &written, nullptr)) << GetLastError();
  }
  static void Write(const UniqueFileHandle& client, const std::wstring& text) {
    Write(client, text.data(), static_cast<DWORD>(text.size() * sizeof(wchar_t)));
  }

  std::wstring channel_ = NewChannelName();
  PipeServer pipe_{channel_};
  ostrel_test::ScriptedSession session_;
  Responder responder_{L"9f3a", session_};
  std::vector<std::string> complaints_;
  std::optional<ExitCode> failure_;
  std::string expectedFailure_ = "none";
};

TEST_F(TheService, EndsWhenTheLauncherHasItsReply) {
  Serve([this] { ExpectToBeServed(); });
  EXPECT_EQ(failure_, std::nullopt);
  EXPECT_THAT(complaints_, IsEmpty());
  EXPECT_THAT(session_.questions, ElementsAre(L"proxy"));
}

TEST_F(TheService, AnswersTheLauncherAlsoWithAnErrorAndEnds) {
  Serve([this] { EXPECT_EQ(Ask(channel_, L"2,0,4,9f3a,4,07c2,1,1,a", 2048).reply, L"0,4,07c2,1,0"); });
  EXPECT_EQ(failure_, std::nullopt);
  EXPECT_THAT(session_.questions, IsEmpty());
}

TEST_F(TheService, TellsAStrangerThatItHasTheWrongCommandIdAndWaitsForTheLauncher) {
  Serve([this] {
    EXPECT_EQ(Ask(channel_, STRANGERS_REQUEST, 4400).reply, REFUSAL);
    ExpectToBeServed();
  });
  EXPECT_EQ(failure_, std::nullopt);
  EXPECT_THAT(complaints_, ElementsAre(NO_COMMAND_ID));
  EXPECT_THAT(session_.questions, ElementsAre(L"proxy"));
}

TEST_F(TheService, WaitsForTheLauncherAfterAStrangerOfAnotherVersion) {
  Serve([this] {
    EXPECT_EQ(Ask(channel_, L"2,0,4,9f3b,4,07c2,", 2048).reply, L"0,4,07c2,1,0");
    ExpectToBeServed();
  });
  EXPECT_EQ(failure_, std::nullopt);
  EXPECT_THAT(complaints_, ElementsAre(NO_COMMAND_ID));
}

TEST_F(TheService, WaitsForTheLauncherAfterAStrangerThatSaysNothing) {
  Serve([this] {
    const UniqueFileHandle silent = Connect(channel_);
    ExpectToBeServed();
  });
  EXPECT_EQ(failure_, std::nullopt);
  EXPECT_THAT(complaints_, ElementsAre(NOTHING_CAME));
}

TEST_F(TheService, WaitsForTheLauncherAfterAStrangerThatLeaves) {
  Serve([this] {
    UniqueFileHandle leaving = Connect(channel_);
    // Once it is connected nobody else gets in.
    leaving.Close();
    ExpectToBeServed();
  });
  EXPECT_EQ(failure_, std::nullopt);
}

TEST_F(TheService, WaitsForTheLauncherAfterAStrangerThatSaysHalf) {
  Serve([this] {
    const UniqueFileHandle half = Connect(channel_);
    Write(half, REQUEST.substr(0, REQUEST.size() - 1));
    const UniqueFileHandle odd = Connect(channel_);
    Write(odd, "abc", 3);
    const UniqueFileHandle nothing = Connect(channel_);
    Write(nothing, "", 0);
    ExpectToBeServed();
  });
  EXPECT_EQ(failure_, std::nullopt);
  EXPECT_THAT(complaints_, ElementsAre(NOT_UNDERSTOOD, "the request is no UTF-16 text", NOT_UNDERSTOOD));
}

TEST_F(TheService, WaitsForTheLauncherAfterAStrangerThatSaysTooMuch) {
  Serve([this] {
    const UniqueFileHandle huge = Connect(channel_);
    Write(huge, std::wstring(65'537, L'1'));
    ExpectToBeServed();
  });
  EXPECT_EQ(failure_, std::nullopt);
  EXPECT_THAT(complaints_, ElementsAre("the request is too long"));
}

TEST_F(TheService, WaitsForTheLauncherAfterAStrangerThatDoesNotFetchItsRefusal) {
  Serve([this] {
    const UniqueFileHandle deaf = Connect(channel_);
    Write(deaf, STRANGERS_REQUEST);
    ExpectToBeServed();
  });
  EXPECT_EQ(failure_, std::nullopt);
  EXPECT_THAT(complaints_, ElementsAre(NO_COMMAND_ID));
}

TEST_F(TheService, ServesTheLauncherAmongManyStrangersAtOnce) {
  constexpr int STRANGERS = 6;
  Serve([this] {
    const auto intrude = [this] { Ask(channel_, STRANGERS_REQUEST, 4400); };
    std::vector<std::unique_ptr<Thread>> strangers;
    for (int i = 0; i < STRANGERS; ++i) strangers.push_back(std::make_unique<Thread>(intrude));
    strangers.clear();
    ExpectToBeServed();
  });
  EXPECT_EQ(failure_, std::nullopt);
  EXPECT_THAT(complaints_, SizeIs(::testing::Ge(1U)));
  EXPECT_THAT(complaints_, Each(NO_COMMAND_ID));
  EXPECT_THAT(session_.questions, ElementsAre(L"proxy"));
}

TEST_F(TheService, HearsARequestThatFillsItsBufferToTheLastByte) {
  session_.metadata.code = METADATA_CANNOT_READ_FILE;
  const std::wstring head = L"1,1,4,9f3a,4,07c2,65512,";
  const std::wstring path(65'536 - head.size(), L'p');
  Serve([&] { EXPECT_THAT(Ask(channel_, head + path, 10240).reply, StartsWith(L"1,4,07c2,19,")); });
  EXPECT_EQ(failure_, std::nullopt);
  EXPECT_THAT(session_.questions, ElementsAre(L"metadata of " + path));
}

// Nobody is impersonated, whatever a client allows.
TEST_F(TheService, ServesWhoeverHasTheCommandIdWhateverItLetsItsServerDo) {
  for (const DWORD quality : {SECURITY_ANONYMOUS, SECURITY_IDENTIFICATION, SECURITY_IMPERSONATION,
                              SECURITY_DELEGATION, SECURITY_IDENTIFICATION | SECURITY_EFFECTIVE_ONLY,
                              SECURITY_IMPERSONATION | SECURITY_CONTEXT_TRACKING}) {
    Serve([&] {
      ASSERT_TRUE(WaitForPipe(channel_));
      const UniqueFileHandle client(CreateFileW(ostrel_test::PipeName(channel_).c_str(),
                                                GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                                SECURITY_SQOS_PRESENT | quality, nullptr));
      ASSERT_TRUE(client) << GetLastError();
      Write(client, REQUEST);
      wchar_t reply[2200] = {};
      DWORD read = 0;
      EXPECT_TRUE(ReadFile(client.Get(), reply, sizeof(reply), &read, nullptr));
      EXPECT_STREQ(reply, REPLY);
    });
    EXPECT_EQ(failure_, std::nullopt);
    pipe_.Disconnect();
  }
}

TEST_F(TheService, FailsWhenTheLauncherDoesNotFetchItsReply) {
  expectedFailure_ = "the reply was not fetched in time";
  UniqueFileHandle deaf;
  Serve({.launcher = PATIENCE, .client = PATIENCE, .delivery = 50ms}, [&] {
    deaf = Connect(channel_);
    Write(deaf, REQUEST);
  });
  EXPECT_EQ(failure_, ExitCode::NotDelivered);
}

TEST_F(TheService, FailsWhenNobodyComes) {
  expectedFailure_ = "the launcher did not connect in time";
  Serve({.launcher = 50ms, .client = PATIENCE, .delivery = PATIENCE}, [] {});
  EXPECT_EQ(failure_, ExitCode::NobodyCame);
}

TEST_F(TheService, FailsWhenNobodyButStrangersComes) {
  expectedFailure_ = "the launcher did not connect in time";
  const UniqueFileHandle silent = Connect(channel_);
  Serve({.launcher = 100ms, .client = 50ms, .delivery = PATIENCE}, [] {});
  EXPECT_EQ(failure_, ExitCode::NoRequest);
  EXPECT_THAT(complaints_, ElementsAre(NOTHING_CAME));
}

TEST_F(TheService, IsNotKeptBeyondItsTimeByStrangersThatComeAgainAndAgain) {
  expectedFailure_ = "the launcher did not connect in time";
  std::atomic<bool> isOver = false;
  {
    const Thread stranger([&] {
      while (!isOver) {
        const UniqueFileHandle client(CreateFileW(ostrel_test::PipeName(channel_).c_str(),
                                                  GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0,
                                                  nullptr));
      }
    });
    const auto start = std::chrono::steady_clock::now();
    Serve({.launcher = 300ms, .client = 50ms, .delivery = PATIENCE}, [] {});
    EXPECT_LT(std::chrono::steady_clock::now() - start, PATIENCE);
    isOver = true;
  }
  EXPECT_TRUE(failure_ == ExitCode::NoRequest || failure_ == ExitCode::NobodyCame);
}

}  // namespace
