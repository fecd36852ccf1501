#include "diagnosis.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ostrel::host::DiagnoseConfiguration;
using ostrel::host::DiagnoseLoad;
using ostrel::host::DiagnoseMachine;
using ostrel::host::DiagnoseRemoteAddressInfoOff;
using ostrel::host::DiagnoseRemoteAddressInfoOn;
using ostrel::host::DiagnoseUnload;
using ostrel::host::Diagnosis;
using ostrel::host::ExitCode;
using ostrel::host::MinifilterIsGone;
using ostrel::host::SaysMinifilterIsGone;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

using Lines = std::vector<std::string>;

Lines Prefixed(Lines lines) {
  for (std::string& line : lines) line.insert(0, "OstrelFilterDriver: ");
  return lines;
}

Diagnosis Required(const std::optional<Diagnosis>& diagnosis) {
  EXPECT_TRUE(diagnosis);
  return diagnosis.value_or(Diagnosis{ExitCode::Success, ""});
}

Diagnosis FailedLoad(const Lines& lines) {
  return Required(DiagnoseLoad({false, Prefixed(lines)}));
}
Diagnosis Configuration(bool succeeded, const Lines& lines) {
  return Required(DiagnoseConfiguration({succeeded, Prefixed(lines)}));
}
Diagnosis FailedUnload(const Lines& lines) {
  return Required(DiagnoseUnload({false, Prefixed(lines)}));
}

TEST(DiagnoseMachineTest, WithAllFilesAndThePrivilegeNothingIsWrong) {
  EXPECT_FALSE(DiagnoseMachine({"C:\\agent", {}, true}));
}

TEST(DiagnoseMachineTest, MissingFilesAreNamedWithTheFolder) {
  const Diagnosis diagnosis =
      Required(DiagnoseMachine({"C:\\agent", {"OstrelFilter.sys", "OstrelNWFilter.inf"}, true}));
  EXPECT_EQ(diagnosis.exitCode, ExitCode::DriverFilesMissing);
  EXPECT_EQ(diagnosis.message,
            "Not found beside OstrelFilterLib.dll in C:\\agent: OstrelFilter.sys, OstrelNWFilter.inf. "
            "Put all four driver files there.");
}

TEST(DiagnoseMachineTest, WithoutThePrivilegeTheProcessIsNotElevated) {
  const Diagnosis diagnosis = Required(DiagnoseMachine({"C:\\agent", {}, false}));
  EXPECT_EQ(diagnosis.exitCode, ExitCode::NotElevated);
  EXPECT_THAT(diagnosis.message, HasSubstr("elevated prompt"));
}

TEST(DiagnoseMachineTest, MissingFilesComeFirst) {
  EXPECT_EQ(Required(DiagnoseMachine({"C:\\agent", {"OstrelFilter.sys"}, false})).exitCode,
            ExitCode::DriverFilesMissing);
}

TEST(DiagnoseLoadTest, SuccessWithoutErrorsIsFine) {
  EXPECT_FALSE(DiagnoseLoad({true, {}}));
}

TEST(DiagnoseLoadTest, SuccessDespiteErrorsThatDoNotMatterIsFine) {
  EXPECT_FALSE(DiagnoseLoad({true, Prefixed({"OpenService failed (1060).", "Could not setup service. 5",
                                             "WSAStartup failed. Code: 10091"})}));
}

TEST(DiagnoseLoadTest, APrivilegeThatCannotBeEnabledMeansNotElevated) {
  for (const char* line : {"Could not enable privilege", "Could not enable SE_LOAD_DRIVER_NAME privilege"}) {
    const Diagnosis diagnosis = FailedLoad({"Could not adjust token privilege. 5", line});
    EXPECT_EQ(diagnosis.exitCode, ExitCode::NotElevated) << line;
    EXPECT_THAT(diagnosis.message, HasSubstr("elevated prompt")) << line;
  }
}

TEST(DiagnoseLoadTest, APrivilegeThatIsNotHeldWhenItIsNeededMeansNotElevated) {
  EXPECT_EQ(FailedLoad({"Could not unload driver during InstallDriver: HResult: 80070522"}).exitCode,
            ExitCode::NotElevated);
  EXPECT_EQ(FailedLoad({"Could not start driver service: HResult: 80070522"}).exitCode,
            ExitCode::NotElevated);
}

TEST(DiagnoseLoadTest, AMinifilterThatCannotBeReplacedIsAFailedInstallation) {
  const Diagnosis diagnosis = FailedLoad({"Could not unload driver during InstallDriver: HResult: 801f0010",
                                          "Could not install OstrelFilter driver"});
  EXPECT_EQ(diagnosis.exitCode, ExitCode::InstallFailed);
  EXPECT_EQ(diagnosis.message,
            "The minifilter is loaded already and could not be unloaded for its installation. "
            "(Could not unload driver during InstallDriver: HResult: 801f0010) "
            "End whatever uses it, then try again; \"fltmc unload OstrelFilter\" unloads it by hand.");
}

TEST(DiagnoseLoadTest, AnUnreadableInfFileIsAFailedInstallationAndItsLineIsNoErrorCode) {
  const Diagnosis diagnosis =
      FailedLoad({"Could not open INF file. Error on line 5", "Could not install OstrelFilter driver"});
  EXPECT_EQ(diagnosis.exitCode, ExitCode::InstallFailed);
  EXPECT_THAT(diagnosis.message,
              AllOf(HasSubstr("INF file"), HasSubstr("Error on line 5"), Not(HasSubstr("denied"))));
}

TEST(DiagnoseLoadTest, ADriverFileThatCannotBeCopiedIsAFailedInstallation) {
  const Diagnosis denied = FailedLoad({"Could not copy driver file. 5", "Could not setup service. 2",
                                       "Could not install OstrelFilter driver"});
  EXPECT_EQ(denied.exitCode, ExitCode::InstallFailed);
  EXPECT_THAT(denied.message, AllOf(HasSubstr("could not be copied"), HasSubstr("Access was denied")));
  EXPECT_THAT(FailedLoad({"Could not copy driver file. 32"}).message, HasSubstr("has the driver file open"));
  EXPECT_THAT(FailedLoad({"Could not copy driver file. 112"}).message,
              HasSubstr("drivers folder can be written"));
}

TEST(DiagnoseLoadTest, AMinifilterThatDoesNotLoadIsAFailedLoadWithTheReasonWindowsGives) {
  const auto loading = [](const char* code) {
    return FailedLoad({std::string("Could not start driver service: HResult: ") + code});
  };
  EXPECT_EQ(loading("80070241").exitCode, ExitCode::LoadFailed);
  EXPECT_THAT(loading("80070241").message, HasSubstr("signature"));
  EXPECT_THAT(loading("8007041d").message, HasSubstr("did not answer in time"));
  EXPECT_THAT(loading("80070422").message,
              AllOf(HasSubstr("service is disabled"), HasSubstr("OstrelNWFilter")));
  EXPECT_THAT(loading("800704fb").message, HasSubstr("Windows blocks this driver"));
  EXPECT_EQ(loading("8007007f").exitCode, ExitCode::LoadFailed);
  EXPECT_THAT(loading("8007007f").message, HasSubstr("belong together"));
}

TEST(DiagnoseLoadTest, ACodeThatIsNotOneOfTheSystemsErrorsIsNotTakenForOne) {
  EXPECT_THAT(FailedLoad({"Could not start driver service: HResult: 801f0005"}).message,
              Not(HasSubstr("denied")));
}

TEST(DiagnoseLoadTest, AFailedServiceSetUpIsNamedAsAPossibleReasonForAFailedLoad) {
  const Diagnosis diagnosis =
      FailedLoad({"Could not setup service. 87", "Could not start driver service: HResult: 80070002"});
  EXPECT_EQ(diagnosis.exitCode, ExitCode::LoadFailed);
  EXPECT_THAT(diagnosis.message, HasSubstr("(Could not setup service. 87)"));
}

TEST(DiagnoseLoadTest, ARefusedConnectionIsARefusedPort) {
  const auto connecting = [](const char* code) {
    return FailedLoad({std::string("Could not connect to driver communication port: HResult: ") + code});
  };
  EXPECT_EQ(connecting("800704d6").exitCode, ExitCode::PortRefused);
  EXPECT_THAT(connecting("800704d6").message, HasSubstr("Another host is connected already"));
  EXPECT_EQ(connecting("80070002").exitCode, ExitCode::PortRefused);
  EXPECT_THAT(connecting("80070002").message, HasSubstr("same version"));
  EXPECT_THAT(connecting("80070005").message, HasSubstr("Access was denied"));
}

TEST(DiagnoseLoadTest, AThreadThatReceivesNothingIsAFailedLoad) {
  EXPECT_EQ(FailedLoad({"Could not start receive notification thread. Code: 8"}).exitCode,
            ExitCode::LoadFailed);
}

TEST(DiagnoseLoadTest, SuccessWithoutTheThreadThatReportsIsAFailedLoad) {
  for (const char* line :
       {"Could not start Disk Event thread. Code: 8", "Disk Event thread already started!"}) {
    EXPECT_EQ(Required(DiagnoseLoad({true, Prefixed({line})})).exitCode, ExitCode::LoadFailed) << line;
  }
}

TEST(DiagnoseLoadTest, AFailureOfUnknownReasonQuotesTheLastErrorLine) {
  const Diagnosis diagnosis = FailedLoad({"First.", "Something new."});
  EXPECT_EQ(diagnosis.exitCode, ExitCode::LoadFailed);
  EXPECT_EQ(diagnosis.message, "The library could not be started. The library says: Something new.");
}

TEST(DiagnoseLoadTest, AFailureWithoutAnyLineSaysSo) {
  EXPECT_THAT(FailedLoad({}).message, HasSubstr("gave no reason"));
}

TEST(DiagnoseLoadTest, ALineWithAnUnreadableCodeIsStillExplained) {
  EXPECT_EQ(FailedLoad({"Could not copy driver file. "}).exitCode, ExitCode::InstallFailed);
  EXPECT_EQ(FailedLoad({"Could not start driver service: HResult: zz"}).exitCode, ExitCode::LoadFailed);
}

TEST(DiagnoseConfigurationTest, SuccessWithoutErrorsIsFine) {
  EXPECT_FALSE(DiagnoseConfiguration({true, {}}));
}

TEST(DiagnoseConfigurationTest, AControlPortThatCannotBeOpenedIsARefusedPortWhateverTheResult) {
  for (const bool succeeded : {false, true}) {
    const Diagnosis diagnosis =
        Configuration(succeeded, {"Error opening port for updating monitored processes: HResult: 80070002"});
    EXPECT_EQ(diagnosis.exitCode, ExitCode::PortRefused);
    EXPECT_THAT(diagnosis.message, HasSubstr("not loaded any more"));
  }
}

TEST(DiagnoseConfigurationTest, AMessageThatIsNotTakenIsARefusedPortThoughTheCallSucceeds) {
  const Diagnosis diagnosis =
      Configuration(true, {"Error getting message while updating kernel filter: HResult: 8007007a"});
  EXPECT_EQ(diagnosis.exitCode, ExitCode::PortRefused);
  EXPECT_THAT(diagnosis.message, HasSubstr("did not take the list"));
}

TEST(DiagnoseConfigurationTest, AFailureWithoutAnyLineSaysSo) {
  const Diagnosis diagnosis = Configuration(false, {});
  EXPECT_EQ(diagnosis.exitCode, ExitCode::PortRefused);
  EXPECT_THAT(diagnosis.message, HasSubstr("gave no reason"));
}

TEST(DiagnoseRemoteAddressInfoTest, WithoutErrorsNothingIsWrong) {
  EXPECT_FALSE(DiagnoseRemoteAddressInfoOn({true, {}}));
  EXPECT_FALSE(DiagnoseRemoteAddressInfoOff({true, {}}));
}

TEST(DiagnoseRemoteAddressInfoTest, WhatTheMinifilterDoesNotTakeIsNotOfItsBusiness) {
  EXPECT_FALSE(DiagnoseRemoteAddressInfoOn(
      {false, Prefixed({"Error opening port for updating monitored processes: HResult: 80070002"})}));
}

TEST(DiagnoseRemoteAddressInfoTest, EveryStepOfSwitchingOnIsExplainedWithItsLine) {
  const std::pair<const char*, const char*> expected[] = {
      {"OpenSCManager failed (1115).", "service manager could not be opened"},
      {"OpenService failed (1060).", "service could not be opened"},
      {"StartService failed (2).", "service could not be started"},
      {"Could not open filtering engine. 1753", "Base Filtering Engine"},
      {"Could not open filtering engine V6. 1753", "Base Filtering Engine"},
      {"Could not start transaction for adding callouts. 1", "callouts could not be registered"},
      {"Could not start transaction for adding V6 callouts. 1", "callouts could not be registered"},
      {"Could not add persistent flow callout. 1", "callouts could not be registered"},
      {"Could not add persistent stream V6 callout. 1", "callouts could not be registered"},
      {"Could not commit transaction. 1", "callouts could not be registered"},
      {"Could not commit V6 transaction. 1", "callouts could not be registered"},
      {"Could not open monitoring. 2", "device could not be opened"},
      {"Couldn't resolve user. 1332", "Give --user an account name"},
      {"Could not add filters. 1", "filters for the user's connections"},
      {"Could not add V6 filters. 1", "filters for the user's IPv6 connections"},
      {"Could not enable monitoring. 87", "did not start to look at connections"},
      {"Could not start receive notification thread. Code: 8", "short of memory or threads"},
  };
  for (const auto& [line, explanation] : expected) {
    const Diagnosis diagnosis = Required(DiagnoseRemoteAddressInfoOn({true, Prefixed({line})}));
    EXPECT_EQ(diagnosis.exitCode, ExitCode::RemoteAddressInfoFailed) << line;
    EXPECT_THAT(diagnosis.message, AllOf(HasSubstr("Detections may lack endpoints. "),
                                         HasSubstr("(" + std::string(line) + ") "), HasSubstr(explanation)));
  }
}

TEST(DiagnoseRemoteAddressInfoTest, AServiceThatDoesNotStartIsTheReasonForWhatFailsAfterIt) {
  EXPECT_EQ(
      Required(DiagnoseRemoteAddressInfoOn(
                   {true, Prefixed({"StartService failed (577).", "Could not open monitoring. 2"})}))
          .message,
      "Detections may lack endpoints. The network driver's service could not be started. (StartService "
      "failed (577).) Windows does not accept the driver's signature: use a signed driver or, on a test "
      "machine only, switch test signing on.");
}

TEST(DiagnoseRemoteAddressInfoTest, ALineEndInTheLibrarysLineIsNotQuoted) {
  EXPECT_THAT(
      Required(DiagnoseRemoteAddressInfoOn({true, Prefixed({"Couldn't resolve user. 1332\n"})})).message,
      HasSubstr("(Couldn't resolve user. 1332) "));
}

TEST(DiagnoseRemoteAddressInfoTest, EveryStepOfSwitchingOffIsExplainedWithItsLine) {
  for (const char* line : {"OpenSCManager failed (1115).", "OpenService failed (1060).",
                           "QueryServiceStatusEx failed. 6", "GetNWPacketInfo thread never ended."}) {
    const Diagnosis diagnosis = Required(DiagnoseRemoteAddressInfoOff({true, Prefixed({line})}));
    EXPECT_EQ(diagnosis.exitCode, ExitCode::RemoteAddressInfoFailed) << line;
    EXPECT_THAT(diagnosis.message,
                AllOf(HasSubstr("(" + std::string(line) + ") "), HasSubstr("sc stop OstrelNWFilter")));
  }
}

TEST(DiagnoseRemoteAddressInfoTest, ADeviceThatWasNeverOpenedNeedNotClose) {
  EXPECT_FALSE(
      DiagnoseRemoteAddressInfoOff({true, Prefixed({"Could not close handle to NW driver. Code: 6"})}));
}

TEST(MinifilterIsGoneTest, TheDriversNoticeAndAClosedPortSaySo) {
  EXPECT_TRUE(SaysMinifilterIsGone("OstrelFilterDriver: Driver unloaded."));
  EXPECT_TRUE(SaysMinifilterIsGone(
      "OstrelFilterDriver: Error getting message while receiving notifications: HResult: 80070006"));
}

TEST(MinifilterIsGoneTest, OtherLinesDoNot) {
  for (const char* line :
       {"", "OstrelFilterDriver: ", "OstrelFilterDriver: Driver unloaded. Or not",
        "OstrelFilterDriver: LoadDriver was successful.",
        "OstrelFilterDriver: Error getting message while receiving notifications: HResult: 800703e3"}) {
    EXPECT_FALSE(SaysMinifilterIsGone(line)) << line;
  }
}

TEST(MinifilterIsGoneTest, ItIsALostPort) {
  EXPECT_EQ(MinifilterIsGone().exitCode, ExitCode::PortRefused);
}

TEST(DiagnoseUnloadTest, SuccessIsFine) {
  EXPECT_FALSE(DiagnoseUnload({true, Prefixed({"Disk Event thread never ended."})}));
}

TEST(DiagnoseUnloadTest, AFailureSaysThatTheDriverMayStillBeLoaded) {
  for (const char* line : {"Could not unload driver. 801f0010", "Could not enable privilege"}) {
    const Diagnosis diagnosis = FailedUnload({line});
    EXPECT_EQ(diagnosis.exitCode, ExitCode::UnloadFailed) << line;
    EXPECT_THAT(diagnosis.message, HasSubstr("fltmc unload OstrelFilter")) << line;
  }
}

TEST(DiagnoseUnloadTest, APrivilegeLostMeanwhileIsAFailedUnloadAll) {
  const Diagnosis diagnosis = FailedUnload({"Could not unload driver. 80070522"});
  EXPECT_EQ(diagnosis.exitCode, ExitCode::UnloadFailed);
  EXPECT_THAT(diagnosis.message, HasSubstr("elevated prompt"));
}

TEST(DiagnoseUnloadTest, AFailureOfUnknownReasonQuotesTheLastErrorLine) {
  const Diagnosis diagnosis = FailedUnload({"Something new."});
  EXPECT_EQ(diagnosis.exitCode, ExitCode::UnloadFailed);
  EXPECT_THAT(diagnosis.message, HasSubstr("The library says: Something new."));
}

}  // namespace
