#include "userhelper/helper_requests.h"

#include <sstream>

#include "log/log.h"
#include "userhelper/helper_channel.h"
#include "userhelper/judgements.h"
#include "userhelper/proc_util_exception.h"
#include "userhelper/random_hex_id.h"
#include "userhelper/request_message.h"
#include "userhelper/response_messages.h"
#include "util/ostrel_filter_lib_util.h"

namespace ostrel {

namespace {

constexpr ExchangeLimits TAB_TITLES_LIMITS{2048, 2000};
constexpr ExchangeLimits META_DATA_LIMITS{10240, 10000};
constexpr ExchangeLimits PROXY_LIMITS{4400, 2000};
constexpr ExchangeLimits CLOUD_LOGIN_LIMITS{4400, 2000};

std::wstring TextOf(const RequestMessage& request) {
  std::wostringstream stream;
  // Without memory there is no text at all, rather than one with gaps.
  stream.exceptions(std::ios_base::badbit);
  request.Serialize(stream);
  return stream.str();
}

void Read(const std::wstring& text, ResponseMessage& response) {
  std::wistringstream stream(text);
  // Running out of memory is not the helper's fault.
  stream.exceptions(std::ios_base::badbit);
  response.Deserialize(stream);
}

std::vector<std::wstring> RequestTabTitles(ULong32 processId, const std::wstring& processName,
                                           std::wstring& status) {
  const std::wstring commandId = GenerateRandomHexId();
  const std::wstring responseId = GenerateRandomHexId();
  status = L"TABTITLE_SUCCESS";
  const std::wstring pipeName = ConnectToUserHelper(commandId, responseId, status);
  const std::wstring request = TextOf({commandId, responseId, processId, processName});
  Log(LOG_DETAIL, L"Sending tabtitle message %s", request.c_str());
  std::wstring reply;
  ULong32 pipeError = 0;
  if (!Exchange(pipeName, request, TAB_TITLES_LIMITS, reply, pipeError)) {
    status = L"TABTITLE_CONNECT_PIPE_FAILED";
    Log(LOG_ERROR, L"Couldn't get tab titles from pipe: %d", pipeError);
    throw ProcUtilException();
  }
  Log(LOG_DETAIL, L"Received buffer from user process when requesting titles: %s", reply.c_str());
  ResponseMessageTabTitles response(responseId);
  Read(reply, response);
  return JudgeTabTitles(response, processName, status);
}

FileMetaData RequestMetaData(const std::wstring& filePath, std::wstring& status) {
  const std::wstring commandId = GenerateRandomHexId();
  const std::wstring responseId = GenerateRandomHexId();
  status = L"METADATA_SUCCESS";
  const std::wstring pipeName = ConnectToUserHelper(commandId, responseId, status);
  const std::wstring request = TextOf({commandId, responseId, filePath});
  Log(LOG_DETAIL, L"Sending metadata message %s", request.c_str());
  std::wstring reply;
  ULong32 pipeError = 0;
  if (!Exchange(pipeName, request, META_DATA_LIMITS, reply, pipeError)) {
    status = L"METADATA_CONNECT_PIPE_FAILED";
    Log(LOG_ERROR, L"Couldn't get metadata from pipe: %d", pipeError);
    throw ProcUtilException();
  }
  Log(LOG_DETAIL, L"Received buffer from user process when requesting metadata: %s", reply.c_str());
  ResponseMessageMetaData response(responseId);
  Read(reply, response);
  return JudgeMetaData(response, filePath, status);
}

void RequestAutoProxyConfigUrl(wchar_t** result, wchar_t** error) {
  std::wstring status;
  const std::wstring commandId = GenerateRandomHexId();
  const std::wstring responseId = GenerateRandomHexId();
  const std::wstring pipeName = ConnectToUserHelper(commandId, responseId, status);
  if (!JudgeAutoProxyChannel(status, error)) return;
  const std::wstring request = TextOf({commandId, responseId});
  Log(LOG_DETAIL, L"PROXY:: Sending AutoProxyConfigUrl message %s", request.c_str());
  std::wstring reply;
  ULong32 pipeError = 0;
  if (!Exchange(pipeName, request, PROXY_LIMITS, reply, pipeError)) {
    OstrelFilterLibUtil::AllocStringPointer(error, L"PROXY:: Couldn't get AutoProxyConfigUrl from pipe: %d",
                                            pipeError);
    return;
  }
  Log(LOG_DETAIL, L"PROXY:: Received buffer from user process when requesting AutoProxyConfigUrl: %s",
      reply.c_str());
  ResponseMessageAutoProxyConfigUrl response(responseId);
  Read(reply, response);
  JudgeAutoProxyConfigUrl(response, reply, result, error);
}

void RequestCloudStorageProviderLogin(const std::wstring& provider, const std::wstring& homeDirectory,
                                      wchar_t** result, wchar_t** error) {
  std::wstring status;
  const std::wstring commandId = GenerateRandomHexId();
  const std::wstring responseId = GenerateRandomHexId();
  const std::wstring pipeName = ConnectToUserHelper(commandId, responseId, status);
  if (!JudgeCloudLoginChannel(status, error)) return;
  const std::wstring request = TextOf({commandId, responseId, provider, homeDirectory});
  Log(LOG_DETAIL, L"CLOUDLOGIN:: Sending cloud Login message %s for provider: %s", request.c_str(),
      provider.c_str());
  std::wstring reply;
  ULong32 pipeError = 0;
  if (!Exchange(pipeName, request, CLOUD_LOGIN_LIMITS, reply, pipeError)) {
    OstrelFilterLibUtil::AllocStringPointer(error, L"CLOUDLOGIN:: Couldn't get cloud Login from pipe: %d",
                                            pipeError);
    return;
  }
  Log(LOG_DETAIL, L"CLOUDLOGIN:: Received buffer from user process when requesting cloud Login: %s",
      reply.c_str());
  ResponseMessageCloudStorageProviderLogin response(responseId);
  Read(reply, response);
  JudgeCloudStorageProviderLogin(response, reply, result, error);
}

}  // namespace

std::vector<std::wstring> GetTabTitlesFromUserHelper(ULong32 processId, const std::wstring& processName,
                                                     std::wstring& status) {
  try {
    return RequestTabTitles(processId, processName, status);
  } catch (const ProcUtilException&) {
    // The status says why.
  } catch (...) {
    // Memory is short, which no word stands for.
    status.clear();
  }
  return {};
}

FileMetaData GetFileMetaDataFromUserHelper(const std::wstring& filePath, std::wstring& status) {
  try {
    return RequestMetaData(filePath, status);
  } catch (const ProcUtilException&) {
    // The status says why.
  } catch (...) {
    // Memory is short, which no word stands for.
    status.clear();
  }
  return {};
}

void GetAutoProxyConfigUrlFromUserHelper(wchar_t** result, wchar_t** error) {
  try {
    RequestAutoProxyConfigUrl(result, error);
  } catch (...) {
    OstrelFilterLibUtil::AllocStringPointer(
        error, L"PROXY:: Exception occurred while attempting to get Windows auto proxy configuration url.");
  }
}

void GetCloudStorageProviderLoginFromUserHelper(const std::wstring& provider,
                                                const std::wstring& homeDirectory, wchar_t** result,
                                                wchar_t** error) {
  try {
    RequestCloudStorageProviderLogin(provider, homeDirectory, result, error);
  } catch (...) {
    OstrelFilterLibUtil::AllocStringPointer(
        error, L"CLOUDLOGIN:: Exception occurred while attempting to get cloud Login.");
  }
}

}  // namespace ostrel
