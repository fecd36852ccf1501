/* A host that knows the library only by name, as another language's foreign-function tool does: no header and
 * no import library of the project. Every signature is written out here by hand, in the platform's own types.
 *
 * By itself it lies beside the library without any driver file, so that whatever needs a driver fails. With
 * the argument "lab" it runs where the lab's drivers lie: it says "watching" on standard error, waits for one
 * detection of each kind, and prints what its callbacks got. Ends with the number of wrong results. */

#include <windows.h>

#include <stdio.h>
#include <string.h>

typedef void(WINAPI* log_callback)(const wchar_t*, unsigned int);
typedef void(WINAPI* activity_callback)(const wchar_t*, const wchar_t*, const wchar_t*, unsigned long long,
                                        unsigned int, int, wchar_t**, unsigned int*, wchar_t**, int,
                                        wchar_t**, const wchar_t*, unsigned char, const wchar_t*,
                                        const wchar_t*, unsigned int, const wchar_t*, const wchar_t*);
typedef void(WINAPI* cloud_callback)(const wchar_t*, const wchar_t*, const wchar_t*, unsigned long long,
                                     unsigned int);

static const wchar_t LIBRARY[] = L"OstrelFilterLib.dll";
static const DWORD PATIENCE_MILLISECONDS = 60000;

static int mistakes = 0;
static LONG lines = 0;
static HANDLE activity_seen;
static HANDLE cloud_seen;

static void expect(const char* what, int holds) {
  if (holds) return;
  fprintf(stderr, "wrong: %s\n", what);
  ++mistakes;
}

static void WINAPI on_log(const wchar_t* text, unsigned int level) {
  if (wcsncmp(text, L"OstrelFilterDriver: ", 20) == 0 && level <= 7) InterlockedIncrement(&lines);
}

/* Milliseconds since 1970. */
static unsigned long long now(void) {
  FILETIME time;
  GetSystemTimeAsFileTime(&time);
  const unsigned long long ticks = (unsigned long long)time.dwHighDateTime << 32 | time.dwLowDateTime;
  return ticks / 10000 - 11644473600000ULL;
}

static const char* age(unsigned long long time) {
  const unsigned long long present = now();
  return time <= present && present - time < 600000 ? "recent" : "not recent";
}

static void WINAPI on_activity(const wchar_t* file, const wchar_t* process, const wchar_t* user,
                               unsigned long long end_time, unsigned int type, int stream_count,
                               wchar_t** addresses, unsigned int* ports, wchar_t** host_names, int hint_count,
                               wchar_t** hints, const wchar_t* title_status, unsigned char is_network_drive,
                               const wchar_t* sha256, const wchar_t* md5, unsigned int size,
                               const wchar_t* metadata_status, const wchar_t* extra) {
  const wchar_t* image = wcsrchr(process, L'\\');
  printf("activity: %ls, %ls, %ls, %s, type %u", file, image == NULL ? process : image + 1, user,
         age(end_time), type);
  for (int i = 0; i < stream_count; ++i) {
    printf(", stream %ls:%u [%ls]", addresses[i], ports[i], host_names[i]);
  }
  for (int i = 0; i < hint_count; ++i) printf(", hint %ls", hints[i]);
  printf(", %ls, network %u, %ls, %ls, size %u, %ls, [%ls]\n", title_status, (unsigned int)is_network_drive,
         sha256, md5, size, metadata_status, extra);
  SetEvent(activity_seen);
}

static void WINAPI on_cloud(const wchar_t* file, const wchar_t* process, const wchar_t* user,
                            unsigned long long end_time, unsigned int type) {
  const wchar_t* image = wcsrchr(process, L'\\');
  printf("cloud: %ls, %ls, %ls, %s, type %u\n", file, image == NULL ? process : image + 1, user,
         age(end_time), type);
  SetEvent(cloud_seen);
}

static HMODULE load(void) {
  const HMODULE library = LoadLibraryW(LIBRARY);
  if (library == NULL) {
    fprintf(stderr, "OstrelFilterLib.dll cannot be loaded, error %lu\n", GetLastError());
    ExitProcess(100);
  }
  return library;
}

static FARPROC find(HMODULE library, const char* name) {
  FARPROC function = GetProcAddress(library, name);
  if (function == NULL) {
    fprintf(stderr, "%s is not exported\n", name);
    ExitProcess(100);
  }
  return function;
}

/* The library alone decides what a FARPROC takes. */
#define CALL(result, name, ...) ((result(WINAPI*)(__VA_ARGS__))(void (*)(void))find(library, name))

static int enable_activity(HMODULE library, const wchar_t* user, const wchar_t** names,
                           unsigned char remote_address_info) {
  return CALL(unsigned char, "EnableActivityDetection", activity_callback, const wchar_t*, const wchar_t**,
              int, const wchar_t**, int, unsigned char, unsigned char,
              unsigned char)(on_activity, user, names, 1, NULL, 0, 0, remote_address_info, 1);
}

static int enable_cloud(HMODULE library, const wchar_t** names) {
  return CALL(unsigned char, "EnablePCDDetection", cloud_callback, const wchar_t**, int, const wchar_t**, int,
              const wchar_t**, int)(on_cloud, names, 1, NULL, 0, NULL, 0);
}

static void control_without_drivers(HMODULE library) {
  const wchar_t* names[] = {L"chrome.exe"};
  expect("UnloadDriver of what is not loaded", CALL(unsigned char, "UnloadDriver", void)() == 1);
  expect("LoadDriver without driver files",
         CALL(unsigned char, "LoadDriver", log_callback, unsigned int)(on_log, 7) == 0);
  expect("log lines", lines > 0);
  expect("EnableActivityDetection without a driver", enable_activity(library, L"ann", names, 0) == 0);
  expect("DisableActivityDetection without a driver",
         CALL(unsigned char, "DisableActivityDetection", void)() == 0);
  expect("EnablePCDDetection without a driver", enable_cloud(library, names) == 0);
  expect("DisablePCDDetection without a driver", CALL(unsigned char, "DisablePCDDetection", void)() == 0);
  expect("DisablePCDDetection of what is off", CALL(unsigned char, "DisablePCDDetection", void)() == 1);
  CALL(void, "UpdateProcesses", const wchar_t**, unsigned int, unsigned char)(names, 1, 0);
  CALL(void, "EnableTabTitles", void)();
  CALL(void, "DisableTabTitles", void)();
  CALL(void, "EnableRemoteAddressInfo", const wchar_t**, unsigned int)(names, 1);
  CALL(void, "DisableRemoteAddressInfo", void)();
}

static void query(HMODULE library, const char* name) {
  wchar_t* result = NULL;
  wchar_t* error = NULL;
  CALL(void, name, wchar_t**, wchar_t**)(&result, &error);
  expect("a result and an error at once", result == NULL || error == NULL);
  CALL(void, "DeallocStringPointer", wchar_t**)(&result);
  CALL(void, "DeallocStringPointer", wchar_t**)(&error);
}

static void query_all(HMODULE library) {
  query(library, "GetCurrentUserName");
  query(library, "GetAllUserDirectories");
  query(library, "GetAutoProxyConfigUrlForUser");
  query(library, "GetAutoProxyConfigUrlForSystem");
  wchar_t* result = NULL;
  wchar_t* error = NULL;
  CALL(void, "GetCloudStorageProviderLoginForSystem", const wchar_t*, const wchar_t*, wchar_t**, wchar_t**)
  (L"OneDrive", L"C:\\Users\\ann", &result, &error);
  expect("a cloud login without a session", result == NULL && error != NULL);
  CALL(void, "DeallocStringPointer", wchar_t**)(&error);
}

static int is_loaded(void) {
  return GetModuleHandleW(LIBRARY) != NULL;
}

static void without_drivers(void) {
  HMODULE library = load();
  query_all(library);
  expect("FreeLibrary after queries only", FreeLibrary(library) && !is_loaded());
  library = load();
  control_without_drivers(library);
  expect("FreeLibrary once it may have threads", FreeLibrary(library) && is_loaded());
  expect("a call after FreeLibrary", CALL(unsigned char, "UnloadDriver", void)() == 1);
  query_all(library);
}

/* The library starts the helper from the current directory. */
static void enter_program_folder(void) {
  wchar_t program[MAX_PATH];
  const DWORD length = GetModuleFileNameW(NULL, program, MAX_PATH);
  expect("GetModuleFileNameW", length > 0 && length < MAX_PATH);
  *wcsrchr(program, L'\\') = L'\0';
  expect("SetCurrentDirectoryW", SetCurrentDirectoryW(program));
}

static void on_lab(void) {
  enter_program_folder();
  const wchar_t* watched[] = {L"browser.exe"};
  const wchar_t* cloud[] = {L"cloud.exe"};
  wchar_t user[257] = L"";
  DWORD length = 257;
  GetUserNameW(user, &length);
  activity_seen = CreateEventW(NULL, TRUE, FALSE, NULL);
  cloud_seen = CreateEventW(NULL, TRUE, FALSE, NULL);

  const HMODULE library = load();
  expect("LoadDriver", CALL(unsigned char, "LoadDriver", log_callback, unsigned int)(on_log, 7) == 1);
  expect("EnableActivityDetection", enable_activity(library, user, watched, 1) == 1);
  expect("EnablePCDDetection", enable_cloud(library, cloud) == 1);
  expect("FreeLibrary while detection runs", FreeLibrary(library) && is_loaded());
  fputs("watching\n", stderr);
  expect("an upload", WaitForSingleObject(activity_seen, PATIENCE_MILLISECONDS) == WAIT_OBJECT_0);
  expect("a cloud-drive event", WaitForSingleObject(cloud_seen, PATIENCE_MILLISECONDS) == WAIT_OBJECT_0);
  expect("DisableActivityDetection", CALL(unsigned char, "DisableActivityDetection", void)() == 1);
  expect("DisablePCDDetection", CALL(unsigned char, "DisablePCDDetection", void)() == 1);
  CALL(void, "DisableRemoteAddressInfo", void)();
  expect("UnloadDriver", CALL(unsigned char, "UnloadDriver", void)() == 1);
  expect("FreeLibrary after UnloadDriver", FreeLibrary(load()) && is_loaded());
}

int main(int count, char** arguments) {
  /* Whoever waits for "watching" reads a file. */
  setvbuf(stderr, NULL, _IONBF, 0);
  if (count == 2 && strcmp(arguments[1], "lab") == 0) {
    on_lab();
  } else {
    without_drivers();
  }
  return mistakes;
}
