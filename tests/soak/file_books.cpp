#include "soak/file_books.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace ostrel::test {

namespace {

constexpr std::int32_t READ = 0;
constexpr std::int32_t WRITE = 1;
constexpr std::int32_t FIRST_QUERY = 2;
constexpr std::int32_t LAST_QUERY = 3;
constexpr std::int32_t LAST_CLOUD = 9;

constexpr std::size_t MOST_ERRORS = 20;

// The image of the processes that die.
constexpr std::wstring_view MORTAL = L"mortal.exe";

std::string Narrowed(std::wstring_view text) {
  std::string narrow;
  for (const wchar_t character : text) narrow += character < 0x80 ? static_cast<char>(character) : '?';
  return narrow;
}

std::int64_t Number(std::wstring_view text) {
  const std::string digits = Narrowed(text);
  std::int64_t number = -1;
  std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return number;
}

// What follows `beginning`; nothing when the text begins otherwise.
std::optional<std::wstring_view> After(std::wstring_view beginning, std::wstring_view text) {
  if (!text.starts_with(beginning)) return std::nullopt;
  return text.substr(beginning.size());
}

// Cuts off and returns what stands before the mark.
std::wstring_view Cut(std::wstring_view& text, std::wstring_view mark) {
  const std::size_t at = std::min(text.find(mark), text.size());
  const std::wstring_view before = text.substr(0, at);
  text.remove_prefix(std::min(at + mark.size(), text.size()));
  return before;
}

}  // namespace

const char* NameOf(Ending ending) {
  static constexpr std::array<const char*, ENDINGS> NAMES{
      "of no interest", "process gone", "unknown type",    "query",           "withdrawing query",
      "no real upload", "merged",       "taken as merged", "reported",        "incomplete",
      "directory",      "duplicate",    "withdrawn",       "already reported"};
  return NAMES[static_cast<std::size_t>(ending)];
}

void FileBooks::Send(std::uint32_t number, std::wstring_view image, Silence silence) {
  const Lock::Holder holder(lock_);
  open_.emplace(number, OpenEvent{std::wstring(image), silence});
  ++sent_;
}

void FileBooks::TakeLine(std::wstring_view line) {
  const Lock::Holder holder(lock_);
  if (const auto rest = After(L"Received event: ", line)) return TakeReceived(*rest);
  if (After(L"Ignore Upload event. ", line)) return TakeNoRealUpload();
  if (After(L"Removed from Upload cache: ", line)) return TakeWithdrawal();
  if (After(L"Unhandled message from driver: ", line)) return End(received_, Ending::UNKNOWN_TYPE);
  if (const auto rest = After(L"Detected file use by monitored process ", line)) return TakeDetection(*rest);
  if (const auto rest = After(L"Uploaded file ", line)) return TakeReadSize(*rest);
  if (After(L"Incomplete upload for ", line)) return TakeIncomplete();
  if (After(L"Event suppressed. Filename is a directory.", line)) ++directories_;
  for (const auto* beginning : {L"Outgoing Event suppressed. Duplicate event. ",
                                L"Event suppressed from outgoing events. Duplicate event. ",
                                L"Event suppressed from cache. Duplicate event. "}) {
    if (const auto rest = After(beginning, line)) return TakeDuplicate(*rest);
  }
}

// Process id, file, process, type, detail, network flag and read size.
void FileBooks::TakeReceived(std::wstring_view rest) {
  const std::wstring_view line = rest;
  Cut(rest, L" ");
  const std::wstring_view file = Cut(rest, L" ");
  const std::wstring_view process = Cut(rest, L" ");
  const auto type = static_cast<std::int32_t>(Number(Cut(rest, L" ")));
  received_ = static_cast<std::uint32_t>(Number(Cut(rest, L" ")));
  const auto event = open_.find(received_);
  if (event == open_.end()) return AddError("received, but not sent or not any more: ", line);
  Silence& silence = event->second.silence;
  if (!process.ends_with(L"\\" + event->second.image)) AddError("received from another process: ", line);
  if (silence == Silence::OF_NO_INTEREST || silence == Silence::GONE) AddError("received: ", line);
  // From now on it ends like any other.
  if (silence == Silence::MAYBE_GONE) silence = Silence::NONE;
  File(type, file, process);
}

void FileBooks::File(std::int32_t type, std::wstring_view file, std::wstring_view process) {
  receivedKey_ = {Cache::UPLOADS, std::wstring(file), std::wstring(process)};
  if (type >= FIRST_QUERY && type <= LAST_QUERY) return End(received_, Ending::QUERY);
  if (type < READ || type > LAST_CLOUD) return;  // a line of its own follows
  if (type == WRITE) {
    const auto uploads = entries_.find(receivedKey_);
    if (uploads != entries_.end()) ++uploads->second.generation;
  }
  if (type != READ) receivedKey_.cache = type == WRITE ? Cache::DOWNLOADS : Cache::CLOUD;
  Entry& entry = entries_[receivedKey_];
  entry.filed.push_back({received_, entry.generation});
}

void FileBooks::TakeWithdrawal() {
  const auto uploads = entries_.find(receivedKey_);
  if (uploads != entries_.end()) ++uploads->second.generation;
  --ended_[static_cast<std::size_t>(Ending::QUERY)];
  ++ended_[static_cast<std::size_t>(Ending::WITHDRAWING_QUERY)];
}

void FileBooks::TakeNoRealUpload() {
  entries_[receivedKey_].filed.pop_back();
  End(received_, Ending::NO_REAL_UPLOAD);
}

void FileBooks::TakeDetection(std::wstring_view rest) {
  reporting_.file = Cut(rest, L": ");
  reporting_.process = Cut(rest, L": ");
}

void FileBooks::TakeReadSize(std::wstring_view rest) {
  const std::wstring_view file = Cut(rest, L". ");
  reporting_.reads = static_cast<std::size_t>(Number(Cut(rest, L" of ")));
  if (file != reporting_.file) AddError("read size of another file than detected: ", file);
}

void FileBooks::TakeIncomplete() {
  const Key key{Cache::UPLOADS, reporting_.file, reporting_.process};
  std::vector<Filed>& filed = entries_[key].filed;
  if (reporting_.reads > filed.size()) return AddError("incomplete with more reads than sent: ", key.file);
  const auto end = filed.cbegin() + static_cast<std::ptrdiff_t>(reporting_.reads);
  EndTogether(filed.cbegin(), end, Ending::INCOMPLETE, Ending::MERGED);
  filed.erase(filed.cbegin(), end);
}

void FileBooks::TakeDuplicate(std::wstring_view file) {
  ++duplicates_[std::wstring(file)];
}

void FileBooks::TakeReport(const Told& told) {
  const Lock::Holder holder(lock_);
  const auto number = static_cast<std::uint32_t>(told.endTime - dueTime_);
  const auto kind = static_cast<std::int32_t>(told.type);
  // Of a process that is about to go the user may not be had any more.
  const bool isMortal = told.process.ends_with(MORTAL);
  if (told.user != user_ && !(isMortal && told.user == L"User not identified")) {
    AddError("reported of user " + Narrowed(told.user) + ": ", told.file);
  }
  const Cache cache = kind == READ ? Cache::UPLOADS : kind == WRITE ? Cache::DOWNLOADS : Cache::CLOUD;
  Report(cache, told.file, told.process, number);
}

void FileBooks::Report(Cache cache, std::wstring_view file, std::wstring_view process, std::uint32_t number) {
  const Key key{cache, std::wstring(file), std::wstring(process)};
  Entry& entry = entries_[key];
  const auto last = std::find_if(entry.filed.cbegin(), entry.filed.cend(),
                                 [number](const Filed& filed) { return filed.number == number; });
  if (last == entry.filed.cend()) return AddError("reported, but not cached: ", file);
  Span begin = EndEarlierGenerations(entry, last->generation);
  if (cache == Cache::UPLOADS) begin = EndDuplicateBefore(key.file, begin, last + 1, reporting_.reads);
  EndTogether(begin, last + 1, Ending::REPORTED,
              cache == Cache::UPLOADS ? Ending::MERGED : Ending::TAKEN_AS_MERGED);
  entry.filed.erase(entry.filed.cbegin(), last + 1);
}

FileBooks::Span FileBooks::EndEarlierGenerations(const Entry& entry, std::uint32_t generation) {
  Span begin = entry.filed.cbegin();
  while (begin != entry.filed.cend() && begin->generation < generation) {
    const auto end = std::find_if(begin, entry.filed.cend(), [begin](const Filed& filed) {
      return filed.generation != begin->generation;
    });
    EndTogether(begin, end, Ending::WITHDRAWN);
    begin = end;
  }
  return begin;
}

// Reads that are no part of the report were a cached event of their own, which gave way to a duplicate.
FileBooks::Span FileBooks::EndDuplicateBefore(const std::wstring& file, Span begin, Span end,
                                              std::size_t reads) {
  const auto cached = static_cast<std::size_t>(end - begin);
  if (cached == reads) return begin;
  const auto duplicate = duplicates_.find(file);
  if (cached < reads || duplicate == duplicates_.end() || duplicate->second == 0) {
    AddError("reported with " + std::to_string(reads) + " instead of " + std::to_string(cached) + " reads: ",
             file);
    return begin;
  }
  --duplicate->second;
  const Span first = end - static_cast<std::ptrdiff_t>(reads);
  EndTogether(begin, first, Ending::DUPLICATE);
  return first;
}

bool FileBooks::HasEnded(std::uint32_t number) {
  const Lock::Holder holder(lock_);
  return !open_.contains(number);
}

void FileBooks::CloseRound() {
  const Lock::Holder holder(lock_);
  for (auto& [key, entry] : entries_) CloseEntry(key, entry);
  std::erase_if(entries_, [](const auto& entry) { return entry.second.filed.empty(); });

  std::vector<std::pair<std::uint32_t, Silence>> open;
  for (const auto& [number, event] : open_) open.emplace_back(number, event.silence);
  for (const auto& [number, silence] : open) {
    if (silence == Silence::OF_NO_INTEREST) End(number, Ending::OF_NO_INTEREST);
    if (silence == Silence::GONE || silence == Silence::MAYBE_GONE) End(number, Ending::PROCESS_GONE);
    if (silence == Silence::NONE) AddError("never ended: " + std::to_string(number), L"");
  }
  for (const auto& [file, count] : duplicates_) {
    if (count != 0) AddError(std::to_string(count) + " duplicates too many: ", file);
  }
  duplicates_.clear();
  if (directories_ != 0) AddError(std::to_string(directories_) + " directories too many", L"");
  directories_ = 0;
}

void FileBooks::CloseEntry(const Key& key, Entry& entry) {
  const Span begin = EndEarlierGenerations(entry, entry.generation);
  const Span end = entry.filed.cend();
  if (begin != end) {
    const auto event = open_.find(begin->number);
    const Silence silence = event == open_.end() ? Silence::NONE : event->second.silence;
    if (silence == Silence::KEPT) return;
    if (silence == Silence::NONE) AddError("still cached: ", key.file);
    if (silence == Silence::ALREADY_REPORTED) EndTogether(begin, end, Ending::ALREADY_REPORTED);
    if (silence == Silence::DIRECTORY) {
      if (directories_-- == 0) AddError("a directory is still cached: ", key.file);
      EndTogether(begin, end, Ending::DIRECTORY);
    }
    if (silence == Silence::DUPLICATE) {
      if (duplicates_[key.file]-- == 0) AddError("a duplicate is still cached: ", key.file);
      EndTogether(begin, end, Ending::DUPLICATE);
    }
  }
  entry.filed.clear();
}

void FileBooks::EndTogether(Span begin, Span end, Ending ending, Ending merged) {
  for (; begin != end; ++begin) End(begin->number, begin + 1 == end ? ending : merged);
}

void FileBooks::End(std::uint32_t number, Ending ending) {
  if (open_.erase(number) == 0) {
    return AddError("ended twice: " + std::to_string(number) + " " + NameOf(ending), L"");
  }
  ++ended_[static_cast<std::size_t>(ending)];
}

std::uint64_t FileBooks::Sent() {
  const Lock::Holder holder(lock_);
  return sent_;
}

FileBooks::Counts FileBooks::Ended() {
  const Lock::Holder holder(lock_);
  return ended_;
}

std::uint64_t FileBooks::Cached() {
  const Lock::Holder holder(lock_);
  std::uint64_t cached = 0;
  for (const auto& [key, entry] : entries_) cached += entry.filed.size();
  return cached;
}

std::vector<std::string> FileBooks::Errors() {
  const Lock::Holder holder(lock_);
  return errors_;
}

void FileBooks::AddError(const std::string& what, std::wstring_view about) {
  if (errors_.size() < MOST_ERRORS) errors_.push_back(what + Narrowed(about));
}

}  // namespace ostrel::test
