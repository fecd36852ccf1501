#include "deadline.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <stdexcept>
#include <string>

#include "windows_handle.h"

namespace {

using namespace ostrel::host;

constexpr std::chrono::seconds LONG{60};
constexpr std::chrono::milliseconds SHORT{1};

TEST(DeadlineTest, AnAnswerInTimeIsGiven) {
  EXPECT_EQ(AnswerWithin(LONG, [] { return std::string("here"); }), "here");
}

TEST(DeadlineTest, TheQuestionIsAskedOnAThreadOfItsOwn) {
  EXPECT_NE(AnswerWithin(LONG, [] { return GetCurrentThreadId(); }), GetCurrentThreadId());
}

// The one who asks is gone when the answer comes, and nothing is harmed.
TEST(DeadlineTest, AQuestionThatHangsIsLeftToItself) {
  struct Hang {
    WindowsHandle release{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    WindowsHandle ended{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  };
  const auto hang = std::make_shared<Hang>();
  const auto answer = AnswerWithin(SHORT, [hang] {
    WaitForSingleObject(hang->release.get(), INFINITE);
    SetEvent(hang->ended.get());
    return std::string(1000, 'x');
  });
  EXPECT_EQ(answer, std::nullopt);
  SetEvent(hang->release.get());
  EXPECT_EQ(WaitForSingleObject(hang->ended.get(), 60000), WAIT_OBJECT_0);
}

TEST(DeadlineTest, WhatTheQuestionThrowsReachesTheOneWhoAsks) {
  EXPECT_THROW(AnswerWithin(LONG, []() -> int { throw std::runtime_error("no"); }), std::runtime_error);
}

}  // namespace
