#include "work_directory.h"

#include <algorithm>
#include <string_view>

#include "detections.h"
#include "text.h"
#include "util/unique_handle.h"

namespace ostrel::lab {

namespace {

// "C:\"
constexpr std::size_t DRIVE_ROOT_LENGTH = 3;
constexpr DWORD LONG_PATH = 32768;

std::wstring TemporaryRoot() {
  std::wstring path(MAX_PATH + 1, L'\0');
  path.resize(GetTempPathW(static_cast<DWORD>(path.size()), path.data()));
  if (path.empty()) throw SystemError("find the folder for temporary files");
  return path + L"OstrelLab";
}

// Drive letter in upper case and no trailing separator, as the library reports it.
std::wstring Absolute(const std::wstring& path) {
  std::wstring absolute(LONG_PATH, L'\0');
  absolute.resize(GetFullPathNameW(path.c_str(), LONG_PATH, absolute.data(), nullptr));
  while (!absolute.empty() && absolute.back() == L'\\') absolute.pop_back();
  if (absolute.size() < 3 || absolute[1] != L':') {
    throw LabError("the work directory must be on a drive with a letter: " + ToUtf8(path));
  }
  CharUpperBuffW(absolute.data(), 1);
  return absolute;
}

// `rootLength` with the separator after the drive or share, which is there already.
void CreateDirectories(const std::wstring& path, std::size_t rootLength) {
  if (path.size() < rootLength) return;
  for (std::size_t end = path.find(L'\\', rootLength);; end = path.find(L'\\', end + 1)) {
    const std::wstring part = path.substr(0, end);
    if (!CreateDirectoryW(part.c_str(), nullptr) && GetLastError() != ERROR_ALREADY_EXISTS) {
      throw SystemError("create the directory " + ToUtf8(part));
    }
    if (end == std::wstring::npos) return;
  }
}

void WriteFileOfSize(const std::wstring& path, std::uint64_t size) {
  const UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                          CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) throw SystemError("create " + ToUtf8(path));
  LARGE_INTEGER end;
  end.QuadPart = static_cast<LONGLONG>(size);
  if (!SetFilePointerEx(file.Get(), end, nullptr, FILE_BEGIN) || !SetEndOfFile(file.Get())) {
    throw SystemError("give " + ToUtf8(path) + " its size");
  }
}

}  // namespace

WorkDirectory::WorkDirectory(const std::wstring& root)
    : root_(Absolute(root.empty() ? TemporaryRoot() : root)) {}

std::wstring WorkDirectory::PathOf(const FileEntry& file) const {
  return ToWide(FilePath(ToUtf8(root_), file));
}

void WorkDirectory::Create(const FileEntry& file) const {
  if (file.path.empty()) return;
  const std::wstring path = PathOf(file);
  const std::size_t rootLength =
      file.share.empty() ? DRIVE_ROOT_LENGTH : path.size() - ToWide(file.path).size();
  CreateDirectories(file.isDirectory ? path : path.substr(0, path.rfind(L'\\')), rootLength);
  if (!file.isDirectory) WriteFileOfSize(path, file.size);
}

std::wstring WorkDirectory::DeviceName(const FileEntry& file) const {
  if (file.path.empty()) return ToWide(file.deviceName);
  if (!file.share.empty()) return L"\\Device\\Mup" + PathOf(file).substr(1);
  wchar_t device[MAX_PATH];
  const std::wstring drive = root_.substr(0, 2);
  if (QueryDosDeviceW(drive.c_str(), device, MAX_PATH) == 0) {
    throw SystemError("find the device of drive " + ToUtf8(drive));
  }
  return device + PathOf(file).substr(2);
}

std::wstring WorkDirectory::CreateProcessDirectory(const ProcessEntry& process) const {
  std::wstring path = root_ + L"\\processes\\" + ToWide(process.id);
  CreateDirectories(path, DRIVE_ROOT_LENGTH);
  return path;
}

}  // namespace ostrel::lab
