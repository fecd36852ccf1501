#include "cloud_login.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

namespace {

using namespace ostrel;
using namespace ostrel::helper;

const std::wstring ONE_DRIVE = L"CU\\SOFTWARE\\Microsoft\\OneDrive";
const std::wstring ACCOUNTS = ONE_DRIVE + L"\\Accounts";
const std::wstring SKY_DRIVE = L"CU\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\SkyDrive";
const std::wstring LOGON = L"LM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Authentication\\LogonUI";
const std::wstring PROFILES = L"LM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";
const std::wstring HOME = L"C:\\Users\\ann";

// Keys with their values, the root's initials in front.
class ScriptedRegistry : public Registry {
 public:
  std::map<std::wstring, std::map<std::wstring, std::wstring>> keys;
  std::wstring unreadableKey;

  bool HasKey(RegistryRoot root, const std::wstring& key) const override {
    return keys.contains(FullName(root, key));
  }

  std::optional<std::wstring> Text(RegistryRoot root, const std::wstring& key,
                                   const std::wstring& value) const override {
    const auto found = keys.find(FullName(root, key));
    if (found == keys.end() || !found->second.contains(value)) return std::nullopt;
    return found->second.at(value);
  }

  std::vector<std::wstring> SubkeyNames(RegistryRoot root, const std::wstring& key) const override {
    const std::wstring prefix = FullName(root, key) + L'\\';
    std::vector<std::wstring> names;
    for (const auto& [name, values] : keys) {
      if (name.starts_with(prefix) && name.find(L'\\', prefix.size()) == std::wstring::npos) {
        names.push_back(name.substr(prefix.size()));
      }
    }
    return names;
  }

 private:
  std::wstring FullName(RegistryRoot root, const std::wstring& key) const {
    if (key == unreadableKey) throw RegistryError(key, 5);
    const wchar_t* const names[] = {L"CU\\", L"LM\\", L"U\\"};
    return names[static_cast<int>(root)] + key;
  }
};

class CloudLogin : public ::testing::Test {
 protected:
  void InstallOneDrive() {
    registry_.keys[ONE_DRIVE][L"CurrentVersionPath"] = L"C:\\Program Files\\OneDrive";
  }
  void AddAccount(const std::wstring& name, const std::wstring& email, const std::wstring& folder) {
    registry_.keys[ACCOUNTS + L"\\" + name] = {{L"UserEmail", email}, {L"UserFolder", folder}};
  }
  void AddSkyDrive() {
    registry_.keys[SKY_DRIVE][L"UserFolder"] = HOME + L"\\SkyDrive";
    registry_.keys[LOGON][L"LastLoggedOnUser"] = L"MicrosoftAccount\\ann@example.com";
  }
  void AddProfile(const std::wstring& identifier, const std::wstring& folder) {
    registry_.keys[PROFILES + L"\\" + identifier][L"ProfileImagePath"] = folder;
  }
  void SignIntoICloud(const std::wstring& identifier, const std::wstring& login) {
    registry_.keys[L"U\\" + identifier + L"\\Software\\Apple Inc.\\Internet Services"][L"SignIn"] = login;
  }

  void ExpectLogin(const std::wstring& provider, const std::wstring& login) {
    const TextAnswer answer = FindCloudLogin(registry_, provider, HOME);
    EXPECT_EQ(answer.code, SUCCESS);
    EXPECT_EQ(answer.text, login);
  }
  void ExpectCode(const std::wstring& provider, ResponseCode code, const std::wstring& home = HOME) {
    const TextAnswer answer = FindCloudLogin(registry_, provider, home);
    EXPECT_EQ(answer.code, code);
    EXPECT_EQ(answer.text, L"");
  }

  ScriptedRegistry registry_;
};

using ACloudProvider = CloudLogin;
using OneDrive = CloudLogin;
using OneDrivePersonal = CloudLogin;
using OneDriveBusiness = CloudLogin;
using ICloud = CloudLogin;

TEST_F(ACloudProvider, IsKnownWhateverCaseAndBlanks) {
  InstallOneDrive();
  AddAccount(L"Personal", L"p@example.com", HOME + L"\\OneDrive");
  AddAccount(L"Business1", L"b@example.com", HOME + L"\\OneDrive - Example");
  AddProfile(L"S-1", HOME);
  SignIntoICloud(L"S-1", L"i@example.com");
  for (const wchar_t* name :
       {L"OneDrive", L"onedrive", L"One Drive", L"OneDrive Personal", L"OneDrivePersonal"}) {
    ExpectLogin(name, L"p@example.com");
  }
  for (const wchar_t* name :
       {L"OneDrive Business", L"OneDriveBusiness", L"OneDrive for Business", L"ONEDRIVEFORBUSINESS"}) {
    ExpectLogin(name, L"b@example.com");
  }
  for (const wchar_t* name : {L"iCloud", L"ICLOUD", L" icloud "}) ExpectLogin(name, L"i@example.com");
}

TEST_F(ACloudProvider, OfAnotherNameIsRefused) {
  InstallOneDrive();
  AddAccount(L"Personal", L"p@example.com", HOME + L"\\OneDrive");
  for (const wchar_t* name : {L"", L" ", L"OneDrive2", L"One", L"Dropbox", L"iCloud Photos"}) {
    ExpectCode(name, CLOUDLOGIN_INCORRECT_CLOUD_STORAGE_PROVIDER_TYPE);
  }
}

TEST_F(OneDrive, IsInstalledForTheUserOrForTheMachine) {
  AddAccount(L"Personal", L"p@example.com", HOME + L"\\OneDrive");
  const std::vector<std::pair<std::wstring, std::wstring>> places{
      {ONE_DRIVE, L"CurrentVersionPath"},
      {ONE_DRIVE, L"OneDriveTrigger"},
      {L"LM\\SOFTWARE\\Microsoft\\OneDrive", L"CurrentVersionPath"}};
  for (const auto& [key, value] : places) {
    ExpectCode(L"OneDrive", CLOUDLOGIN_ONE_DRIVE_INSTALL_PATH_NOT_FOUND_IN_REGISTRY);
    registry_.keys[key][value] = L"C:\\Program Files\\OneDrive";
    ExpectLogin(L"OneDrive", L"p@example.com");
    registry_.keys.erase(key);
  }
}

TEST_F(OneDrive, WithoutAnySignedInAccountHasNoAccounts) {
  InstallOneDrive();
  ExpectCode(L"OneDrive", CLOUDLOGIN_NO_ONEDRIVE_ACCOUNTS_IN_REGISTRY);
  registry_.keys[ACCOUNTS + L"\\Personal"][L"UserFolder"] = HOME + L"\\OneDrive";
  ExpectCode(L"OneDrive", CLOUDLOGIN_NO_ONEDRIVE_ACCOUNTS_IN_REGISTRY);
}

TEST_F(OneDrive, TakesThePersonalAccountFirst) {
  InstallOneDrive();
  AddAccount(L"Business1", L"b@example.com", HOME + L"\\OneDrive - Example");
  ExpectLogin(L"OneDrive", L"b@example.com");
  AddAccount(L"Personal", L"p@example.com", HOME + L"\\OneDrive");
  ExpectLogin(L"OneDrive", L"p@example.com");
}

TEST_F(OneDrive, TakesTheAccountWhoseFolderLiesInTheHomeDirectory) {
  InstallOneDrive();
  AddAccount(L"Personal", L"p@example.com", L"C:\\Users\\annabel\\OneDrive");
  AddAccount(L"Business1", L"b@example.com", L"D:\\OneDrive");
  ExpectCode(L"OneDrive", CLOUDLOGIN_ONE_DRIVE_INSTALL_PATH_NOT_FOUND_IN_REGISTRY);
  AddAccount(L"Business2", L"c@example.com", L"c:\\users\\ANN\\OneDrive - Other\\");
  ExpectLogin(L"OneDrive", L"c@example.com");
}

TEST_F(OneDrive, TakesAHomeDirectoryHoweverItIsWritten) {
  InstallOneDrive();
  AddAccount(L"Personal", L"p@example.com", HOME);
  for (const wchar_t* home :
       {L"C:\\Users\\ann", L"C:\\Users\\ann\\", L"c:/users/ANN", L"C:\\Users", L"C:\\"}) {
    EXPECT_EQ(FindCloudLogin(registry_, L"OneDrive", home).text, L"p@example.com");
  }
}

TEST_F(OneDrive, HasNoAccountInAnEmptyHomeDirectory) {
  InstallOneDrive();
  AddAccount(L"Personal", L"p@example.com", HOME);
  AddAccount(L"Business1", L"b@example.com", L"");
  ExpectCode(L"OneDrive", CLOUDLOGIN_ONE_DRIVE_INSTALL_PATH_NOT_FOUND_IN_REGISTRY, L"");
}

TEST_F(OneDrive, ThatCameWithWindowsSignsInWithTheMicrosoftAccount) {
  AddSkyDrive();
  ExpectLogin(L"OneDrive", L"ann@example.com");
  ExpectLogin(L"OneDrive Personal", L"ann@example.com");
  ExpectCode(L"OneDrive Business", CLOUDLOGIN_ONE_DRIVE_INSTALL_PATH_NOT_FOUND_IN_REGISTRY);
}

TEST_F(OneDrive, ThatCameWithWindowsNeedsItsFolder) {
  AddSkyDrive();
  registry_.keys[SKY_DRIVE].erase(L"UserFolder");
  ExpectCode(L"OneDrive", CLOUDLOGIN_NO_SKYDRIVE_USER_FOLDER_IN_REGISTRY);
}

TEST_F(OneDrive, ThatCameWithWindowsHasItsFolderInTheHomeDirectory) {
  AddSkyDrive();
  ExpectCode(L"OneDrive", CLOUDLOGIN_ONE_DRIVE_INSTALL_PATH_DOESNOT_MATCH_SKY_DRIVE_USER_FOLDER,
             L"C:\\Users\\ben");
}

TEST_F(OneDrive, ThatCameWithWindowsNeedsAMicrosoftAccountThatLoggedOnLast) {
  AddSkyDrive();
  for (const wchar_t* user : {L"DESKTOP\\ann", L"ann@example.com", L"MicrosoftAccount\\", L""}) {
    registry_.keys[LOGON][L"LastLoggedOnUser"] = user;
    ExpectCode(L"OneDrive", CLOUDLOGIN_MICROSOFT_ACCOUNT_LAST_LOGGED_ON_USER_NOT_IN_REGISTRY);
  }
  registry_.keys.erase(LOGON);
  ExpectCode(L"OneDrive", CLOUDLOGIN_MICROSOFT_ACCOUNT_LAST_LOGGED_ON_USER_NOT_IN_REGISTRY);
}

TEST_F(OneDrive, OnceInstalledTakesThePlaceOfTheOneThatCameWithWindows) {
  AddSkyDrive();
  InstallOneDrive();
  ExpectCode(L"OneDrive", CLOUDLOGIN_NO_ONEDRIVE_ACCOUNTS_IN_REGISTRY);
}

TEST_F(OneDrivePersonal, LeavesOutBusinessAccounts) {
  InstallOneDrive();
  AddAccount(L"Business1", L"b@example.com", HOME + L"\\OneDrive - Example");
  ExpectCode(L"OneDrive Personal", CLOUDLOGIN_NO_ONEDRIVE_ACCOUNTS_IN_REGISTRY);
}

TEST_F(OneDriveBusiness, LeavesOutThePersonalAccount) {
  InstallOneDrive();
  AddAccount(L"Personal", L"p@example.com", HOME + L"\\OneDrive");
  ExpectCode(L"OneDrive Business", CLOUDLOGIN_NO_ONEDRIVE_ACCOUNTS_IN_REGISTRY);
}

TEST_F(OneDriveBusiness, TakesTheFirstOfSeveralAccounts) {
  InstallOneDrive();
  AddAccount(L"Business2", L"c@example.com", HOME + L"\\Other");
  AddAccount(L"Business1", L"b@example.com", HOME + L"\\OneDrive - Example");
  ExpectLogin(L"OneDrive Business", L"b@example.com");
}

TEST_F(ICloud, TakesTheUserWhoseHomeDirectoryItIs) {
  AddProfile(L"S-1-5-21-1", L"C:\\Users\\annabel");
  AddProfile(L"S-1-5-21-2", L"c:\\users\\ANN\\");
  SignIntoICloud(L"S-1-5-21-1", L"annabel@example.com");
  SignIntoICloud(L"S-1-5-21-2", L"ann@example.com");
  ExpectLogin(L"iCloud", L"ann@example.com");
}

TEST_F(ICloud, NeedsSomeUserOnTheMachine) {
  ExpectCode(L"iCloud", CLOUDLOGIN_NO_SECURITY_IDENTIFIERS_FOUND_IN_REGISTRY);
}

TEST_F(ICloud, NeedsAUserWithThatHomeDirectory) {
  AddProfile(L"S-1-5-21-1", L"C:\\Users");
  AddProfile(L"S-1-5-21-2", HOME + L"\\below");
  registry_.keys[PROFILES + L"\\S-1-5-21-3"];
  ExpectCode(L"iCloud", CLOUDLOGIN_NO_SECURITY_IDENTIFIER_FOUND_FOR_USER_HOME_DIR_IN_REGISTRY);
  ExpectCode(L"iCloud", CLOUDLOGIN_NO_SECURITY_IDENTIFIER_FOUND_FOR_USER_HOME_DIR_IN_REGISTRY, L"");
}

TEST_F(ICloud, NeedsASignInOfThatUser) {
  AddProfile(L"S-1-5-21-1", HOME);
  AddProfile(L"S-1-5-21-2", L"C:\\Users\\ben");
  SignIntoICloud(L"S-1-5-21-2", L"ben@example.com");
  ExpectCode(L"iCloud", CLOUDLOGIN_NO_SIGNIN_VALUE_IN_REGISTRY);
}

TEST_F(CloudLogin, ThrowsWhatTheRegistryThrows) {
  registry_.unreadableKey = L"SOFTWARE\\Microsoft\\OneDrive";
  EXPECT_THROW(FindCloudLogin(registry_, L"OneDrive", HOME), RegistryError);
}

}  // namespace
