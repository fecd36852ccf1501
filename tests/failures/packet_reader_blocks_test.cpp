#include <algorithm>
#include <optional>

#include "network_test.h"

namespace ostrel::test {

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::size_t BLOCK_COUNT = 63;

const std::string REFUSED_FOR_GOOD = "The packet reader: goes on without the refused requests";

// The memory that the driver writes to.
class ThePacketReadersBlocks : public NetworkTest {
 protected:
  void Start(std::optional<std::size_t> refused = std::nullopt) {
    ASSERT_NO_FATAL_FAILURE(TakeTheLogOnly());
    network_.WatchMemory(refused);
    EnableRemote();
  }

  void StopAndWait() {
    DisableRemote();
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
  FailureLedger::OfThisProgram().Chosen(
      "CancelIo", "blocks that the driver still has are kept rather than freed: it may still write to them");
  system_.Fail("CancelIo", 6);
  ASSERT_NO_FATAL_FAILURE(StopAndWait());
  EXPECT_THAT(Reader().back(), "log 3 Could not cancel pending IO in NW driver. Code: 6");
  EXPECT_EQ(ExitCode(), 0U);
  EXPECT_THAT(Freed(), IsEmpty());
}

TEST_F(ThePacketReadersBlocks, AreFreedAfterAFailedCancellingWhereTheDriverIsDone) {
  ASSERT_NO_FATAL_FAILURE(TakeTheLogOnly());
  network_.WatchMemory();
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
  network_.WatchMemory();
  network_.readError = ERROR_INVALID_FUNCTION;
  EnableRemote();
  ASSERT_TRUE(WaitUntilReading());
  CameTo(REFUSED_FOR_GOOD);
  system_.Fail("CancelIo", 6);
  ASSERT_NO_FATAL_FAILURE(StopAndWait());
  EXPECT_EQ(Freed().size(), BLOCK_COUNT);
}

class ThePacketReadersFirstBlocks : public ThePacketReadersBlocks,
                                    public ::testing::WithParamInterface<std::size_t> {};

// The driver may still write to them.
TEST_P(ThePacketReadersFirstBlocks, StayWhenThereIsNoMemoryForTheNextOne) {
  ASSERT_NO_FATAL_FAILURE(Start(GetParam()));
  ASSERT_TRUE(system_.WaitForThreadEnd(0));
  EXPECT_EQ(ExitCode(), 0xFFFFFFFFU);
  CameTo("The packet reader: ends with exit code 4294967295");
  EXPECT_EQ(Reader().front(), "log 7 GetNWPacketInfo thread started");
  EXPECT_EQ(Reader().back(), "log 3 Could not allocate buffer. Ending thread.");
  EXPECT_EQ(Reader().size(), 2 + 2 * GetParam());
  EXPECT_EQ(system_.transcript.StartingWith("CreateEventW(auto reset").size(), GetParam());
  EXPECT_EQ(network_.PendingCount(), GetParam());
  EXPECT_THAT(Freed(), IsEmpty());
  Forget();
  DisableRemote();
  EXPECT_THAT(Logs(), Contains("log 7 GetNWPacketInfo thread ended"));
}

INSTANTIATE_TEST_SUITE_P(Of63, ThePacketReadersFirstBlocks, ::testing::Values(0U, 1U, 40U, 62U));

// The record is lost, its request is made again, and the next record is filed.
TEST_F(ThePacketReadersBlocks, StayInUseWhenThereIsNoMemoryToFileARecord) {
  FailureLedger::OfThisProgram().Chosen("malloc", "of what there is no memory for, nothing is filed half");
  ASSERT_NO_FATAL_FAILURE(Start());
  ASSERT_TRUE(WaitUntilReading());
  std::size_t waits = 1;
  int refusals = 0;
  for (bool refused = true; refused; ++refusals) {
    Packet packet;
    packet.port = 1000 + refusals;
    network_.RefuseMemory(refusals + 1);
    network_.Complete(0, packet);
    ASSERT_TRUE(WaitUntilReading(++waits));
    CameTo("The packet reader: loses the record, and makes its request again");
    refused = network_.HasRefusedMemory();
  }
  EXPECT_GE(refusals, 3) << "the name and the two maps take memory";
  EXPECT_THAT(
      system_.transcript.StartingWith("log 7 added"),
      ElementsAre("log 7 added network event: upload \\Device\\HarddiskVolume3\\chrome.exe: 16777343:" +
                  std::to_string(1000 + refusals - 1) + " 1000"));
  EXPECT_EQ(network_.PendingCount(), BLOCK_COUNT);
  ASSERT_NO_FATAL_FAILURE(StopAndWait());
  EXPECT_EQ(ExitCode(), 0U);
  EXPECT_EQ(Freed().size(), BLOCK_COUNT);
}

}  // namespace

}  // namespace ostrel::test
