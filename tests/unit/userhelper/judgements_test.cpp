#include "userhelper/judgements.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "support/failure_rows.h"
#include "support/log_capture.h"
#include "util/ostrel_filter_lib_util.h"

namespace {

using namespace ostrel;
using ostrel_test::LogLine;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Judging : public ::testing::Test {
 protected:
  ~Judging() override {
    OstrelFilterLibUtil::DeallocStringPointer(&result_);
    OstrelFilterLibUtil::DeallocStringPointer(&error_);
  }

  // "result: ..." or "error: ..." or both or nothing, of a proxy or cloud judgement.
  std::wstring Outcome() const {
    std::wstring outcome;
    if (result_ != nullptr) outcome += std::wstring(L"result: ") + result_;
    if (error_ != nullptr) outcome += std::wstring(L"error: ") + error_;
    return outcome;
  }

  // The lines since the last call; what was wrong with the answer, if anything, goes to the page of failures
  // with them. What is judged here need not be what the helper can send.
  std::vector<LogLine> EnterAndTakeLog(const std::string& flaw, const std::string& result) {
    std::vector<LogLine> lines = log_.Take();
    std::vector<std::string> texts;
    for (const LogLine& line : lines)
      texts.push_back("log " + std::to_string(line.level) + " " + Narrow(line.text));
    ostrel_test::EnterFailure("Answer at its judgement", flaw, texts, result);
    return lines;
  }
  std::vector<LogLine> EnterStatusAndTakeLog(const std::string& flaw, const std::string& judgement) {
    return EnterAndTakeLog(flaw, judgement + ": status " + Narrow(status_));
  }
  void EnterOutcome(const std::string& flaw, const std::string& judgement) {
    EXPECT_THAT(EnterAndTakeLog(flaw, judgement + ": " + Narrow(Outcome())), IsEmpty());
  }

  // These texts are in ASCII.
  static std::string Narrow(const std::wstring& text) {
    std::string narrow;
    for (const wchar_t character : text) narrow += static_cast<char>(character);
    return narrow;
  }

  ostrel_test::LogCapture log_;
  std::wstring status_ = L"BEFORE";
  wchar_t* result_ = nullptr;
  wchar_t* error_ = nullptr;
};

class JudgingTitles : public Judging {
 protected:
  std::vector<std::wstring> Judge() { return JudgeTabTitles(response_, L"chrome.exe", status_); }

  ResponseMessageTabTitles response_{L"id"};
};

TEST_F(JudgingTitles, ReturnsThemInOrder) {
  response_.isValid = true;
  response_.titles = {L"b", L"a"};
  EXPECT_THAT(Judge(), ElementsAre(L"b", L"a"));
  EXPECT_EQ(status_, L"BEFORE");
  EXPECT_THAT(log_.Take(), ElementsAre(LogLine{6, L"Received application title information"}));
}

TEST_F(JudgingTitles, NamesTheCodeFirst) {
  response_.responseCode = TABTITLE_MAIN_WINDOWS_NOT_FOUND;
  response_.titles = {L"a"};
  EXPECT_THAT(Judge(), IsEmpty());
  EXPECT_EQ(status_, L"TABTITLE_MAIN_WINDOWS_NOT_FOUND");
  EXPECT_THAT(EnterStatusAndTakeLog("code 4", "JudgeTabTitles"),
              ElementsAre(LogLine{3, L"Couldn't get tab titles. Error code: 4"}));
}

TEST_F(JudgingTitles, DoesNotKnowACodeWithoutAName) {
  response_.responseCode = static_cast<ResponseCode>(-1);
  response_.isValid = true;
  EXPECT_THAT(Judge(), IsEmpty());
  EXPECT_EQ(status_, L"UNKNOWN_ERROR");
  EXPECT_THAT(EnterStatusAndTakeLog("a code without a name", "JudgeTabTitles"),
              ElementsAre(LogLine{3, L"Couldn't get tab titles. Error code: -1"}));
}

TEST_F(JudgingTitles, RefusesAnInvalidResponse) {
  response_.titles = {L"a"};
  EXPECT_THAT(Judge(), IsEmpty());
  EXPECT_EQ(status_, L"TABTITLE_DESERIALIZE_FAILURE");
  EXPECT_THAT(log_.Take(), ElementsAre(LogLine{3, L"Couldn't deserialize tab title message"}));
}

TEST_F(JudgingTitles, SaysThatThereIsNone) {
  response_.isValid = true;
  EXPECT_THAT(Judge(), IsEmpty());
  EXPECT_EQ(status_, L"TABTITLE_NO_TITLE_FOUND");
  EXPECT_THAT(log_.Take(), ElementsAre(LogLine{6, L"No application title information found for chrome.exe"}));
}

class JudgingMetaData : public Judging {
 protected:
  JudgingMetaData() {
    response_.isValid = true;
    response_.sha256Hex = L"sha";
    response_.md5Hex = L"md5";
    response_.fileSize = 0x100000001;
    response_.extraText = L"extra";
  }

  FileMetaData Judge() { return JudgeMetaData(response_, L"\\\\s\\f", status_); }

  void ExpectNothing(const FileMetaData& metaData) {
    EXPECT_EQ(metaData.sha256Hex, L"");
    EXPECT_EQ(metaData.md5Hex, L"");
    EXPECT_EQ(metaData.fileSize, 0U);
    EXPECT_EQ(metaData.extraText, L"");
  }

  ResponseMessageMetaData response_{L"id"};
};

TEST_F(JudgingMetaData, ReturnsIt) {
  const FileMetaData metaData = Judge();
  EXPECT_EQ(metaData.sha256Hex, L"sha");
  EXPECT_EQ(metaData.md5Hex, L"md5");
  EXPECT_EQ(metaData.fileSize, 0x100000001U);
  EXPECT_EQ(metaData.extraText, L"extra");
  EXPECT_EQ(status_, L"BEFORE");
  EXPECT_THAT(log_.Take(), ElementsAre(LogLine{6, L"Received metadata"}));
}

TEST_F(JudgingMetaData, NamesTheCodeFirst) {
  response_.responseCode = METADATA_FILE_DOES_NOT_EXIST;
  response_.isValid = false;
  ExpectNothing(Judge());
  EXPECT_EQ(status_, L"METADATA_FILE_DOES_NOT_EXIST");
  EXPECT_THAT(log_.Take(), ElementsAre(LogLine{3, L"Couldn't get metadata. Error code: 18"}));
}

TEST_F(JudgingMetaData, RefusesAnInvalidResponse) {
  response_.isValid = false;
  ExpectNothing(Judge());
  EXPECT_EQ(status_, L"METADATA_DESERIALIZE_FAILURE");
  EXPECT_THAT(log_.Take(), ElementsAre(LogLine{3, L"Couldn't deserialize metadata message"}));
}

TEST_F(JudgingMetaData, KeepsTheSizeOfAFileWithoutADigest) {
  for (std::wstring* digest : {&response_.sha256Hex, &response_.md5Hex}) {
    digest->clear();
    status_ = L"BEFORE";
    const FileMetaData metaData = Judge();
    EXPECT_EQ(metaData.fileSize, 0x100000001U);
    EXPECT_EQ(metaData.extraText, L"extra");
    EXPECT_EQ(status_, L"METADATA_FILE_NOT_FOUND");
    EXPECT_THAT(EnterStatusAndTakeLog("metadata with an empty digest, which no answer that can be read has",
                                      "JudgeMetaData"),
                ElementsAre(LogLine{6, L"Unable to find file \\\\s\\f"}));
    *digest = L"digest";
  }
}

const char* const COMPLAINT = "a status word beside a pipe's name, where a failure throws instead";

class JudgingAChannel : public Judging {};

TEST_F(JudgingAChannel, TakesOneWithoutAComplaint) {
  EXPECT_TRUE(JudgeAutoProxyChannel(L"", &error_));
  EXPECT_TRUE(JudgeCloudLoginChannel(L"", &error_));
  EXPECT_EQ(Outcome(), L"");
}

TEST_F(JudgingAChannel, OfTheProxyRefusesOneWithAComplaint) {
  EXPECT_FALSE(JudgeAutoProxyChannel(L"WORD_%s", &error_));
  EXPECT_EQ(
      Outcome(),
      L"error: PROXY:: Unable to get auto proxy configuration url, error creating pipe (status=WORD_%s).");
  EnterOutcome(COMPLAINT, "JudgeAutoProxyChannel");
}

TEST_F(JudgingAChannel, OfACloudLoginRefusesOneWithAComplaint) {
  EXPECT_FALSE(JudgeCloudLoginChannel(L"WORD_%s", &error_));
  EXPECT_EQ(Outcome(),
            L"error: CLOUDLOGIN:: Unable to get cloud login, error creating pipe (status=WORD_%s).");
  EnterOutcome(COMPLAINT, "JudgeCloudLoginChannel");
}

class JudgingAProxyUrl : public Judging {
 protected:
  std::wstring Judge() {
    JudgeAutoProxyConfigUrl(response_, L"received", &result_, &error_);
    EXPECT_THAT(log_.Take(), IsEmpty());
    return Outcome();
  }

  ResponseMessageAutoProxyConfigUrl response_{L"id"};
};

TEST_F(JudgingAProxyUrl, ReturnsIt) {
  response_.isValid = true;
  response_.responseCode = SUCCESS;
  response_.url = L"http://%s/pac";
  EXPECT_EQ(Judge(), L"result: http://%s/pac");
}

TEST_F(JudgingAProxyUrl, ReturnsNeitherOutputForAnEmptyOne) {
  response_.isValid = true;
  response_.responseCode = SUCCESS;
  EXPECT_EQ(Judge(), L"");
}

TEST_F(JudgingAProxyUrl, ReturnsTheHelpersExplanationOfACodeAsTheError) {
  response_.isValid = true;
  response_.responseCode = PROXY_ERROR_GETTING_AUTO_CONFIG_URL;
  response_.url = L"why %d";
  EXPECT_EQ(Judge(), L"error: why %d");
}

TEST_F(JudgingAProxyUrl, ReturnsAnEmptyExplanationToo) {
  response_.isValid = true;
  EXPECT_EQ(Judge(), L"error: ");
}

TEST_F(JudgingAProxyUrl, RefusesAnInvalidResponseWhateverItsCode) {
  for (const ResponseCode code : {SUCCESS, PROXY_CANNOT_READ_MESSAGE}) {
    response_.responseCode = code;
    EXPECT_EQ(Judge(), L"error: PROXY:: Couldn't deserialize AutoProxyConfigUrl message: received");
    OstrelFilterLibUtil::DeallocStringPointer(&error_);
    error_ = nullptr;
  }
}

TEST_F(JudgingAProxyUrl, CutsAnErrorThatIsLongerThanAReturnedString) {
  JudgeAutoProxyConfigUrl(response_, std::wstring(3000, L'r'), &result_, &error_);
  ASSERT_NE(error_, nullptr);
  EXPECT_EQ(std::wstring(error_).size(), 2046U);
}

class JudgingACloudLogin : public Judging {
 protected:
  std::wstring Judge() {
    JudgeCloudStorageProviderLogin(response_, L"received", &result_, &error_);
    EXPECT_THAT(log_.Take(), IsEmpty());
    return Outcome();
  }

  ResponseMessageCloudStorageProviderLogin response_{L"id"};
};

TEST_F(JudgingACloudLogin, ReturnsIt) {
  response_.isValid = true;
  response_.login = L"ann@%s";
  EXPECT_EQ(Judge(), L"result: ann@%s");
}

TEST_F(JudgingACloudLogin, ReturnsNeitherOutputForAnEmptyOne) {
  response_.isValid = true;
  EXPECT_EQ(Judge(), L"");
}

TEST_F(JudgingACloudLogin, RefusesAnInvalidResponseWhateverItsCode) {
  for (const ResponseCode code : {SUCCESS, CLOUDLOGIN_INCORRECT_MESSAGE_TYPE, TABTITLE_COMMAND_ID}) {
    response_.responseCode = code;
    EXPECT_EQ(Judge(), L"error: CLOUDLOGIN:: Couldn't deserialize cloud Login message: received");
    OstrelFilterLibUtil::DeallocStringPointer(&error_);
    error_ = nullptr;
  }
}

TEST_F(JudgingACloudLogin, HasATextOfItsOwnForEachOfTheCodes8To16) {
  const wchar_t* const texts[] = {
      L"error: CLOUDLOGIN:: Incorrect CloudStorageProvider Type",
      L"error: CLOUDLOGIN:: OneDrive Installation Path does not match Registry entries",
      L"error: CLOUDLOGIN:: No OneDrive Accounts found in Registry",
      L"error: CLOUDLOGIN:: No Micrsoft Account Last Logged on user found in Registry",
      L"error: CLOUDLOGIN:: OneDrive install path does not match skydrive UserFolder in Registry",
      L"error: CLOUDLOGIN:: No Skydrive UserFolder found in registry",
      L"error: CLOUDLOGIN:: No Security Identifier found in Registry while fetching ICloud Login",
      L"error: CLOUDLOGIN::  No Security Identifier found for given home directory in Registry while "
      L"fetching "
      L"ICloud Login",
      L"error: CLOUDLOGIN::  Could not find signin value in Registry while fetching ICloud Login",
  };
  response_.isValid = true;
  response_.login = L"the helper's own";
  int code = 8;
  for (const wchar_t* const text : texts) {
    response_.responseCode = static_cast<ResponseCode>(code);
    EXPECT_EQ(Judge(), text);
    EnterOutcome("code " + std::to_string(code), "JudgeCloudStorageProviderLogin");
    ++code;
    OstrelFilterLibUtil::DeallocStringPointer(&error_);
    error_ = nullptr;
  }
  EXPECT_EQ(code, 17);
}

TEST_F(JudgingACloudLogin, ReturnsTheHelpersExplanationOfEveryOtherCode) {
  response_.isValid = true;
  response_.login = L"why %d";
  for (const int code : {1, 7, 17, 18, 27, 28, -1}) {
    response_.responseCode = static_cast<ResponseCode>(code);
    EXPECT_EQ(Judge(), L"error: why %d") << code;
    EnterOutcome("a code outside of 8 to 16, with the explanation \"why %d\"",
                 "JudgeCloudStorageProviderLogin");
    OstrelFilterLibUtil::DeallocStringPointer(&error_);
    error_ = nullptr;
  }
}

}  // namespace
