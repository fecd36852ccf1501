#include "userhelper/counted_text.h"

#include <utility>

namespace ostrel {

std::wostream& WriteCounted(std::wostream& stream, const std::wstring& text) {
  return stream << static_cast<std::uint64_t>(text.size()) << L',' << text;
}

bool ReadComma(std::wistream& stream) {
  wchar_t character = L'\0';
  stream >> character;
  return character == L',';
}

std::int32_t ReadNumber(std::wistream& stream) {
  std::int32_t number = 0;
  stream >> number;
  return number;
}

std::uint64_t ReadUnsigned(std::wistream& stream) {
  std::uint64_t number = 0;
  stream >> number;
  return number;
}

std::uint64_t UnitsLeft(std::wistream& stream) {
  const std::streamsize left = stream.rdbuf()->in_avail();
  return left > 0 ? static_cast<std::uint64_t>(left) : 0;
}

bool ReadText(std::wistream& stream, std::uint64_t length, std::wstring& text) {
  const std::uint64_t left = UnitsLeft(stream);
  if (length > left) {
    stream.ignore(static_cast<std::streamsize>(left));
    stream.setstate(std::ios_base::eofbit | std::ios_base::failbit);
    return false;
  }
  std::wstring units(static_cast<std::size_t>(length), L'\0');
  if (!stream.read(units.data(), static_cast<std::streamsize>(length))) return false;
  text = std::move(units);
  return true;
}

}  // namespace ostrel
