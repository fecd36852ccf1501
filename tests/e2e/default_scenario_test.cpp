// The demonstration scenario, once more with everything that the table leaves out.

#include <algorithm>

#include "e2e/lab_fixture.h"

namespace ostrel::test {

namespace {

using nlohmann::json;

constexpr wchar_t WATCH_ALL[] =
    L"--watch chrome.exe,filezilla.exe,pscp.exe --cloud-process clouddrive.exe --log-level 7 --for 300";

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
  const auto host = StartHost(WATCH_ALL);
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
  EXPECT_EQ(upload["endpoints"], json::array());
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
  const auto host = StartHost(WATCH_ALL);
  ASSERT_EQ(Play(File()), 0U);
  const json counters = LabStatus();
  EXPECT_GT(counters["submitted"], 0);
  EXPECT_EQ(counters["delivered"], counters["submitted"]);
  EXPECT_EQ(counters["acknowledged"], counters["submitted"]);
  EXPECT_EQ(counters["badAcknowledgements"], 0);
  EXPECT_EQ(counters["doubleAcknowledgements"], 0);
  EXPECT_EQ(counters["badConfigurationMessages"], 0);
}

}  // namespace

}  // namespace ostrel::test
