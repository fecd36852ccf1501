#include "detection_json.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "iso_time.h"
#include "utf8.h"

namespace {

using ostrel::host::ActivityJson;
using ostrel::host::CloudDriveJson;
using ostrel::host::IsoTime;
using ostrel::host::ToUtf16;
using ostrel::host::ToUtf8;

constexpr const wchar_t* CHROME = L"\\Device\\HarddiskVolume3\\chrome.exe";

std::string CloudDriveWithName(const wchar_t* fileName) {
  return CloudDriveJson(fileName, L"p", L"u", 0, 4);
}

struct Endpoint {
  const wchar_t* address;
  std::uint32_t port;
  const wchar_t* hostName;
};

// What the line says of endpoints.
std::string EndpointsOf(const std::vector<Endpoint>& endpoints) {
  std::vector<const wchar_t*> addresses;
  std::vector<std::uint32_t> ports;
  std::vector<const wchar_t*> names;
  for (const Endpoint& endpoint : endpoints) {
    addresses.push_back(endpoint.address);
    ports.push_back(endpoint.port);
    names.push_back(endpoint.hostName);
  }
  const std::string line =
      ActivityJson(L"f", L"p", L"u", 0, 0, static_cast<std::int32_t>(endpoints.size()), addresses.data(),
                   ports.data(), names.data(), 0, nullptr, L"", 0, L"", L"", 0, L"", L"");
  const std::size_t begin = line.find("\"endpoints\":");
  return line.substr(begin, line.find(",\"destinationHints\"") - begin);
}

TEST(ActivityJsonTest, AnUploadWithoutStreamsAndHintsHasEmptyLists) {
  EXPECT_EQ(
      ActivityJson(L"C:\\data\\report.pdf", CHROME, L"anna", 1795252665298, 0, 0, nullptr, nullptr, nullptr,
                   0, nullptr, L"TABTITLE_NO_TITLE_FOUND", 0, L"", L"", 0, L"", L""),
      R"({"detection":"upload","fileName":"C:\\data\\report.pdf",)"
      R"("processName":"\\Device\\HarddiskVolume3\\chrome.exe","user":"anna","endTime":1795252665298,)"
      R"("endTimeIso":"2026-11-21T09:17:45.298Z","fileEventType":0,"endpoints":[],"endpointsAre":"none",)"
      R"("destinationHints":[],)"
      R"("tabTitleStatus":"TABTITLE_NO_TITLE_FOUND","isNetworkDrive":false,"sha256":"","md5":"",)"
      R"("metadataFileSize":0,"metadataStatus":"","extraText":""})");
}

TEST(ActivityJsonTest, ADownloadShowsEveryArgumentUnderItsName) {
  wchar_t address1[] = L"192.0.2.7";
  wchar_t address2[] = L"2001:db8::1";
  wchar_t* addresses[] = {address1, address2};
  const std::uint32_t ports[] = {443, 65535};
  wchar_t name1[] = L"files.example";
  wchar_t name2[] = L"";
  wchar_t* names[] = {name1, name2};
  wchar_t hint1[] = L"Inbox";
  wchar_t hint2[] = L"\"Quoted\"";
  wchar_t* hints[] = {hint1, hint2};
  EXPECT_EQ(
      ActivityJson(L"\\\\server\\share\\a.bin", CHROME, L"User not identified", 1, 1, 2, addresses, ports,
                   names, 2, hints, L"TABTITLE_SUCCESS", 1, L"ab01", L"cd02", 4294967295, L"METADATA_SUCCESS",
                   L"more"),
      R"({"detection":"download","fileName":"\\\\server\\share\\a.bin",)"
      R"("processName":"\\Device\\HarddiskVolume3\\chrome.exe","user":"User not identified","endTime":1,)"
      R"("endTimeIso":"1970-01-01T00:00:00.001Z","fileEventType":1,)"
      R"("endpoints":[{"address":"192.0.2.7","port":443,"hostName":"files.example"},)"
      R"({"address":"2001:db8::1","port":65535,"hostName":""}],"endpointsAre":"fallback","destinationHints":["Inbox","\"Quoted\""],)"
      R"("tabTitleStatus":"TABTITLE_SUCCESS","isNetworkDrive":true,"sha256":"ab01","md5":"cd02",)"
      R"("metadataFileSize":4294967295,"metadataStatus":"METADATA_SUCCESS","extraText":"more"})");
}

TEST(ActivityJsonTest, OneEndpointIsAMatch) {
  EXPECT_EQ(EndpointsOf({{L"192.0.2.7", 443, L"files.example"}}),
            R"("endpoints":[{"address":"192.0.2.7","port":443,"hostName":"files.example"}],)"
            R"("endpointsAre":"match")");
}

TEST(ActivityJsonTest, SeveralEndpointsAreAFallbackInTheOrderGiven) {
  EXPECT_EQ(EndpointsOf(
                {{L"198.51.100.9", 443, L"b.example"}, {L"192.0.2.7", 8443, L""}, {L"2001:db8::1", 22, L""}}),
            R"("endpoints":[{"address":"198.51.100.9","port":443,"hostName":"b.example"},)"
            R"({"address":"192.0.2.7","port":8443,"hostName":""},)"
            R"({"address":"2001:db8::1","port":22,"hostName":""}],"endpointsAre":"fallback")");
}

TEST(ActivityJsonTest, NoEndpointsAreNone) {
  EXPECT_EQ(EndpointsOf({}), R"("endpoints":[],"endpointsAre":"none")");
}

TEST(ActivityJsonTest, AnIpv6EndpointKeepsItsEmptyHostName) {
  EXPECT_EQ(EndpointsOf({{L"2001:db8::ff00:42:8329", 443, L""}}),
            R"("endpoints":[{"address":"2001:db8::ff00:42:8329","port":443,"hostName":""}],)"
            R"("endpointsAre":"match")");
}

TEST(ActivityJsonTest, InvalidUtf16InAHostNameIsReplaced) {
  const wchar_t name[] = {L'a', 0xDC00, L'.', 0xD800, 0};
  EXPECT_EQ(
      EndpointsOf({{L"192.0.2.7", 443, name}}),
      "\"endpoints\":[{\"address\":\"192.0.2.7\",\"port\":443,\"hostName\":\"a\xEF\xBF\xBD.\xEF\xBF\xBD\"}],"
      "\"endpointsAre\":\"match\"");
}

TEST(ActivityJsonTest, APortIsShownAsTheUnsignedNumberItArrivesAs) {
  EXPECT_EQ(EndpointsOf({{L"192.0.2.7", 4294967295, L""}}),
            R"("endpoints":[{"address":"192.0.2.7","port":4294967295,"hostName":""}],)"
            R"("endpointsAre":"match")");
}

TEST(CloudDriveJsonTest, ShowsEveryArgumentUnderItsName) {
  EXPECT_EQ(
      CloudDriveJson(L"C:\\Cloud\\budget.xlsx", L"drive.exe", L"anna", 1795252665298, 9),
      R"({"detection":"cloud-drive","fileName":"C:\\Cloud\\budget.xlsx","processName":"drive.exe","user":"anna",)"
      R"("endTime":1795252665298,"endTimeIso":"2026-11-21T09:17:45.298Z","fileEventType":9})");
}

TEST(DetectionJsonTest, ATimeBeyondTheYear9999HasNoIsoForm) {
  EXPECT_EQ(CloudDriveJson(L"f", L"p", L"u", UINT64_MAX, 4),
            R"({"detection":"cloud-drive","fileName":"f","processName":"p","user":"u",)"
            R"("endTime":18446744073709551615,"endTimeIso":null,"fileEventType":4})");
}

TEST(DetectionJsonTest, LettersBeyondAsciiAreWrittenAsUtf8) {
  EXPECT_NE(CloudDriveWithName(L"C:\\\u00dcbung \u65e5.txt")
                .find("C:\\\\\xC3\x9C"
                      "bung \xE6\x97\xA5.txt"),
            std::string::npos);
}

TEST(DetectionJsonTest, LineEndsAndControlCharactersAreEscapedSoThatADetectionIsOneLine) {
  EXPECT_NE(CloudDriveWithName(L"a\nb\rc\x01").find(R"("a\nb\rc\u0001")"), std::string::npos);
}

TEST(DetectionJsonTest, InvalidUtf16IsReplacedAndNothingAroundItIsLost) {
  const wchar_t name[] = {L'a', 0xD800, L'b', 0xDC00, L'c', 0};
  EXPECT_NE(CloudDriveWithName(name).find("\"a\xEF\xBF\xBD"
                                          "b\xEF\xBF\xBD"
                                          "c\""),
            std::string::npos);
}

TEST(Utf8Test, AnEmptyTextStaysEmpty) {
  EXPECT_EQ(ToUtf8(L""), "");
  EXPECT_EQ(ToUtf16(""), L"");
}

TEST(Utf8Test, ASurrogatePairIsOneCharacterOfFourBytes) {
  const std::wstring smile = {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)};
  EXPECT_EQ(ToUtf8(smile), "\xF0\x9F\x98\x80");
  EXPECT_EQ(ToUtf16("\xF0\x9F\x98\x80"), smile);
}

TEST(Utf8Test, AHighSurrogateAtTheEndIsReplaced) {
  EXPECT_EQ(ToUtf8(std::wstring{L'x', static_cast<wchar_t>(0xD83D)}), "x\xEF\xBF\xBD");
}

TEST(Utf8Test, SurrogatesInTheWrongOrderAreReplacedEach) {
  EXPECT_EQ(ToUtf8(std::wstring{static_cast<wchar_t>(0xDE00), static_cast<wchar_t>(0xD83D)}),
            "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(IsoTimeTest, TheBeginningOfTime) {
  EXPECT_EQ(IsoTime(0), "1970-01-01T00:00:00.000Z");
}

TEST(IsoTimeTest, ALeapDayIsADay) {
  EXPECT_EQ(IsoTime(1709164800000), "2024-02-29T00:00:00.000Z");
}

TEST(IsoTimeTest, MillisecondsAreKeptToTheLastBeforeTheYearTurns) {
  EXPECT_EQ(IsoTime(1798761599999), "2026-12-31T23:59:59.999Z");
}

TEST(IsoTimeTest, TheLastTimeThatFitsFourDigitsIsWrittenAndTheNextIsNot) {
  EXPECT_EQ(IsoTime(ostrel::host::LAST_ISO_TIME), "9999-12-31T23:59:59.999Z");
  EXPECT_EQ(IsoTime(ostrel::host::LAST_ISO_TIME + 1), "");
}

}  // namespace
