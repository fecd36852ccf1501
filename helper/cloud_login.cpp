#include "cloud_login.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <string_view>
#include <vector>

#include "util/text.h"

namespace ostrel::helper {

namespace {

const wchar_t* const ONE_DRIVE_KEY = L"SOFTWARE\\Microsoft\\OneDrive";
const wchar_t* const ONE_DRIVE_ACCOUNTS_KEY = L"SOFTWARE\\Microsoft\\OneDrive\\Accounts";
const wchar_t* const SKY_DRIVE_KEY = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\SkyDrive";
const wchar_t* const LOGON_KEY = L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Authentication\\LogonUI";
const wchar_t* const PROFILE_LIST_KEY = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList";
const wchar_t* const ICLOUD_KEY_OF_USER = L"\\Software\\Apple Inc.\\Internet Services";
const wchar_t* const ICLOUD_SIGN_IN_VALUE = L"SignIn";

constexpr std::wstring_view PERSONAL_ACCOUNT = L"Personal";
constexpr std::wstring_view BUSINESS_ACCOUNT_PREFIX = L"Business";
constexpr std::wstring_view MICROSOFT_ACCOUNT_PREFIX = L"MicrosoftAccount\\";

TextAnswer Failed(ResponseCode code) {
  return {code, {}};
}

TextAnswer Found(std::wstring login) {
  return {ResponseCode::SUCCESS, std::move(login)};
}

// One spelling for each folder, but for case.
std::wstring PlainFolder(std::wstring folder) {
  std::replace(folder.begin(), folder.end(), L'/', L'\\');
  while (!folder.empty() && folder.back() == L'\\') folder.pop_back();
  return folder;
}

bool IsSameFolder(const std::wstring& left, const std::wstring& right) {
  const std::wstring plain = PlainFolder(left);
  return !plain.empty() && EqualsIgnoringAsciiCase(plain, PlainFolder(right));
}

bool IsSameFolderOrBelow(const std::wstring& folder, const std::wstring& home) {
  return IsSameFolder(folder, home) ||
         (!PlainFolder(home).empty() &&
          StartsWithIgnoringAsciiCase(PlainFolder(folder), PlainFolder(home) + L'\\'));
}

struct OneDriveAccount {
  std::wstring email;
  std::wstring folder;
};

bool IsOneDriveInstalled(const Registry& registry) {
  const auto has = [&registry](RegistryRoot root, const wchar_t* value) {
    return registry.Text(root, ONE_DRIVE_KEY, value).has_value();
  };
  return has(RegistryRoot::CurrentUser, L"CurrentVersionPath") ||
         has(RegistryRoot::CurrentUser, L"OneDriveTrigger") ||
         has(RegistryRoot::LocalMachine, L"CurrentVersionPath");
}

// Accounts without an e-mail address are not signed in.
std::vector<OneDriveAccount> OneDriveAccounts(const Registry& registry, std::wstring_view namePrefix) {
  std::vector<OneDriveAccount> accounts;
  for (const std::wstring& name : registry.SubkeyNames(RegistryRoot::CurrentUser, ONE_DRIVE_ACCOUNTS_KEY)) {
    if (!StartsWithIgnoringAsciiCase(name, namePrefix)) continue;
    const std::wstring key = std::wstring(ONE_DRIVE_ACCOUNTS_KEY) + L'\\' + name;
    std::optional<std::wstring> email = registry.Text(RegistryRoot::CurrentUser, key, L"UserEmail");
    if (!email) continue;
    accounts.push_back(
        {std::move(*email),
         registry.Text(RegistryRoot::CurrentUser, key, L"UserFolder").value_or(std::wstring())});
  }
  return accounts;
}

TextAnswer LoginAmong(const std::vector<OneDriveAccount>& accounts, const std::wstring& homeDirectory) {
  if (accounts.empty()) return Failed(ResponseCode::CLOUDLOGIN_NO_ONEDRIVE_ACCOUNTS_IN_REGISTRY);
  for (const OneDriveAccount& account : accounts) {
    if (IsSameFolderOrBelow(account.folder, homeDirectory)) return Found(account.email);
  }
  return Failed(ResponseCode::CLOUDLOGIN_ONE_DRIVE_INSTALL_PATH_NOT_FOUND_IN_REGISTRY);
}

// What came with Windows before there was a client to install: it signs in with the user's own Microsoft
// account.
TextAnswer SkyDriveLogin(const Registry& registry, const std::wstring& homeDirectory) {
  const std::optional<std::wstring> folder =
      registry.Text(RegistryRoot::CurrentUser, SKY_DRIVE_KEY, L"UserFolder");
  if (!folder) return Failed(ResponseCode::CLOUDLOGIN_NO_SKYDRIVE_USER_FOLDER_IN_REGISTRY);
  if (!IsSameFolderOrBelow(*folder, homeDirectory)) {
    return Failed(ResponseCode::CLOUDLOGIN_ONE_DRIVE_INSTALL_PATH_DOESNOT_MATCH_SKY_DRIVE_USER_FOLDER);
  }
  const std::wstring user =
      registry.Text(RegistryRoot::LocalMachine, LOGON_KEY, L"LastLoggedOnUser").value_or(std::wstring());
  if (!StartsWithIgnoringAsciiCase(user, MICROSOFT_ACCOUNT_PREFIX) ||
      user.size() == MICROSOFT_ACCOUNT_PREFIX.size()) {
    return Failed(ResponseCode::CLOUDLOGIN_MICROSOFT_ACCOUNT_LAST_LOGGED_ON_USER_NOT_IN_REGISTRY);
  }
  return Found(user.substr(MICROSOFT_ACCOUNT_PREFIX.size()));
}

TextAnswer OneDrivePersonalLogin(const Registry& registry, const std::wstring& homeDirectory) {
  if (IsOneDriveInstalled(registry)) {
    return LoginAmong(OneDriveAccounts(registry, PERSONAL_ACCOUNT), homeDirectory);
  }
  if (registry.HasKey(RegistryRoot::CurrentUser, SKY_DRIVE_KEY))
    return SkyDriveLogin(registry, homeDirectory);
  return Failed(ResponseCode::CLOUDLOGIN_ONE_DRIVE_INSTALL_PATH_NOT_FOUND_IN_REGISTRY);
}

TextAnswer OneDriveBusinessLogin(const Registry& registry, const std::wstring& homeDirectory) {
  if (IsOneDriveInstalled(registry)) {
    return LoginAmong(OneDriveAccounts(registry, BUSINESS_ACCOUNT_PREFIX), homeDirectory);
  }
  return Failed(ResponseCode::CLOUDLOGIN_ONE_DRIVE_INSTALL_PATH_NOT_FOUND_IN_REGISTRY);
}

// Of whichever kind, a personal account before the others.
TextAnswer OneDriveLogin(const Registry& registry, const std::wstring& homeDirectory) {
  if (!IsOneDriveInstalled(registry)) return OneDrivePersonalLogin(registry, homeDirectory);
  std::vector<OneDriveAccount> accounts = OneDriveAccounts(registry, PERSONAL_ACCOUNT);
  std::ranges::copy(OneDriveAccounts(registry, BUSINESS_ACCOUNT_PREFIX), std::back_inserter(accounts));
  return LoginAmong(accounts, homeDirectory);
}

TextAnswer ICloudLogin(const Registry& registry, const std::wstring& homeDirectory) {
  const std::vector<std::wstring> identifiers =
      registry.SubkeyNames(RegistryRoot::LocalMachine, PROFILE_LIST_KEY);
  if (identifiers.empty()) return Failed(ResponseCode::CLOUDLOGIN_NO_SECURITY_IDENTIFIERS_FOUND_IN_REGISTRY);
  const auto owner =
      std::find_if(identifiers.begin(), identifiers.end(), [&](const std::wstring& identifier) {
        const std::wstring key = std::wstring(PROFILE_LIST_KEY) + L'\\' + identifier;
        return IsSameFolder(
            registry.Text(RegistryRoot::LocalMachine, key, L"ProfileImagePath").value_or(std::wstring()),
            homeDirectory);
      });
  if (owner == identifiers.end()) {
    return Failed(ResponseCode::CLOUDLOGIN_NO_SECURITY_IDENTIFIER_FOUND_FOR_USER_HOME_DIR_IN_REGISTRY);
  }
  std::optional<std::wstring> login =
      registry.Text(RegistryRoot::Users, *owner + ICLOUD_KEY_OF_USER, ICLOUD_SIGN_IN_VALUE);
  return login ? Found(std::move(*login)) : Failed(ResponseCode::CLOUDLOGIN_NO_SIGNIN_VALUE_IN_REGISTRY);
}

struct Provider {
  std::wstring_view name;
  TextAnswer (*findLogin)(const Registry&, const std::wstring& homeDirectory);
};

constexpr std::array<Provider, 5> PROVIDERS{{
    {L"onedrive", OneDriveLogin},
    {L"onedrivepersonal", OneDrivePersonalLogin},
    {L"onedrivebusiness", OneDriveBusinessLogin},
    {L"onedriveforbusiness", OneDriveBusinessLogin},
    {L"icloud", ICloudLogin},
}};

}  // namespace

TextAnswer FindCloudLogin(const Registry& registry, const std::wstring& provider,
                          const std::wstring& homeDirectory) {
  std::wstring name = provider;
  std::erase(name, L' ');
  const auto known = std::find_if(PROVIDERS.begin(), PROVIDERS.end(), [&name](const Provider& candidate) {
    return EqualsIgnoringAsciiCase(candidate.name, name);
  });
  if (known == PROVIDERS.end()) {
    return Failed(ResponseCode::CLOUDLOGIN_INCORRECT_CLOUD_STORAGE_PROVIDER_TYPE);
  }
  return known->findLogin(registry, homeDirectory);
}

}  // namespace ostrel::helper
