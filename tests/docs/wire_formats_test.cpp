// docs/wire-formats.md tells the bytes of every message as the code has them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "filter/port_messages.h"
#include "network/packet_messages.h"
#include "userhelper/request_message.h"
#include "userhelper/response_messages.h"
#include "util/installed_names.h"

namespace {

using namespace ostrel;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::SizeIs;

using Row = std::vector<std::string>;

std::string Trimmed(const std::string& text) {
  const std::size_t start = text.find_first_not_of(' ');
  return start == std::string::npos ? "" : text.substr(start, text.find_last_not_of(' ') - start + 1);
}

// The lines below the heading, up to the next one.
std::vector<std::string> Section(const std::string& heading) {
  std::vector<std::string> lines;
  std::ifstream page(OSTREL_CHECKOUT "/docs/wire-formats.md");
  EXPECT_TRUE(page);
  bool isInside = false;
  for (std::string line; std::getline(page, line);) {
    if (line.starts_with("#")) {
      isInside = line.substr(line.find_first_not_of("# ")) == heading;
    } else if (isInside) {
      lines.push_back(line);
    }
  }
  EXPECT_FALSE(lines.empty()) << "no section " << heading;
  return lines;
}

std::vector<Row> Rows(const std::string& heading) {
  std::vector<Row> rows;
  for (const std::string& line : Section(heading)) {
    if (!line.starts_with("| ")) continue;
    Row row;
    std::istringstream cells(line.substr(1));
    for (std::string cell; std::getline(cells, cell, '|');) row.push_back(Trimmed(cell));
    rows.push_back(row);
  }
  return rows;
}

struct Field {
  std::size_t offset;
  std::size_t width;
  bool operator==(const Field&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Field& field) {
  return stream << field.offset << " (" << field.width << " bytes)";
}

bool IsNumber(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// Offset and width of each row of the section's table.
std::vector<Field> ToldFields(const std::string& heading) {
  std::vector<Field> fields;
  for (const Row& row : Rows(heading)) {
    if (row.size() >= 2 && IsNumber(row[0]) && IsNumber(row[1])) {
      fields.push_back({std::stoul(row[0]), std::stoul(row[1])});
    }
  }
  return fields;
}

#define FIELD(Message, member)                         \
  Field {                                              \
    offsetof(Message, member), sizeof(Message::member) \
  }

TEST(WireFormats, TellTheConnectionContextByteForByte) {
  EXPECT_THAT(ToldFields("Connection context"),
              ElementsAre(FIELD(ConnectionContext, hostProcessId), FIELD(ConnectionContext, code)));
}

TEST(WireFormats, TellTheEventMessageByteForByte) {
  EXPECT_THAT(ToldFields("Event message"),
              ElementsAre(FIELD(EventMessage, replyLength), FIELD(EventMessage, headerPadding),
                          FIELD(EventMessage, messageId), FIELD(EventMessage, processId),
                          FIELD(EventMessage, unloadNotice), FIELD(EventMessage, eventTime),
                          FIELD(EventMessage, eventType), FIELD(EventMessage, detail),
                          FIELD(EventMessage, streamFlag), FIELD(EventMessage, padding),
                          FIELD(EventMessage, deviceSourceType), FIELD(EventMessage, fileName),
                          FIELD(EventMessage, readSize), FIELD(EventMessage, tailPadding)));
}

TEST(WireFormats, TellTheAcknowledgementByteForByte) {
  EXPECT_THAT(ToldFields("Acknowledgement"),
              ElementsAre(FIELD(Acknowledgement, status), FIELD(Acknowledgement, padding),
                          FIELD(Acknowledgement, messageId)));
}

TEST(WireFormats, TellTheConfigurationMessageByteForByte) {
  EXPECT_THAT(
      ToldFields("Configuration message"),
      ElementsAre(FIELD(DetectionMessage, code), FIELD(DetectionMessage, hostProcessId),
                  FIELD(DetectionMessage, processIds), FIELD(DetectionMessage, processNames),
                  FIELD(DetectionMessage, excludedPaths), FIELD(DetectionMessage, cloudPaths),
                  FIELD(DetectionMessage, cloudExclusionPaths), FIELD(DetectionMessage, processIdCount),
                  FIELD(DetectionMessage, processNameCount), FIELD(DetectionMessage, excludedPathCount),
                  FIELD(DetectionMessage, cloudPathCount), FIELD(DetectionMessage, cloudExclusionPathCount),
                  FIELD(DetectionMessage, driverOption), FIELD(DetectionMessage, enabled),
                  FIELD(DetectionMessage, kind), FIELD(DetectionMessage, padding)));
}

TEST(WireFormats, TellTheEnableOrderByteForByte) {
  EXPECT_THAT(ToldFields("Enable order"),
              ElementsAre(FIELD(EnableMonitoring, enable), FIELD(EnableMonitoring, padding)));
}

TEST(WireFormats, TellThePacketRecordByteForByte) {
  EXPECT_THAT(
      ToldFields("Packet record"),
      ElementsAre(FIELD(PacketRecord, bytes), FIELD(PacketRecord, ipv4), FIELD(PacketRecord, port),
                  FIELD(PacketRecord, outgoing), FIELD(PacketRecord, unread1), FIELD(PacketRecord, processId),
                  FIELD(PacketRecord, unread2), FIELD(PacketRecord, time), FIELD(PacketRecord, ipv6),
                  FIELD(PacketRecord, ipVersion), FIELD(PacketRecord, unread3)));
}

// The names are plain ASCII.
std::string Narrow(const std::wstring& text) {
  return {text.begin(), text.end()};
}

TEST(WireFormats, NameThePortsAsTheyAre) {
  const std::vector<Row> ports = Rows("The minifilter");
  const auto named = [](const wchar_t* name) { return Contains("`" + Narrow(name) + "`"); };
  EXPECT_THAT(ports, Contains(named(NOTIFICATION_PORT_NAME)));
  EXPECT_THAT(ports, Contains(named(CONTROL_PORT_NAME)));
}

// A control code's device type and function, as Windows puts them together; buffered and any access are zero
// bits.
Row ToldControlCode(std::uint32_t code, std::size_t in, std::size_t out) {
  const auto hexadecimal = [](const char* format, std::uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, format, static_cast<unsigned>(value));
    return std::string(text);
  };
  const auto bytes = [](std::size_t count) { return count == 0 ? "none" : std::to_string(count) + " bytes"; };
  return {hexadecimal("0x%06x", code),
          hexadecimal("0x%x", code >> 16) + ", " + hexadecimal("0x%03x", (code & 0xFFFF) >> 2), bytes(in),
          bytes(out)};
}

TEST(WireFormats, TellTheControlCodesAsTheyAre) {
  std::vector<Row> codes;
  for (Row row : Rows("The network driver")) {
    if (row.size() >= 4 && row[0].starts_with("0x")) {
      row.resize(4);
      codes.push_back(row);
    }
  }
  EXPECT_THAT(codes, ElementsAre(ToldControlCode(CONTROL_ENABLE_MONITORING, sizeof(EnableMonitoring), 0),
                                 ToldControlCode(CONTROL_READ_PACKET, 0, sizeof(PacketRecord)),
                                 ToldControlCode(CONTROL_PROCESS_LIST, sizeof(DetectionMessage), 0)));
}

// What the section's table of examples shows, in code quotes, for the type.
std::string ToldExample(const std::string& heading, MessageType type) {
  for (const Row& row : Rows(heading)) {
    if (row.size() >= 3 && row[0] == std::to_string(type)) {
      const std::string& example = row.back();
      return example.substr(1, example.size() - 2);
    }
  }
  ADD_FAILURE() << "no example of type " << type << " in " << heading;
  return {};
}

template <typename Message>
std::string Written(const Message& message) {
  std::wostringstream stream;
  message.Serialize(stream);
  return Narrow(stream.str());
}

TEST(WireFormats, ShowRequestsAsTheLibraryWritesThem) {
  EXPECT_EQ(ToldExample("Requests", MESSAGE_TAB_TITLES),
            Written(RequestMessage(L"9f3a", L"07c2", 4512, L"chrome.exe")));
  EXPECT_EQ(ToldExample("Requests", MESSAGE_META_DATA),
            Written(RequestMessage(L"9f3a", L"07c2", L"M:\\a.txt")));
  EXPECT_EQ(ToldExample("Requests", MESSAGE_AUTO_PROXY_CONFIG_URL),
            Written(RequestMessage(L"9f3a", L"07c2")));
  EXPECT_EQ(ToldExample("Requests", MESSAGE_CLOUD_STORAGE_PROVIDER_LOGIN),
            Written(RequestMessage(L"9f3a", L"07c2", L"OneDrive", L"C:\\Users\\ann")));
}

// The library reads the shown reply to its end and would write it the same way.
template <typename Message>
Message ReadAsShown(MessageType type) {
  const std::string shown = ToldExample("Replies", type);
  Message message(L"07c2");
  std::wistringstream stream(std::wstring(shown.begin(), shown.end()));
  message.Deserialize(stream);
  EXPECT_TRUE(message.isValid) << shown;
  EXPECT_EQ(message.responseCode, SUCCESS);
  EXPECT_EQ(Written(message), shown);
  return message;
}

TEST(WireFormats, ShowRepliesAsTheLibraryReadsThem) {
  EXPECT_THAT(ReadAsShown<ResponseMessageTabTitles>(MESSAGE_TAB_TITLES).titles, ElementsAre(L"News"));
  EXPECT_EQ(ReadAsShown<ResponseMessageMetaData>(MESSAGE_META_DATA).extraText, L"\\\\srv\\a.txt");
  EXPECT_EQ(ReadAsShown<ResponseMessageAutoProxyConfigUrl>(MESSAGE_AUTO_PROXY_CONFIG_URL).url,
            L"http://a/p.pac");
  EXPECT_EQ(ReadAsShown<ResponseMessageCloudStorageProviderLogin>(MESSAGE_CLOUD_STORAGE_PROVIDER_LOGIN).login,
            L"ann@a.org");
}

}  // namespace
