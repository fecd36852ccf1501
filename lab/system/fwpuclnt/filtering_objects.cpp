#include "filtering_objects.h"

#include <array>
#include <cwchar>

namespace ostrel::lab {

std::wstring TextOf(const GUID& guid) {
  std::array<wchar_t, 39> text{};
  std::swprintf(text.data(), text.size(), L"{%08lx-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}", guid.Data1,
                guid.Data2, guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3],
                guid.Data4[4], guid.Data4[5], guid.Data4[6], guid.Data4[7]);
  return text.data();
}

bool ParseGuid(const std::wstring& text, GUID& guid) {
  std::array<unsigned, 10> part{};
  unsigned long first = 0;
  const int count =
      std::swscanf(text.c_str(), L"{%8lx-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x}", &first, &part[0], &part[1],
                   &part[2], &part[3], &part[4], &part[5], &part[6], &part[7], &part[8], &part[9]);
  if (count != 11) return false;
  guid.Data1 = first;
  guid.Data2 = static_cast<unsigned short>(part[0]);
  guid.Data3 = static_cast<unsigned short>(part[1]);
  for (std::size_t i = 0; i < 8; ++i) guid.Data4[i] = static_cast<unsigned char>(part[i + 2]);
  return true;
}

}  // namespace ostrel::lab
