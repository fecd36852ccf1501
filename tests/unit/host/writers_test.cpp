#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "line_writer.h"
#include "log_writer.h"
#include "temporary_folder.h"
#include "windows_handle.h"

namespace {

using ostrel::host::LineWriter;
using ostrel::host::LogLine;
using ostrel::host::LogWriter;
using ostrel::host::WindowsHandle;
using ostrel_test::ReadWholeFile;
using ostrel_test::TemporaryFolder;

WindowsHandle Open(const std::filesystem::path& path, DWORD access) {
  return WindowsHandle(CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                   OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
}

constexpr int LINES_PER_THREAD = 200;

DWORD WINAPI WriteManyLines(void* writer) {
  const std::string line(100, static_cast<char>('a' + GetCurrentThreadId() % 26));
  for (int i = 0; i < LINES_PER_THREAD; ++i) static_cast<LineWriter*>(writer)->Write(line);
  return 0;
}

TEST(LineWriterTest, ALineIsInTheFileAsSoonAsItIsWritten) {
  const TemporaryFolder folder;
  const WindowsHandle file = Open(folder / L"out", GENERIC_WRITE);
  LineWriter writer(file.get());
  EXPECT_TRUE(writer.Write("one"));
  EXPECT_EQ(ReadWholeFile(folder / L"out"), "one\n");
  EXPECT_TRUE(writer.Write(""));
  EXPECT_EQ(ReadWholeFile(folder / L"out"), "one\n\n");
}

TEST(LineWriterTest, AHandleThatCannotBeWrittenIsReported) {
  const TemporaryFolder folder;
  const WindowsHandle file = Open(folder / L"out", GENERIC_READ);
  EXPECT_FALSE(LineWriter(file.get()).Write("one"));
  EXPECT_FALSE(LineWriter(nullptr).Write("one"));
}

TEST(LineWriterTest, AReaderThatWentAwayIsReported) {
  HANDLE reader = nullptr;
  HANDLE writer = nullptr;
  ASSERT_TRUE(CreatePipe(&reader, &writer, nullptr, 0));
  const WindowsHandle writeEnd(writer);
  CloseHandle(reader);
  EXPECT_FALSE(LineWriter(writeEnd.get()).Write("one"));
}

TEST(LineWriterTest, LinesOfSeveralThreadsStayWhole) {
  const TemporaryFolder folder;
  const WindowsHandle file = Open(folder / L"out", GENERIC_WRITE);
  LineWriter writer(file.get());
  HANDLE threads[4] = {};
  for (HANDLE& thread : threads) thread = CreateThread(nullptr, 0, WriteManyLines, &writer, 0, nullptr);
  EXPECT_EQ(WaitForMultipleObjects(4, threads, TRUE, 60000), WAIT_OBJECT_0);
  for (const HANDLE thread : threads) CloseHandle(thread);

  std::istringstream lines(ReadWholeFile(folder / L"out"));
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    ASSERT_EQ(line, std::string(100, line.empty() ? '?' : line.front()));
  }
  EXPECT_EQ(count, 4 * LINES_PER_THREAD);
}

TEST(LogLineTest, HasTimeLevelAndMessageInColumns) {
  EXPECT_EQ(LogLine(1795252665298, 3, "m"), "2026-11-21T09:17:45.298Z error  m");
  EXPECT_EQ(LogLine(1795252665298, 6, "m"), "2026-11-21T09:17:45.298Z info   m");
  EXPECT_EQ(LogLine(1795252665298, 7, "m"), "2026-11-21T09:17:45.298Z detail m");
}

TEST(LogWriterTest, TheFileGetsTheSameLinesAsTheConsole) {
  const TemporaryFolder folder;
  const WindowsHandle consoleFile = Open(folder / L"console", GENERIC_WRITE);
  const WindowsHandle logFile = Open(folder / L"log", GENERIC_WRITE);
  LineWriter console(consoleFile.get());
  LineWriter file(logFile.get());
  LogWriter(6, console, &file).Write(6, "loaded");
  const std::string line = ReadWholeFile(folder / L"console");
  EXPECT_EQ(line.substr(std::min(line.size(), std::size_t{24})), " info   loaded\n");
  EXPECT_EQ(ReadWholeFile(folder / L"log"), line);
}

TEST(LogWriterTest, LinesAboveTheLevelAreNotShown) {
  const TemporaryFolder folder;
  const WindowsHandle consoleFile = Open(folder / L"console", GENERIC_WRITE);
  LineWriter console(consoleFile.get());
  LogWriter log(3, console, nullptr);
  log.Write(6, "notable");
  log.Write(7, "detail");
  EXPECT_EQ(ReadWholeFile(folder / L"console"), "");
  log.Write(3, "failed");
  EXPECT_NE(ReadWholeFile(folder / L"console"), "");
}

TEST(LogWriterTest, WithoutAFileOnlyTheConsoleGetsLines) {
  const TemporaryFolder folder;
  const WindowsHandle consoleFile = Open(folder / L"console", GENERIC_WRITE);
  LineWriter console(consoleFile.get());
  LogWriter(6, console, nullptr).Write(3, "failed");
  const std::string line = ReadWholeFile(folder / L"console");
  EXPECT_EQ(line.substr(std::min(line.size(), std::size_t{24})), " error  failed\n");
}

}  // namespace
