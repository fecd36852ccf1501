// The network scenarios, played to the real host.

#include <string>

#include "e2e/lab_fixture.h"

namespace ostrel::test {

namespace {

using nlohmann::json;

class NetworkScenario : public LabFixture {
 protected:
  // Plays the scenario to a host that tracks remote addresses, and compares every detection and its
  // endpoints.
  void PlayAndCheck(const std::string& name) {
    wchar_t user[256] = {};
    DWORD length = 256;
    ASSERT_TRUE(GetUserNameW(user, &length));
    const std::filesystem::path scenario = Scenario(name);
    host_ = StartHost(std::wstring(L"--watch chrome.exe,filezilla.exe,pscp.exe --remote-address-info "
                                   L"--log-level 7 --for 300 --user \"") +
                      user + L"\"");
    ASSERT_EQ(Play(scenario), 0U) << Log();
    ASSERT_EQ(Check(scenario), 0U) << Log();
  }

  json Endpoints(const std::string& file) const {
    for (const json& detection : Detections()) {
      if (detection["fileName"].get<std::string>().ends_with(file)) return detection["endpoints"];
    }
    ADD_FAILURE() << "no detection of " << file;
    return {};
  }

  bool HasLogged(const std::string& text) const { return Log().find(text) != std::string::npos; }

  std::string Log() const { return host_->Errors(); }

 private:
  std::unique_ptr<Program> host_;
};

TEST_F(NetworkScenario, TheOneStreamOfManyThatFitsTheFilesSizeIsReportedAlone) {
  ASSERT_NO_FATAL_FAILURE(PlayAndCheck("network_match.json"));
  // 149999 and 251000 lie just outside the bounds of 200000, 240000 and 160000 within but further off.
  EXPECT_EQ(Endpoints("report.pdf"),
            json::array({{{"address", "192.0.2.20"}, {"port", 443}, {"hostName", ""}}}));
  EXPECT_FALSE(HasLogged("Could not find any good match."));
  EXPECT_TRUE(HasLogged(": 3221226004:443 50878 currentBytes: 203512")) << "four records make the stream";
}

TEST_F(NetworkScenario, WithoutAMatchAllStreamsAreReportedTheLargestFirst) {
  ASSERT_NO_FATAL_FAILURE(PlayAndCheck("network_fallback.json"));
  EXPECT_EQ(Endpoints("report.pdf").size(), 4U);
  EXPECT_TRUE(HasLogged("Could not find any good match. Returning all possibilities."));
}

TEST_F(NetworkScenario, AnIpv6StreamHasAnEmptyHostNameEvenWhenItsAddressHasOne) {
  ASSERT_NO_FATAL_FAILURE(PlayAndCheck("network_ipv6.json"));
  // The loopback address has a name on every machine.
  EXPECT_EQ(Endpoints("keys.txt"), json::array({{{"address", "::1"}, {"port", 22}, {"hostName", ""}}}));
  EXPECT_TRUE(HasLogged("Possible stream info: 2001:db8:0:1::ff:443  "));
}

TEST_F(NetworkScenario, StreamsOfOtherProcessesAndOfTheOtherDirectionAreNone) {
  ASSERT_NO_FATAL_FAILURE(PlayAndCheck("network_none.json"));
  EXPECT_TRUE(HasLogged("added network event: upload "));
  EXPECT_TRUE(HasLogged("added network event: download "));
  EXPECT_FALSE(HasLogged("Possible stream info: "));
}

TEST_F(NetworkScenario, AStreamThatHasBeenQuietForMoreThanSeventySecondsIsForgotten) {
  ASSERT_NO_FATAL_FAILURE(PlayAndCheck("network_aged_out.json"));
  EXPECT_TRUE(HasLogged("purged network event: upload "));
  EXPECT_TRUE(HasLogged(" 3221225985:443 200000")) << "the stream of 120 seconds ago";
  EXPECT_TRUE(HasLogged(" 3221225987:21 50000")) << "the stream of 80 seconds ago";
}

TEST_F(NetworkScenario, AStreamIsFoundAmongThoseOfAFlood) {
  ASSERT_NO_FATAL_FAILURE(PlayAndCheck("network_flood.json"));
  const json network = LabStatus()["network"];
  EXPECT_EQ(network["flooded"], 20'100);
  EXPECT_EQ(network["submitted"], 1);
  EXPECT_EQ(network["completed"], 20'101);
  EXPECT_EQ(network["dropped"], 0);
  EXPECT_EQ(network["pendingRequests"], 63);
}

}  // namespace

}  // namespace ostrel::test
