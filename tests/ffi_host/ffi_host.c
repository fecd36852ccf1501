/* A host that knows the library only by name, as another language's foreign-function tool does: no header and
 * no import library of the project. Every signature is written out here by hand, in the platform's own types.
 * The library lies alone here, so whatever needs a driver fails. Ends with the number of wrong results. */

#include <windows.h>

#include <stdio.h>
#include <string.h>

typedef void(WINAPI* log_callback)(const wchar_t*, unsigned int);
typedef void(WINAPI* cloud_callback)(const wchar_t*, const wchar_t*, const wchar_t*, unsigned long long,
                                     unsigned int);

static int mistakes = 0;
static int lines = 0;

static void WINAPI on_log(const wchar_t* text, unsigned int level) {
  if (wcsncmp(text, L"OstrelFilterDriver: ", 20) == 0 && level <= 7) ++lines;
}

static void expect(const char* what, int holds) {
  if (holds) return;
  fprintf(stderr, "wrong: %s\n", what);
  ++mistakes;
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

static void control(HMODULE library) {
  const wchar_t* names[] = {L"chrome.exe"};
  expect("UnloadDriver of what is not loaded", CALL(unsigned char, "UnloadDriver", void)() == 1);
  expect("LoadDriver without driver files",
         CALL(unsigned char, "LoadDriver", log_callback, unsigned int)(on_log, 7) == 0);
  expect("log lines", lines > 0);
  expect("EnableActivityDetection without a driver",
         CALL(unsigned char, "EnableActivityDetection", void*, const wchar_t*, const wchar_t**, int,
              const wchar_t**, int, unsigned char, unsigned char,
              unsigned char)(NULL, L"ann", names, 1, NULL, 0, 0, 0, 1) == 0);
  expect("DisableActivityDetection without a driver",
         CALL(unsigned char, "DisableActivityDetection", void)() == 0);
  expect("EnablePCDDetection without a driver",
         CALL(unsigned char, "EnablePCDDetection", cloud_callback, const wchar_t**, int, const wchar_t**, int,
              const wchar_t**, int)(NULL, names, 1, NULL, 0, NULL, 0) == 0);
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

int main(void) {
  const HMODULE library = LoadLibraryW(L"OstrelFilterLib.dll");
  if (library == NULL) {
    fprintf(stderr, "OstrelFilterLib.dll cannot be loaded, error %lu\n", GetLastError());
    return 100;
  }
  control(library);
  query(library, "GetAutoProxyConfigUrlForUser");
  return mistakes;
}
