#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "cache/cache_callbacks.h"
#include "cache/read_event_cache.h"
#include "support/log_capture.h"
#include "support/test_thread.h"

namespace {

using ostrel::ULong32;
using ostrel_test::cacheCallbacks;
using ostrel_test::DEADLINE;
using ostrel_test::Signal;
using ostrel_test::TestThread;

constexpr unsigned long long NOW = 100001;
constexpr unsigned long long DUE = 40000;

// Long enough for a call that finds the lock free to come back many times over.
constexpr std::chrono::milliseconds SHUT_OUT{150};

class ReadEventCacheLockingTest : public testing::Test {
 protected:
  ReadEventCacheLockingTest() { cacheCallbacks = ostrel_test::OrdinaryCallbacks(); }

  void Add(const std::wstring& name) {
    cache_.AddEvent(name, nullptr, L"chrome.exe", 1, DUE, 0, FILE_EVENT_READ, 1);
  }

  // To be called inside a callback: another thread's call of every locking member has begun and none has
  // returned.
  void ExpectOthersShutOut() {
    if (!intruders_.empty()) return;
    const std::vector<std::function<void()>> calls = {
        [this] { Add(L"C:\\other"); }, [this] { cache_.RemoveEvent(L"C:\\none", 1); },
        [this] { cache_.GetEvents(0); }, [this] { cache_.EnableTabTitleCapture(); },
        [this] { cache_.DisableTabTitleCapture(); }};
    for (const auto& call : calls) {
      auto intruder = std::make_unique<Intruder>();
      Intruder& state = *intruder;
      state.thread = std::make_unique<TestThread>([call, &state] {
        state.begun.Set();
        call();
        state.returned.Set();
      });
      intruders_.push_back(std::move(intruder));
    }
    for (const auto& intruder : intruders_) EXPECT_TRUE(intruder->begun.WaitFor(DEADLINE));
    for (const auto& intruder : intruders_) EXPECT_FALSE(intruder->returned.WaitFor(SHUT_OUT));
  }

  void ExpectOthersLetIn() {
    EXPECT_EQ(intruders_.size(), 5U);
    for (const auto& intruder : intruders_) EXPECT_TRUE(intruder->returned.WaitFor(DEADLINE));
  }

  // A lock left behind by an exception would hang the test; the thread's call shows it within the deadline
  // instead.
  void ExpectLockFree() {
    auto free = std::make_shared<Signal>();
    TestThread caller([this, free] {
      cache_.EnableTabTitleCapture();
      free->Set();
    });
    const bool isFree = free->WaitFor(DEADLINE);
    EXPECT_TRUE(isFree);
    if (!isFree) std::abort();
  }

  struct Intruder {
    Signal begun;
    Signal returned;
    std::unique_ptr<TestThread> thread;
  };

  ReadEventCache cache_{ostrel_test::userLookup, ostrel_test::tabTitleLookup, ostrel_test::directoryTest};
  std::vector<std::unique_ptr<Intruder>> intruders_;
};

TEST_F(ReadEventCacheLockingTest, TheUserLookupRunsUnderTheLock) {
  cacheCallbacks.user = [this](void*, std::wstring&) {
    ExpectOthersShutOut();
    return static_cast<unsigned char>(1);
  };
  Add(L"C:\\f");
  ExpectOthersLetIn();
}

TEST_F(ReadEventCacheLockingTest, TheTabTitleLookupRunsUnderTheLock) {
  cacheCallbacks.titles = [this](ULong32, const std::wstring&, std::wstring&) {
    ExpectOthersShutOut();
    return std::vector<std::wstring>{};
  };
  Add(L"C:\\f");
  ExpectOthersLetIn();
}

TEST_F(ReadEventCacheLockingTest, TheDirectoryTestRunsUnderTheLock) {
  cacheCallbacks.directory = [this](const std::wstring&) {
    ExpectOthersShutOut();
    return static_cast<unsigned char>(0);
  };
  Add(L"C:\\f");
  cache_.GetEvents(NOW);
  ExpectOthersLetIn();
}

TEST_F(ReadEventCacheLockingTest, TheCountIsReadWithoutTheLock) {
  unsigned long long count = 99;
  cacheCallbacks.user = [&](void*, std::wstring&) {
    count = cache_.GetCacheCount();
    return static_cast<unsigned char>(1);
  };
  Add(L"C:\\f");
  EXPECT_EQ(count, 0U);
}

TEST_F(ReadEventCacheLockingTest, AnExceptionOfTheUserLookupPassesOutAndLeavesNothingBehind) {
  cacheCallbacks.user = [](void*, std::wstring&) -> unsigned char { throw std::runtime_error("user"); };
  EXPECT_THROW(Add(L"C:\\f"), std::runtime_error);
  ExpectLockFree();
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
  EXPECT_TRUE(cache_.GetEvents(NOW).empty());
}

TEST_F(ReadEventCacheLockingTest, AnExceptionOfTheTabTitleLookupPassesOutAndLeavesNothingBehind) {
  cacheCallbacks.titles = [](ULong32, const std::wstring&, std::wstring&) -> std::vector<std::wstring> {
    throw std::runtime_error("titles");
  };
  EXPECT_THROW(Add(L"C:\\f"), std::runtime_error);
  ExpectLockFree();
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
  EXPECT_TRUE(cache_.GetEvents(NOW).empty());
}

TEST_F(ReadEventCacheLockingTest, AnExceptionOfTheDirectoryTestPassesOutAndKeepsTheEventItWasAskedAbout) {
  cacheCallbacks.directory = [](const std::wstring&) -> unsigned char {
    throw std::runtime_error("directory");
  };
  Add(L"C:\\f");
  EXPECT_THROW(cache_.GetEvents(NOW), std::runtime_error);
  ExpectLockFree();
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
  cacheCallbacks.directory = ostrel_test::OrdinaryCallbacks().directory;
  EXPECT_EQ(cache_.GetEvents(NOW).size(), 1U);
}

}  // namespace
