#include "util/unique_handle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<int>& Closed() {
  static std::vector<int> closed;
  return closed;
}

struct RecordingPolicy {
  using Handle = int;
  static Handle Invalid() noexcept { return -1; }
  static void Close(Handle handle) noexcept {
    Closed().push_back(handle);
    SetLastError(4711);
  }
};
using Owner = UniqueHandle<RecordingPolicy>;

class OwnedHandle : public ::testing::Test {
 protected:
  OwnedHandle() { Closed().clear(); }
};

TEST_F(OwnedHandle, IsClosedOnceAtTheEnd) {
  {
    const Owner owner(3);
    EXPECT_TRUE(owner);
    EXPECT_EQ(owner.Get(), 3);
  }
  EXPECT_THAT(Closed(), ElementsAre(3));
}

TEST_F(OwnedHandle, IsNotClosedWhenThereIsNone) {
  {
    const Owner none;
    const Owner invalid(-1);
    EXPECT_FALSE(none);
    EXPECT_FALSE(invalid);
  }
  EXPECT_THAT(Closed(), IsEmpty());
}

TEST_F(OwnedHandle, MovesWithoutBeingClosed) {
  {
    Owner first(3);
    const Owner second(std::move(first));
    EXPECT_FALSE(first);
    EXPECT_EQ(second.Get(), 3);
    EXPECT_THAT(Closed(), IsEmpty());
  }
  EXPECT_THAT(Closed(), ElementsAre(3));
}

TEST_F(OwnedHandle, IsClosedWhenAnotherIsAssigned) {
  Owner first(3);
  Owner second(4);
  first = std::move(second);
  EXPECT_THAT(Closed(), ElementsAre(3));
  EXPECT_EQ(first.Get(), 4);
  EXPECT_FALSE(second);
}

TEST_F(OwnedHandle, SurvivesAssignmentToItself) {
  Owner owner(3);
  Owner& same = owner;
  owner = std::move(same);
  EXPECT_EQ(owner.Get(), 3);
  EXPECT_THAT(Closed(), IsEmpty());
}

TEST_F(OwnedHandle, IsNotClosedAfterRelease) {
  {
    Owner owner(3);
    EXPECT_EQ(owner.Release(), 3);
    EXPECT_FALSE(owner);
  }
  EXPECT_THAT(Closed(), IsEmpty());
}

TEST_F(OwnedHandle, LeavesTheLastErrorAloneWhenItGoes) {
  {
    const Owner owner(3);
    SetLastError(5);
  }
  EXPECT_EQ(GetLastError(), 5U);
  EXPECT_THAT(Closed(), ElementsAre(3));
}

TEST_F(OwnedHandle, LeavesTheLastErrorOfClosingWhenClosedByName) {
  Owner owner(3);
  SetLastError(5);
  owner.Close();
  EXPECT_EQ(GetLastError(), 4711U);
  owner.Close();
  EXPECT_THAT(Closed(), ElementsAre(3));
}

TEST(HandlePolicies, KnowWhatStandsForNone) {
  EXPECT_FALSE(UniqueKernelHandle(nullptr));
  EXPECT_TRUE(UniqueKernelHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr)));
  EXPECT_FALSE(UniqueFileHandle(INVALID_HANDLE_VALUE));
  EXPECT_FALSE(UniqueServiceHandle(nullptr));
  EXPECT_FALSE(UniqueHeapBlock(nullptr));
}

}  // namespace

}  // namespace ostrel::test
