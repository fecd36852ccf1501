#include <cwchar>

#include "log/format.h"

namespace ostrel {

void FormatBounded(wchar_t* buffer, std::size_t capacity, const wchar_t* format,
                   std::va_list arguments) noexcept {
  // The C runtime's own function: mingw's vsnwprintf takes %s for a narrow string in C++. It writes no
  // terminator when the text fills the buffer.
  _vsnwprintf(buffer, capacity - 1, format, arguments);
  buffer[capacity - 1] = L'\0';
}

}  // namespace ostrel
