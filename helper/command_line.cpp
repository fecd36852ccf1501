#include "command_line.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace ostrel::helper {

namespace {

constexpr std::size_t LONGEST_IDENTIFIER = 64;

const char* const HELP =
    "OstrelUserHelper is started by OstrelFilterLib.dll in the session of the logged-in user. It answers\n"
    "one request over a named pipe and ends; there is no use in starting it by hand.\n"
    "\n"
    "Its whole command line, without a program name in front, is\n"
    "  COMMAND-ID CHANNEL-NAME\n"
    "each of 1 to 64 ASCII letters and digits. The request must carry the same command id; the pipe is\n"
    "\\\\.\\pipe\\OstrelUserHelper\\CHANNEL-NAME.\n"
    "\n"
    "Exit codes:\n"
    "  0  answered, be it with an error code\n"
    "  1  unexpected error\n"
    "  2  wrong command line\n"
    "  3  the pipe could not be created, for example because it exists already\n"
    "  4  nobody connected in time\n"
    "  5  somebody connected, but nobody with the command id in time\n"
    "  6  the answer was not fetched, or not in time\n"
    "  7  the answer took too long\n";

const char* const USAGE =
    "OstrelUserHelper: the command line must be COMMAND-ID CHANNEL-NAME, each of 1 to 64 ASCII letters and\n"
    "digits, with no program name in front. OstrelUserHelper.exe --help tells more.\n";

constexpr bool IsBlank(wchar_t character) {
  return character == L' ' || character == L'\t';
}

std::vector<std::wstring_view> Words(std::wstring_view text) {
  std::vector<std::wstring_view> words;
  for (auto word = text.begin(); word != text.end();) {
    word = std::find_if_not(word, text.end(), IsBlank);
    const auto end = std::find_if(word, text.end(), IsBlank);
    if (word != end) words.emplace_back(word, end);
    word = end;
  }
  return words;
}

// No other character belongs into a pipe's name or can be taken for an option.
constexpr bool IsLetterOrDigit(wchar_t character) {
  return (character >= L'0' && character <= L'9') || (character >= L'a' && character <= L'z') ||
         (character >= L'A' && character <= L'Z');
}

bool IsIdentifier(std::wstring_view word) {
  return !word.empty() && word.size() <= LONGEST_IDENTIFIER &&
         std::all_of(word.begin(), word.end(), IsLetterOrDigit);
}

// At whatever place: a shell puts the program's name in front.
bool AsksForHelp(const std::vector<std::wstring_view>& words) {
  return std::any_of(words.begin(), words.end(), [](std::wstring_view word) {
    return word == L"--help" || word == L"-h" || word == L"/?";
  });
}

}  // namespace

CommandLine ParseCommandLine(std::wstring_view whole) {
  const std::vector<std::wstring_view> words = Words(whole);
  if (AsksForHelp(words)) return {.launch = {}, .exitCode = ExitCode::Answered, .text = HELP};
  if (words.size() != 2 || !IsIdentifier(words[0]) || !IsIdentifier(words[1])) {
    return {.launch = {}, .exitCode = ExitCode::Usage, .text = USAGE};
  }
  return {.launch = Launch{std::wstring(words[0]), std::wstring(words[1])},
          .exitCode = ExitCode::Answered,
          .text = {}};
}

}  // namespace ostrel::helper
