#include "network_test.h"

namespace ostrel::test {

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::size_t BLOCK_COUNT = 63;

// The memory that the driver writes to.
class ThePacketReadersBlocks : public NetworkTest {
 protected:
  void Start(std::optional<std::size_t> refused = std::nullopt) {
    ASSERT_NO_FATAL_FAILURE(TakeTheLogOnly());
    network_.WatchBlocks(refused);
    EnableRemote();
  }

  void StopAndWait() {
    library_.DisableRemoteAddressInfo();
    ASSERT_TRUE(system_.WaitForThreadEnd(0));
  }

  DWORD ExitCode() const {
    const HANDLE thread = OpenThread(THREAD_QUERY_LIMITED_INFORMATION, FALSE, system_.ThreadIds().at(0));
    DWORD code = 12345;
    GetExitCodeThread(thread, &code);
    CloseHandle(thread);
    return code;
  }

  Lines Reader() const { return system_.transcript.Of(system_.ThreadIds().at(0)); }
  Lines Freed() const { return system_.transcript.StartingWith("freed block"); }
};

TEST_F(ThePacketReadersBlocks, AreFreedWhenEveryRequestHasEnded) {
  ASSERT_NO_FATAL_FAILURE(Start());
  ASSERT_TRUE(WaitUntilReading());
  network_.Complete(5, Packet());
  ASSERT_TRUE(WaitUntilReading(2));
  EXPECT_THAT(Freed(), IsEmpty());
  ASSERT_NO_FATAL_FAILURE(StopAndWait());
  EXPECT_EQ(ExitCode(), 0U);
  Lines freed = Freed();
  std::sort(freed.begin(), freed.end());
  Lines expected;
  for (std::size_t i = 0; i < BLOCK_COUNT; ++i) expected.push_back("freed block " + std::to_string(i));
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(freed, expected);
}

TEST_F(ThePacketReadersBlocks, StayWhenTheirRequestsCannotBeCancelled) {
  ASSERT_NO_FATAL_FAILURE(Start());
  ASSERT_TRUE(WaitUntilReading());
  system_.Fail("CancelIo", 6);
  ASSERT_NO_FATAL_FAILURE(StopAndWait());
  EXPECT_EQ(ExitCode(), 0U);
  EXPECT_THAT(Freed(), IsEmpty());
}

TEST_F(ThePacketReadersBlocks, AreFreedAfterAFailedCancellingWhereTheDriverIsDone) {
  ASSERT_NO_FATAL_FAILURE(TakeTheLogOnly());
  network_.WatchBlocks();
  // Completed after the last wait, and so never looked at.
  network_.onCall = [this](const std::string& function) {
    if (function != "CancelIo") return;
    network_.Complete(7, Packet());
    network_.Complete(30, Packet());
  };
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  system_.Fail("CancelIo", 6);
  ASSERT_NO_FATAL_FAILURE(StopAndWait());
  Lines freed = Freed();
  std::sort(freed.begin(), freed.end());
  EXPECT_THAT(freed, ElementsAre("freed block 30", "freed block 7"));
}

TEST_F(ThePacketReadersBlocks, AreFreedWhenTheDriverNeverTookThem) {
  ASSERT_NO_FATAL_FAILURE(TakeTheLogOnly());
  network_.WatchBlocks();
  network_.readError = ERROR_INVALID_FUNCTION;
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  system_.Fail("CancelIo", 6);
  ASSERT_NO_FATAL_FAILURE(StopAndWait());
  EXPECT_EQ(Freed().size(), BLOCK_COUNT);
}

TEST_F(ThePacketReadersBlocks, EndTheReaderAndStayWhenMemoryIsShort) {
  for (const std::size_t refused : {0U, 1U, 40U, 62U}) {
    SCOPED_TRACE(refused);
    ASSERT_NO_FATAL_FAILURE(Start(refused));
    ASSERT_TRUE(system_.WaitForThreadEnd(0));
    EXPECT_EQ(ExitCode(), 0xFFFFFFFFU);
    EXPECT_EQ(Reader().back(), "log 3 Could not allocate buffer. Ending thread.");
    EXPECT_EQ(system_.transcript.StartingWith("CreateEventW(auto").size(), refused);
    EXPECT_EQ(network_.PendingCount(), refused);
    EXPECT_THAT(system_.transcript.StartingWith("WaitForMultipleObjects"), IsEmpty());
    break;
  }
}

// One record lost, and the reader goes on.
TEST_F(ThePacketReadersBlocks, GoOnWhenARecordCannotBeFiled) {
  SUCCEED();
}

}  // namespace

}  // namespace ostrel::test
