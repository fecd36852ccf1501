#include "responder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scripted_session.h"

namespace {

using namespace ostrel;
using namespace ostrel::helper;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Of an error there is nothing but the code.
std::wstring FailedMetadata(const std::wstring& code) {
  return L"1,4,07c2," + code + L"," + std::wstring(64, L'0') + L"," + std::wstring(32, L'0') + L",0,0,";
}

class TheResponder : public ::testing::Test {
 protected:
  std::optional<std::wstring> Reply(const std::wstring& request) { return responder_.Reply(request); }

  // The session must not even be asked.
  void ExpectRefusal(const std::wstring& request, const std::wstring& reply) {
    EXPECT_EQ(Reply(request), reply);
    EXPECT_THAT(session_.questions, IsEmpty());
  }

  ostrel_test::ScriptedSession session_;
  Responder responder_{L"9f3a", session_};
};

TEST_F(TheResponder, AnswersWithTheTitlesOfTheProcess) {
  session_.titles = {SUCCESS, {L"News"}};
  EXPECT_EQ(Reply(L"1,0,4,9f3a,4,07c2,4512,10,chrome.exe"), L"0,4,07c2,0,1,4,News");
  EXPECT_THAT(session_.questions, ElementsAre(L"titles of 4512 chrome.exe"));
}

TEST_F(TheResponder, AnswersWithTheMetadataOfTheFile) {
  session_.metadata = {SUCCESS, std::wstring(64, L'a'), std::wstring(32, L'b'), 7, L"C:\\x"};
  EXPECT_EQ(Reply(L"1,1,4,9f3a,4,07c2,4,C:\\x"),
            L"1,4,07c2,0," + std::wstring(64, L'a') + L"," + std::wstring(32, L'b') + L",7,4,C:\\x");
  EXPECT_THAT(session_.questions, ElementsAre(L"metadata of C:\\x"));
}

TEST_F(TheResponder, AnswersWithTheProxyUrl) {
  session_.url = {SUCCESS, L"http://p/"};
  EXPECT_EQ(Reply(L"1,2,4,9f3a,4,07c2,"), L"2,4,07c2,0,9,http://p/");
  EXPECT_THAT(session_.questions, ElementsAre(L"proxy"));
}

TEST_F(TheResponder, AnswersWithTheCloudLogin) {
  session_.login = {SUCCESS, L"a@b"};
  EXPECT_EQ(Reply(L"1,3,4,9f3a,4,07c2,6,iCloud,6,C:\\ann"), L"3,4,07c2,0,3,a@b");
  EXPECT_THAT(session_.questions, ElementsAre(L"login of iCloud in C:\\ann"));
}

TEST_F(TheResponder, PassesOnTheCodesOfTheSession) {
  session_.titles.code = TABTITLE_NOAPP_FRAME_HOST;
  session_.metadata.code = METADATA_ERROR_GETTING_FILE_SIZE;
  session_.url = {PROXY_ERROR_GETTING_AUTO_CONFIG_URL, L"why"};
  session_.login = {CLOUDLOGIN_ERROR_GETTING_CLOUD_LOGIN, L"why"};
  EXPECT_EQ(Reply(L"1,0,4,9f3a,4,07c2,1,1,a"), L"0,4,07c2,3,0");
  EXPECT_EQ(Reply(L"1,1,4,9f3a,4,07c2,1,a"), FailedMetadata(L"20"));
  EXPECT_EQ(Reply(L"1,2,4,9f3a,4,07c2,"), L"2,4,07c2,26,3,why");
  EXPECT_EQ(Reply(L"1,3,4,9f3a,4,07c2,1,a,1,b"), L"3,4,07c2,17,3,why");
}

TEST_F(TheResponder, RefusesAnyOtherVersionInTheLayoutOfTheType) {
  const std::wstring explanation = L"54,The user helper speaks version 1 of its protocol only.";
  for (const wchar_t* version : {L"0", L"2", L"4294967295"}) {
    ExpectRefusal(version + std::wstring(L",0,4,9f3a,4,07c2,1,1,a"), L"0,4,07c2,1,0");
    ExpectRefusal(version + std::wstring(L",1,4,9f3a,4,07c2,1,a"), FailedMetadata(L"1"));
    ExpectRefusal(version + std::wstring(L",2,4,9f3a,4,07c2,"), L"2,4,07c2,1," + explanation);
    ExpectRefusal(version + std::wstring(L",3,4,9f3a,4,07c2,1,a,1,b"), L"3,4,07c2,1," + explanation);
  }
}

TEST_F(TheResponder, RefusesAnyOtherCommandIdInTheLayoutOfTheType) {
  const std::wstring explanation = L"61,The request does not carry the command id of the user helper.";
  ExpectRefusal(L"1,0,4,9f3b,4,07c2,1,1,a", L"0,4,07c2,2,0");
  ExpectRefusal(L"1,1,3,9f3,4,07c2,1,a", FailedMetadata(L"2"));
  ExpectRefusal(L"1,2,5,9f3aa,4,07c2,", L"2,4,07c2,2," + explanation);
  ExpectRefusal(L"1,3,4,9F3A,4,07c2,1,a,1,b", L"3,4,07c2,2," + explanation);
}

TEST_F(TheResponder, RefusesTheVersionBeforeTheCommandIdAndThatBeforeTheType) {
  ExpectRefusal(L"2,9,4,9f3b,4,07c2,", L"0,4,07c2,1,0");
  ExpectRefusal(L"1,9,4,9f3b,4,07c2,", L"0,4,07c2,2,0");
  ExpectRefusal(L"1,9,4,9f3a,4,07c2,", L"0,4,07c2,5,0");
}

TEST_F(TheResponder, RefusesAnUnknownTypeInTheLayoutOfTitles) {
  ExpectRefusal(L"1,4,4,9f3a,4,07c2,", L"0,4,07c2,5,0");
  ExpectRefusal(L"1,4294967295,4,9f3a,4,07c2,1,a", L"0,4,07c2,5,0");
}

TEST_F(TheResponder, RefusesABodyThatIsNotOfTheType) {
  const std::wstring explanation = L"47,The request's body does not belong to its type.";
  ExpectRefusal(L"1,0,4,9f3a,4,07c2,", L"0,4,07c2,5,0");
  ExpectRefusal(L"1,1,4,9f3a,4,07c2,9,a", FailedMetadata(L"6"));
  ExpectRefusal(L"1,2,4,9f3a,4,07c2,1,a", L"2,4,07c2,22," + explanation);
  ExpectRefusal(L"1,3,4,9f3a,4,07c2,1,a", L"3,4,07c2,7," + explanation);
}

TEST_F(TheResponder, TakesForTheLauncherWhoeverHasTheCommandId) {
  EXPECT_TRUE(responder_.IsFromLauncher(L"1,2,4,9f3a,4,07c2,"));
  EXPECT_TRUE(responder_.IsFromLauncher(L"2,9,4,9f3a,4,07c2,1,a"));
  for (const wchar_t* request : {L"1,2,4,9f3b,4,07c2,", L"1,2,3,9f3,4,07c2,", L"1,2,4,9f3a,4,07c2", L""}) {
    EXPECT_FALSE(responder_.IsFromLauncher(request));
  }
}

TEST_F(TheResponder, HasNoReplyWithoutAReadableHead) {
  for (const wchar_t* request : {L"", L"1", L"x,2,4,9f3a,4,07c2,", L"1,-2,4,9f3a,4,07c2,", L"1,2,0,,4,07c2,",
                                 L"1,2,4,9f3a,0,,", L"1,2,4,9f3a,4,07c2", L"1,2,4,9f3a,5,07c2,"}) {
    EXPECT_EQ(Reply(request), std::nullopt);
  }
  EXPECT_THAT(session_.questions, IsEmpty());
}

}  // namespace
