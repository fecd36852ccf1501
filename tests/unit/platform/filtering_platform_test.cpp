#include "network/filtering_platform.h"

#include "platform_test.h"
#include "support/scripted_network.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr DWORD FAILURE = 0x80320017;
constexpr DWORD ABORT_FAILURE = 0x80320020;
constexpr DWORD NO_TRANSACTION = 0x8032000D;
// As the log writes it.
const std::string FAILURE_TEXT = "-2144206825";

const std::string SUB_LAYER = "{b3241f1d-7cd2-4e7a-8721-2e97d07702e5}";
const std::string CONDITIONS =
    ", condition {af043a0a-b34d-4f86-979c-c90371af6e66} match 0 type 14 descriptor of 20 bytes"
    ", condition {3971ef2b-623e-4f9a-8cb1-6e79b806b9a7} match 0 type 1 6";
const std::string UNKNOWN_USER_CONDITIONS =
    ", condition {af043a0a-b34d-4f86-979c-c90371af6e66} match 0 type 14 null of 0 bytes"
    ", condition {3971ef2b-623e-4f9a-8cb1-6e79b806b9a7} match 0 type 1 6";

// What one IP version is to be known by.
struct Expected {
  const CalloutObjects& callouts;
  const FilterObjects& filters;
  std::string v6;  // in most texts
  std::string flowLayer;
  std::string flowCallout;
  std::string streamLayer;
  std::string streamCallout;
  std::string alreadyExists;
  std::string openFailed;
  std::string transactionFailed;
  std::string flowFailed;
  std::string streamFailed;
  std::string commitFailed;
  std::string subLayerName;
  std::string flowFilter;
  std::string streamFilter;
  std::string success;
};

const Expected EXPECTED_V4{
    IPV4_CALLOUTS,
    IPV4_FILTERS,
    "",
    "{af80470a-5596-4c13-9992-539e6fe57967}",
    "{3aaccbc0-2c29-455f-bb91-0e801c8994a4}",
    "{3b89653c-c170-49e4-b1cd-e0eeeee19a3e}",
    "{cea0131a-6ed3-4ed6-b40c-8a8fe8434b0a}",
    "log 6 Callouts already exist. This is OK.",
    "log 3 Could not open filtering engine. ",
    "log 3 Could not start transaction for adding callouts. ",
    "log 3 Could not add persistent flow callout. ",
    "log 3 Could not add persistent stream callout. ",
    "log 3 Could not commit transaction. ",
    "Monitor Sample Sub layer",
    "'Flow established filter.', 'Sets up flow for traffic that we are interested in.'",
    "'Stream Layer Filter', 'Monitors TCP traffic.'",
    "log 6 Successfully configured NW monitoring."};

const Expected EXPECTED_V6{
    IPV6_CALLOUTS,
    IPV6_FILTERS,
    " V6",
    "{7021d2b3-dfa4-406e-afeb-6afaf7e70efd}",
    "{30d7c71e-d02d-4f3e-86bd-116b09d6fd38}",
    "{47c9137a-7ec4-46b3-b6e4-48e926b1eda4}",
    "{27135921-0583-4eb9-a737-7b2ec4316859}",
    "log 6 V6 Callouts already exist. This is OK.",
    "log 3 Could not open filtering engine V6. ",
    "log 3 Could not start transaction for adding V6 callouts. ",
    "log 3 Could not add persistent flow callout V6. ",
    "log 3 Could not add persistent stream V6 callout. ",
    "log 3 Could not commit V6 transaction. ",
    "V6 Monitor Sample Sub layer",
    "'Flow established V6 filter.', 'Sets up flow for V6 traffic that we are interested in.'",
    "'V6 Stream Layer Filter', 'Monitors V6 TCP traffic.'",
    "log 6 Successfully configured V6 NW monitoring."};

class FilteringPlatformTest : public PlatformTest, public ::testing::WithParamInterface<const Expected*> {
 protected:
  const Expected& Expectation() const { return *GetParam(); }

  ScriptedNetwork network_{GetModuleHandleW(nullptr), system_};
};

std::string NameOfVersion(const ::testing::TestParamInfo<const Expected*>& version) {
  return version.param == &EXPECTED_V4 ? "IPv4" : "IPv6";
}

class AddingCallouts : public FilteringPlatformTest {
 protected:
  ~AddingCallouts() override { EXPECT_THAT(system_.OpenHandles(), IsEmpty()); }

  std::uint32_t Add() const {
    return Returned("Adding" + Expectation().v6 + " callouts", AddCallouts(Expectation().callouts));
  }

  std::string Session() const { return "Monitor Sample Non-Dynamic Session" + Expectation().v6; }
  std::string Opening() const { return "log 7 Opening filtering engine" + Expectation().v6 + "."; }
  std::string Open() const {
    return "FwpmEngineOpen0(null, 10, null, '" + Session() + "', 'For Adding callouts" + Expectation().v6 +
           "', flags 0x0)";
  }
  std::string Begin() const { return "FwpmTransactionBegin0(" + Session() + ", 0)"; }
  std::string AddFlow() const {
    return "FwpmCalloutAdd0(" + Session() + ", " + Expectation().flowCallout +
           ", 'Established Callout', 'Established Callout', flags 0x10000, layer " + Expectation().flowLayer +
           ", null, null)";
  }
  std::string AddStream() const {
    const std::string name = "'Stream" + Expectation().v6 + " Callout'";
    return "FwpmCalloutAdd0(" + Session() + ", " + Expectation().streamCallout + ", " + name + ", " + name +
           ", flags 0x10000, layer " + Expectation().streamLayer + ", null, null)";
  }
  std::string Commit() const { return "FwpmTransactionCommit0(" + Session() + ")"; }
  std::string Abort() const { return "FwpmTransactionAbort0(" + Session() + ")"; }
  std::string Close() const { return "FwpmEngineClose0(" + Session() + ")"; }
};

TEST_P(AddingCallouts, TakesEveryStepInOrder) {
  EXPECT_EQ(Add(), 0U);
  EXPECT_THAT(Calls(), ElementsAre(Opening(), Open(), Begin(), AddFlow(), AddStream(), Commit(), Close()));
}

TEST_P(AddingCallouts, ReturnsTheStatusOfAnEngineThatCannotBeOpened) {
  system_.Fail("FwpmEngineOpen0", FAILURE);
  EXPECT_EQ(Add(), FAILURE);
  EXPECT_THAT(Calls(), ElementsAre(Opening(), Open(), Expectation().openFailed + FAILURE_TEXT));
}

TEST_P(AddingCallouts, AbortsWhenNoTransactionCanBeStarted) {
  system_.Fail("FwpmTransactionBegin0", FAILURE);
  EXPECT_EQ(Add(), NO_TRANSACTION) << "the status of aborting";
  EXPECT_THAT(Calls(), ElementsAre(Opening(), Open(), Begin(), Expectation().transactionFailed + FAILURE_TEXT,
                                   Abort(), Close()));
}

TEST_P(AddingCallouts, TakesBothToExistWhenTheFirstDoes) {
  FailureLedger::OfThisProgram().Concerns("FwpmCalloutAdd0");
  ASSERT_EQ(Add(), 0U);
  system_.transcript.Clear();
  EXPECT_EQ(Add(), 0U);
  EXPECT_THAT(Calls(), ElementsAre(Opening(), Open(), Begin(), AddFlow(), Expectation().alreadyExists,
                                   Abort(), Close()));
}

TEST_P(AddingCallouts, ReturnsTheStatusOfAbortingWhenTheFirstExists) {
  ASSERT_EQ(Add(), 0U);
  system_.Fail("FwpmTransactionAbort0", ABORT_FAILURE);
  EXPECT_EQ(Add(), ABORT_FAILURE);
}

TEST_P(AddingCallouts, AbortsAndSucceedsWhenTheFlowCalloutIsRefused) {
  system_.Fail("FwpmCalloutAdd0", FAILURE, 1);
  EXPECT_EQ(Add(), 0U);
  EXPECT_THAT(Calls(), ElementsAre(Opening(), Open(), Begin(), AddFlow(),
                                   Expectation().flowFailed + FAILURE_TEXT, Abort(), Close()));
}

TEST_P(AddingCallouts, AbortsAndSucceedsWhenTheStreamCalloutIsRefused) {
  system_.Fail("FwpmCalloutAdd0", FAILURE, 2);
  EXPECT_EQ(Add(), 0U);
  EXPECT_THAT(Calls(), ElementsAre(Opening(), Open(), Begin(), AddFlow(), AddStream(),
                                   Expectation().streamFailed + FAILURE_TEXT, Abort(), Close()));
}

// Only the flow callout may exist already.
TEST_P(AddingCallouts, SaysThatTheStreamCalloutExistsAlready) {
  system_.Fail("FwpmCalloutAdd0", 0x80320009, 2);
  EXPECT_EQ(Add(), 0U);
  EXPECT_THAT(Logs(), ElementsAre(Opening(), Expectation().streamFailed + "-2144206839"));
}

TEST_P(AddingCallouts, AbortsAndSucceedsWhenTheyCannotBeCommitted) {
  system_.Fail("FwpmTransactionCommit0", FAILURE);
  EXPECT_EQ(Add(), 0U);
  EXPECT_THAT(Calls(), ElementsAre(Opening(), Open(), Begin(), AddFlow(), AddStream(), Commit(),
                                   Expectation().commitFailed + FAILURE_TEXT, Abort(), Close()));
  system_.Succeed("FwpmTransactionCommit0");
  system_.transcript.Clear();
  EXPECT_EQ(Add(), 0U);
  EXPECT_THAT(Logs(), ElementsAre(Opening())) << "nothing of the aborted transaction stayed";
}

TEST_P(AddingCallouts, ReturnsTheStatusOfAFailedAbortAfterEveryFailure) {
  system_.Fail("FwpmTransactionAbort0", ABORT_FAILURE);
  const auto fail = [this](const std::string& function, int call) {
    SCOPED_TRACE(function);
    system_.Fail(function, FAILURE, call);
    EXPECT_EQ(Add(), ABORT_FAILURE);
    EXPECT_EQ(Calls().back(), Close());
    system_.Succeed(function);
  };
  fail("FwpmTransactionBegin0", 1);
  fail("FwpmCalloutAdd0", 1);
  fail("FwpmCalloutAdd0", 2);
  fail("FwpmTransactionCommit0", 1);
}

INSTANTIATE_TEST_SUITE_P(OfBothIpVersions, AddingCallouts, ::testing::Values(&EXPECTED_V4, &EXPECTED_V6),
                         NameOfVersion);

class AddingFilters : public FilteringPlatformTest {
 protected:
  AddingFilters() {
    OpenMonitoringSession(engine_);
    system_.transcript.Clear();
  }
  // The session is never closed.
  ~AddingFilters() override { EXPECT_THAT(system_.OpenHandles(), ElementsAre("Monitor Sample Session")); }

  std::uint32_t Add(const wchar_t* user = L"ann") {
    return Returned("Adding" + Expectation().v6 + " filters",
                    AddFilters(engine_, Expectation().filters, user));
  }

  std::string AddSubLayer() const {
    const std::string name = "'" + Expectation().subLayerName + "'";
    return "FwpmSubLayerAdd0(Monitor Sample Session, " + SUB_LAYER + ", " + name + ", " + name +
           ", flags 0x0, weight 0, null)";
  }
  static std::string Filter(const std::string& texts, const std::string& layer, const std::string& callout,
                            const std::string& conditions) {
    return "FwpmFilterAdd0(Monitor Sample Session, " + texts + ", flags 0x0, layer " + layer +
           ", sub-layer " + SUB_LAYER + ", weight type 0, action 0x6004 " + callout + conditions +
           ", null, null)";
  }
  std::string AddFlow(const std::string& conditions = CONDITIONS) const {
    return Filter(Expectation().flowFilter, Expectation().flowLayer, Expectation().flowCallout, conditions);
  }
  std::string AddStream() const {
    return Filter(Expectation().streamFilter, Expectation().streamLayer, Expectation().streamCallout, "");
  }

  static std::string NameUser(const std::string& user) {
    return "BuildExplicitAccessWithNameW('" + user + "', permissions 0x1, mode 1, inheritance 0)";
  }
  static std::string Describe(const std::string& user) {
    return "BuildSecurityDescriptorW(null, null, 1 for name '" + user + "' with 0x1, 0, null, null)";
  }

  const std::string begin_ = "FwpmTransactionBegin0(Monitor Sample Session, 0)";
  const std::string commit_ = "FwpmTransactionCommit0(Monitor Sample Session)";
  const std::string abort_ = "FwpmTransactionAbort0(Monitor Sample Session)";
  const std::string free_ = "LocalFree(descriptor)";

  HANDLE engine_ = nullptr;
};

TEST_P(AddingFilters, TakesEveryStepInOrder) {
  EXPECT_EQ(Add(), 0U);
  EXPECT_THAT(Calls(), ElementsAre(begin_, AddSubLayer(), NameUser("ann"), Describe("ann"), AddFlow(), free_,
                                   AddStream(), commit_, Expectation().success));
}

TEST_P(AddingFilters, AbortsWhenNoTransactionCanBeStarted) {
  system_.Fail("FwpmTransactionBegin0", FAILURE);
  EXPECT_EQ(Add(), NO_TRANSACTION) << "the status of aborting";
  EXPECT_THAT(Calls(), ElementsAre(begin_, abort_));
}

TEST_P(AddingFilters, AbortsAndSucceedsWhenTheSubLayerIsRefused) {
  system_.Fail("FwpmSubLayerAdd0", FAILURE);
  EXPECT_EQ(Add(), 0U);
  EXPECT_THAT(Calls(), ElementsAre(begin_, AddSubLayer(), abort_));
}

TEST_P(AddingFilters, AbortsAndSucceedsWhenTheFlowFilterIsRefused) {
  system_.Fail("FwpmFilterAdd0", FAILURE, 1);
  EXPECT_EQ(Add(), 0U);
  EXPECT_THAT(Calls(),
              ElementsAre(begin_, AddSubLayer(), NameUser("ann"), Describe("ann"), AddFlow(), free_, abort_));
}

TEST_P(AddingFilters, AbortsAndSucceedsWhenTheStreamFilterIsRefused) {
  system_.Fail("FwpmFilterAdd0", FAILURE, 2);
  EXPECT_EQ(Add(), 0U);
  EXPECT_THAT(Calls(), ElementsAre(begin_, AddSubLayer(), NameUser("ann"), Describe("ann"), AddFlow(), free_,
                                   AddStream(), abort_));
}

TEST_P(AddingFilters, ReturnsTheStatusOfAFailedAbortAfterEveryFailure) {
  system_.Fail("FwpmTransactionAbort0", ABORT_FAILURE);
  const auto fail = [this](const std::string& function, int call) {
    SCOPED_TRACE(function);
    system_.Fail(function, FAILURE, call);
    EXPECT_EQ(Add(), ABORT_FAILURE);
    system_.Succeed(function);
  };
  fail("FwpmTransactionBegin0", 1);
  fail("FwpmSubLayerAdd0", 1);
  fail("FwpmFilterAdd0", 1);
  fail("FwpmFilterAdd0", 2);
}

// Unlike every other failure.
TEST_P(AddingFilters, ReturnsTheStatusOfAFailedCommitWithoutAborting) {
  system_.Fail("FwpmTransactionCommit0", FAILURE);
  EXPECT_EQ(Add(), FAILURE);
  EXPECT_EQ(Calls().back(), commit_);
}

TEST_P(AddingFilters, AddsTheFlowFilterAlsoForAUserThatIsNotKnown) {
  FailureLedger::OfThisProgram().Concerns("BuildSecurityDescriptorW");
  FailureLedger::OfThisProgram().Chosen("BuildSecurityDescriptorW",
                                        "the condition on the user stays, with an empty descriptor");
  EXPECT_EQ(Add(L"bob"), 0U);
  EXPECT_THAT(Calls(), ElementsAre(begin_, AddSubLayer(), NameUser("bob"), Describe("bob"),
                                   "log 3 Couldn't resolve user. 1332\n", AddFlow(UNKNOWN_USER_CONDITIONS),
                                   AddStream(), commit_, Expectation().success));
}

TEST_P(AddingFilters, AddsTheFlowFilterWithWhateverDescriptorAFailureLeaves) {
  FailureLedger::OfThisProgram().Chosen("BuildSecurityDescriptorW",
                                        "the condition on the user stays, with whatever descriptor there is");
  network_.leavesADescriptor = true;
  system_.Fail("BuildSecurityDescriptorW", 5);
  EXPECT_EQ(Add(), 0U);
  EXPECT_THAT(Calls(), ElementsAre(begin_, AddSubLayer(), NameUser("ann"), Describe("ann"),
                                   "log 3 Couldn't resolve user. 5\n", AddFlow(), free_, AddStream(), commit_,
                                   Expectation().success));
}

INSTANTIATE_TEST_SUITE_P(OfBothIpVersions, AddingFilters, ::testing::Values(&EXPECTED_V4, &EXPECTED_V6),
                         NameOfVersion);

class TheMonitoringSession : public PlatformTest {
 protected:
  std::uint32_t Open() { return Returned("Opening the monitoring session", OpenMonitoringSession(engine_)); }
  std::uint32_t AddV6Filters() {
    return Returned("Adding V6 filters", AddFilters(engine_, IPV6_FILTERS, L"ann"));
  }

  const std::string open_ =
      "FwpmEngineOpen0(null, 10, null, 'Monitor Sample Session', 'Monitors traffic at the Stream layer.', "
      "flags 0x1)";

  ScriptedNetwork network_{GetModuleHandleW(nullptr), system_};
  HANDLE engine_ = nullptr;
};

TEST_F(TheMonitoringSession, IsDynamicAndStaysOpen) {
  EXPECT_EQ(Open(), 0U);
  EXPECT_THAT(Calls(), ElementsAre(open_));
  EXPECT_THAT(system_.OpenHandles(), ElementsAre("Monitor Sample Session"));
}

TEST_F(TheMonitoringSession, ReturnsTheStatusOfAnEngineThatCannotBeOpened) {
  system_.Fail("FwpmEngineOpen0", FAILURE);
  EXPECT_EQ(Open(), FAILURE);
  EXPECT_THAT(Calls(), ElementsAre(open_, "log 3 Could not open filtering engine. " + FAILURE_TEXT));
}

// Both IP versions use one sub-layer key.
TEST_F(TheMonitoringSession, RefusesTheSubLayerOfTheSecondIpVersionAndSucceeds) {
  FailureLedger::OfThisProgram().Concerns("FwpmSubLayerAdd0");
  ASSERT_EQ(Open(), 0U);
  EXPECT_EQ(AddFilters(engine_, IPV4_FILTERS, L"ann"), 0U);
  system_.transcript.Clear();
  EXPECT_EQ(AddV6Filters(), 0U);
  EXPECT_THAT(Calls(),
              ElementsAre("FwpmTransactionBegin0(Monitor Sample Session, 0)",
                          "FwpmSubLayerAdd0(Monitor Sample Session, " + SUB_LAYER +
                              ", 'V6 Monitor Sample Sub layer', 'V6 Monitor Sample Sub layer', flags 0x0, "
                              "weight 0, null)",
                          "FwpmTransactionAbort0(Monitor Sample Session)"));
}

TEST_F(TheMonitoringSession, DoesNotMatterWhereThatOfTheCalloutsCannotBeClosed) {
  system_.Fail("FwpmEngineClose0", FAILURE);
  EXPECT_EQ(Returned("Adding callouts", AddCallouts(IPV4_CALLOUTS)), 0U);
  EXPECT_EQ(Calls().back(), "FwpmEngineClose0(Monitor Sample Non-Dynamic Session)");
}

}  // namespace

}  // namespace ostrel::test
