// The session's titles on a desktop of the test's choosing; the other answers have tests of their own.
#include "windows_session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <cwchar>

#include "support/import_table.h"
#include "windows_registry.h"

namespace {

using namespace ostrel;
using namespace ostrel::helper;
using ostrel::test::ImportPatch;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr DWORD OWNER_OF_THE_WINDOW = 4512;
const wchar_t TITLE[] = L"News, today";

HWND TheWindow() {
  static int window;
  return reinterpret_cast<HWND>(&window);
}

BOOL WINAPI OneWindow(WNDENUMPROC visit, LPARAM context) {
  return visit(TheWindow(), context);
}
DWORD WINAPI ProcessOfWindow(HWND, DWORD* processId) {
  *processId = OWNER_OF_THE_WINDOW;
  return 1;
}
HWND WINAPI NoOwner(HWND, UINT) {
  return nullptr;
}
BOOL WINAPI Visible(HWND) {
  return TRUE;
}
int WINAPI TitleLength(HWND) {
  return static_cast<int>(std::wcslen(TITLE));
}
int WINAPI Title(HWND window, wchar_t* text, int) {
  std::wcscpy(text, TITLE);
  return TitleLength(window);
}

class TheSession : public ::testing::Test {
 protected:
  template <typename Function>
  static ImportPatch Patch(const char* name, Function replacement) {
    return {GetModuleHandleW(nullptr), name, reinterpret_cast<void*>(replacement)};
  }

  ImportPatch patches_[6] = {Patch("EnumWindows", &OneWindow),
                             Patch("GetWindowThreadProcessId", &ProcessOfWindow),
                             Patch("GetWindow", &NoOwner),
                             Patch("IsWindowVisible", &Visible),
                             Patch("GetWindowTextLengthW", &TitleLength),
                             Patch("GetWindowTextW", &Title)};
  WindowsRegistry registry_;
  WindowsSession session_{registry_, std::chrono::seconds(1)};
};

TEST_F(TheSession, HasTheTitleOfTheProcessThatOwnsTheWindow) {
  const TitlesAnswer answer = session_.Titles(OWNER_OF_THE_WINDOW, L"chrome.exe");
  EXPECT_EQ(answer.code, SUCCESS);
  EXPECT_THAT(answer.titles, ElementsAre(TITLE));
}

TEST_F(TheSession, HasNoTitleOfAnotherProcess) {
  const TitlesAnswer answer = session_.Titles(OWNER_OF_THE_WINDOW + 1, L"chrome.exe");
  EXPECT_EQ(answer.code, TABTITLE_MAIN_WINDOWS_NOT_FOUND);
  EXPECT_THAT(answer.titles, IsEmpty());
}

TEST_F(TheSession, HasNoTitleOfEdgeWithoutItsFrameHost) {
  const TitlesAnswer answer = session_.Titles(OWNER_OF_THE_WINDOW, L"MicrosoftEdgeCP.exe");
  EXPECT_EQ(answer.code, TABTITLE_NOAPP_FRAME_HOST);
  EXPECT_THAT(answer.titles, IsEmpty());
}

}  // namespace
