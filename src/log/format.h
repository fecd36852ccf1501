#ifndef OSTREL_LOG_FORMAT_H
#define OSTREL_LOG_FORMAT_H

#include <cstdarg>
#include <cstddef>

namespace ostrel {

// Formats into `buffer`, which holds `capacity` characters (at least 1) with the terminator; a longer text is
// cut. The conversions mean what they mean on Windows: `%s` is a wide string and `%lu`, `%ld` are 32 bits
// wide.
void FormatBounded(wchar_t* buffer, std::size_t capacity, const wchar_t* format,
                   std::va_list arguments) noexcept;

}  // namespace ostrel

#endif
