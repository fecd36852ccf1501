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
    FailureLedger::OfThisProgram().SetTheStage();
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
    const std::size_t before = system_.transcript.OfThisThread().size();
    library_.EnableRemoteAddressInfo(names_, 2);
    const Lines lines = LinesSince(before);
    CameTo("EnableRemoteAddressInfo: " +
           Outcome(lines, "on",
                   {{"starting the service", Has(lines, "log 6 Started nw filter driver successfully.")},
                    {"the callouts of IPv4", network_.HasKey("{3aaccbc0-2c29-455f-bb91-0e801c8994a4}")},
                    {"the callouts of IPv6", network_.HasKey("{30d7c71e-d02d-4f3e-86bd-116b09d6fd38}")},
                    {"the filters", network_.FilterCount() > 0},
                    {"monitoring", Has(lines, "log 6 Ostrel NW monitoring enabled.")},
                    {"starting the reader", Has(lines, "log 6 Started NW receive notification thread.")},
                    {"sending the list", Has(lines, "log 6 Sent proc names to nw filter. ")}}));
  }
  void DisableRemote() {
    const std::size_t before = system_.transcript.OfThisThread().size();
    library_.DisableRemoteAddressInfo();
    const Lines lines = LinesSince(before);
    CameTo("DisableRemoteAddressInfo: " +
           Outcome(lines, "off",
                   {{"stopping the service", Has(lines, "log 6 Stopped nw filter driver successfully.")},
                    {"ending the reader", Has(lines, "log 7 GetNWPacketInfo thread ended")},
                    {"closing the device", Has(lines, "log 7 Closed handle to NW driver.")}}));
  }

  // `reader` counts the packet readers from 1.
  bool WaitUntilReading(std::size_t reader = 1) const {
    return system_.transcript.WaitFor("WaitForMultipleObjects", reader);
  }

  // A step of switching on or off, and whether it was taken.
  using Step = std::pair<const char*, bool>;

  static std::string Outcome(const Lines& lines, const std::string& state, const std::vector<Step>& steps) {
    if (Has(lines, "log 7 Remote address capturing already ")) return "it is " + state + " already";
    std::string missed;
    for (const auto& [step, isTaken] : steps) {
      if (!isTaken) missed += (missed.empty() ? "" : ", ") + std::string(step);
    }
    return "it is " + state + (missed.empty() ? ", with every step taken" : ", without " + missed);
  }

  static bool Has(const Lines& lines, const std::string& prefix) {
    return std::any_of(lines.begin(), lines.end(),
                       [&prefix](const std::string& line) { return line.starts_with(prefix); });
  }

  Lines LinesSince(std::size_t before) const {
    const Lines lines = system_.transcript.OfThisThread();
    return Lines(lines.begin() + static_cast<std::ptrdiff_t>(std::min(before, lines.size())), lines.end());
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
