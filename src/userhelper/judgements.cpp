#include "userhelper/judgements.h"

#include "log/log.h"
#include "util/ostrel_filter_lib_util.h"

namespace ostrel {

namespace {

// Null for the codes whose explanation is the helper's own.
const wchar_t* CloudLoginErrorText(ResponseCode code) {
  // These texts are known to hosts, spelling and blanks included.
  switch (code) {
    case CLOUDLOGIN_INCORRECT_CLOUD_STORAGE_PROVIDER_TYPE:
      return L"CLOUDLOGIN:: Incorrect CloudStorageProvider Type";
    case CLOUDLOGIN_ONE_DRIVE_INSTALL_PATH_NOT_FOUND_IN_REGISTRY:
      return L"CLOUDLOGIN:: OneDrive Installation Path does not match Registry entries";
    case CLOUDLOGIN_NO_ONEDRIVE_ACCOUNTS_IN_REGISTRY:
      return L"CLOUDLOGIN:: No OneDrive Accounts found in Registry";
    case CLOUDLOGIN_MICROSOFT_ACCOUNT_LAST_LOGGED_ON_USER_NOT_IN_REGISTRY:
      return L"CLOUDLOGIN:: No Micrsoft Account Last Logged on user found in Registry";
    case CLOUDLOGIN_ONE_DRIVE_INSTALL_PATH_DOESNOT_MATCH_SKY_DRIVE_USER_FOLDER:
      return L"CLOUDLOGIN:: OneDrive install path does not match skydrive UserFolder in Registry";
    case CLOUDLOGIN_NO_SKYDRIVE_USER_FOLDER_IN_REGISTRY:
      return L"CLOUDLOGIN:: No Skydrive UserFolder found in registry";
    case CLOUDLOGIN_NO_SECURITY_IDENTIFIERS_FOUND_IN_REGISTRY:
      return L"CLOUDLOGIN:: No Security Identifier found in Registry while fetching ICloud Login";
    case CLOUDLOGIN_NO_SECURITY_IDENTIFIER_FOUND_FOR_USER_HOME_DIR_IN_REGISTRY:
      return L"CLOUDLOGIN::  No Security Identifier found for given home directory in Registry while "
             L"fetching "
             L"ICloud Login";
    case CLOUDLOGIN_NO_SIGNIN_VALUE_IN_REGISTRY:
      return L"CLOUDLOGIN::  Could not find signin value in Registry while fetching ICloud Login";
    default:
      return nullptr;
  }
}

}  // namespace

std::vector<std::wstring> JudgeTabTitles(const ResponseMessageTabTitles& response,
                                         const std::wstring& processName, std::wstring& status) {
  if (response.responseCode != SUCCESS) {
    status = ResponseCodeToString(response.responseCode);
    Log(LOG_ERROR, L"Couldn't get tab titles. Error code: %d", response.responseCode);
    return {};
  }
  if (!response.isValid) {
    status = L"TABTITLE_DESERIALIZE_FAILURE";
    Log(LOG_ERROR, L"Couldn't deserialize tab title message");
    return {};
  }
  if (response.titles.empty()) {
    status = L"TABTITLE_NO_TITLE_FOUND";
    Log(LOG_NOTABLE, L"No application title information found for %s", processName.c_str());
  } else {
    Log(LOG_NOTABLE, L"Received application title information");
  }
  return response.titles;
}

FileMetaData JudgeMetaData(const ResponseMessageMetaData& response, const std::wstring& filePath,
                           std::wstring& status) {
  if (response.responseCode != SUCCESS) {
    status = ResponseCodeToString(response.responseCode);
    Log(LOG_ERROR, L"Couldn't get metadata. Error code: %d", response.responseCode);
    return {};
  }
  if (!response.isValid) {
    status = L"METADATA_DESERIALIZE_FAILURE";
    Log(LOG_ERROR, L"Couldn't deserialize metadata message");
    return {};
  }
  if (response.sha256Hex.empty() || response.md5Hex.empty()) {
    status = L"METADATA_FILE_NOT_FOUND";
    Log(LOG_NOTABLE, L"Unable to find file %s", filePath.c_str());
  } else {
    Log(LOG_NOTABLE, L"Received metadata");
  }
  return {response.sha256Hex, response.md5Hex, response.fileSize, response.extraText};
}

bool JudgeAutoProxyChannel(const std::wstring& status, wchar_t** error) {
  if (status.empty()) return true;
  OstrelFilterLibUtil::AllocStringPointer(
      error, L"PROXY:: Unable to get auto proxy configuration url, error creating pipe (status=%s).",
      status.c_str());
  return false;
}

bool JudgeCloudLoginChannel(const std::wstring& status, wchar_t** error) {
  if (status.empty()) return true;
  OstrelFilterLibUtil::AllocStringPointer(
      error, L"CLOUDLOGIN:: Unable to get cloud login, error creating pipe (status=%s).", status.c_str());
  return false;
}

void JudgeAutoProxyConfigUrl(const ResponseMessageAutoProxyConfigUrl& response, const std::wstring& received,
                             wchar_t** result, wchar_t** error) {
  if (!response.isValid) {
    OstrelFilterLibUtil::AllocStringPointer(
        error, L"PROXY:: Couldn't deserialize AutoProxyConfigUrl message: %s", received.c_str());
  } else if (response.responseCode != SUCCESS) {
    OstrelFilterLibUtil::AllocStringPointer(error, L"%s", response.url.c_str());
  } else if (!response.url.empty()) {
    OstrelFilterLibUtil::AllocStringPointer(result, L"%s", response.url.c_str());
  }
}

void JudgeCloudStorageProviderLogin(const ResponseMessageCloudStorageProviderLogin& response,
                                    const std::wstring& received, wchar_t** result, wchar_t** error) {
  if (!response.isValid) {
    OstrelFilterLibUtil::AllocStringPointer(
        error, L"CLOUDLOGIN:: Couldn't deserialize cloud Login message: %s", received.c_str());
  } else if (response.responseCode != SUCCESS) {
    const wchar_t* const text = CloudLoginErrorText(response.responseCode);
    OstrelFilterLibUtil::AllocStringPointer(error, L"%s", text != nullptr ? text : response.login.c_str());
  } else if (!response.login.empty()) {
    OstrelFilterLibUtil::AllocStringPointer(result, L"%s", response.login.c_str());
  }
}

}  // namespace ostrel
