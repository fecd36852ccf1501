#include <gtest/gtest.h>

#include <cwchar>
#include <string>

#include "log/log.h"
#include "support/heap_watch.h"

namespace ostrel::test {

namespace {

// Allocates nothing itself.
struct LastLine {
  static inline wchar_t text[1024];
  static void Keep(const wchar_t* line, std::uint32_t) { std::wcscpy(text, line); }
};

TEST(ALogLine, TakesNothingFromTheHeap) {
  const std::wstring name(5000, L'n');
  SetLogSink(&LastLine::Keep, LOG_DETAIL);
  {
    const HeapWatch heap(GetModuleHandleW(nullptr));
    Log(LOG_DETAIL, L"%lu %d %x %s", 42UL, -3, 0x80070006U, L"a.txt");
    EXPECT_EQ(HeapWatch::Count(), 0);
    EXPECT_STREQ(LastLine::text, L"OstrelFilterDriver: 42 -3 80070006 a.txt");
    HeapWatch::Begin();
    Log(LOG_DETAIL, L"%s", name.c_str());
    EXPECT_EQ(HeapWatch::Count(), 0);
    HeapWatch::Begin();
    const std::wstring copy(name);
    EXPECT_EQ(HeapWatch::Count(), 1) << "nothing is counted";
    EXPECT_EQ(copy, name);
  }
  SetLogSink(nullptr, 0);
}

}  // namespace

}  // namespace ostrel::test
