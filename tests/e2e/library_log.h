#ifndef OSTREL_TESTS_E2E_LIBRARY_LOG_H
#define OSTREL_TESTS_E2E_LIBRARY_LOG_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ostrel::test {

// A packet record as the library says that it filed it.
struct FiledRecord {
  bool isUpload = false;
  bool isNewStream = false;
  std::wstring process;
  std::uint32_t ipv4 = 0;
  int port = 0;
  std::uint64_t bytes = 0;
  std::int64_t streamBytes = 0;  // together with those before
};

// Nothing when the line is about something else.
std::optional<FiledRecord> ReadFiledRecord(const std::wstring& line);

// What the library logs into this program, from all its threads. The library has one log callback without a
// context, and so there is one log.
class LibraryLog {
 public:
  static void Take(const wchar_t* text, std::uint32_t level);

  static void Forget();

  static std::vector<FiledRecord> FiledRecords();
  // How often that line was logged, such as "6 Started nw filter driver successfully.".
  static std::size_t Count(const std::wstring& levelAndText);
  // Every line of level 3.
  static std::vector<std::wstring> Errors();
};

}  // namespace ostrel::test

#endif
