// The demonstration scenario, once more with everything that the table leaves out.

#include <algorithm>
#include <set>
#include <string>

#include "e2e/lab_fixture.h"

namespace ostrel::test {

namespace {

using nlohmann::json;

std::wstring WatchAll() {
  wchar_t user[256] = {};
  DWORD length = 256;
  GetUserNameW(user, &length);
  return std::wstring(L"--watch chrome.exe,filezilla.exe,pscp.exe --cloud-process clouddrive.exe --user \"") +
         user + L"\" --remote-address-info --log-level 7 --for 300";
}

class DefaultScenario : public LabFixture {
 protected:
  static std::filesystem::path File() { return Scenario("default.json"); }

  json Detection(const std::string& file) {
    const std::vector<json> all = Detections();
    const auto found = std::find_if(all.begin(), all.end(), [&file](const json& detection) {
      return detection["fileName"].get<std::string>().ends_with(file);
    });
    return found == all.end() ? json() : *found;
  }
};

TEST_F(DefaultScenario, EveryExpectedDetectionIsReportedOnceAndNoneBesides) {
  const auto host = StartHost(WatchAll());
  ASSERT_EQ(Play(File()), 0U);
  ASSERT_EQ(Check(File()), 0U) << host->Errors();

  const json upload = Detection("report.pdf");
  EXPECT_EQ(upload["fileName"], WorkFile("report.pdf").string());
  EXPECT_EQ(upload["detection"], "upload");
  EXPECT_EQ(upload["fileEventType"], 0);
  EXPECT_TRUE(upload["processName"].get<std::string>().starts_with("\\Device\\HarddiskVolume"));
  EXPECT_TRUE(upload["processName"].get<std::string>().ends_with("\\chrome.exe"));
  EXPECT_FALSE(upload["user"].get<std::string>().empty());
  EXPECT_NE(upload["user"], "User not identified");
  EXPECT_EQ(upload["endpoints"].size(), 1U);
  EXPECT_EQ(upload["endpoints"][0]["address"], "192.0.2.10");
  EXPECT_EQ(upload["endpoints"][0]["port"], 443);
  EXPECT_EQ(upload["endpointsAre"], "match");
  EXPECT_EQ(upload["destinationHints"], json::array());
  EXPECT_EQ(upload["isNetworkDrive"], false);
  EXPECT_EQ(upload["metadataFileSize"], 0);
  EXPECT_EQ(upload["metadataStatus"], "");

  // Of two processes' reads of one file the later in the cache's order comes out: the lower process id.
  const std::string log = host->Errors();
  EXPECT_NE(
      log.find("Outgoing Event suppressed. Duplicate event. " + WorkFile("team\\minutes.docx").string()),
      std::string::npos);
  EXPECT_NE(log.find("Incomplete upload for " + WorkFile("archive.zip").string()), std::string::npos);
  EXPECT_NE(log.find("Ignore Upload event. Not a real upload for file: " + WorkFile("notes.txt").string()),
            std::string::npos);
  EXPECT_NE(log.find("Event suppressed. Filename is a directory."), std::string::npos);
  EXPECT_EQ(log.find("movie.CRDOWNLOAD"), std::string::npos);
}

TEST_F(DefaultScenario, EveryMessageIsAcknowledgedExactlyOnce) {
  const auto host = StartHost(WatchAll());
  ASSERT_EQ(Play(File()), 0U);
  const json counters = LabStatus();
  EXPECT_GT(counters["submitted"], 0);
  EXPECT_EQ(counters["delivered"], counters["submitted"]);
  EXPECT_EQ(counters["acknowledged"], counters["submitted"]);
  EXPECT_EQ(counters["badAcknowledgements"], 0);
  EXPECT_EQ(counters["doubleAcknowledgements"], 0);
  EXPECT_EQ(counters["badConfigurationMessages"], 0);
}

TEST_F(DefaultScenario, TheNetworkDriverAndTheFilteringPlatformHoldWhatTheHostGaveThem) {
  const auto host = StartHost(WatchAll());
  ASSERT_EQ(Play(File()), 0U);
  const json status = LabStatus();
  const json& network = status["network"];
  EXPECT_EQ(network["enabled"], true);
  EXPECT_EQ(network["pendingRequests"], 63);
  EXPECT_EQ(network["submitted"], 9);
  EXPECT_EQ(network["completed"], 9);
  EXPECT_EQ(network["dropped"], 0);
  EXPECT_EQ(network["processList"]["kind"], "activity");
  EXPECT_EQ(network["processList"]["processNames"], (json{"chrome.exe", "filezilla.exe", "pscp.exe"}));

  const json& platform = status["filteringPlatform"];
  ASSERT_EQ(platform["sessions"].size(), 1U);
  EXPECT_EQ(platform["sessions"][0]["name"], "Monitor Sample Session");
  EXPECT_EQ(platform["callouts"].size(), 4U);
  // The IPv6 transaction is refused for the sub-layer's key.
  ASSERT_EQ(platform["subLayers"].size(), 1U);
  EXPECT_EQ(platform["subLayers"][0]["key"], "{b3241f1d-7cd2-4e7a-8721-2e97d07702e5}");
  EXPECT_EQ(platform["subLayers"][0]["session"], platform["sessions"][0]["key"]);
  std::set<std::string> layers;
  for (const json& filter : platform["filters"]) layers.insert(filter["layer"].get<std::string>());
  EXPECT_EQ(layers, (std::set<std::string>{"ALE_FLOW_ESTABLISHED_V4", "STREAM_V4"}));
  EXPECT_EQ(platform["filters"].size(), 2U);
}

}  // namespace

}  // namespace ostrel::test
