#include "userhelper/response_code.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using ostrel::ResponseCodeToString;

struct Named {
  int number;
  ResponseCode code;
  const wchar_t* name;
};

constexpr Named ALL[] = {
#define NAMED(number, name) \
  { number, name, L"" #name }
    NAMED(0, SUCCESS),
    NAMED(1, TABTITLE_BAD_VERSION),
    NAMED(2, TABTITLE_COMMAND_ID),
    NAMED(3, TABTITLE_NOAPP_FRAME_HOST),
    NAMED(4, TABTITLE_MAIN_WINDOWS_NOT_FOUND),
    NAMED(5, TABTITLE_INCORRECT_MESSAGE_TYPE),
    NAMED(6, METADATA_INCORRECT_MESSAGE_TYPE),
    NAMED(7, CLOUDLOGIN_INCORRECT_MESSAGE_TYPE),
    NAMED(8, CLOUDLOGIN_INCORRECT_CLOUD_STORAGE_PROVIDER_TYPE),
    NAMED(9, CLOUDLOGIN_ONE_DRIVE_INSTALL_PATH_NOT_FOUND_IN_REGISTRY),
    NAMED(10, CLOUDLOGIN_NO_ONEDRIVE_ACCOUNTS_IN_REGISTRY),
    NAMED(11, CLOUDLOGIN_MICROSOFT_ACCOUNT_LAST_LOGGED_ON_USER_NOT_IN_REGISTRY),
    NAMED(12, CLOUDLOGIN_ONE_DRIVE_INSTALL_PATH_DOESNOT_MATCH_SKY_DRIVE_USER_FOLDER),
    NAMED(13, CLOUDLOGIN_NO_SKYDRIVE_USER_FOLDER_IN_REGISTRY),
    NAMED(14, CLOUDLOGIN_NO_SECURITY_IDENTIFIERS_FOUND_IN_REGISTRY),
    NAMED(15, CLOUDLOGIN_NO_SECURITY_IDENTIFIER_FOUND_FOR_USER_HOME_DIR_IN_REGISTRY),
    NAMED(16, CLOUDLOGIN_NO_SIGNIN_VALUE_IN_REGISTRY),
    NAMED(17, CLOUDLOGIN_ERROR_GETTING_CLOUD_LOGIN),
    NAMED(18, METADATA_FILE_DOES_NOT_EXIST),
    NAMED(19, METADATA_CANNOT_READ_FILE),
    NAMED(20, METADATA_ERROR_GETTING_FILE_SIZE),
    NAMED(21, PROXY_INCORRECT_MESSAGE_TYPE),
    NAMED(22, PROXY_PARSE_FAILURE),
    NAMED(23, PROXY_RESPONSE_ID_SIZE_ERROR),
    NAMED(24, PROXY_CANNOT_READ_MESSAGE),
    NAMED(25, PROXY_RESULT_SIZE_IS_NEGATIVE),
    NAMED(26, PROXY_ERROR_GETTING_AUTO_CONFIG_URL),
    NAMED(27, PROXY_UNKNOWN),
#undef NAMED
};

TEST(ResponseCodes, KeepTheirNumbersAndAreNamedAfterThemselves) {
  int next = 0;
  for (const Named& named : ALL) {
    EXPECT_EQ(named.number, next++);
    EXPECT_EQ(static_cast<int>(named.code), named.number);
    EXPECT_EQ(ResponseCodeToString(named.code), named.name);
  }
  EXPECT_EQ(next, 28);
}

TEST(ResponseCodes, OutsideTheTableAreAnUnknownError) {
  for (const int number : {28, -1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
    EXPECT_EQ(ResponseCodeToString(static_cast<ResponseCode>(number)), L"UNKNOWN_ERROR") << number;
  }
}

}  // namespace
