#include "windows_session.h"

#include "cloud_login.h"
#include "file_metadata.h"
#include "proxy_settings.h"
#include "userhelper/process_metadata.h"

namespace ostrel::helper {

TitlesAnswer WindowsSession::Titles(std::uint32_t processId, const std::wstring& processName) {
  TitlesAnswer answer;
  answer.titles = ProcessMetadata(processId, processName.c_str()).GetTabTitles(&answer.code);
  return answer;
}

MetadataAnswer WindowsSession::Metadata(const std::wstring& filePath) {
  return ReadFileMetadata(filePath, patience_);
}

TextAnswer WindowsSession::AutoProxyConfigUrl() {
  return ReadAutoProxyConfigUrl();
}

TextAnswer WindowsSession::CloudLogin(const std::wstring& provider, const std::wstring& homeDirectory) {
  try {
    return FindCloudLogin(registry_, provider, homeDirectory);
  } catch (const RegistryError& error) {
    return {ResponseCode::CLOUDLOGIN_ERROR_GETTING_CLOUD_LOGIN,
            L"The registry key " + error.Key() + L" cannot be read, error " +
                std::to_wstring(error.ErrorCode()) + L"."};
  }
}

}  // namespace ostrel::helper
