#ifndef OSTREL_USERHELPER_COUNTED_TEXT_H
#define OSTREL_USERHELPER_COUNTED_TEXT_H

#include <cstdint>
#include <istream>
#include <ostream>
#include <string>

namespace ostrel {

// The pieces that requests and responses are made of. The readers expect a stream over a text in memory and
// never throw on what the text holds.

// The text's length, a comma and the text.
std::wostream& WriteCounted(std::wostream& stream, const std::wstring& text);

// Whether the next character, after any white space, is a comma. Takes it.
bool ReadComma(std::wistream& stream);

// A decimal number; 0 where there is none, the nearest one where it is too large. A stream that has failed
// stays failed, so that the comma behind the number is missing too.
std::int32_t ReadNumber(std::wistream& stream);

// Of a negative number the stream takes the remainder modulo 2^64.
std::uint64_t ReadUnsigned(std::wistream& stream);

// Units between here and the end of the text.
std::uint64_t UnitsLeft(std::wistream& stream);

// Takes exactly `length` units into `text`. When fewer are left it takes those, fails and leaves `text` as it
// was: the sender's word for a length never makes the reader allocate.
bool ReadText(std::wistream& stream, std::uint64_t length, std::wstring& text);

}  // namespace ostrel

#endif
