#include "digest.h"

#include <gtest/gtest.h>

#include <string_view>
#include <utility>

#include "file_digests.h"
#include "helper_process.h"
#include "support/import_table.h"
#include "temporary_folder.h"

namespace {

using namespace ostrel::helper;
using ostrel::UniqueFileHandle;
using ostrel::test::ImportPatch;
using ostrel_test::PATIENCE;
using ostrel_test::TemporaryFolder;
using ostrel_test::WriteWholeFile;

using Clock = std::chrono::steady_clock;

constexpr std::uint64_t NO_LIMIT = ~std::uint64_t{0};

std::span<const std::byte> BytesOf(std::string_view text) {
  return std::as_bytes(std::span(text));
}

std::wstring DigestOf(const wchar_t* algorithm, std::string_view text) {
  Digest digest(algorithm);
  digest.Add(BytesOf(text));
  return digest.Finish();
}

TEST(ADigest, HasTheKnownValues) {
  EXPECT_EQ(DigestOf(BCRYPT_SHA256_ALGORITHM, ""),
            L"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(DigestOf(BCRYPT_SHA256_ALGORITHM, "abc"),
            L"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(DigestOf(BCRYPT_MD5_ALGORITHM, ""), L"d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(DigestOf(BCRYPT_MD5_ALGORITHM, "abc"), L"900150983cd24fb0d6963f7d28e17f72");
}

TEST(ADigest, IsThatOfAllPartsTogether) {
  Digest digest(BCRYPT_MD5_ALGORITHM);
  for (const char* part : {"a", "", "bc"}) digest.Add(BytesOf(part));
  EXPECT_EQ(digest.Finish(), L"900150983cd24fb0d6963f7d28e17f72");
}

TEST(ADigest, OfAnUnknownAlgorithmIsAnError) {
  EXPECT_THROW(Digest(L"no such algorithm"), DigestError);
}

constexpr auto FAILED = static_cast<NTSTATUS>(0xC0000001);

NTSTATUS WINAPI FailingCreateHash(BCRYPT_ALG_HANDLE, BCRYPT_HASH_HANDLE*, UCHAR*, ULONG, UCHAR*, ULONG,
                                  ULONG) {
  return FAILED;
}
NTSTATUS WINAPI FailingGetProperty(BCRYPT_HANDLE, const wchar_t*, UCHAR*, ULONG, ULONG*, ULONG) {
  return FAILED;
}
NTSTATUS WINAPI FailingFinishHash(BCRYPT_HASH_HANDLE, UCHAR*, ULONG, ULONG) {
  return FAILED;
}

TEST(ADigest, IsAnErrorWhicheverCallOfThePlatformFails) {
  const std::pair<const char*, void*> calls[] = {
      {"BCryptCreateHash", reinterpret_cast<void*>(&FailingCreateHash)},
      {"BCryptGetProperty", reinterpret_cast<void*>(&FailingGetProperty)},
      {"BCryptFinishHash", reinterpret_cast<void*>(&FailingFinishHash)}};
  for (const auto& [call, failing] : calls) {
    const ImportPatch patch(GetModuleHandleW(nullptr), call, failing);
    try {
      DigestOf(BCRYPT_MD5_ALGORITHM, "abc");
      ADD_FAILURE() << call;
    } catch (const DigestError& error) {
      EXPECT_EQ(error.what(), call + std::string(" failed"));
    }
  }
}

class TheDigestsOfAFile : public ::testing::Test {
 protected:
  FileDigests Digests(const std::string& content, std::uint64_t longest = NO_LIMIT,
                      Clock::time_point deadline = Clock::now() + PATIENCE) {
    WriteWholeFile(path_, content);
    const UniqueFileHandle file(
        CreateFileW(path_.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_TRUE(file);
    return DigestFile(file.Get(), longest, deadline);
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / L"file";
};

TEST_F(TheDigestsOfAFile, WithoutContentAreThoseOfNothing) {
  const FileDigests digests = Digests("");
  EXPECT_EQ(digests.sha256Hex, L"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(digests.md5Hex, L"d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(digests.size, 0U);
}

// One byte more than a buffer holds, of the letter "a".
TEST_F(TheDigestsOfAFile, OfOneMebibyteAndAByteHaveTheKnownValues) {
  const FileDigests digests = Digests(std::string(1'048'577, 'a'));
  EXPECT_EQ(digests.sha256Hex, L"4a3f0c0c213adea174f9a3d4c13177315b588bdb2e9c1012d3d0bf0453ca0f6a");
  EXPECT_EQ(digests.md5Hex, L"6f0555ac53cecbf068d354c08863805a");
  EXPECT_EQ(digests.size, 1'048'577U);
}

// The buffers are used again and again, and each must have been digested before.
TEST_F(TheDigestsOfAFile, OfManyBuffersAreThoseOfTheWhole) {
  std::string content(11 * 1024 * 1024 + 7, '\0');
  std::uint32_t state = 1;
  for (char& character : content) {
    state = state * 1664525U + 1013904223U;
    character = static_cast<char>(state >> 24U);
  }
  const FileDigests digests = Digests(content);
  EXPECT_EQ(digests.sha256Hex, DigestOf(BCRYPT_SHA256_ALGORITHM, content));
  EXPECT_EQ(digests.md5Hex, DigestOf(BCRYPT_MD5_ALGORITHM, content));
  EXPECT_EQ(digests.size, content.size());
}

// Somebody may be writing to the file all the time.
TEST_F(TheDigestsOfAFile, StopAtTheGivenSize) {
  const FileDigests digests = Digests("abcdef", 3);
  EXPECT_EQ(digests.md5Hex, L"900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(digests.size, 3U);
}

TEST_F(TheDigestsOfAFile, AreNotMadeAfterTheDeadline) {
  EXPECT_THROW(Digests("abc", NO_LIMIT, Clock::now()), FileReadError);
}

BOOL WINAPI FailingReadFile(HANDLE, void*, DWORD, DWORD*, OVERLAPPED*) {
  SetLastError(ERROR_CRC);
  return FALSE;
}

TEST_F(TheDigestsOfAFile, AreNotMadeOfAFileThatCannotBeRead) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "ReadFile", reinterpret_cast<void*>(&FailingReadFile));
  EXPECT_THROW(Digests("abc"), FileReadError);
}

NTSTATUS WINAPI FailingHashData(BCRYPT_HASH_HANDLE, UCHAR*, ULONG, ULONG) {
  return FAILED;
}

// Also of more buffers than there are: nobody may go on waiting for a digest that has failed.
TEST_F(TheDigestsOfAFile, AreNotMadeWhenDigestingFails) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "BCryptHashData",
                          reinterpret_cast<void*>(&FailingHashData));
  EXPECT_THROW(Digests(std::string(9 * 1024 * 1024, 'a')), DigestError);
}

}  // namespace
