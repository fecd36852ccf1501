#include "support/import_table.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>

#include "support/transcript.h"

namespace ostrel::test {

namespace {

// What every other test here stands on. The calls looked at are those of Transcript::Add: within one function
// the compiler may keep an imported function's address in a register.

constexpr DWORD OTHER_THREAD = 4711;

DWORD WINAPI OtherThread() {
  return OTHER_THREAD;
}

void* Replacement() {
  return reinterpret_cast<void*>(&OtherThread);
}

TEST(AnImportPatch, RedirectsTheCallsOfItsModuleUntilItGoes) {
  Transcript transcript;
  {
    const ImportPatch patch(GetModuleHandleW(nullptr), "GetCurrentThreadId", Replacement());
    transcript.Add("patched");
  }
  transcript.Add("restored");
  EXPECT_EQ(transcript.Of(OTHER_THREAD), Lines({"patched"}));
  EXPECT_EQ(transcript.OfThisThread(), Lines({"restored"}));
}

TEST(AnImportPatch, MovesWithoutBeingTakenBack) {
  Transcript transcript;
  {
    ImportPatch first(GetModuleHandleW(nullptr), "GetCurrentThreadId", Replacement());
    const ImportPatch second(std::move(first));
    transcript.Add("patched");
  }
  transcript.Add("restored");
  EXPECT_EQ(transcript.Of(OTHER_THREAD), Lines({"patched"}));
  EXPECT_EQ(transcript.OfThisThread(), Lines({"restored"}));
}

TEST(AnImportPatch, OfWhatIsNotImportedIsRefused) {
  EXPECT_THROW(ImportPatch(GetModuleHandleW(nullptr), "NoSuchFunction", nullptr), std::runtime_error);
  EXPECT_EQ(ImportPatch::Imported(GetModuleHandleW(nullptr), "NoSuchFunction"), nullptr);
}

}  // namespace

}  // namespace ostrel::test
