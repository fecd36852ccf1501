#ifndef OSTREL_LOG_LOG_H
#define OSTREL_LOG_LOG_H

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

// Formats "OstrelFilterDriver: " and the message into a stack buffer of 1024 characters, cutting silently
// what does not fit, and hands it to the sink. `%s` takes a wide string, `%lu` and `%ld` a 32-bit integer,
// `%llu` an unsigned long long. A line above the configured level costs one comparison; nothing is ever
// allocated. An exception of the sink ends here.
void Log(std::int32_t level, const wchar_t* format, ...) noexcept;

}  // namespace ostrel

#endif
