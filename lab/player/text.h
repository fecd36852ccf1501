#ifndef OSTREL_LAB_PLAYER_TEXT_H
#define OSTREL_LAB_PLAYER_TEXT_H

#include <windows.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace ostrel::lab {

std::wstring ToWide(std::string_view utf8);
std::string ToUtf8(std::wstring_view wide);

// Why the lab cannot go on, in words for its user.
class LabError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// "could not <what>: <the system's text> (<code>)", for the current last error.
LabError SystemError(const std::string& what);

// Throws a LabError when the file cannot be read.
std::string ReadWholeFile(const std::wstring& path);

}  // namespace ostrel::lab

#endif
