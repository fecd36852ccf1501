#ifndef OSTREL_LOG_LOG_H
#define OSTREL_LOG_LOG_H

#include <atomic>
#include <cstdint>

namespace ostrel {

// The only levels the library writes.
constexpr std::int32_t LOG_ERROR = 3;    // something failed
constexpr std::int32_t LOG_NOTABLE = 6;  // a state changed, or something was detected
constexpr std::int32_t LOG_DETAIL = 7;   // traces of single events, lists of configured names and paths

// Receives one NUL-terminated line, prefix included, valid only during the call. Called from several threads
// at once.
using LogSink = void (*)(const wchar_t* text, std::uint32_t level);

// Sends every later line whose level is at most `level` to `sink`. Before the first call the level is 0 and
// there is no sink, so nothing is logged.
void SetLogSink(LogSink sink, std::int32_t level) noexcept;

// The level that SetLogSink was given last; nobody else writes it. Beside Log so that a line nobody wants
// costs no call.
extern std::atomic<std::int32_t> configuredLogLevel;

// What Log does with a line whose level is low enough.
void WriteLogLine(std::int32_t level, const wchar_t* format, ...) noexcept;

// Formats "OstrelFilterDriver: " and the message into a stack buffer of 1024 characters, cutting silently
// what does not fit, and hands it to the sink. `%s` takes a wide string, `%lu` and `%ld` a 32-bit integer,
// `%llu` an unsigned long long. A line above the configured level costs one comparison; nothing is ever
// allocated. An exception of the sink ends here.
template <typename... Arguments>
void Log(std::int32_t level, const wchar_t* format, Arguments... arguments) noexcept {
  if (level > configuredLogLevel.load(std::memory_order_relaxed)) [[likely]]
    return;
  WriteLogLine(level, format, arguments...);
}

}  // namespace ostrel

#endif
