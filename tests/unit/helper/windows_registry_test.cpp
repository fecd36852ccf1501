#include "windows_registry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include "support/import_table.h"
#include "windows_session.h"

namespace {

using namespace ostrel;
using namespace ostrel::helper;
using ostrel::test::ImportPatch;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TheRegistry : public ::testing::Test {
 protected:
  TheRegistry() : key_(L"Software\\OstrelHelperTest" + std::to_wstring(GetCurrentProcessId())) {
    EXPECT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, key_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                              &handle_, nullptr),
              0);
  }
  ~TheRegistry() override {
    RegCloseKey(handle_);
    RegDeleteTreeW(HKEY_CURRENT_USER, key_.c_str());
  }

  void Set(const wchar_t* value, DWORD type, const std::wstring& text) {
    ASSERT_EQ(RegSetValueExW(handle_, value, 0, type, reinterpret_cast<const BYTE*>(text.c_str()),
                             static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))),
              0);
  }
  void AddSubkey(const wchar_t* name) {
    HKEY subkey = nullptr;
    ASSERT_EQ(RegCreateKeyExW(handle_, name, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &subkey, nullptr), 0);
    RegCloseKey(subkey);
  }
  std::optional<std::wstring> Text(const wchar_t* value) {
    return registry_.Text(RegistryRoot::CurrentUser, key_, value);
  }

  std::wstring key_;
  HKEY handle_ = nullptr;
  WindowsRegistry registry_;
};

TEST_F(TheRegistry, HasTheKeysThatAreThere) {
  EXPECT_TRUE(registry_.HasKey(RegistryRoot::CurrentUser, key_));
  EXPECT_FALSE(registry_.HasKey(RegistryRoot::CurrentUser, key_ + L"\\none"));
  EXPECT_FALSE(registry_.HasKey(RegistryRoot::LocalMachine, key_));
  EXPECT_FALSE(registry_.HasKey(RegistryRoot::Users, key_));
}

TEST_F(TheRegistry, GivesATextOfAnyLength) {
  for (const std::size_t length : {1U, 255U, 256U, 257U, 5000U}) {
    Set(L"value", REG_SZ, std::wstring(length, L'x'));
    EXPECT_EQ(Text(L"value"), std::wstring(length, L'x'));
  }
}

TEST_F(TheRegistry, PutsEnvironmentVariablesInTheirPlace) {
  SetEnvironmentVariableW(L"OSTREL_TEST_HOME", L"C:\\Users\\ann");
  Set(L"value", REG_EXPAND_SZ, L"%OSTREL_TEST_HOME%\\OneDrive");
  EXPECT_EQ(Text(L"value"), L"C:\\Users\\ann\\OneDrive");
}

TEST_F(TheRegistry, GivesNothingForWhatIsNotThereEmptyOrNoText) {
  EXPECT_EQ(Text(L"value"), std::nullopt);
  Set(L"value", REG_SZ, L"");
  EXPECT_EQ(Text(L"value"), std::nullopt);
  Set(L"value", REG_BINARY, L"text");
  EXPECT_EQ(Text(L"value"), std::nullopt);
  EXPECT_EQ(registry_.Text(RegistryRoot::CurrentUser, key_ + L"\\none", L"value"), std::nullopt);
}

TEST_F(TheRegistry, GivesTheNamesOfSubkeysInOrder) {
  EXPECT_THAT(registry_.SubkeyNames(RegistryRoot::CurrentUser, key_), IsEmpty());
  for (const wchar_t* name : {L"Personal", L"Business2", L"Business1"}) AddSubkey(name);
  EXPECT_THAT(registry_.SubkeyNames(RegistryRoot::CurrentUser, key_),
              ElementsAre(L"Business1", L"Business2", L"Personal"));
  EXPECT_THAT(registry_.SubkeyNames(RegistryRoot::CurrentUser, key_ + L"\\none"), IsEmpty());
}

LSTATUS WINAPI RefusingRegOpenKeyExW(HKEY, const wchar_t*, DWORD, REGSAM, HKEY*) {
  return ERROR_ACCESS_DENIED;
}

TEST_F(TheRegistry, ThrowsWhenAKeyMustNotBeRead) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "RegOpenKeyExW",
                          reinterpret_cast<void*>(&RefusingRegOpenKeyExW));
  try {
    registry_.HasKey(RegistryRoot::CurrentUser, key_);
    ADD_FAILURE() << "no error";
  } catch (const RegistryError& error) {
    EXPECT_EQ(error.Key(), key_);
    EXPECT_EQ(error.ErrorCode(), ERROR_ACCESS_DENIED);
  }
}

TEST_F(TheRegistry, ThatCannotBeReadMakesACloudLoginFailWithAnExplanation) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "RegOpenKeyExW",
                          reinterpret_cast<void*>(&RefusingRegOpenKeyExW));
  WindowsSession session(registry_, std::chrono::seconds(1));
  const TextAnswer answer = session.CloudLogin(L"OneDrive", L"C:\\Users\\ann");
  EXPECT_EQ(answer.code, CLOUDLOGIN_ERROR_GETTING_CLOUD_LOGIN);
  EXPECT_EQ(answer.text, L"The registry key SOFTWARE\\Microsoft\\OneDrive cannot be read, error 5.");
}

LSTATUS WINAPI FailingRegGetValueW(HKEY, const wchar_t*, const wchar_t*, DWORD, DWORD*, void*, DWORD*) {
  return ERROR_BADDB;
}

TEST_F(TheRegistry, ThrowsWhenAValueCannotBeRead) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "RegGetValueW",
                          reinterpret_cast<void*>(&FailingRegGetValueW));
  EXPECT_THROW(Text(L"value"), RegistryError);
}

LSTATUS WINAPI FailingRegEnumKeyExW(HKEY, DWORD, wchar_t*, DWORD*, DWORD*, wchar_t*, DWORD*, FILETIME*) {
  return ERROR_BADDB;
}

TEST_F(TheRegistry, ThrowsWhenSubkeysCannotBeListed) {
  const ImportPatch patch(GetModuleHandleW(nullptr), "RegEnumKeyExW",
                          reinterpret_cast<void*>(&FailingRegEnumKeyExW));
  EXPECT_THROW(registry_.SubkeyNames(RegistryRoot::CurrentUser, key_), RegistryError);
}

}  // namespace
