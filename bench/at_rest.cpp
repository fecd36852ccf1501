// A host that does nothing: without the library, then with every part of it switched on. It says on standard
// output when it is at either, so that the process can be looked at from outside, and goes on with the next
// line of standard input.
#include <windows.h>

#include <cstdio>

#include "api/exports.h"

namespace {

void IgnoreActivity(const wchar_t*, const wchar_t*, const wchar_t*, std::uint64_t, std::uint32_t,
                    std::int32_t, wchar_t**, std::uint32_t*, wchar_t**, std::int32_t, wchar_t**,
                    const wchar_t*, std::uint8_t, const wchar_t*, const wchar_t*, std::uint32_t,
                    const wchar_t*, const wchar_t*) {}

void Pause(const char* state) {
  std::puts(state);
  std::fflush(stdout);
  char line[16];
  if (std::fgets(line, sizeof(line), stdin) == nullptr) return;
}

template <typename Function>
Function Find(HMODULE library, const char* name) {
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
}

// What the library imports. Windows shares the pages of its own libraries among all processes, Wine copies
// many of them: they are there from the start, so that they do not count.
void LoadSystemLibraries() {
  for (const wchar_t* name :
       {L"fltlib.dll", L"setupapi.dll", L"shlwapi.dll", L"psapi.dll", L"ws2_32.dll", L"advapi32.dll",
        L"fwpuclnt.dll", L"ole32.dll", L"oleaut32.dll", L"propsys.dll", L"winhttp.dll", L"bcrypt.dll",
        L"user32.dll", L"userenv.dll", L"wtsapi32.dll", L"msvcrt.dll"}) {
    LoadLibraryW(name);
  }
}

int Run() {
  LoadSystemLibraries();
  Pause("without the library");
  const HMODULE library = LoadLibraryW(L"OstrelFilterLib.dll");
  if (library == nullptr) return 1;
  const wchar_t* names[] = {L"anything.exe"};
  if (Find<decltype(&LoadDriver)>(library, "LoadDriver")(nullptr, 0) == 0 ||
      Find<decltype(&EnableActivityDetection)>(library, "EnableActivityDetection")(
          IgnoreActivity, L"user", names, 1, nullptr, 0, 0, 1, 1) == 0) {
    return 1;
  }
  // The first pass and whatever the system still does after the load.
  Sleep(3000);
  Pause("at rest");
  return Find<decltype(&UnloadDriver)>(library, "UnloadDriver")() == 0 ? 1 : 0;
}

}  // namespace

int main() {
  const int result = Run();
  if (result != 0) std::fputs("at_rest: the library cannot be loaded on the lab's drivers\n", stderr);
  return result;
}
