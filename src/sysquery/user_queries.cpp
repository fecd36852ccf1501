#include "sysquery/user_queries.h"

#include <string>

#include "log/log.h"
#include "sysquery/wmi_query.h"
#include "util/ostrel_filter_lib_util.h"

namespace ostrel {

namespace {

void ReturnUserName(const wchar_t* userName, wchar_t** result) {
  Log(LOG_DETAIL, L"Domain with username: %s", userName);
  OstrelFilterLibUtil::AllocStringPointer(result, L"%s", userName);
}

}  // namespace

void GetCurrentUserNameAndDomain(wchar_t** result, wchar_t** error) {
  WmiQuery query(L"GetCurrentUserNameAndDomain");
  if (!query.Execute(L"SELECT * FROM Win32_ComputerSystem", error)) return;
  if (!query.HasResult()) return ReturnUserName(L"", result);
  HRESULT status = S_OK;
  IWbemClassObject* const computer = query.Next(&status);
  if (computer == nullptr) {
    OstrelFilterLibUtil::AllocStringPointer(
        error, L"GetCurrentUserNameAndDomain. Failed to find next object. %d", status);
    // What COM holds for this query stays held, by design of this call.
    query.Abandon();
    return;
  }
  ReturnUserName(WmiText(computer, L"UserName").Get(), result);
}

void GetAllUserDirectories(wchar_t** result, wchar_t** error) {
  WmiQuery query(L"GetAllUserDirectories");
  if (!query.Execute(L"SELECT * FROM Win32_UserProfile", error)) return;
  std::wstring directories;
  HRESULT status = S_OK;
  while (IWbemClassObject* const profile = query.HasResult() ? query.Next(&status) : nullptr) {
    directories += WmiText(profile, L"LocalPath").Get();
    directories += L';';
  }
  Log(LOG_DETAIL, L"List of all Directories (semi-colon delimited): %s", directories.c_str());
  OstrelFilterLibUtil::AllocStringPointer(result, L"%s", directories.c_str());
}

}  // namespace ostrel
