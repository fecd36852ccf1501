#include "soak/record_books.h"

#include <cstddef>
#include <string>

namespace ostrel::test {

namespace {

constexpr std::size_t MOST_ERRORS = 20;

// The last number of the text.
std::uint64_t LastNumber(std::wstring_view text) {
  std::uint64_t number = 0;
  for (const wchar_t character : text.substr(text.rfind(L' ') + 1)) {
    number = number * 10 + static_cast<std::uint64_t>(character - L'0');
  }
  return number;
}

}  // namespace

void RecordBooks::Send(std::uint64_t first, std::uint64_t count, const Sender& sender, Process process) {
  const Lock::Holder holder(lock_);
  if (open_.empty()) first_ = first;
  if (first != first_ + open_.size()) AddError("sent out of order", first);
  for (std::uint64_t i = 0; i < count; ++i) {
    const auto port = sender.port + static_cast<std::int32_t>(i % sender.ports);
    open_.push_back({sender.image, sender.isUpload, port, process});
  }
  isFiled_.resize(open_.size(), false);
  counts_.sent += count;
}

void RecordBooks::TakeLine(std::wstring_view line) {
  const Lock::Holder holder(lock_);
  if (line.starts_with(L"purged network event: ")) purgedBytes_ += LastNumber(line);
  for (const std::wstring_view beginning : {L"added network event: ", L"added to existing networkevent: "}) {
    if (!line.starts_with(beginning)) continue;
    line.remove_prefix(beginning.size());
    return TakeFiled(line.substr(0, line.rfind(L" currentBytes: ")));
  }
}

void RecordBooks::TakeFiled(std::wstring_view line) {
  const std::uint64_t number = LastNumber(line);
  if (number < first_ || number - first_ >= open_.size()) return AddError("filed, but not sent", number);
  const auto place = static_cast<std::size_t>(number - first_);
  if (isFiled_[place]) AddError("filed twice", number);
  if (open_[place].process == Process::IS_GONE) AddError("filed without its process", number);
  Compare(open_[place], line, number);
  isFiled_[place] = true;
  ++counts_.filed;
  filedBytes_ += number;
}

void RecordBooks::Compare(const Sent& sent, std::wstring_view line, std::uint64_t number) {
  if (!line.starts_with(sent.isUpload ? L"upload " : L"download "))
    AddError("of the other direction", number);
  const std::wstring_view endpoint = line.substr(0, line.rfind(L' '));
  const std::wstring image = L"\\" + std::wstring(sent.image) + L": ";
  if (line.find(image) == std::wstring_view::npos) AddError("of another process", number);
  if (!endpoint.ends_with(L":" + std::to_wstring(sent.port))) AddError("of another port", number);
}

bool RecordBooks::IsAllPurged() {
  const Lock::Holder holder(lock_);
  return purgedBytes_ == filedBytes_;
}

void RecordBooks::CloseRound() {
  const Lock::Holder holder(lock_);
  for (std::size_t place = 0; place < open_.size(); ++place) {
    if (isFiled_[place]) continue;
    ++counts_.dropped;
    if (open_[place].process == Process::RUNS) AddError("lost", first_ + place);
  }
  open_.clear();
  isFiled_.clear();
}

RecordBooks::Counts RecordBooks::Read() {
  const Lock::Holder holder(lock_);
  return counts_;
}

std::vector<std::string> RecordBooks::Errors() {
  const Lock::Holder holder(lock_);
  return errors_;
}

void RecordBooks::AddError(const std::string& what, std::uint64_t number) {
  if (errors_.size() < MOST_ERRORS) errors_.push_back("record " + std::to_string(number) + " " + what);
}

}  // namespace ostrel::test
