#include "e2e/library_log.h"

#include <algorithm>
#include <sstream>

#include "support/lock.h"

namespace ostrel::test {

namespace {

constexpr wchar_t PREFIX[] = L"OstrelFilterDriver: ";

struct {
  Lock lock;
  std::vector<std::wstring> lines;
  std::vector<FiledRecord> filed;
} taken;

// What follows `beginning`; nothing when the text begins otherwise.
std::optional<std::wstring> After(const std::wstring& beginning, const std::wstring& text) {
  if (!text.starts_with(beginning)) return std::nullopt;
  return text.substr(beginning.size());
}

}  // namespace

std::optional<FiledRecord> ReadFiledRecord(const std::wstring& line) {
  FiledRecord record;
  std::optional<std::wstring> rest = After(L"added network event: ", line);
  record.isNewStream = rest.has_value();
  if (!rest) rest = After(L"added to existing networkevent: ", line);
  if (!rest) return std::nullopt;

  std::wstring direction;
  std::wistringstream(*rest) >> direction;
  record.isUpload = direction == L"upload";
  // The process's path may have blanks and colons.
  std::size_t end = rest->rfind(L" currentBytes: ");
  end = rest->rfind(L": ", end == std::wstring::npos ? end : end - 1);
  record.process = rest->substr(direction.size() + 1, end - direction.size() - 1);

  std::wistringstream numbers(rest->substr(end + 2));
  wchar_t colon = 0;
  std::wstring label;
  numbers >> record.ipv4 >> colon >> record.port >> record.bytes;
  if (record.isNewStream) {
    record.streamBytes = static_cast<std::int64_t>(record.bytes);
  } else {
    numbers >> label >> record.streamBytes;
  }
  return numbers ? std::optional(record) : std::nullopt;
}

void LibraryLog::Take(const wchar_t* text, std::uint32_t level) {
  const std::wstring line = After(PREFIX, text).value_or(text);
  std::optional<FiledRecord> record = ReadFiledRecord(line);
  const Lock::Holder holder(taken.lock);
  if (record) {
    taken.filed.push_back(std::move(*record));
  } else {
    taken.lines.push_back(std::to_wstring(level) + L" " + line);
  }
}

void LibraryLog::Forget() {
  const Lock::Holder holder(taken.lock);
  taken.lines.clear();
  taken.filed.clear();
}

std::vector<FiledRecord> LibraryLog::FiledRecords() {
  const Lock::Holder holder(taken.lock);
  return taken.filed;
}

std::size_t LibraryLog::Count(const std::wstring& levelAndText) {
  const Lock::Holder holder(taken.lock);
  return static_cast<std::size_t>(std::count(taken.lines.begin(), taken.lines.end(), levelAndText));
}

std::vector<std::wstring> LibraryLog::Errors() {
  const Lock::Holder holder(taken.lock);
  std::vector<std::wstring> errors;
  std::copy_if(taken.lines.begin(), taken.lines.end(), std::back_inserter(errors),
               [](const std::wstring& line) { return line.starts_with(L"3 "); });
  return errors;
}

}  // namespace ostrel::test
