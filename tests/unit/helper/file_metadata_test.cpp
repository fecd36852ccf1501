#include "file_metadata.h"

#include <gtest/gtest.h>

#include "helper_process.h"
#include "support/import_table.h"
#include "temporary_folder.h"
#include "util/unique_handle.h"

namespace {

using namespace ostrel;
using ostrel::helper::MetadataAnswer;
using ostrel::helper::ReadFileMetadata;
using ostrel::test::ImportPatch;
using ostrel_test::PATIENCE;
using ostrel_test::TemporaryFolder;
using ostrel_test::WriteWholeFile;

const std::wstring EXTENDED = L"\\\\?\\";
const wchar_t* const MD5_OF_ABC = L"900150983cd24fb0d6963f7d28e17f72";

// The patched functions carry no context.
std::filesystem::path* fileBeingRead = nullptr;
void* originalReadFile = nullptr;

class TheMetadataOfAFile : public ::testing::Test {
 protected:
  TheMetadataOfAFile() {
    WriteWholeFile(path_, "abc");
    fileBeingRead = &path_;
  }

  MetadataAnswer Metadata() { return ReadFileMetadata(path_.wstring(), PATIENCE); }

  void ExpectOnly(ResponseCode code, const MetadataAnswer& answer) {
    EXPECT_EQ(answer.code, code);
    EXPECT_EQ(answer.sha256Hex, L"");
    EXPECT_EQ(answer.md5Hex, L"");
    EXPECT_EQ(answer.fileSize, 0U);
    EXPECT_EQ(answer.extraText, L"");
  }
  void ExpectOnly(ResponseCode code, const std::wstring& path) {
    ExpectOnly(code, ReadFileMetadata(path, PATIENCE));
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / L"file.txt";
};

TEST_F(TheMetadataOfAFile, IsDigestsSizeAndPlace) {
  const MetadataAnswer answer = Metadata();
  EXPECT_EQ(answer.code, SUCCESS);
  EXPECT_EQ(answer.sha256Hex, L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(answer.md5Hex, MD5_OF_ABC);
  EXPECT_EQ(answer.fileSize, 3U);
  EXPECT_EQ(answer.extraText, path_.wstring());
}

TEST_F(TheMetadataOfAFile, IsReadOfAPathLongerThanWindowsTakesAsItIs) {
  const std::wstring outer = folder_.Path() + L"\\" + std::wstring(120, L'a');
  const std::wstring inner = outer + L"\\" + std::wstring(120, L'b');
  const std::wstring deep = inner + L"\\" + std::wstring(20, L'c');
  ASSERT_TRUE(CreateDirectoryW((EXTENDED + outer).c_str(), nullptr));
  ASSERT_TRUE(CreateDirectoryW((EXTENDED + inner).c_str(), nullptr));
  ASSERT_TRUE(CopyFileW(path_.c_str(), (EXTENDED + deep).c_str(), TRUE));
  const MetadataAnswer answer = ReadFileMetadata(deep, PATIENCE);
  EXPECT_EQ(answer.code, SUCCESS);
  EXPECT_EQ(answer.md5Hex, MD5_OF_ABC);
  EXPECT_TRUE(DeleteFileW((EXTENDED + deep).c_str()));
  EXPECT_TRUE(RemoveDirectoryW((EXTENDED + inner).c_str()));
}

// In the form for long paths a slash or a dot would be part of a name.
TEST_F(TheMetadataOfAFile, IsReadOfALongPathWithDetours) {
  std::wstring detours;
  for (int i = 0; i < 100; ++i) detours += L"\\.\\x\\..";
  for (const std::wstring& path :
       {folder_.Path() + detours + L"\\file.txt", folder_.Path() + detours + L"/file.txt"}) {
    EXPECT_EQ(ReadFileMetadata(path, PATIENCE).md5Hex, MD5_OF_ABC);
  }
}

TEST_F(TheMetadataOfAFile, HasACodeForAFileThatIsNotThere) {
  ExpectOnly(METADATA_FILE_DOES_NOT_EXIST, folder_.Path() + L"\\none");
  ExpectOnly(METADATA_FILE_DOES_NOT_EXIST, folder_.Path() + L"\\none\\none");
  ExpectOnly(METADATA_FILE_DOES_NOT_EXIST, folder_.Path() + L"\\a*");
  ExpectOnly(METADATA_FILE_DOES_NOT_EXIST, L"\\\\server.invalid\\share\\file");
  ExpectOnly(METADATA_FILE_DOES_NOT_EXIST, L"");
}

TEST_F(TheMetadataOfAFile, HasACodeForWhatIsNoFile) {
  ExpectOnly(METADATA_CANNOT_READ_FILE, folder_.Path());
  ExpectOnly(METADATA_CANNOT_READ_FILE, L"NUL");
}

TEST_F(TheMetadataOfAFile, HasACodeForAFileThatSomebodyElseKeepsToHimself) {
  const UniqueFileHandle owner(
      CreateFileW(path_.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(owner);
  ExpectOnly(METADATA_CANNOT_READ_FILE, Metadata());
}

TEST_F(TheMetadataOfAFile, HasACodeForAFileThatTakesTooLong) {
  ExpectOnly(METADATA_CANNOT_READ_FILE, ReadFileMetadata(path_.wstring(), std::chrono::milliseconds(0)));
}

// What the system would say of a file whose content lies elsewhere.
DWORD attributesOfTheFile = 0;

BOOL WINAPI GivenAttributes(HANDLE, FILE_INFO_BY_HANDLE_CLASS kind, void* information, DWORD size) {
  EXPECT_EQ(kind, FileBasicInfo);
  EXPECT_EQ(size, sizeof(FILE_BASIC_INFO));
  static_cast<FILE_BASIC_INFO*>(information)->FileAttributes = attributesOfTheFile;
  return TRUE;
}

TEST_F(TheMetadataOfAFile, HasACodeForAFileWhoseContentWouldHaveToBeFetched) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "GetFileInformationByHandleEx",
                          reinterpret_cast<void*>(&GivenAttributes));
  // Offline; recalled when opened; recalled when read.
  for (const DWORD attribute : {0x1000U, 0x40000U, 0x400000U}) {
    attributesOfTheFile = FILE_ATTRIBUTE_ARCHIVE | attribute;
    ExpectOnly(METADATA_CANNOT_READ_FILE, Metadata());
  }
  attributesOfTheFile = FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY;
  EXPECT_EQ(Metadata().md5Hex, MD5_OF_ABC);
}

BOOL WINAPI NoAttributes(HANDLE, FILE_INFO_BY_HANDLE_CLASS, void*, DWORD) {
  SetLastError(ERROR_NOT_SUPPORTED);
  return FALSE;
}

TEST_F(TheMetadataOfAFile, IsReadWhereTheFileSystemTellsNoAttributes) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "GetFileInformationByHandleEx",
                          reinterpret_cast<void*>(&NoAttributes));
  EXPECT_EQ(Metadata().md5Hex, MD5_OF_ABC);
}

DWORD flagsOfTheOpening = 0;

HANDLE WINAPI RecordingCreateFileW(const wchar_t*, DWORD access, DWORD share, SECURITY_ATTRIBUTES*, DWORD,
                                   DWORD flags, HANDLE) {
  EXPECT_EQ(access, static_cast<DWORD>(FILE_READ_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE));
  EXPECT_EQ(share, static_cast<DWORD>(FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));
  flagsOfTheOpening = flags;
  SetLastError(ERROR_FILE_NOT_FOUND);
  return INVALID_HANDLE_VALUE;
}

TEST_F(TheMetadataOfAFile, IsReadWithoutRecallingTheFileOrLendingTheUsersIdentity) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "CreateFileW",
                          reinterpret_cast<void*>(&RecordingCreateFileW));
  ExpectOnly(METADATA_FILE_DOES_NOT_EXIST, Metadata());
  EXPECT_EQ(flagsOfTheOpening, static_cast<DWORD>(FILE_FLAG_SEQUENTIAL_SCAN | FILE_FLAG_OPEN_NO_RECALL |
                                                  SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION));
}

BOOL WINAPI FailingGetFileSizeEx(HANDLE, LARGE_INTEGER*) {
  SetLastError(ERROR_GEN_FAILURE);
  return FALSE;
}

TEST_F(TheMetadataOfAFile, HasACodeForAFileWithoutASize) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "GetFileSizeEx",
                          reinterpret_cast<void*>(&FailingGetFileSizeEx));
  ExpectOnly(METADATA_ERROR_GETTING_FILE_SIZE, Metadata());
}

BOOL WINAPI FailingReadFile(HANDLE, void*, DWORD, DWORD*, OVERLAPPED*) {
  SetLastError(ERROR_CRC);
  return FALSE;
}

TEST_F(TheMetadataOfAFile, HasACodeForAReadError) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "ReadFile", reinterpret_cast<void*>(&FailingReadFile));
  ExpectOnly(METADATA_CANNOT_READ_FILE, Metadata());
}

LONG WINAPI FailingOpenAlgorithmProvider(void**, const wchar_t*, const wchar_t*, ULONG) {
  return static_cast<LONG>(0xC0000001);
}

TEST_F(TheMetadataOfAFile, HasACodeForAPlatformThatDoesNotDigest) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "BCryptOpenAlgorithmProvider",
                          reinterpret_cast<void*>(&FailingOpenAlgorithmProvider));
  ExpectOnly(METADATA_CANNOT_READ_FILE, Metadata());
}

LONG WINAPI FailingHashData(void*, UCHAR*, ULONG, ULONG) {
  return static_cast<LONG>(0xC0000001);
}

// More than all buffers hold, so that the reader has to wait for whoever fails.
TEST_F(TheMetadataOfAFile, HasACodeForAPlatformThatFailsInTheMiddle) {
  WriteWholeFile(path_, std::string(8 * 1024 * 1024, 'a'));
  const ImportPatch patch(GetModuleHandleW(nullptr), "BCryptHashData",
                          reinterpret_cast<void*>(&FailingHashData));
  ExpectOnly(METADATA_CANNOT_READ_FILE, Metadata());
}

HANDLE WINAPI FailingCreateThread(SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE, void*, DWORD,
                                  DWORD*) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

TEST_F(TheMetadataOfAFile, HasACodeWhenThereIsNoThreadForTheDigests) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "CreateThread",
                          reinterpret_cast<void*>(&FailingCreateThread));
  ExpectOnly(METADATA_CANNOT_READ_FILE, Metadata());
}

DWORD WINAPI FailingGetFullPathNameW(const wchar_t*, DWORD, wchar_t*, wchar_t**) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return 0;
}

// The path is then taken as it is: without detours it is found, and with them it is not.
TEST_F(TheMetadataOfAFile, IsReadOfALongPathWhoseFullFormIsNotTold) {
  const std::wstring outer = folder_.Path() + L"\\" + std::wstring(120, L'a');
  const std::wstring inner = outer + L"\\" + std::wstring(120, L'b');
  const std::wstring deep = inner + L"\\" + std::wstring(20, L'c');
  ASSERT_TRUE(CreateDirectoryW((EXTENDED + outer).c_str(), nullptr));
  ASSERT_TRUE(CreateDirectoryW((EXTENDED + inner).c_str(), nullptr));
  ASSERT_TRUE(CopyFileW(path_.c_str(), (EXTENDED + deep).c_str(), TRUE));
  const ImportPatch patch(GetModuleHandleW(nullptr), "GetFullPathNameW",
                          reinterpret_cast<void*>(&FailingGetFullPathNameW));
  EXPECT_EQ(ReadFileMetadata(deep, PATIENCE).md5Hex, MD5_OF_ABC);
  ExpectOnly(METADATA_FILE_DOES_NOT_EXIST, inner + L"\\.\\" + std::wstring(20, L'c'));
  EXPECT_TRUE(DeleteFileW((EXTENDED + deep).c_str()));
  EXPECT_TRUE(RemoveDirectoryW((EXTENDED + inner).c_str()));
}

DWORD WINAPI UnknownFileType(HANDLE) {
  SetLastError(ERROR_INVALID_FUNCTION);
  return FILE_TYPE_UNKNOWN;
}

TEST_F(TheMetadataOfAFile, HasACodeForWhatIsOfAnUnknownType) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "GetFileType",
                          reinterpret_cast<void*>(&UnknownFileType));
  ExpectOnly(METADATA_CANNOT_READ_FILE, Metadata());
}

// As of a file that is moved deeper after its path was measured.
DWORD WINAPI GrowingGetFinalPathNameByHandleW(HANDLE, wchar_t*, DWORD capacity, DWORD) {
  return capacity + 10;
}

TEST_F(TheMetadataOfAFile, HasNoPlaceWhenItsPathHasGrownMeanwhile) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "GetFinalPathNameByHandleW",
                          reinterpret_cast<void*>(&GrowingGetFinalPathNameByHandleW));
  const MetadataAnswer answer = Metadata();
  EXPECT_EQ(answer.code, SUCCESS);
  EXPECT_EQ(answer.md5Hex, MD5_OF_ABC);
  EXPECT_EQ(answer.extraText, L"");
}

DWORD WINAPI FailingGetFinalPathNameByHandleW(HANDLE, wchar_t*, DWORD, DWORD) {
  SetLastError(ERROR_NOT_SUPPORTED);
  return 0;
}

TEST_F(TheMetadataOfAFile, HasNoPlaceWhenTheFileSystemDoesNotTell) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "GetFinalPathNameByHandleW",
                          reinterpret_cast<void*>(&FailingGetFinalPathNameByHandleW));
  const MetadataAnswer answer = Metadata();
  EXPECT_EQ(answer.code, SUCCESS);
  EXPECT_EQ(answer.md5Hex, MD5_OF_ABC);
  EXPECT_EQ(answer.extraText, L"");
}

// Others write to the file, rename it and delete it while it is being read.
BOOL WINAPI DisturbedReadFile(HANDLE file, void* buffer, DWORD size, DWORD* read, OVERLAPPED* overlapped) {
  const UniqueFileHandle writer(CreateFileW(fileBeingRead->c_str(), GENERIC_WRITE,
                                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                            OPEN_EXISTING, 0, nullptr));
  EXPECT_TRUE(writer) << GetLastError();
  const std::wstring moved = fileBeingRead->wstring() + L".moved";
  EXPECT_TRUE(MoveFileW(fileBeingRead->c_str(), moved.c_str())) << GetLastError();
  EXPECT_TRUE(DeleteFileW(moved.c_str())) << GetLastError();
  return reinterpret_cast<decltype(&ReadFile)>(originalReadFile)(file, buffer, size, read, overlapped);
}

TEST_F(TheMetadataOfAFile, IsReadWithoutDisturbingOthers) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "ReadFile", reinterpret_cast<void*>(&DisturbedReadFile));
  originalReadFile = patch.Original();
  const MetadataAnswer answer = Metadata();
  EXPECT_EQ(answer.code, SUCCESS);
  EXPECT_EQ(answer.md5Hex, MD5_OF_ABC);
}

}  // namespace
