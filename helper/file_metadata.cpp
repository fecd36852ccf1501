#include "file_metadata.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <exception>

#include "extended_path.h"
#include "file_digests.h"
#include "util/unique_handle.h"

namespace ostrel::helper {

namespace {

// Whatever is wrong with the name, the folder, the drive or the server: there is no such file.
bool MeansThatThereIsNoFile(DWORD error) {
  constexpr std::array<DWORD, 9> ERRORS{
      ERROR_FILE_NOT_FOUND, ERROR_PATH_NOT_FOUND, ERROR_INVALID_DRIVE,
      ERROR_BAD_NETPATH,    ERROR_BAD_NET_NAME,   ERROR_INVALID_NAME,
      ERROR_BAD_PATHNAME,   ERROR_NOT_READY,      ERROR_FILENAME_EXCED_RANGE};
  return std::find(ERRORS.begin(), ERRORS.end(), error) != ERRORS.end();
}

// The path as Windows itself would read it: in the form for long paths a slash or two dots are parts of
// names.
std::wstring FullPath(const std::wstring& path) {
  std::wstring full(path.size() + 1, L'\0');
  for (;;) {
    const DWORD length =
        GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    if (length == 0) return path;
    const bool isWhole = length < full.size();
    full.resize(length);
    if (isWhole) return full;
  }
}

// Without a claim on the file, without having its content fetched, and without lending this user's identity
// to whoever may answer in the place of a file. `error` is the reason when it cannot be opened.
UniqueFileHandle Open(const std::wstring& path, DWORD& error) {
  const std::wstring name = IsTooLong(path) ? ExtendedPath(FullPath(path)) : path;
  UniqueFileHandle file(CreateFileW(
      name.c_str(), FILE_READ_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE,
      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
      // FILE_FLAG_OPEN_NO_RECALL and SECURITY_SQOS_PRESENT are one bit, and both are meant.
      // NOLINTNEXTLINE(misc-redundant-expression)
      FILE_FLAG_SEQUENTIAL_SCAN | FILE_FLAG_OPEN_NO_RECALL | SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION,
      nullptr));
  error = GetLastError();
  return file;
}

// Whether reading would fetch the content from a cloud or an archive, which takes its time, fills the user's
// disk and costs whoever pays for the line.
bool IsPlaceholder(HANDLE file) {
  // The names of the last two are missing from mingw's headers.
  constexpr DWORD RECALL_ON_OPEN = 0x00040000;
  constexpr DWORD RECALL_ON_DATA_ACCESS = 0x00400000;
  constexpr DWORD ELSEWHERE = FILE_ATTRIBUTE_OFFLINE | RECALL_ON_OPEN | RECALL_ON_DATA_ACCESS;
  FILE_BASIC_INFO information{};
  return GetFileInformationByHandleEx(file, FileBasicInfo, &information, sizeof(information)) &&
         (information.FileAttributes & ELSEWHERE) != 0;
}

std::wstring FinalPath(HANDLE file) {
  constexpr DWORD FORM = FILE_NAME_NORMALIZED | VOLUME_NAME_DOS;
  const DWORD size = GetFinalPathNameByHandleW(file, nullptr, 0, FORM);
  std::wstring path(size, L'\0');
  const DWORD length = GetFinalPathNameByHandleW(file, path.data(), size, FORM);
  // Somebody may have moved the file in between.
  if (length >= size) return {};
  path.resize(length);
  return PlainPath(path);
}

}  // namespace

MetadataAnswer ReadFileMetadata(const std::wstring& path, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  DWORD error = ERROR_SUCCESS;
  const UniqueFileHandle file = Open(path, error);
  if (!file) {
    return MetadataAnswer::Failed(MeansThatThereIsNoFile(error) ? ResponseCode::METADATA_FILE_DOES_NOT_EXIST
                                                                : ResponseCode::METADATA_CANNOT_READ_FILE);
  }
  // A device or a pipe could keep a reader for ever.
  if (GetFileType(file.Get()) != FILE_TYPE_DISK || IsPlaceholder(file.Get()))
    return MetadataAnswer::Failed(ResponseCode::METADATA_CANNOT_READ_FILE);
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(file.Get(), &size))
    return MetadataAnswer::Failed(ResponseCode::METADATA_ERROR_GETTING_FILE_SIZE);
  try {
    FileDigests digests = DigestFile(file.Get(), static_cast<std::uint64_t>(size.QuadPart), deadline);
    return {.code = ResponseCode::SUCCESS,
            .sha256Hex = std::move(digests.sha256Hex),
            .md5Hex = std::move(digests.md5Hex),
            .fileSize = digests.size,
            .extraText = FinalPath(file.Get())};
  } catch (const std::exception&) {
    // Be it the file, the digests, or that there is no memory or no second thread for them.
    return MetadataAnswer::Failed(ResponseCode::METADATA_CANNOT_READ_FILE);
  }
}

}  // namespace ostrel::helper
