// A host without an import library: loads the library, named on its command line by its full path, and asks
// it who is logged on.
#include <windows.h>

#include <api/exports.h>

#include <clocale>
#include <cstdio>

namespace {

// GetProcAddress does not know what it finds; the header does.
template <typename Function>
Function Find(HMODULE library, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(library, name)));
}

}  // namespace

int main(int argumentCount, char** arguments) {
  std::setlocale(LC_ALL, "");
  const HMODULE library = LoadLibraryA(argumentCount == 2 ? arguments[1] : "OstrelFilterLib.dll");
  if (library == nullptr) {
    std::fprintf(stderr, "The library cannot be loaded, error %lu\n", GetLastError());
    return 2;
  }
  const auto getCurrentUserName = Find<decltype(&GetCurrentUserName)>(library, "GetCurrentUserName");
  const auto deallocStringPointer = Find<decltype(&DeallocStringPointer)>(library, "DeallocStringPointer");
  if (getCurrentUserName == nullptr || deallocStringPointer == nullptr) {
    std::fputs("This is another library, or an older one\n", stderr);
    return 2;
  }

  // The function sets one of the two and leaves the other as it is.
  wchar_t* result = nullptr;
  wchar_t* error = nullptr;
  getCurrentUserName(&result, &error);
  if (error != nullptr) std::fwprintf(stderr, L"%ls\n", error);
  if (result != nullptr) std::wprintf(L"%ls\n", result);
  const int exitCode = error == nullptr ? 0 : 1;
  // Whoever is given a string frees it, with the library's own function; a null string is ignored.
  deallocStringPointer(&result);
  deallocStringPointer(&error);
  return exitCode;
}
