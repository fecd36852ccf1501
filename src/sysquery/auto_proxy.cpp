#include <windows.h>
// Needs windows.h before it.
#include <winhttp.h>

#include "util/ostrel_filter_lib_util.h"

namespace {

void Free(wchar_t* text) {
  if (text != nullptr) GlobalFree(text);
}

void QueryAutoProxyConfigUrl(wchar_t** result, wchar_t** error) {
  WINHTTP_CURRENT_USER_IE_PROXY_CONFIG config{};
  if (!WinHttpGetIEProxyConfigForCurrentUser(&config)) {
    OstrelFilterLibUtil::AllocStringPointer(
        error, L"PROXY:: WinHttpGetIEProxyConfigForCurrentUser call returned FALSE with error %d.",
        GetLastError());
    return;
  }
  // A fixed proxy and automatic detection name no script.
  Free(config.lpszProxy);
  Free(config.lpszProxyBypass);
  if (config.lpszAutoConfigUrl == nullptr) return;
  OstrelFilterLibUtil::AllocStringPointer(result, L"%s", config.lpszAutoConfigUrl);
  GlobalFree(config.lpszAutoConfigUrl);
}

}  // namespace

void OstrelFilterLibUtil::GetAutoProxyConfigUrlForUser(wchar_t** result, wchar_t** error) {
  try {
    QueryAutoProxyConfigUrl(result, error);
  } catch (...) {
    AllocStringPointer(
        error, L"PROXY:: Exception occurred while attempting to get Windows auto proxy configuration url.");
  }
}
