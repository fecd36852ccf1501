#include "network/driver_service.h"

#include "platform_test.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;

const std::string OPEN_MANAGER = "OpenSCManagerW(null, null, 0xf003f)";
const std::string OPEN_SERVICE = "OpenServiceW(manager, OstrelNWFilter, 0xf01ff)";
const std::string QUERY = "QueryServiceStatusEx(service, 0, 36)";
const std::string STOP = "ControlService(service, 1)";
const std::string START = "StartServiceW(service, 0, null)";
const std::string CLOSE_SERVICE = "CloseServiceHandle(service)";
const std::string CLOSE_MANAGER = "CloseServiceHandle(manager)";

class NetworkDriverService : public PlatformTest {
 protected:
  ~NetworkDriverService() override { EXPECT_EQ(system_.OpenHandles(), leftOpen_); }

  static bool Stop() { return Returned("Stopping the network driver's service", StopNetworkDriverService()); }
  static bool Start() {
    return Returned("Starting the network driver's service", StartNetworkDriverService());
  }

  void RefuseToClose() {
    system_.Fail("CloseServiceHandle", 777);
    leftOpen_ = {"manager", "service"};
  }

  Lines leftOpen_;
};

TEST_F(NetworkDriverService, IsStoppedWhateverItsState) {
  for (const DWORD state : {SERVICE_RUNNING, SERVICE_STOPPED, SERVICE_STOP_PENDING, SERVICE_START_PENDING}) {
    SCOPED_TRACE(state);
    system_.serviceState = state;
    system_.transcript.Clear();
    EXPECT_TRUE(Stop());
    EXPECT_THAT(Calls(), ElementsAre(OPEN_MANAGER, OPEN_SERVICE, QUERY, STOP, CLOSE_SERVICE, CLOSE_MANAGER,
                                     "log 6 Stopped nw filter driver successfully."));
  }
}

TEST_F(NetworkDriverService, IsStoppedAlthoughItsHandlesCannotBeClosed) {
  RefuseToClose();
  EXPECT_TRUE(Stop());
  EXPECT_THAT(Logs(), ElementsAre("log 6 Stopped nw filter driver successfully."));
}

TEST_F(NetworkDriverService, ReportsAFailedStopWhateverItsState) {
  system_.Fail("ControlService", 1062);
  for (const DWORD state : {SERVICE_RUNNING, SERVICE_STOPPED, SERVICE_STOP_PENDING}) {
    SCOPED_TRACE(state);
    system_.serviceState = state;
    system_.transcript.Clear();
    EXPECT_FALSE(Stop());
    EXPECT_THAT(Logs(),
                ElementsAre("log 6 ControlService failed to stop network filter or it wasn't running. 1062"));
  }
}

TEST_F(NetworkDriverService, CannotBeStoppedWithoutTheManager) {
  system_.Fail("OpenSCManagerW", 5);
  EXPECT_FALSE(Stop());
  EXPECT_THAT(Calls(), ElementsAre(OPEN_MANAGER, "log 3 OpenSCManager failed (5)."));
}

TEST_F(NetworkDriverService, CannotBeStoppedWhenItCannotBeOpened) {
  system_.Fail("OpenServiceW", 1060);
  EXPECT_FALSE(Stop());
  EXPECT_THAT(Calls(),
              ElementsAre(OPEN_MANAGER, OPEN_SERVICE, "log 3 OpenService failed (1060).", CLOSE_MANAGER));
}

// The code in the line may be that of closing.
TEST_F(NetworkDriverService, ReportsAFailedQueryWithTheCodeThatIsLeftAfterClosing) {
  system_.Fail("QueryServiceStatusEx", 6);
  RefuseToClose();
  EXPECT_FALSE(Stop());
  EXPECT_THAT(Calls(), ElementsAre(OPEN_MANAGER, OPEN_SERVICE, QUERY, CLOSE_SERVICE, CLOSE_MANAGER,
                                   "log 3 QueryServiceStatusEx failed. 777"));
}

TEST_F(NetworkDriverService, ReportsAFailedQueryWithItsOwnCodeWhenClosingLeavesIt) {
  system_.Fail("QueryServiceStatusEx", 6);
  EXPECT_FALSE(Stop());
  EXPECT_THAT(Logs(), ElementsAre("log 3 QueryServiceStatusEx failed. 6"));
}

TEST_F(NetworkDriverService, ReportsAFailedStopAsNotableWithTheCodeThatIsLeftAfterClosing) {
  system_.Fail("ControlService", 1062);
  RefuseToClose();
  EXPECT_FALSE(Stop());
  EXPECT_THAT(Calls(),
              ElementsAre(OPEN_MANAGER, OPEN_SERVICE, QUERY, STOP, CLOSE_SERVICE, CLOSE_MANAGER,
                          "log 6 ControlService failed to stop network filter or it wasn't running. 777"));
}

TEST_F(NetworkDriverService, ReportsAFailedStopWithItsOwnCodeWhenClosingLeavesIt) {
  system_.Fail("ControlService", 1062);
  EXPECT_FALSE(Stop());
  EXPECT_THAT(Logs(),
              ElementsAre("log 6 ControlService failed to stop network filter or it wasn't running. 1062"));
}

TEST_F(NetworkDriverService, IsStoppedBeforeItIsStarted) {
  EXPECT_TRUE(Start());
  EXPECT_THAT(Calls(),
              ElementsAre(OPEN_MANAGER, OPEN_SERVICE, QUERY, STOP, CLOSE_SERVICE, CLOSE_MANAGER,
                          "log 6 Stopped nw filter driver successfully.", OPEN_MANAGER, OPEN_SERVICE, START,
                          CLOSE_SERVICE, CLOSE_MANAGER, "log 6 Started nw filter driver successfully."));
}

TEST_F(NetworkDriverService, IsStartedAlthoughItCouldNotBeStopped) {
  system_.Fail("ControlService", 1062);
  EXPECT_TRUE(Start());
  EXPECT_THAT(Logs(),
              ElementsAre("log 6 ControlService failed to stop network filter or it wasn't running. 1062",
                          "log 6 Started nw filter driver successfully."));
}

TEST_F(NetworkDriverService, CannotBeStartedWithoutTheManager) {
  system_.Fail("OpenSCManagerW", 5, 2);
  EXPECT_FALSE(Start());
  EXPECT_THAT(Logs(),
              ElementsAre("log 6 Stopped nw filter driver successfully.", "log 3 OpenSCManager failed (5)."));
}

TEST_F(NetworkDriverService, CannotBeStartedWhenItCannotBeOpened) {
  system_.Fail("OpenServiceW", 1060);
  EXPECT_FALSE(Start());
  EXPECT_THAT(Calls(),
              ElementsAre(OPEN_MANAGER, OPEN_SERVICE, "log 3 OpenService failed (1060).", CLOSE_MANAGER,
                          OPEN_MANAGER, OPEN_SERVICE, "log 3 OpenService failed (1060).", CLOSE_MANAGER));
}

// Unlike in stopping, the code is read before the handles are closed.
TEST_F(NetworkDriverService, ReportsAFailedStartWithItsOwnCode) {
  system_.Fail("StartServiceW", 1058);
  RefuseToClose();
  leftOpen_ = {"manager", "manager", "service", "service"};
  EXPECT_FALSE(Start());
  EXPECT_THAT(Calls(), ElementsAre(OPEN_MANAGER, OPEN_SERVICE, QUERY, STOP, CLOSE_SERVICE, CLOSE_MANAGER,
                                   "log 6 Stopped nw filter driver successfully.", OPEN_MANAGER, OPEN_SERVICE,
                                   START, "log 3 StartService failed (1058).", CLOSE_SERVICE, CLOSE_MANAGER));
}

}  // namespace

}  // namespace ostrel::test
