#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <iostream>

#include "digest.h"
#include "file_digests.h"
#include "temporary_folder.h"
#include "util/unique_handle.h"

namespace {

using namespace ostrel::helper;
using Clock = std::chrono::steady_clock;

constexpr std::size_t SIZE = 128 * 1024 * 1024;
constexpr int REPETITIONS = 5;

template <typename Work>
double Seconds(Work work) {
  const auto start = Clock::now();
  work();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double PlatformSeconds(const std::string& content) {
  return Seconds([&] {
    for (const wchar_t* algorithm : {BCRYPT_SHA256_ALGORITHM, BCRYPT_MD5_ALGORITHM}) {
      Digest digest(algorithm);
      digest.Add(std::as_bytes(std::span(content)));
      EXPECT_FALSE(digest.Finish().empty());
    }
  });
}

double HelperSeconds(const std::filesystem::path& path) {
  return Seconds([&] {
    const ostrel::UniqueFileHandle file(
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_EQ(DigestFile(file.Get(), SIZE, Clock::now() + std::chrono::minutes(2)).size, SIZE);
  });
}

// The best of several in turn, so that a moment in which the machine has other things to do does not count.
TEST(TheDigestsOfALargeFile, AreMadeAtNoLessThanNineTenthsOfThePlatformsSpeed) {
  const ostrel_test::TemporaryFolder folder;
  const std::filesystem::path path = folder / L"large";
  const std::string content(SIZE, 'a');
  ostrel_test::WriteWholeFile(path, content);
  double platform = PlatformSeconds(content);
  double helper = HelperSeconds(path);
  for (int i = 1; i < REPETITIONS; ++i) {
    platform = std::min(platform, PlatformSeconds(content));
    helper = std::min(helper, HelperSeconds(path));
  }
  EXPECT_LE(helper, platform / 0.9) << "platform " << platform << " s, helper " << helper << " s";
  std::cout << "platform " << platform << " s, helper " << helper << " s\n";
}

}  // namespace
