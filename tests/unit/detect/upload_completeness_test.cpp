#include "detect/upload_completeness.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

using ostrel::IsCompleteUpload;

constexpr std::uint64_t UNREADABLE = ~std::uint64_t{0};

TEST(UploadCompleteness, NinetyPerCentIsEnoughAndOneByteLessIsNot) {
  EXPECT_TRUE(IsCompleteUpload(900, 1000));
  EXPECT_FALSE(IsCompleteUpload(899, 1000));
  EXPECT_TRUE(IsCompleteUpload(9, 10));
  EXPECT_FALSE(IsCompleteUpload(8, 10));
}

TEST(UploadCompleteness, TheNinetyPerCentAreNotRoundedToWholeBytes) {
  EXPECT_FALSE(IsCompleteUpload(900, 1001));  // 900.9
  EXPECT_TRUE(IsCompleteUpload(901, 1001));
  EXPECT_FALSE(IsCompleteUpload(0, 1));
  EXPECT_TRUE(IsCompleteUpload(1, 1));
}

TEST(UploadCompleteness, MoreThanTheWholeFileIsComplete) {
  EXPECT_TRUE(IsCompleteUpload(5000, 1000));
}

TEST(UploadCompleteness, AnEmptyFileIsCompleteWithoutARead) {
  EXPECT_TRUE(IsCompleteUpload(0, 0));
}

TEST(UploadCompleteness, AFileWhoseSizeIsUnknownIsNeverComplete) {
  EXPECT_FALSE(IsCompleteUpload(0, UNREADABLE));
  EXPECT_FALSE(IsCompleteUpload(0xFFFFFFFF, UNREADABLE));
}

TEST(UploadCompleteness, TheSizeCountsAsUnsigned) {
  EXPECT_FALSE(IsCompleteUpload(1000, 0x8000000000000000));
}

TEST(UploadCompleteness, LargeSizesAreComparedInDoublePrecision) {
  EXPECT_TRUE(IsCompleteUpload(3600000000, 4000000000));
  EXPECT_FALSE(IsCompleteUpload(3599999999, 4000000000));
}

// The read size has 32 bits, so the upload of a larger file is never reported.
TEST(UploadCompleteness, AFileWhoseNinetyPerCentExceed32BitsIsNeverComplete) {
  EXPECT_TRUE(IsCompleteUpload(0xFFFFFFFF, 4772185883));
  EXPECT_FALSE(IsCompleteUpload(0xFFFFFFFF, 4772185884));
}

}  // namespace
