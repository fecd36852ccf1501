#include "support/transcript.h"

#include <algorithm>
#include <utility>

#include "support/failure_ledger.h"

namespace ostrel::test {

namespace {

// A log callback gets no context, so the transcript it writes to stands here.
Transcript* newest = nullptr;

constexpr std::wstring_view LOG_PREFIX = L"OstrelFilterDriver: ";

}  // namespace

std::string Narrow(std::wstring_view text) {
  std::string narrow;
  for (const wchar_t character : text) {
    if (character < 0x80) {
      narrow += static_cast<char>(character);
    } else {
      narrow += "<" + std::to_string(static_cast<unsigned>(character)) + ">";
    }
  }
  return narrow;
}

Transcript::Transcript() {
  newest = this;
}

Transcript::~Transcript() {
  if (newest == this) newest = nullptr;
}

void Transcript::Add(std::string line) {
  const DWORD error = GetLastError();
  FailureLedger::OfThisProgram().Happened(line);
  {
    Lock::Holder holder(lock_);
    entries_.push_back({GetCurrentThreadId(), std::move(line)});
    holder.Changed();
  }
  SetLastError(error);
}

Lines Transcript::Of(DWORD threadId) const {
  const Lock::Holder holder(lock_);
  Lines lines;
  for (const Entry& entry : entries_) {
    if (entry.threadId == threadId) lines.push_back(entry.text);
  }
  return lines;
}

Lines Transcript::StartingWith(std::string_view prefix) const {
  const Lock::Holder holder(lock_);
  Lines lines;
  for (const Entry& entry : entries_) {
    if (entry.text.starts_with(prefix)) lines.push_back(entry.text);
  }
  return lines;
}

bool Transcript::WaitFor(std::string_view prefix, std::size_t count,
                         std::chrono::milliseconds patience) const {
  Lock::Holder holder(lock_);
  const auto isReached = [&] {
    return static_cast<std::size_t>(std::count_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
             return entry.text.starts_with(prefix);
           })) >= count;
  };
  return holder.WaitFor(isReached, patience);
}

void Transcript::Clear() {
  const Lock::Holder holder(lock_);
  entries_.clear();
}

void Transcript::RecordLog(const wchar_t* text, std::uint32_t level) {
  if (newest == nullptr) return;
  std::wstring_view line(text);
  const std::string start = "log " + std::to_string(level) + " ";
  if (!line.starts_with(LOG_PREFIX)) {
    newest->Add(start + "WITHOUT PREFIX " + Narrow(line));
    return;
  }
  newest->Add(start + Narrow(line.substr(LOG_PREFIX.size())));
}

}  // namespace ostrel::test
