/* Stands in for winhttp.dll where the settings of the user cannot be read. */
#include <windows.h>

__declspec(dllexport) BOOL WINAPI WinHttpGetIEProxyConfigForCurrentUser(void* configuration) {
  (void)configuration;
  SetLastError(ERROR_FILE_NOT_FOUND);
  return FALSE;
}
