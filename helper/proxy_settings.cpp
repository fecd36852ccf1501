#include "proxy_settings.h"

#include <windows.h>
// Needs windows.h before it.
#include <winhttp.h>

#include <string>

#include "util/unique_handle.h"

namespace ostrel::helper {

namespace {

struct GlobalTextPolicy {
  using Handle = wchar_t*;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle text) noexcept { GlobalFree(text); }
};
using UniqueGlobalText = UniqueHandle<GlobalTextPolicy>;

}  // namespace

TextAnswer ReadAutoProxyConfigUrl() {
  WINHTTP_CURRENT_USER_IE_PROXY_CONFIG settings{};
  if (!WinHttpGetIEProxyConfigForCurrentUser(&settings)) {
    const DWORD error = GetLastError();
    // A user without any settings.
    if (error == ERROR_FILE_NOT_FOUND) return {};
    return {ResponseCode::PROXY_ERROR_GETTING_AUTO_CONFIG_URL,
            L"The user's Internet settings cannot be read, error " + std::to_wstring(error) + L"."};
  }
  const UniqueGlobalText url(settings.lpszAutoConfigUrl);
  const UniqueGlobalText proxy(settings.lpszProxy);
  const UniqueGlobalText bypass(settings.lpszProxyBypass);
  return {ResponseCode::SUCCESS, url ? url.Get() : std::wstring()};
}

}  // namespace ostrel::helper
