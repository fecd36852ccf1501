#include "proxy_settings.h"

#include <gtest/gtest.h>
#include <windows.h>
// Needs windows.h before it.
#include <winhttp.h>

#include <cwchar>
#include <set>

#include "support/import_table.h"

namespace {

using namespace ostrel;
using ostrel::helper::ReadAutoProxyConfigUrl;
using ostrel::helper::TextAnswer;
using ostrel::test::ImportPatch;

// What the user's settings are; the patched functions carry no context.
struct Settings {
  const wchar_t* url = nullptr;
  const wchar_t* proxy = nullptr;
  const wchar_t* bypass = nullptr;
  DWORD error = ERROR_SUCCESS;
  std::set<HGLOBAL> handedOut;
};
Settings* settings = nullptr;

wchar_t* HandOut(const wchar_t* text) {
  if (text == nullptr) return nullptr;
  auto* copy = static_cast<wchar_t*>(GlobalAlloc(GMEM_FIXED, (std::wcslen(text) + 1) * sizeof(wchar_t)));
  std::wcscpy(copy, text);
  settings->handedOut.insert(copy);
  return copy;
}

BOOL WINAPI ScriptedSettings(WINHTTP_CURRENT_USER_IE_PROXY_CONFIG* config) {
  SetLastError(settings->error);
  if (settings->error != ERROR_SUCCESS) return FALSE;
  config->fAutoDetect = TRUE;
  config->lpszAutoConfigUrl = HandOut(settings->url);
  config->lpszProxy = HandOut(settings->proxy);
  config->lpszProxyBypass = HandOut(settings->bypass);
  return TRUE;
}

HGLOBAL WINAPI RecordedGlobalFree(HGLOBAL block) {
  EXPECT_EQ(settings->handedOut.erase(block), 1U);
  return nullptr;
}

class TheProxySettings : public ::testing::Test {
 protected:
  TheProxySettings() { settings = &settings_; }
  ~TheProxySettings() override { EXPECT_TRUE(settings_.handedOut.empty()) << "not freed"; }

  void Expect(ResponseCode code, const std::wstring& text) {
    const TextAnswer answer = ReadAutoProxyConfigUrl();
    EXPECT_EQ(answer.code, code);
    EXPECT_EQ(answer.text, text);
  }

  Settings settings_;
  ImportPatch read_{GetModuleHandleW(nullptr), "WinHttpGetIEProxyConfigForCurrentUser",
                    reinterpret_cast<void*>(&ScriptedSettings)};
  ImportPatch free_{GetModuleHandleW(nullptr), "GlobalFree", reinterpret_cast<void*>(&RecordedGlobalFree)};
};

TEST_F(TheProxySettings, GiveTheUrlAndFreeEverything) {
  settings_.url = L"http://proxy.example/a.pac";
  settings_.proxy = L"proxy:8080";
  settings_.bypass = L"<local>";
  Expect(SUCCESS, L"http://proxy.example/a.pac");
}

TEST_F(TheProxySettings, GiveNoUrlWithAFixedProxyOnly) {
  settings_.proxy = L"proxy:8080";
  Expect(SUCCESS, L"");
}

TEST_F(TheProxySettings, GiveNoUrlToAUserWithoutSettings) {
  settings_.error = ERROR_FILE_NOT_FOUND;
  Expect(SUCCESS, L"");
}

TEST_F(TheProxySettings, GiveAnExplanationWhenTheyCannotBeRead) {
  settings_.error = ERROR_WINHTTP_INTERNAL_ERROR;
  Expect(PROXY_ERROR_GETTING_AUTO_CONFIG_URL, L"The user's Internet settings cannot be read, error 12004.");
}

}  // namespace
