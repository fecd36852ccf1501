#include "filter/port_messages.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "util/installed_names.h"

namespace {

using ostrel::Acknowledgement;
using ostrel::ConnectionContext;
using ostrel::EventMessage;

// Bytes as they lie on the wire.
template <std::size_t SIZE>
class Wire {
 public:
  template <typename Value>
  void Put(std::size_t offset, Value value) {
    std::memcpy(bytes_.data() + offset, &value, sizeof(value));
  }
  template <typename Message>
  Message As() const {
    static_assert(sizeof(Message) == SIZE);
    Message message;
    std::memcpy(&message, bytes_.data(), SIZE);
    return message;
  }

 private:
  std::array<unsigned char, SIZE> bytes_{};
};

TEST(PortMessages, ThePortsAreTheDriversOwn) {
  EXPECT_EQ(std::wstring(ostrel::NOTIFICATION_PORT_NAME), L"\\6E6F3D7A-21A2-4B5F-ABD3-5DCED10CD793");
  EXPECT_EQ(std::wstring(ostrel::CONTROL_PORT_NAME), L"\\FB6CBA80-7A14-42C2-8697-0D4F43B3405F");
  EXPECT_EQ(ostrel::PROTOCOL_CODE, 7U);
}

TEST(PortMessages, EveryFieldOfAnEventMessageIsReadFromItsOffset) {
  Wire<1080> wire;
  wire.Put(0, std::uint32_t{0x11});
  wire.Put(8, std::uint64_t{0x2222222222222222});
  wire.Put(16, std::uint32_t{0x33333333});
  wire.Put(20, std::uint32_t{1});
  wire.Put(24, std::uint64_t{0x4444444444444444});
  wire.Put(32, std::int32_t{-5});
  wire.Put(36, std::int32_t{-6});
  wire.Put(40, std::uint8_t{0x77});
  wire.Put(44, std::uint32_t{2});
  wire.Put(48, char16_t{u'A'});
  wire.Put(48 + 2 * 511, char16_t{u'Z'});
  wire.Put(1072, std::uint32_t{0x88888888});
  const auto message = wire.As<EventMessage>();
  EXPECT_EQ(message.replyLength, 0x11U);
  EXPECT_EQ(message.messageId, 0x2222222222222222U);
  EXPECT_EQ(message.processId, 0x33333333U);
  EXPECT_EQ(message.unloadNotice, 1U);
  EXPECT_EQ(message.eventTime, 0x4444444444444444U);
  EXPECT_EQ(message.eventType, -5);
  EXPECT_EQ(message.detail, -6);
  EXPECT_EQ(message.streamFlag, 0x77);
  EXPECT_EQ(message.deviceSourceType, 2U);
  EXPECT_EQ(message.fileName[0], u'A');
  EXPECT_EQ(message.fileName[511], u'Z');
  EXPECT_EQ(message.readSize, 0x88888888U);
}

TEST(PortMessages, AnAcknowledgementIsSixteenBytesWithTheMessageIdAtEight) {
  Wire<16> wire;
  wire.Put(0, std::int32_t{-1});
  wire.Put(8, std::uint64_t{0x2222222222222222});
  const auto acknowledgement = wire.As<Acknowledgement>();
  EXPECT_EQ(acknowledgement.status, -1);
  EXPECT_EQ(acknowledgement.messageId, 0x2222222222222222U);
}

TEST(PortMessages, AConnectionContextIsTheProcessIdAndTheCode) {
  Wire<8> wire;
  wire.Put(0, std::uint32_t{1234});
  wire.Put(4, std::uint32_t{7});
  const auto context = wire.As<ConnectionContext>();
  EXPECT_EQ(context.hostProcessId, 1234U);
  EXPECT_EQ(context.code, 7U);
}

}  // namespace
