#include "self_check.h"

#include <gtest/gtest.h>

namespace {

using namespace ostrel::host;
using Lines = std::vector<std::string>;

// A machine with nothing to mend: the drivers run and no host uses them.
SelfCheckFacts Healthy() {
  SelfCheckFacts facts;
  facts.rights = Rights{true, true};
  facts.driverFiles = DriverFiles{"C:\\ostrel", {}};
  facts.filteringEngine = 0;
  facts.session = UserSession{0, 1, HelperMode::Application};
  facts.helpers = HelperFiles{{"C:\\ostrel\\OstrelUserHelper.exe", true},
                              {"C:\\ostrel\\nlib\\OstrelUserHelper.exe", true}};
  facts.minifilter = Service{0, ServiceState::Running, false, 0};
  facts.networkDriver = Service{0, ServiceState::Running, false, 0};
  facts.hosts.emplace();
  facts.eventPort = 0;
  facts.controlPort = 0;
  facts.networkDevice = 0;
  return facts;
}

Lines LinesOf(const SelfCheckFacts& facts) {
  Lines lines;
  for (const Check& check : JudgeFacts(facts)) lines.push_back(CheckLine(check));
  return lines;
}

// The line about the subject.
std::string LineOf(const SelfCheckFacts& facts, const std::string& subject) {
  for (const Check& check : JudgeFacts(facts)) {
    if (check.subject == subject) return CheckLine(check);
  }
  return "none";
}

constexpr char START_A_HOST[] =
    ". A host installs and starts it, such as OstrelHost.exe --watch chrome.exe; its log says why when it "
    "cannot.";

TEST(SelfCheckTest, WithNothingToMendEveryLineIsOkAndTheExitCodeZero) {
  EXPECT_EQ(LinesOf(Healthy()),
            (Lines{
                "ok      rights: this process is elevated and may load drivers",
                "ok      driver files: all four lie beside OstrelFilterLib.dll in C:\\ostrel",
                "ok      filtering engine: the Windows Filtering Platform answers",
                "ok      user session: session 1 is active",
                "ok      helper of an application: C:\\ostrel\\OstrelUserHelper.exe",
                "ok      helper of a service: C:\\ostrel\\nlib\\OstrelUserHelper.exe",
                "ok      minifilter service: OstrelFilter runs",
                "ok      network driver service: OstrelNWFilter runs",
                "ok      event port: the minifilter accepts a connection",
                "ok      control port: the minifilter accepts a connection",
                "ok      network device: the network driver's device opens",
            }));
  EXPECT_EQ(SelfCheckResult(JudgeFacts(Healthy())), ExitCode::Success);
}

TEST(SelfCheckTest, AProcessThatIsNotElevatedIsToldHowToBecomeIt) {
  SelfCheckFacts facts = Healthy();
  facts.rights = Rights{false, false};
  EXPECT_EQ(LineOf(facts, "rights"),
            "fail    rights: this process is not elevated. Start it from an elevated prompt (\"Run as "
            "administrator\") or as a service of the local system account.");
}

TEST(SelfCheckTest, AnElevatedProcessMayLackThePrivilege) {
  SelfCheckFacts facts = Healthy();
  facts.rights = Rights{true, false};
  EXPECT_EQ(
      LineOf(facts, "rights"),
      "fail    rights: this process is elevated, but its account may not load drivers. Give the account "
      "the user right \"Load and unload device drivers\" and log on anew.");
}

TEST(SelfCheckTest, DriverFilesThatAreNotThereAreNamed) {
  SelfCheckFacts facts = Healthy();
  facts.driverFiles->missing = {"OstrelFilter.sys", "OstrelNWFilter.inf"};
  EXPECT_EQ(LineOf(facts, "driver files"),
            "fail    driver files: not beside OstrelFilterLib.dll in C:\\ostrel: OstrelFilter.sys, "
            "OstrelNWFilter.inf. Put all four driver files there.");
}

TEST(SelfCheckTest, AFilteringEngineThatDoesNotAnswerIsTheBaseFilteringEnginesMatter) {
  SelfCheckFacts facts = Healthy();
  facts.filteringEngine = 1753;
  EXPECT_EQ(LineOf(facts, "filtering engine"),
            "fail    filtering engine: the Windows Filtering Platform does not answer (error 1753). See that "
            "the service Base Filtering Engine runs: \"sc query BFE\" shows it.");
}

TEST(SelfCheckTest, AnErrorThatSaysMoreThanItsStepHasItsOwnRemedy) {
  SelfCheckFacts facts = Healthy();
  facts.filteringEngine = 5;
  EXPECT_EQ(LineOf(facts, "filtering engine"),
            "fail    filtering engine: the Windows Filtering Platform does not answer (error 5). Access was "
            "denied: start it from an elevated prompt, and see that no security product forbids it.");
}

TEST(SelfCheckTest, WithNobodyLoggedOnNoSessionIsActive) {
  SelfCheckFacts facts = Healthy();
  facts.session = UserSession{};
  EXPECT_EQ(LineOf(facts, "user session"),
            "fail    user session: nobody is logged on. Log on: tab titles and digests of files on network "
            "drives come from the session of a user.");
}

TEST(SelfCheckTest, SessionsThatCannotBeListedAreTheTerminalServicesMatter) {
  SelfCheckFacts facts = Healthy();
  facts.session = UserSession{1722, 0, HelperMode::Unknown};
  EXPECT_EQ(LineOf(facts, "user session"),
            "fail    user session: the sessions cannot be listed (error 1722). See that the service Remote "
            "Desktop Services runs: \"sc query TermService\" shows it.");
}

TEST(SelfCheckTest, AnApplicationNeedsItsOwnHelper) {
  SelfCheckFacts facts = Healthy();
  facts.helpers->application.isThere = false;
  EXPECT_EQ(LineOf(facts, "helper of an application"),
            "fail    helper of an application: not found as C:\\ostrel\\OstrelUserHelper.exe. Put "
            "OstrelUserHelper.exe there: the library looks for it from the current directory on.");
}

TEST(SelfCheckTest, AnApplicationDoesNotNeedTheHelperOfAService) {
  SelfCheckFacts facts = Healthy();
  facts.helpers->service.isThere = false;
  EXPECT_EQ(
      LineOf(facts, "helper of a service"),
      "skipped helper of a service: not found as C:\\ostrel\\nlib\\OstrelUserHelper.exe, and needed only "
      "by a host that is a service");
  EXPECT_EQ(SelfCheckResult(JudgeFacts(facts)), ExitCode::Success);
}

TEST(SelfCheckTest, WithNobodyLoggedOnOneHelperOfTheTwoIsNeeded) {
  SelfCheckFacts facts = Healthy();
  facts.session->mode = HelperMode::Unknown;
  facts.helpers->application.isThere = false;
  EXPECT_EQ(
      LineOf(facts, "helper of an application"),
      "skipped helper of an application: not found as C:\\ostrel\\OstrelUserHelper.exe, and needed only "
      "by a host that is no service");
  facts.helpers->service.isThere = false;
  EXPECT_EQ(LineOf(facts, "helper of a service"),
            "fail    helper of a service: not found as C:\\ostrel\\nlib\\OstrelUserHelper.exe. Put "
            "OstrelUserHelper.exe there: the library looks for it from the current directory on.");
}

TEST(SelfCheckTest, AServiceNeedsItsOwnHelper) {
  SelfCheckFacts facts = Healthy();
  facts.session->mode = HelperMode::Service;
  facts.helpers->service.isThere = false;
  EXPECT_EQ(LineOf(facts, "helper of a service"),
            "fail    helper of a service: not found as C:\\ostrel\\nlib\\OstrelUserHelper.exe. Put "
            "OstrelUserHelper.exe there: the library looks for it from the current directory on.");
}

TEST(SelfCheckTest, AServiceDoesNotNeedTheHelperOfAnApplication) {
  SelfCheckFacts facts = Healthy();
  facts.session->mode = HelperMode::Service;
  facts.helpers->application.isThere = false;
  EXPECT_EQ(
      LineOf(facts, "helper of an application"),
      "skipped helper of an application: not found as C:\\ostrel\\OstrelUserHelper.exe, and needed only "
      "by a host that is no service");
}

TEST(SelfCheckTest, ServicesThatAreNotInstalledComeWithAHost) {
  SelfCheckFacts facts = Healthy();
  facts.minifilter = Service{1060, ServiceState::Stopped, false, 0};
  facts.networkDriver = Service{1060, ServiceState::Stopped, false, 0};
  EXPECT_EQ(LineOf(facts, "minifilter service"),
            std::string("fail    minifilter service: OstrelFilter is not installed") + START_A_HOST);
  EXPECT_EQ(LineOf(facts, "network driver service"),
            std::string("fail    network driver service: OstrelNWFilter is not installed") + START_A_HOST);
}

TEST(SelfCheckTest, AServiceThatCannotBeLookedAtIsNamedWithTheError) {
  SelfCheckFacts facts = Healthy();
  facts.minifilter = Service{1115, ServiceState::Stopped, false, 0};
  EXPECT_EQ(
      LineOf(facts, "minifilter service"),
      "fail    minifilter service: OstrelFilter cannot be looked at (error 1115). \"sc query\" may tell "
      "more.");
}

TEST(SelfCheckTest, AMinifilterThatNobodyHasStartedFails) {
  SelfCheckFacts facts = Healthy();
  for (const std::uint32_t stoppedOrNeverStarted : {0U, 1077U}) {
    facts.minifilter = Service{0, ServiceState::Stopped, false, stoppedOrNeverStarted};
    EXPECT_EQ(
        LineOf(facts, "minifilter service"),
        std::string("fail    minifilter service: OstrelFilter is installed and does not run") + START_A_HOST);
  }
}

TEST(SelfCheckTest, ANetworkDriverThatNobodyHasStartedIsNoFailure) {
  SelfCheckFacts facts = Healthy();
  for (const std::uint32_t stoppedOrNeverStarted : {0U, 1077U}) {
    facts.networkDriver = Service{0, ServiceState::Stopped, false, stoppedOrNeverStarted};
    EXPECT_EQ(LineOf(facts, "network driver service"),
              "skipped network driver service: OstrelNWFilter is installed; it runs only while a host wants "
              "remote address info");
    EXPECT_EQ(SelfCheckResult(JudgeFacts(facts)), ExitCode::Success);
  }
}

TEST(SelfCheckTest, AServiceThatFailedToStartSaysWhy) {
  SelfCheckFacts facts = Healthy();
  facts.networkDriver = Service{0, ServiceState::Stopped, false, 1275};
  EXPECT_EQ(LineOf(facts, "network driver service"),
            "fail    network driver service: OstrelNWFilter does not run and ended with error 1275. Windows "
            "blocks this driver: see its policy for drivers.");
  facts.networkDriver->lastError = 31;
  EXPECT_EQ(LineOf(facts, "network driver service"),
            "fail    network driver service: OstrelNWFilter does not run and ended with error 31. \"net "
            "helpmsg\" explains the error.");
}

TEST(SelfCheckTest, ADisabledServiceFailsWithTheCommandThatEnablesIt) {
  SelfCheckFacts facts = Healthy();
  facts.networkDriver = Service{0, ServiceState::Stopped, true, 1077};
  EXPECT_EQ(LineOf(facts, "network driver service"),
            "fail    network driver service: OstrelNWFilter is disabled. \"sc config OstrelNWFilter start= "
            "demand\" enables it.");
}

TEST(SelfCheckTest, AServiceOnItsWayIsToBeLookedAtAgain) {
  SelfCheckFacts facts = Healthy();
  facts.minifilter->state = ServiceState::Changing;
  EXPECT_EQ(
      LineOf(facts, "minifilter service"),
      "fail    minifilter service: OstrelFilter is just being started or stopped. Try again in a moment.");
}

TEST(SelfCheckTest, WithoutDriversPortsAndDeviceAreNotTried) {
  SelfCheckFacts facts = Healthy();
  facts.minifilter->state = ServiceState::Stopped;
  facts.networkDriver->state = ServiceState::Stopped;
  EXPECT_EQ(LineOf(facts, "event port"), "skipped event port: not tried, since the minifilter does not run");
  EXPECT_EQ(LineOf(facts, "control port"),
            "skipped control port: not tried, since the minifilter does not run");
  EXPECT_EQ(LineOf(facts, "network device"),
            "skipped network device: not tried, since the network driver does not run");
}

TEST(SelfCheckTest, PortsAndDeviceAreLeftToAHostThatIsThere) {
  SelfCheckFacts facts = Healthy();
  facts.hosts->push_back({"agent.exe", 48});
  facts.hosts->push_back({"OstrelHost.exe", 52});
  const std::string reason =
      ": left to agent.exe (process 48), which has the library loaded: opening it could get in that host's "
      "way";
  EXPECT_EQ(LineOf(facts, "event port"), "skipped event port" + reason);
  EXPECT_EQ(LineOf(facts, "control port"), "skipped control port" + reason);
  EXPECT_EQ(LineOf(facts, "network device"), "skipped network device" + reason);
  EXPECT_EQ(SelfCheckResult(JudgeFacts(facts)), ExitCode::Success);
}

TEST(SelfCheckTest, AHostThatCouldNotBeSeenShowsAtTheEventPortAndKeepsTheRest) {
  SelfCheckFacts facts = Healthy();
  facts.eventPort = 0x800704D6;
  EXPECT_EQ(LineOf(facts, "event port"),
            "ok      event port: a host is connected already, and there can be one only");
  const std::string reason =
      ": left to the host that is connected to the event port: opening it could get in that host's way";
  EXPECT_EQ(LineOf(facts, "control port"), "skipped control port" + reason);
  EXPECT_EQ(LineOf(facts, "network device"), "skipped network device" + reason);
}

TEST(SelfCheckTest, WithoutElevationNothingIsOpened) {
  SelfCheckFacts facts = Healthy();
  facts.rights = Rights{false, false};
  const std::string reason = ": not tried, since this process is not elevated";
  EXPECT_EQ(LineOf(facts, "event port"), "skipped event port" + reason);
  EXPECT_EQ(LineOf(facts, "control port"), "skipped control port" + reason);
  EXPECT_EQ(LineOf(facts, "network device"), "skipped network device" + reason);
  facts.rights.reset();
  EXPECT_EQ(LineOf(facts, "event port"), "skipped event port" + reason);
}

TEST(SelfCheckTest, WhenHostsCannotBeLookedForNothingIsOpened) {
  SelfCheckFacts facts = Healthy();
  facts.hosts.reset();
  const std::string reason = ": not tried, since it could not be found out whether another host runs";
  EXPECT_EQ(LineOf(facts, "event port"), "skipped event port" + reason);
  EXPECT_EQ(LineOf(facts, "control port"), "skipped control port" + reason);
  EXPECT_EQ(LineOf(facts, "network device"), "skipped network device" + reason);
}

TEST(SelfCheckTest, APortThatRefusesIsNamedWithTheResult) {
  SelfCheckFacts facts = Healthy();
  facts.eventPort = 0x80070002;
  facts.controlPort = 0x80070005;
  EXPECT_EQ(
      LineOf(facts, "event port"),
      "fail    event port: the minifilter refuses a connection (0x80070002). See that driver and library "
      "are of the same version.");
  EXPECT_EQ(
      LineOf(facts, "control port"),
      "fail    control port: the minifilter refuses a connection (0x80070005). Access was denied: start "
      "it from an elevated prompt, and see that no security product forbids it.");
}

// Its low half alone would be Windows' "access denied".
TEST(SelfCheckTest, AResultThatIsNoWindowsErrorIsNotTakenForOne) {
  SelfCheckFacts facts = Healthy();
  facts.controlPort = 0x801F0005;
  EXPECT_EQ(LineOf(facts, "control port"),
            "fail    control port: the minifilter refuses a connection (0x801F0005). See that driver and "
            "library are of the same version.");
}

TEST(SelfCheckTest, ADeviceThatDoesNotOpenIsNamedWithTheError) {
  SelfCheckFacts facts = Healthy();
  facts.networkDevice = 2;
  EXPECT_EQ(
      LineOf(facts, "network device"),
      "fail    network device: the network driver's device does not open (error 2). See that driver and "
      "library are of the same version.");
}

TEST(SelfCheckTest, WhatGivesNoAnswerFailsWithoutHoldingUpTheRest) {
  SelfCheckFacts facts = Healthy();
  facts.driverFiles.reset();
  facts.filteringEngine.reset();
  facts.session.reset();
  facts.helpers.reset();
  facts.eventPort.reset();
  facts.networkDevice.reset();
  const std::string silence =
      ": no answer within 10 seconds. Try again; when that does not help, restart the system.";
  for (const char* subject : {"driver files", "filtering engine", "user session", "helper of an application",
                              "helper of a service", "event port", "network device"}) {
    EXPECT_EQ(LineOf(facts, subject), std::string("fail    ") + subject + silence);
  }
  EXPECT_EQ(LineOf(facts, "control port"),
            "skipped control port: not tried, since the event port did not answer");
}

TEST(SelfCheckTest, RightsServicesAndTheControlPortMayGiveNoAnswerToo) {
  SelfCheckFacts facts = Healthy();
  facts.controlPort.reset();
  const std::string silence =
      ": no answer within 10 seconds. Try again; when that does not help, restart the system.";
  EXPECT_EQ(LineOf(facts, "control port"), "fail    control port" + silence);
  facts.rights.reset();
  facts.minifilter.reset();
  facts.networkDriver.reset();
  for (const char* subject : {"rights", "minifilter service", "network driver service"}) {
    EXPECT_EQ(LineOf(facts, subject), std::string("fail    ") + subject + silence);
  }
}

TEST(SelfCheckTest, OneFailureIsEnoughForTheExitCode) {
  SelfCheckFacts facts = Healthy();
  facts.networkDevice = 2;
  EXPECT_EQ(SelfCheckResult(JudgeFacts(facts)), ExitCode::SelfCheckFailed);
  EXPECT_EQ(static_cast<int>(ExitCode::SelfCheckFailed), 12);
}

}  // namespace
