// Titles of this program's own windows, on the real desktop. Under Wine that needs an X display.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <cwchar>
#include <string>
#include <vector>

#include "userhelper/process_metadata.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr wchar_t CLASS_NAME[] = L"STATIC";

class Window {
 public:
  Window(const wchar_t* title, DWORD style, HWND owner = nullptr)
      : handle_(CreateWindowExW(0, CLASS_NAME, title, WS_POPUP | WS_CAPTION | style, 0, 0, 100, 100, owner,
                                nullptr, nullptr, nullptr)) {
    EXPECT_NE(handle_, nullptr) << "error " << GetLastError();
    SetWindowPos(handle_, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
  }
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;
  ~Window() { DestroyWindow(handle_); }

  HWND Handle() const { return handle_; }

 private:
  HWND handle_;
};

BOOL CALLBACK AddOwnTitle(HWND window, LPARAM parameter) {
  DWORD processId = 0;
  GetWindowThreadProcessId(window, &processId);
  wchar_t title[64] = {};
  GetWindowTextW(window, title, 64);
  // The system makes a window of another class for the input of each thread.
  wchar_t className[16] = {};
  GetClassNameW(window, className, 16);
  if (processId == GetCurrentProcessId() && _wcsicmp(className, CLASS_NAME) == 0) {
    reinterpret_cast<std::vector<std::wstring>*>(parameter)->push_back(title);
  }
  return TRUE;
}

class TheMainWindow : public ::testing::Test {
 protected:
  // This program's windows as the system lists them.
  static std::vector<std::wstring> Windows() {
    std::vector<std::wstring> titles;
    EnumWindows(AddOwnTitle, reinterpret_cast<LPARAM>(&titles));
    return titles;
  }

  static std::vector<std::wstring> Titles() {
    ResponseCode code = SUCCESS;
    return ProcessMetadata(GetCurrentProcessId(), L"program.exe").GetTabTitles(&code);
  }
};

TEST_F(TheMainWindow, IsVisibleWithATitleAndNoOwner) {
  const Window main(L"Main", WS_VISIBLE);
  const Window dialog(L"Dialog", WS_VISIBLE, main.Handle());
  const Window hidden(L"Hidden", 0);
  const Window untitled(L"", WS_VISIBLE);
  ASSERT_THAT(Windows(), ElementsAre(L"", L"Hidden", L"Dialog", L"Main"));
  EXPECT_EQ(ProcessMetadata::IsMainWindow(main.Handle()), 1);
  EXPECT_EQ(ProcessMetadata::IsMainWindow(dialog.Handle()), 0);
  EXPECT_EQ(ProcessMetadata::IsMainWindow(hidden.Handle()), 0);
  EXPECT_EQ(ProcessMetadata::IsMainWindow(untitled.Handle()), 1);
  EXPECT_THAT(Titles(), ElementsAre(L"Main"));
}

TEST_F(TheMainWindow, IsTheFirstInTheSystemsOrder) {
  const Window first(L"First made", WS_VISIBLE);
  const Window second(L"Second made", WS_VISIBLE);
  ASSERT_THAT(Windows(), ElementsAre(L"Second made", L"First made"));
  EXPECT_THAT(Titles(), ElementsAre(L"Second made"));
}

TEST_F(TheMainWindow, IsMissingWhenNoWindowCounts) {
  const Window hidden(L"Hidden", 0);
  ASSERT_THAT(Windows(), ElementsAre(L"Hidden"));
  EXPECT_THAT(Titles(), IsEmpty());
}

TEST_F(TheMainWindow, IsNoWindowThatHasGone) {
  HWND gone = nullptr;
  {
    const Window window(L"Main", WS_VISIBLE);
    gone = window.Handle();
    EXPECT_EQ(ProcessMetadata::IsMainWindow(gone), 1);
  }
  EXPECT_EQ(ProcessMetadata::IsMainWindow(gone), 0);
}

}  // namespace

}  // namespace ostrel::test
