// A host that knows the library by name only, on the lab: what its hand-written callbacks receive.

#include <algorithm>
#include <string>

#include "e2e/lab_fixture.h"

namespace ostrel::test {

namespace {

class AForeignHost : public LabFixture {
 protected:
  static std::string UserName() {
    char user[256] = {};
    DWORD length = 256;
    GetUserNameA(user, &length);
    return user;
  }
};

TEST_F(AForeignHost, GetsEveryArgumentAndMayFreeTheLibraryMeanwhile) {
  const auto host = StartProgram(L"ffi_host.exe", L"lab");
  ASSERT_TRUE(host->WaitForError("watching", PROGRAM_PATIENCE)) << host->Errors();
  ASSERT_EQ(Play(Scenario("foreign_host.json")), 0U);
  EXPECT_EQ(host->Wait(2 * PROGRAM_PATIENCE), 0U) << host->Errors();

  const std::string output = host->Output();
  const std::string activity =
      "activity: \\\\lab-server\\team\\e2e\\foreign.docx, browser.exe, " + UserName() +
      ", recent, type 0, stream 192.0.2.20:443 [], hint Inbox (3) - Mail, TABTITLE_SUCCESS, network 1, "
      "28b4f41a7f3ee6d8cc87272db6e09c6d3566551fd4d18702b041a21658272a85, b2fe457348de243a579a1591d3815170, "
      "size 20000, METADATA_SUCCESS, [";
  // Where Wine keeps its network drives comes before it.
  const std::string extra = "\\lab-server\\team\\e2e\\foreign.docx]\r\n";
  const std::string cloud = "cloud: " + WorkFile("cloud\\notes.txt").string() + ", cloud.exe, " + UserName() +
                            ", recent, type 7\r\n";
  EXPECT_NE(output.find(activity), std::string::npos) << output;
  EXPECT_NE(output.find(extra, activity.size()), std::string::npos) << output;
  EXPECT_NE(output.find(cloud), std::string::npos) << output;
  EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 2) << output;
}

}  // namespace

}  // namespace ostrel::test
