#include <cwchar>

#include "log/format.h"

namespace ostrel {

namespace {

constexpr std::size_t LONGEST_FORMAT = 512;

// Rewrites the Windows meaning of %s and %l into the one of the C standard on a 64-bit Linux.
void TranslateFormat(const wchar_t* format, wchar_t (&translated)[LONGEST_FORMAT]) {
  std::size_t length = 0;
  const auto append = [&](wchar_t character) {
    if (length + 1 < LONGEST_FORMAT) translated[length++] = character;
  };
  for (; *format != L'\0'; ++format) {
    append(*format);
    if (*format != L'%') continue;
    if (format[1] == L's') append(L'l');
    if (format[1] == L'l' && format[2] != L'l') ++format;
    if (format[1] == L'%') append(*++format);
  }
  translated[length] = L'\0';
}

}  // namespace

void FormatBounded(wchar_t* buffer, std::size_t capacity, const wchar_t* format,
                   std::va_list arguments) noexcept {
  wchar_t translated[LONGEST_FORMAT];
  TranslateFormat(format, translated);
  buffer[0] = L'\0';
  std::vswprintf(buffer, capacity, translated, arguments);
  buffer[capacity - 1] = L'\0';
}

}  // namespace ostrel
