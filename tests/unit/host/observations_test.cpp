#include "observations.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <filesystem>

#include "machine.h"
#include "temporary_folder.h"
#include "utf8.h"
#include "util/unique_handle.h"

namespace {

using namespace ostrel::host;
using ostrel::UniqueKernelHandle;
using ostrel::UniqueServiceHandle;
using ostrel_test::MakeFile;
using ostrel_test::TemporaryFolder;

// A driver's service that is never started, gone at the end.
class RegisteredService {
 public:
  explicit RegisteredService(DWORD startType)
      : manager_(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE)),
        service_(CreateServiceW(manager_.Get(), NAME, NAME, SERVICE_ALL_ACCESS, SERVICE_KERNEL_DRIVER,
                                startType, SERVICE_ERROR_NORMAL, L"C:\\no-such-driver.sys", nullptr, nullptr,
                                nullptr, nullptr, nullptr)) {
    EXPECT_TRUE(service_) << GetLastError();
  }
  ~RegisteredService() { DeleteService(service_.Get()); }
  RegisteredService(const RegisteredService&) = delete;
  RegisteredService& operator=(const RegisteredService&) = delete;

  static constexpr wchar_t NAME[] = L"OstrelSelfCheckTest";

 private:
  UniqueServiceHandle manager_;
  UniqueServiceHandle service_;
};

TEST(ObservationsTest, AServiceThatIsNotInstalledIsAnErrorOfItsOwn) {
  EXPECT_EQ(ObserveService(L"OstrelNoSuchService").error, DWORD{ERROR_SERVICE_DOES_NOT_EXIST});
}

TEST(ObservationsTest, AServiceThatWasNeverStartedIsSeenStopped) {
  const RegisteredService registered(SERVICE_DEMAND_START);
  const Service service = ObserveService(RegisteredService::NAME);
  EXPECT_EQ(service.error, 0U);
  EXPECT_EQ(service.state, ServiceState::Stopped);
  EXPECT_FALSE(service.isDisabled);
  EXPECT_EQ(service.lastError, DWORD{ERROR_SERVICE_NEVER_STARTED});
}

TEST(ObservationsTest, ADisabledServiceIsSeenAsSuch) {
  const RegisteredService registered(SERVICE_DISABLED);
  const Service service = ObserveService(RegisteredService::NAME);
  EXPECT_EQ(service.error, 0U);
  EXPECT_EQ(service.state, ServiceState::Stopped);
  EXPECT_TRUE(service.isDisabled);
}

TEST(ObservationsTest, TheRightToLoadDriversIsTheProcessesOwn) {
  EXPECT_EQ(ObserveRights().mayLoadDrivers, HoldsLoadDriverPrivilege());
}

class CurrentFolder {
 public:
  explicit CurrentFolder(const std::filesystem::path& folder) { std::filesystem::current_path(folder); }
  ~CurrentFolder() { std::filesystem::current_path(before_); }
  CurrentFolder(const CurrentFolder&) = delete;
  CurrentFolder& operator=(const CurrentFolder&) = delete;

 private:
  std::filesystem::path before_ = std::filesystem::current_path();
};

TEST(ObservationsTest, HelpersAreSoughtFromTheCurrentDirectoryOn) {
  const TemporaryFolder folder;
  const CurrentFolder current(folder.Path());
  const HelperFiles none = ObserveHelpers();
  EXPECT_EQ(none.application.path, ToUtf8(folder.Path()) + "\\OstrelUserHelper.exe");
  EXPECT_EQ(none.service.path, ToUtf8(folder.Path()) + "\\nlib\\OstrelUserHelper.exe");
  EXPECT_FALSE(none.application.isThere);
  EXPECT_FALSE(none.service.isThere);
  MakeFile(folder / L"OstrelUserHelper.exe");
  EXPECT_TRUE(ObserveHelpers().application.isThere);
  EXPECT_FALSE(ObserveHelpers().service.isThere);
  std::filesystem::create_directory(folder / L"nlib");
  MakeFile(folder / L"nlib\\OstrelUserHelper.exe");
  EXPECT_TRUE(ObserveHelpers().service.isThere);
}

TEST(ObservationsTest, AFolderIsNoHelper) {
  const TemporaryFolder folder;
  const CurrentFolder current(folder.Path());
  std::filesystem::create_directory(folder / L"OstrelUserHelper.exe");
  EXPECT_FALSE(ObserveHelpers().application.isThere);
}

TEST(ObservationsTest, ThisProcessIsNotAmongTheOthersWithAModule) {
  const std::vector<OtherHost> others = OtherProcessesWith(L"NTDLL.dll").value();
  EXPECT_TRUE(std::none_of(others.begin(), others.end(),
                           [](const OtherHost& other) { return other.processId == GetCurrentProcessId(); }));
  // Whatever else runs has that one.
  EXPECT_FALSE(others.empty());
}

TEST(ObservationsTest, AModuleThatNobodyHasIsFoundNowhere) {
  EXPECT_TRUE(OtherProcessesWith(L"OstrelNoSuchModule.dll").value().empty());
}

}  // namespace
