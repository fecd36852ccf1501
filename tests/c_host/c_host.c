/* A host in C: every function of the library, called through the import library. Of the lab only the property
 * system lies beside it, and no driver file, so that whatever needs a driver fails. Ends with the number of
 * wrong results. */

#include <stdio.h>
#include <wchar.h>

#include "api/exports.h"

static unsigned prefixed_lines = 0;
static unsigned other_lines = 0;

static void on_log(const wchar_t* text, uint32_t level) {
  const wchar_t prefix[] = L"OstrelFilterDriver: ";
  const int is_level = level == 3 || level == 6 || level == 7;
  if (is_level && wcsncmp(text, prefix, sizeof(prefix) / sizeof(prefix[0]) - 1) == 0) {
    ++prefixed_lines;
  } else {
    ++other_lines;
  }
}

static void on_activity(const wchar_t* file_name, const wchar_t* process_name, const wchar_t* user,
                        uint64_t end_time, uint32_t file_event_type, int32_t stream_count,
                        wchar_t** addresses, uint32_t* ports, wchar_t** host_names, int32_t hint_count,
                        wchar_t** hints, const wchar_t* tab_title_status, uint8_t is_network_drive,
                        const wchar_t* sha256_hex, const wchar_t* md5_hex, uint32_t file_size,
                        const wchar_t* metadata_status, const wchar_t* extra_text) {
  (void)file_name, (void)process_name, (void)user, (void)end_time, (void)file_event_type;
  (void)stream_count, (void)addresses, (void)ports, (void)host_names, (void)hint_count, (void)hints;
  (void)tab_title_status, (void)is_network_drive, (void)sha256_hex, (void)md5_hex, (void)file_size;
  (void)metadata_status, (void)extra_text;
}

static void on_cloud(const wchar_t* file_name, const wchar_t* process_name, const wchar_t* user,
                     uint64_t end_time, uint32_t file_event_type) {
  (void)file_name, (void)process_name, (void)user, (void)end_time, (void)file_event_type;
}

static int wrong(const char* what, unsigned result, unsigned expected) {
  if (result == expected) return 0;
  fprintf(stderr, "%s: %u instead of %u\n", what, result, expected);
  return 1;
}

static int control(void) {
  const wchar_t* names[] = {L"chrome.exe"};
  const wchar_t* paths[] = {L"C:\\none"};
  int mistakes = 0;

  mistakes += wrong("UnloadDriver before LoadDriver", UnloadDriver(), 1);
  mistakes += wrong("LoadDriver without driver files", LoadDriver(on_log, 7), 0);
  mistakes += wrong("UnloadDriver after a failed LoadDriver", UnloadDriver(), 1);
  mistakes += wrong("EnableActivityDetection without a driver",
                    EnableActivityDetection(on_activity, L"ann", names, 1, paths, 1, 0, 0, 1), 0);
  mistakes += wrong("DisableActivityDetection without a driver", DisableActivityDetection(), 0);
  mistakes += wrong("EnablePCDDetection without a driver",
                    EnablePCDDetection(on_cloud, names, 1, paths, 1, paths, 1), 0);
  mistakes += wrong("DisablePCDDetection without a driver", DisablePCDDetection(), 0);
  mistakes += wrong("DisablePCDDetection of what is off", DisablePCDDetection(), 1);
  EnableRemoteAddressInfo(names, 1);
  UpdateProcesses(names, 1, 0);
  DisableRemoteAddressInfo();
  EnableTabTitles();
  DisableTabTitles();
  mistakes += wrong("lines without the library's prefix", other_lines, 0);
  mistakes += wrong("lines at all", prefixed_lines > 0, 1);
  return mistakes;
}

/* Frees what a getter set. Null as an expectation stands for a string that stays as it was; an empty text for
 * any. */
static int wrong_answer(const char* getter, wchar_t* result, wchar_t* error, const wchar_t* expected_result,
                        const wchar_t* expected_error) {
  wchar_t* const given[] = {result, error};
  const wchar_t* const expected[] = {expected_result, expected_error};
  int mistakes = 0;
  for (int i = 0; i < 2; ++i) {
    wchar_t* text = given[i];
    const int is_right = text == NULL || expected[i] == NULL
                             ? text == NULL && expected[i] == NULL
                             : expected[i][0] == L'\0' || wcscmp(text, expected[i]) == 0;
    if (!is_right) {
      fprintf(stderr, "%s: %s is %ls\n", getter, i == 0 ? "result" : "error", text == NULL ? L"null" : text);
      ++mistakes;
    }
    DeallocStringPointer(&text);
  }
  return mistakes;
}

/* Nobody is logged on at a terminal session here, so that no helper is asked. */
static int queries(void) {
  wchar_t* result = NULL;
  wchar_t* error = NULL;
  int mistakes = 0;

  GetCurrentUserName(&result, &error);
  mistakes += wrong_answer("GetCurrentUserName", result, error, L"", NULL);
  result = error = NULL;
  GetAllUserDirectories(&result, &error);
  mistakes += wrong_answer("GetAllUserDirectories", result, error, L"", NULL);
  result = error = NULL;
  GetAutoProxyConfigUrlForUser(&result, &error);
  mistakes += wrong("a result and an error at once", result != NULL && error != NULL, 0);
  DeallocStringPointer(&result);
  DeallocStringPointer(&error);
  result = error = NULL;
  GetAutoProxyConfigUrlForSystem(&result, &error);
  mistakes += wrong_answer(
      "GetAutoProxyConfigUrlForSystem", result, error, NULL,
      L"PROXY:: Exception occurred while attempting to get Windows auto proxy configuration url.");
  result = error = NULL;
  GetCloudStorageProviderLoginForSystem(L"OneDrive", L"C:\\Users\\ann", &result, &error);
  mistakes += wrong_answer("GetCloudStorageProviderLoginForSystem", result, error, NULL,
                           L"CLOUDLOGIN:: Exception occurred while attempting to get cloud Login.");
  result = NULL;
  DeallocStringPointer(&result);
  mistakes += wrong("DeallocStringPointer of a null string", result != NULL, 0);
  return mistakes;
}

int main(void) {
  return control() + queries();
}
