#include "text.h"

#include <system_error>

#include "util/unique_handle.h"

namespace ostrel::lab {

std::wstring ToWide(std::string_view utf8) {
  const int length = static_cast<int>(utf8.size());
  std::wstring wide(
      static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0)), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, wide.data(), static_cast<int>(wide.size()));
  return wide;
}

std::string ToUtf8(std::wstring_view wide) {
  const int length = static_cast<int>(wide.size());
  const int needed = WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
  std::string utf8(static_cast<std::size_t>(needed), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, utf8.data(), needed, nullptr, nullptr);
  return utf8;
}

LabError SystemError(const std::string& what) {
  const int code = static_cast<int>(GetLastError());
  return LabError("could not " + what + ": " + std::system_category().message(code) + " (" +
                  std::to_string(code) + ")");
}

std::string ReadWholeFile(const std::wstring& path) {
  // Others may go on writing the file, as a host does with its detections.
  const UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_READ,
                                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                          OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) throw SystemError("open " + ToUtf8(path));
  std::string content;
  char block[65536];
  for (;;) {
    DWORD read = 0;
    if (!ReadFile(file.Get(), block, sizeof(block), &read, nullptr))
      throw SystemError("read " + ToUtf8(path));
    if (read == 0) return content;
    content.append(block, read);
  }
}

}  // namespace ostrel::lab
