#include <cstdarg>
#include <cstddef>
#include <new>

#include "log/format.h"
#include "util/ostrel_filter_lib_util.h"

namespace {

constexpr std::size_t ALLOCATED_CHARACTERS = 2048;
// One less than allocated, on purpose: the longest text has 2046 characters.
constexpr std::size_t FORMATTED_CHARACTERS = 2047;

}  // namespace

void OstrelFilterLibUtil::AllocStringPointer(wchar_t** out, const wchar_t* format, ...) {
  *out = new (std::nothrow) wchar_t[ALLOCATED_CHARACTERS];
  if (*out == nullptr) return;
  std::va_list arguments;
  va_start(arguments, format);
  ostrel::FormatBounded(*out, FORMATTED_CHARACTERS, format, arguments);
  va_end(arguments);
}

void OstrelFilterLibUtil::DeallocStringPointer(wchar_t** pointer) {
  if (pointer != nullptr) delete[] * pointer;
}
