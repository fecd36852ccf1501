#include "call_errors.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <string>
#include <vector>

namespace {

using ostrel::host::CallErrors;

DWORD WINAPI NoteFromAnotherThread(void* errors) {
  static_cast<CallErrors*>(errors)->Note(3, "from another thread");
  return 0;
}

TEST(CallErrorsTest, KeepsTheErrorLinesOfTheCallInOrder) {
  CallErrors errors;
  errors.Begin();
  errors.Note(3, "first");
  errors.Note(6, "notable");
  errors.Note(7, "detail");
  errors.Note(3, "second");
  EXPECT_EQ(errors.Take(), (std::vector<std::string>{"first", "second"}));
}

TEST(CallErrorsTest, LeavesOutWhatComesBeforeAndAfterTheCall) {
  CallErrors errors;
  errors.Note(3, "before");
  errors.Begin();
  EXPECT_TRUE(errors.Take().empty());
  errors.Note(3, "after");
  errors.Begin();
  EXPECT_TRUE(errors.Take().empty());
}

TEST(CallErrorsTest, LeavesOutOtherThreads) {
  CallErrors errors;
  errors.Begin();
  const HANDLE thread = CreateThread(nullptr, 0, NoteFromAnotherThread, &errors, 0, nullptr);
  ASSERT_NE(thread, nullptr);
  EXPECT_EQ(WaitForSingleObject(thread, 10000), WAIT_OBJECT_0);
  CloseHandle(thread);
  EXPECT_TRUE(errors.Take().empty());
}

}  // namespace
