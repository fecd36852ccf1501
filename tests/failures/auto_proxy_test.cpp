#include <windows.h>
// Needs windows.h before it.
#include <winhttp.h>

#include <set>
#include <stdexcept>

#include "library_test.h"
#include "string_getter.h"

namespace ostrel::test {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string READ = "WinHttpGetIEProxyConfigForCurrentUser(zeroed)";

// The user's Internet settings, as one module reads them.
class ScriptedSettings {
 public:
  ScriptedSettings(HMODULE module, Transcript& transcript)
      : transcript_(transcript),
        read_(module, "WinHttpGetIEProxyConfigForCurrentUser", reinterpret_cast<void*>(&Read)),
        free_(module, "GlobalFree", reinterpret_cast<void*>(&Free)) {
    current_ = this;
  }
  ScriptedSettings(const ScriptedSettings&) = delete;
  ScriptedSettings& operator=(const ScriptedSettings&) = delete;
  ~ScriptedSettings() { current_ = nullptr; }

  bool autoDetect = false;
  const wchar_t* proxy = nullptr;
  const wchar_t* bypass = nullptr;
  const wchar_t* scriptUrl = nullptr;
  DWORD error = ERROR_SUCCESS;  // of reading them
  bool throws = false;

  std::size_t HeldTexts() const { return held_.size(); }

 private:
  static BOOL WINAPI Read(WINHTTP_CURRENT_USER_IE_PROXY_CONFIG* settings) {
    const bool isZeroed = !settings->fAutoDetect && settings->lpszAutoConfigUrl == nullptr &&
                          settings->lpszProxy == nullptr && settings->lpszProxyBypass == nullptr;
    current_->transcript_.Add(std::string("WinHttpGetIEProxyConfigForCurrentUser(") +
                              (isZeroed ? "zeroed)" : "not zeroed)"));
    if (current_->throws) {
      FailureLedger::OfThisProgram().FailedOtherwise("WinHttpGetIEProxyConfigForCurrentUser", "an exception");
      throw std::runtime_error("the settings throw");
    }
    SetLastError(current_->error);
    if (current_->error != ERROR_SUCCESS) {
      FailureLedger::OfThisProgram().Failed("WinHttpGetIEProxyConfigForCurrentUser", current_->error);
      return FALSE;
    }
    settings->fAutoDetect = current_->autoDetect;
    settings->lpszProxy = current_->Copy(current_->proxy);
    settings->lpszProxyBypass = current_->Copy(current_->bypass);
    settings->lpszAutoConfigUrl = current_->Copy(current_->scriptUrl);
    return TRUE;
  }

  static HGLOBAL WINAPI Free(HGLOBAL memory) {
    const bool isOurs = current_->held_.erase(memory) == 1;
    current_->transcript_.Add(isOurs ? "GlobalFree(" + Narrow(static_cast<const wchar_t*>(memory)) + ")"
                                     : "GlobalFree(UNKNOWN)");
    return isOurs ? GlobalFree(memory) : memory;
  }

  wchar_t* Copy(const wchar_t* text) {
    if (text == nullptr) return nullptr;
    const std::size_t bytes = (std::wstring_view(text).size() + 1) * sizeof(wchar_t);
    void* const memory = GlobalAlloc(GMEM_FIXED, bytes);
    std::copy_n(text, bytes / sizeof(wchar_t), static_cast<wchar_t*>(memory));
    held_.insert(memory);
    return static_cast<wchar_t*>(memory);
  }

  // The functions carry no context.
  static inline ScriptedSettings* current_ = nullptr;

  Transcript& transcript_;
  std::set<void*> held_;
  ImportPatch read_;
  ImportPatch free_;
};

class AutoProxyUrlOfTheUser : public ::testing::Test {
 protected:
  ~AutoProxyUrlOfTheUser() override { EXPECT_EQ(settings_.HeldTexts(), 0U); }

  Answer AskIt() { return Ask(library_, "GetAutoProxyConfigUrlForUser"); }
  Lines Calls() const { return transcript_.OfThisThread(); }

  LibraryCopy library_;
  Transcript transcript_;
  ScriptedSettings settings_{library_.Module(), transcript_};
};

TEST_F(AutoProxyUrlOfTheUser, IsCopiedAndTheSystemsTextFreed) {
  settings_.scriptUrl = L"http://proxy.example/a%20b.pac";
  EXPECT_EQ(AskIt(), Result("http://proxy.example/a%20b.pac"));
  EXPECT_THAT(Calls(), ElementsAre(READ, "GlobalFree(http://proxy.example/a%20b.pac)"));
}

TEST_F(AutoProxyUrlOfTheUser, IsAnErrorWithTheSystemsCodeWhenTheSettingsCannotBeRead) {
  settings_.error = ERROR_FILE_NOT_FOUND;
  EXPECT_EQ(AskIt(),
            Error("PROXY:: WinHttpGetIEProxyConfigForCurrentUser call returned FALSE with error 2."));
  settings_.error = 12178;
  EXPECT_EQ(AskIt(),
            Error("PROXY:: WinHttpGetIEProxyConfigForCurrentUser call returned FALSE with error 12178."));
  EXPECT_THAT(Calls(), ElementsAre(READ, READ));
}

TEST_F(AutoProxyUrlOfTheUser, IsNeitherResultNorErrorWithOnlyAFixedProxyWhichIsFreed) {
  settings_.proxy = L"fixed:8080";
  EXPECT_EQ(AskIt(), Answer(UNTOUCHED, UNTOUCHED));
  EXPECT_THAT(Calls(), ElementsAre(READ, "GlobalFree(fixed:8080)"));
}

TEST_F(AutoProxyUrlOfTheUser, IsNeitherResultNorErrorWithNothingSet) {
  EXPECT_EQ(AskIt(), Answer(UNTOUCHED, UNTOUCHED));
  EXPECT_THAT(Calls(), ElementsAre(READ));
}

TEST_F(AutoProxyUrlOfTheUser, IsNeitherResultNorErrorWithAutomaticDetectionAlone) {
  settings_.autoDetect = true;
  EXPECT_EQ(AskIt(), Answer(UNTOUCHED, UNTOUCHED));
  EXPECT_THAT(Calls(), ElementsAre(READ));
}

TEST_F(AutoProxyUrlOfTheUser, FreesProxyThenBypassThenUrl) {
  settings_.autoDetect = true;
  settings_.proxy = L"fixed:8080";
  settings_.bypass = L"<local>";
  settings_.scriptUrl = L"http://p/x.pac";
  EXPECT_EQ(AskIt(), Result("http://p/x.pac"));
  EXPECT_THAT(Calls(), ElementsAre(READ, "GlobalFree(fixed:8080)", "GlobalFree(<local>)",
                                   "GlobalFree(http://p/x.pac)"));
}

TEST_F(AutoProxyUrlOfTheUser, FreesABypassWithoutAProxy) {
  settings_.bypass = L"<local>";
  EXPECT_EQ(AskIt(), Answer(UNTOUCHED, UNTOUCHED));
  EXPECT_THAT(Calls(), ElementsAre(READ, "GlobalFree(<local>)"));
}

TEST_F(AutoProxyUrlOfTheUser, IsCutTo2046Characters) {
  const std::wstring url(3000, L'u');
  settings_.scriptUrl = url.c_str();
  EXPECT_EQ(AskIt(), Result(std::string(2046, 'u')));
}

TEST_F(AutoProxyUrlOfTheUser, IsAnErrorWhenTheStepThrows) {
  settings_.throws = true;
  EXPECT_EQ(
      AskIt(),
      Error("PROXY:: Exception occurred while attempting to get Windows auto proxy configuration url."));
  EXPECT_THAT(Calls(), ElementsAre(READ));
}

TEST_F(AutoProxyUrlOfTheUser, IsNullAndTheSystemsTextFreedWhenMemoryIsShort) {
  settings_.scriptUrl = L"http://p/x.pac";
  const RefusedMemory memory(library_.Module(), STRING_BYTES, STRING_BYTES);
  EXPECT_EQ(AskIt(), Result("(null)"));
  EXPECT_EQ(memory.Refusals(), 1);
  EXPECT_THAT(Calls(), ElementsAre(READ, "GlobalFree(http://p/x.pac)"));
}

}  // namespace

}  // namespace ostrel::test
