#ifndef OSTREL_TESTS_FAILURES_NETWORK_TEST_H
#define OSTREL_TESTS_FAILURES_NETWORK_TEST_H

#include <string>

#include "library_test.h"
#include "support/packet.h"
#include "support/scripted_network.h"

namespace ostrel::test {

// The DLL on a scripted system with the filtering platform and the network driver's device.
class NetworkTest : public LibraryTest {
 protected:
  NetworkTest() { system_.processes = {{42, L"chrome.exe", L"Chrome.exe"}}; }

  // Gives the library its log and nothing else: no thread of it runs then but the packet reader.
  void TakeTheLogOnly() {
    system_.Fail("FilterLoad", 0x80070002);
    ASSERT_FALSE(Load());
    system_.Succeed("FilterLoad");
    Forget();
  }

  void LoadAndForget() {
    ASSERT_TRUE(Load());
    ASSERT_TRUE(system_.WaitUntilHandled());
    Forget();
  }

  bool EnableActivity(bool remoteAddressInfo, const wchar_t* user = L"ann") {
    return Returned("EnableActivityDetection",
                    library_.EnableActivityDetection(nullptr, user, names_, 2, nullptr, 0, 9,
                                                     remoteAddressInfo ? 1 : 0, 1)) == 1;
  }

  void EnableRemote() {
    library_.EnableRemoteAddressInfo(names_, 2);
    CameTo("EnableRemoteAddressInfo: the other steps are taken, and it is on");
  }
  void DisableRemote() {
    library_.DisableRemoteAddressInfo();
    CameTo("DisableRemoteAddressInfo: the other steps are taken, and it is off");
  }

  // `reader` counts the packet readers from 1.
  bool WaitUntilReading(std::size_t reader = 1) const {
    return system_.transcript.WaitFor("WaitForMultipleObjects", reader);
  }

  const wchar_t* names_[2] = {L"Chrome.exe", L"FIREFOX.EXE"};
  ScriptedNetwork network_{library_.Module(), system_};
};

inline const Lines STOPPING_THE_SERVICE = {"OpenSCManagerW(null, null, 0xf003f)",
                                           "OpenServiceW(manager, OstrelNWFilter, 0xf01ff)",
                                           "QueryServiceStatusEx(service, 0, 36)",
                                           "ControlService(service, 1)",
                                           "CloseServiceHandle(service)",
                                           "CloseServiceHandle(manager)",
                                           "log 6 Stopped nw filter driver successfully."};

inline const Lines STARTING_THE_SERVICE =
    STOPPING_THE_SERVICE +
    Lines{"OpenSCManagerW(null, null, 0xf003f)", "OpenServiceW(manager, OstrelNWFilter, 0xf01ff)",
          "StartServiceW(service, 0, null)",     "CloseServiceHandle(service)",
          "CloseServiceHandle(manager)",         "log 6 Started nw filter driver successfully."};

inline const std::string SEND_LIST =
    "DeviceIoControl(device, 0x222008, 138176 bytes, null of 0, returned, synchronous)";

inline const Lines STOPPING_THE_READER = {"SetEvent(event)",
                                          "WaitForSingleObject(thread, 3000)",
                                          "log 7 GetNWPacketInfo thread ended",
                                          "CloseHandle(device)",
                                          "log 7 Closed handle to NW driver.",
                                          "log 6 Disconnected from NW driver successfully."};

}  // namespace ostrel::test

#endif
