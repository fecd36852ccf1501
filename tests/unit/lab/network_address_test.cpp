#include "network_address.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

using ostrel::lab::NetworkAddress;
using ostrel::lab::ParseAddress;

NetworkAddress Ipv6(const std::array<std::uint8_t, 16>& bytes) {
  return {true, bytes};
}

TEST(NetworkAddress, AnIpv4AddressIsItsFourNumbers) {
  EXPECT_EQ(ParseAddress("192.0.2.1"), (NetworkAddress{false, {192, 0, 2, 1}}));
  EXPECT_EQ(ParseAddress("0.0.0.0"), (NetworkAddress{}));
  EXPECT_EQ(ParseAddress("255.255.255.255"), (NetworkAddress{false, {255, 255, 255, 255}}));
}

TEST(NetworkAddress, AnIpv6AddressIsItsEightGroups) {
  EXPECT_EQ(ParseAddress("2001:db8:1:2:3:4:5:ABCD"),
            Ipv6({0x20, 0x01, 0x0D, 0xB8, 0, 1, 0, 2, 0, 3, 0, 4, 0, 5, 0xAB, 0xCD}));
}

TEST(NetworkAddress, AGapStandsForTheGroupsThatAreMissing) {
  EXPECT_EQ(ParseAddress("::"), Ipv6({}));
  EXPECT_EQ(ParseAddress("::1"), Ipv6({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}));
  EXPECT_EQ(ParseAddress("1::"), Ipv6({0, 1}));
  EXPECT_EQ(ParseAddress("2001:db8::ff"),
            Ipv6({0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF}));
  EXPECT_EQ(ParseAddress("1:2:3:4:5:6:7::"), Ipv6({0, 1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6, 0, 7}));
}

TEST(NetworkAddress, AnIpv6AddressMayEndInAnIpv4Address) {
  EXPECT_EQ(ParseAddress("::ffff:192.0.2.1"), Ipv6({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 192, 0, 2, 1}));
  EXPECT_EQ(ParseAddress("1:2:3:4:5:6:7.8.9.10"), Ipv6({0, 1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6, 7, 8, 9, 10}));
}

TEST(NetworkAddress, TheSameAddressWrittenDifferentlyIsTheSame) {
  EXPECT_EQ(ParseAddress("2001:0db8:0:0::1"), ParseAddress("2001:DB8::1"));
  EXPECT_NE(ParseAddress("::192.0.2.1"), ParseAddress("192.0.2.1"));
}

TEST(NetworkAddress, EverythingElseIsNone) {
  for (const std::string_view text : {"",
                                      ".",
                                      "1",
                                      "1.2.3",
                                      "1.2.3.4.5",
                                      "1.2.3.4.",
                                      ".1.2.3.4",
                                      "1..2.3",
                                      "1.2.3.256",
                                      "1.2.3.1000",
                                      "01.2.3.4",
                                      "1.2.3.00",
                                      "+1.2.3.4",
                                      "-1.2.3.4",
                                      "1.2.3.4 ",
                                      " 1.2.3.4",
                                      "0x1.2.3.4",
                                      "1.2.3.4:80",
                                      "1.2.3.4/24",
                                      "a.b.c.d",
                                      ":",
                                      ":::",
                                      "1:",
                                      ":1",
                                      "1:2:3:4:5:6:7",
                                      "1:2:3:4:5:6:7:8:9",
                                      "1:2:3:4:5:6:7:8:",
                                      ":1:2:3:4:5:6:7:8",
                                      "1::2::3",
                                      "1:2:3:4:5:6:7::8",
                                      "::1:2:3:4:5:6:7:8",
                                      "12345::",
                                      "g::",
                                      "::1%1",
                                      "[::1]",
                                      "::1/64",
                                      "1.2.3.4::",
                                      "::1.2.3.4:5",
                                      "1:2:3:4:5:6:7:1.2.3.4",
                                      "::1.2.3",
                                      "::01.2.3.4",
                                      "-1::",
                                      "::+1",
                                      "1: :2"}) {
    EXPECT_EQ(ParseAddress(text), std::nullopt) << text;
  }
  EXPECT_EQ(ParseAddress(std::string_view("1.2.3.4\0", 8)), std::nullopt);
  EXPECT_EQ(ParseAddress(std::string(100000, ':')), std::nullopt);
  EXPECT_EQ(ParseAddress(std::string(100000, '1')), std::nullopt);
}

}  // namespace
