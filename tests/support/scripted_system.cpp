// First, because it must stand before windows.h.
#include <winsock2.h>
// Need winsock2.h and windows.h before them.
#include <fltuser.h>
#include <psapi.h>
#include <setupapi.h>
#include <shlwapi.h>
#include <tlhelp32.h>
#include <ws2tcpip.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "support/failure_ledger.h"
#include "support/scripted_system.h"

#include "util/installed_names.h"

namespace ostrel::test {

namespace {

ScriptedSystem* current = nullptr;

constexpr HRESULT INVALID_PORT_HANDLE = static_cast<HRESULT>(0x80070006);

// Size of the token information that the scripted token asks for; nothing else allocates just that.
constexpr DWORD TOKEN_USER_SIZE = 104;

std::string Hex(std::uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof(text), "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

std::string Number(std::uint64_t value) {
  return std::to_string(value);
}

std::string TextOrNull(const wchar_t* text) {
  return text == nullptr ? "null" : Narrow(text);
}

DWORD CopyOut(const std::wstring& text, wchar_t* buffer, DWORD capacity) {
  if (text.size() + 1 > capacity) return static_cast<DWORD>(text.size() + 1);
  std::copy_n(text.c_str(), text.size() + 1, buffer);
  return static_cast<DWORD>(text.size());
}

}  // namespace

// Each stands in for the system function of the same name.
struct ScriptedSystem::Fakes {
  static BOOL FailedWith(DWORD code) {
    SetLastError(code);
    return FALSE;
  }

  // Tokens

  static BOOL WINAPI OpenProcessToken(HANDLE process, DWORD access, HANDLE* token) {
    const auto failure = current->Enter("OpenProcessToken", current->NameOf(process) + ", " + Hex(access));
    if (failure) return FailedWith(*failure);
    *token = current->Open("token");
    return TRUE;
  }

  static BOOL WINAPI LookupPrivilegeValueW(const wchar_t* system, const wchar_t* name, LUID* luid) {
    const auto failure = current->Enter("LookupPrivilegeValueW", TextOrNull(system) + ", " + Narrow(name));
    if (failure) return FailedWith(*failure);
    *luid = {10, 0};
    return TRUE;
  }

  static BOOL WINAPI AdjustTokenPrivileges(HANDLE token, BOOL disableAll, TOKEN_PRIVILEGES* privileges, DWORD,
                                           TOKEN_PRIVILEGES*, DWORD*) {
    const auto failure =
        current->Enter("AdjustTokenPrivileges",
                       current->NameOf(token) + ", disable all " + Number(static_cast<unsigned>(disableAll)) +
                           ", count " + Number(privileges->PrivilegeCount) + ", privilege " +
                           Number(privileges->Privileges[0].Luid.LowPart) + ", attributes " +
                           Number(privileges->Privileges[0].Attributes));
    if (failure) return FailedWith(*failure);
    if (current->adjustPrivilegesLastError != ERROR_SUCCESS) {
      FailureLedger::OfThisProgram().Failed("AdjustTokenPrivileges", current->adjustPrivilegesLastError);
    }
    SetLastError(current->adjustPrivilegesLastError);
    return TRUE;
  }

  static BOOL WINAPI GetTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS kind, void* buffer, DWORD size,
                                         DWORD* needed) {
    const auto failure = current->Enter("GetTokenInformation",
                                        current->NameOf(token) + ", " + Number(kind) + ", " + Number(size));
    if (failure) return FailedWith(*failure);
    *needed = TOKEN_USER_SIZE;
    if (size < TOKEN_USER_SIZE) return FailedWith(ERROR_INSUFFICIENT_BUFFER);
    auto* const user = static_cast<TOKEN_USER*>(buffer);
    user->User.Sid = user + 1;
    return TRUE;
  }

  static BOOL WINAPI LookupAccountSidW(const wchar_t* system, PSID, wchar_t* account, DWORD* accountLength,
                                       wchar_t*, DWORD* domainLength, SID_NAME_USE*) {
    const auto failure = current->Enter(
        "LookupAccountSidW", TextOrNull(system) + ", " + Number(*accountLength) +
                                 (accountLength == domainLength ? ", one length" : ", two lengths"));
    if (!current->account.empty()) CopyOut(current->account, account, *accountLength);
    if (failure) return FailedWith(*failure);
    return TRUE;
  }

  static void* WINAPI HeapAlloc(HANDLE heap, DWORD flags, SIZE_T size) {
    const auto original = current->Original<decltype(&::HeapAlloc)>("HeapAlloc");
    if (size != TOKEN_USER_SIZE || flags != HEAP_ZERO_MEMORY) return original(heap, flags, size);
    if (current->Enter("HeapAlloc", "zeroed, " + Number(size))) return nullptr;
    void* const block = original(heap, flags, size);
    current->AddReal(block, "heap block");
    return block;
  }

  static BOOL WINAPI HeapFree(HANDLE heap, DWORD flags, void* block) {
    if (current->IsOpen(block)) {
      current->Note("HeapFree", "");
      current->Forget(block);
    }
    return current->Original<decltype(&::HeapFree)>("HeapFree")(heap, flags, block);
  }

  // Driver installation

  static DWORD WINAPI GetModuleFileNameW(HMODULE module, wchar_t* buffer, DWORD capacity) {
    const auto original = current->Original<decltype(&::GetModuleFileNameW)>("GetModuleFileNameW");
    // A program that asks for its own path by the name of none is the test, not the code under test.
    if (module == nullptr) return original(module, buffer, capacity);
    const auto failure =
        current->Enter("GetModuleFileNameW",
                       (module == current->module_ ? "own module, " : "another module, ") + Number(capacity));
    if (failure) {
      SetLastError(*failure);
      return 0;
    }
    if (current->modulePath.empty()) return original(module, buffer, capacity);
    return CopyOut(current->modulePath, buffer, capacity);
  }

  static BOOL WINAPI PathRemoveFileSpecW(wchar_t* path) {
    current->Note("PathRemoveFileSpecW", Narrow(path));
    return current->Original<decltype(&::PathRemoveFileSpecW)>("PathRemoveFileSpecW")(path);
  }

  static UINT WINAPI GetSystemDirectoryW(wchar_t* buffer, UINT capacity) {
    const auto failure = current->Enter("GetSystemDirectoryW", Number(capacity));
    if (failure) {
      SetLastError(*failure);
      return 0;
    }
    return CopyOut(current->systemDirectory, buffer, capacity);
  }

  static BOOL WINAPI PathFileExistsW(const wchar_t* path) {
    current->Note("PathFileExistsW", Narrow(path));
    return current->existingFiles.count(path) != 0;
  }

  static BOOL WINAPI DeleteFileW(const wchar_t* path) {
    const auto failure = current->Enter("DeleteFileW", Narrow(path));
    if (failure) return FailedWith(*failure);
    return TRUE;
  }

  static HINF WINAPI SetupOpenInfFileW(const wchar_t* path, const wchar_t* infClass, DWORD style,
                                       UINT* errorLine) {
    const auto failure = current->Enter("SetupOpenInfFileW",
                                        Narrow(path) + ", " + TextOrNull(infClass) + ", " + Number(style));
    if (!failure) return current->Open("inf");
    *errorLine = current->infErrorLine;
    SetLastError(*failure);
    return INVALID_HANDLE_VALUE;
  }

  static BOOL WINAPI SetupInstallFileW(HINF inf, PINFCONTEXT context, const wchar_t* source,
                                       const wchar_t* root, const wchar_t* target, DWORD style,
                                       PSP_FILE_CALLBACK_W callback, void*) {
    const auto failure = current->Enter(
        "SetupInstallFileW", current->NameOf(inf) + (context == nullptr ? ", null, " : ", context, ") +
                                 Narrow(source) + ", " + Narrow(root) + ", " + Narrow(target) + ", " +
                                 Hex(style) + (callback == nullptr ? ", null" : ", callback"));
    if (failure) return FailedWith(*failure);
    return TRUE;
  }

  static BOOL WINAPI SetupInstallServicesFromInfSectionW(HINF inf, const wchar_t* section, DWORD flags) {
    const auto failure = current->Enter("SetupInstallServicesFromInfSectionW",
                                        current->NameOf(inf) + ", " + Narrow(section) + ", " + Number(flags));
    if (failure) return FailedWith(*failure);
    return TRUE;
  }

  static void WINAPI SetupCloseInfFile(HINF inf) {
    current->Note("SetupCloseInfFile", current->NameOf(inf));
    current->Forget(inf);
  }

  // Filter manager

  static HRESULT WINAPI FilterLoad(const wchar_t* name) {
    return static_cast<HRESULT>(current->Enter("FilterLoad", Narrow(name)).value_or(S_OK));
  }

  static HRESULT WINAPI FilterUnload(const wchar_t* name) {
    return static_cast<HRESULT>(current->Enter("FilterUnload", Narrow(name)).value_or(S_OK));
  }

  static HRESULT WINAPI FilterConnectCommunicationPort(const wchar_t* name, DWORD options,
                                                       const void* context, WORD size, SECURITY_ATTRIBUTES*,
                                                       HANDLE* port) {
    std::string words;
    for (WORD offset = 0; offset + 4 <= size; offset = static_cast<WORD>(offset + 4)) {
      std::uint32_t word = 0;
      std::memcpy(&word, static_cast<const unsigned char*>(context) + offset, sizeof(word));
      words += word == GetCurrentProcessId() ? " own id" : " " + Number(word);
    }
    const auto failure =
        current->Enter("FilterConnectCommunicationPort",
                       Narrow(name) + ", " + Number(options) + ", " + Number(size) + " bytes" + words);
    if (failure) return static_cast<HRESULT>(*failure);
    *port = current->Open(std::wstring_view(name) == NOTIFICATION_PORT_NAME ? "notification port"
                                                                            : "control port");
    return S_OK;
  }

  static HRESULT WINAPI FilterGetMessage(HANDLE port, FILTER_MESSAGE_HEADER* buffer, DWORD size,
                                         OVERLAPPED* overlapped) {
    current->Note("FilterGetMessage", current->NameOf(port) + ", " + Number(size) +
                                          (overlapped == nullptr ? ", synchronous" : ", overlapped"));
    const std::vector<std::uint8_t> zeros(size);
    if (std::memcmp(buffer, zeros.data(), size) != 0) current->transcript.Add("buffer not zeroed");
    Lock::Holder holder(current->lock_);
    ++current->readers_;
    holder.Changed();
    const auto isOpen = [&] { return current->handles_.count(port) != 0 && !current->ending_; };
    holder.WaitFor([&] { return !isOpen() || !current->received_.empty(); });
    --current->readers_;
    if (!isOpen() || current->received_.empty()) return INVALID_PORT_HANDLE;
    const Received received = current->received_.front();
    current->received_.pop_front();
    if (received.result == S_OK) {
      std::memcpy(buffer, &received.message, sizeof(received.message));
    } else {
      FailureLedger::OfThisProgram().Failed("FilterGetMessage", static_cast<DWORD>(received.result));
    }
    return received.result;
  }

  static HRESULT WINAPI FilterReplyMessage(HANDLE port, FILTER_REPLY_HEADER* reply, DWORD size) {
    Acknowledgement acknowledgement{};
    std::memcpy(&acknowledgement, reply, sizeof(acknowledgement));
    return static_cast<HRESULT>(
        current
            ->Enter("FilterReplyMessage",
                    current->NameOf(port) + ", status " + std::to_string(acknowledgement.status) + ", id " +
                        Number(acknowledgement.messageId) + ", " + Number(size) + " bytes")
            .value_or(S_OK));
  }

  static HRESULT WINAPI FilterSendMessage(HANDLE port, void* message, DWORD size, void* reply,
                                          DWORD replySize, DWORD*) {
    const auto failure = current->Enter("FilterSendMessage",
                                        current->NameOf(port) + ", " + Number(size) + " bytes, " +
                                            (reply == nullptr ? "no reply " : "reply ") + Number(replySize));
    const auto* const bytes = static_cast<const std::uint8_t*>(message);
    const Lock::Holder holder(current->lock_);
    current->sent_.emplace_back(bytes, bytes + size);
    return static_cast<HRESULT>(failure.value_or(S_OK));
  }

  // Services

  static SC_HANDLE WINAPI OpenSCManagerW(const wchar_t* machine, const wchar_t* database, DWORD access) {
    const auto failure = current->Enter(
        "OpenSCManagerW", TextOrNull(machine) + ", " + TextOrNull(database) + ", " + Hex(access));
    if (!failure) return static_cast<SC_HANDLE>(static_cast<void*>(current->Open("manager")));
    SetLastError(*failure);
    return nullptr;
  }

  static SC_HANDLE WINAPI OpenServiceW(SC_HANDLE manager, const wchar_t* name, DWORD access) {
    const auto failure =
        current->Enter("OpenServiceW", current->NameOf(manager) + ", " + Narrow(name) + ", " + Hex(access));
    if (!failure) return static_cast<SC_HANDLE>(static_cast<void*>(current->Open("service")));
    SetLastError(*failure);
    return nullptr;
  }

  static BOOL WINAPI StartServiceW(SC_HANDLE service, DWORD count, const wchar_t** arguments) {
    const auto failure =
        current->Enter("StartServiceW", current->NameOf(service) + ", " + Number(count) +
                                            (arguments == nullptr ? ", null" : ", arguments"));
    if (failure) return FailedWith(*failure);
    return TRUE;
  }

  static BOOL WINAPI QueryServiceStatusEx(SC_HANDLE service, SC_STATUS_TYPE type, BYTE* buffer, DWORD size,
                                          DWORD* needed) {
    const auto failure = current->Enter("QueryServiceStatusEx",
                                        current->NameOf(service) + ", " + Number(type) + ", " + Number(size));
    if (failure) return FailedWith(*failure);
    *needed = sizeof(SERVICE_STATUS_PROCESS);
    if (size < *needed) return FailedWith(ERROR_INSUFFICIENT_BUFFER);
    SERVICE_STATUS_PROCESS status{};
    status.dwServiceType = SERVICE_KERNEL_DRIVER;
    status.dwCurrentState = current->serviceState;
    std::memcpy(buffer, &status, sizeof(status));
    return TRUE;
  }

  static BOOL WINAPI ControlService(SC_HANDLE service, DWORD control, SERVICE_STATUS*) {
    const auto failure = current->Enter("ControlService", current->NameOf(service) + ", " + Number(control));
    if (failure) return FailedWith(*failure);
    return TRUE;
  }

  static BOOL WINAPI CloseServiceHandle(SC_HANDLE handle) {
    const auto failure = current->Enter("CloseServiceHandle", current->NameOf(handle));
    if (failure) return FailedWith(*failure);
    current->Forget(handle);
    return TRUE;
  }

  // Handles, threads and events

  static BOOL WINAPI CloseHandle(HANDLE handle) {
    const auto original = current->Original<decltype(&::CloseHandle)>("CloseHandle");
    if (handle != nullptr && !current->IsOpen(handle)) return original(handle);
    const auto failure = current->Enter("CloseHandle", current->NameOf(handle));
    if (failure) return FailedWith(*failure);
    if (handle == nullptr) {
      FailureLedger::OfThisProgram().FailedByTheWay("CloseHandle", ERROR_INVALID_HANDLE);
      return FailedWith(ERROR_INVALID_HANDLE);
    }
    bool isReal = false;
    {
      const Lock::Holder holder(current->lock_);
      isReal = current->handles_.at(handle).isReal;
    }
    current->Forget(handle);
    return isReal ? original(handle) : TRUE;
  }

  static HANDLE WINAPI CreateThread(SECURITY_ATTRIBUTES* attributes, SIZE_T stack,
                                    LPTHREAD_START_ROUTINE entry, void* parameter, DWORD flags,
                                    DWORD* idOut) {
    const auto original = current->Original<decltype(&::CreateThread)>("CreateThread");
    // GoogleTest's own thread, where it is linked into the same module; it lives as long as the one it
    // watches.
    if ((flags & CREATE_SUSPENDED) != 0) return original(attributes, stack, entry, parameter, flags, idOut);
    const auto failure =
        current->Enter("CreateThread", std::string(attributes == nullptr ? "null" : "attributes") +
                                           ", stack " + Number(stack) + ", flags " + Number(flags));
    if (failure) {
      SetLastError(*failure);
      return nullptr;
    }
    DWORD id = 0;
    const HANDLE thread = original(attributes, stack, entry, parameter, flags, &id);
    if (idOut != nullptr) *idOut = id;
    HANDLE kept = nullptr;
    DuplicateHandle(GetCurrentProcess(), thread, GetCurrentProcess(), &kept, 0, FALSE, DUPLICATE_SAME_ACCESS);
    current->AddReal(thread, "thread");
    const Lock::Holder holder(current->lock_);
    current->threads_.emplace_back(id, kept);
    return thread;
  }

  static HANDLE WINAPI CreateEventW(SECURITY_ATTRIBUTES* attributes, BOOL isManual, BOOL isSet,
                                    const wchar_t* name) {
    const auto failure =
        current->Enter("CreateEventW", std::string(isManual ? "manual reset" : "auto reset") +
                                           (isSet ? ", set, " : ", not set, ") + TextOrNull(name));
    if (failure) {
      SetLastError(*failure);
      return nullptr;
    }
    const HANDLE event =
        current->Original<decltype(&::CreateEventW)>("CreateEventW")(attributes, isManual, isSet, name);
    HANDLE kept = nullptr;
    DuplicateHandle(GetCurrentProcess(), event, GetCurrentProcess(), &kept, 0, FALSE, DUPLICATE_SAME_ACCESS);
    current->AddReal(event, "event");
    const Lock::Holder holder(current->lock_);
    current->events_.push_back(kept);
    return event;
  }

  static BOOL WINAPI SetEvent(HANDLE event) {
    if (event == nullptr || current->IsOpen(event)) {
      const auto failure = current->Enter("SetEvent", current->NameOf(event));
      if (failure) return FailedWith(*failure);
    }
    const BOOL isSet = current->Original<decltype(&::SetEvent)>("SetEvent")(event);
    if (!isSet) FailureLedger::OfThisProgram().FailedByTheWay("SetEvent", GetLastError());
    return isSet;
  }

  static DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    const auto original = current->Original<decltype(&::WaitForSingleObject)>("WaitForSingleObject");
    if (!current->IsOpen(handle)) return original(handle, milliseconds);
    const auto failure =
        current->Enter("WaitForSingleObject", current->NameOf(handle) + ", " + Number(milliseconds));
    if (failure) {
      SetLastError(*failure);
      return WAIT_FAILED;
    }
    const DWORD result = original(handle, milliseconds / current->waitDivisor);
    if (result == WAIT_TIMEOUT && current->NameOf(handle) == "thread")
      FailureLedger::OfThisProgram().FailedByTheWay("WaitForSingleObject", result);
    return result;
  }

  static int WINAPI WSAStartup(WORD version, WSADATA* data) {
    const auto failure = current->Enter("WSAStartup", Hex(version));
    if (failure) return static_cast<int>(*failure);
    return current->Original<decltype(&::WSAStartup)>("WSAStartup")(version, data);
  }

  // Processes

  static HANDLE WINAPI OpenProcess(DWORD access, BOOL inherit, DWORD id) {
    auto failure = current->Enter(
        "OpenProcess", Hex(access) + (inherit ? ", inherited, " : ", not inherited, ") + Number(id));
    if (!failure && current->imageNames.count(id) == 0) {
      failure = ERROR_INVALID_PARAMETER;
      FailureLedger::OfThisProgram().FailedByTheWay("OpenProcess", *failure);
    }
    if (!failure) return current->Open("process " + Number(id));
    SetLastError(*failure);
    return nullptr;
  }

  static DWORD WINAPI K32GetProcessImageFileNameW(HANDLE process, wchar_t* name, DWORD capacity) {
    const std::string processName = current->NameOf(process);
    const auto failure = current->Enter("K32GetProcessImageFileNameW", processName + ", " + Number(capacity));
    if (current->onImageName) current->onImageName();
    if (failure) {
      SetLastError(*failure);
      return 0;
    }
    return CopyOut(current->imageNames.at(static_cast<std::uint32_t>(std::stoul(processName.substr(8)))),
                   name, capacity);
  }

  static HANDLE WINAPI CreateToolhelp32Snapshot(DWORD flags, DWORD id) {
    auto failure = current->Enter("CreateToolhelp32Snapshot", Hex(flags) + ", " + Number(id));
    if (flags == TH32CS_SNAPPROCESS) {
      if (!failure) return current->Open("process snapshot");
    } else {
      const ScriptedProcess& process = Find(id);
      if (!failure && process.snapshotError != 0) {
        failure = process.snapshotError;
        FailureLedger::OfThisProgram().Failed("CreateToolhelp32Snapshot", *failure);
      }
      if (!failure) return current->Open("modules of " + Number(id));
    }
    SetLastError(*failure);
    return INVALID_HANDLE_VALUE;
  }

  static const ScriptedProcess& Find(DWORD id) {
    return *std::find_if(current->processes.begin(), current->processes.end(),
                         [id](const ScriptedProcess& process) { return process.id == id; });
  }

  static BOOL Fill(HANDLE snapshot, PROCESSENTRY32W* entry) {
    std::size_t position = 0;
    {
      const Lock::Holder holder(current->lock_);
      position = current->handles_.at(snapshot).position++;
    }
    if (entry->dwSize != sizeof(*entry) || position >= current->processes.size()) {
      return FailedWith(ERROR_NO_MORE_FILES);
    }
    const ScriptedProcess& process = current->processes[position];
    entry->th32ProcessID = process.id;
    CopyOut(process.executable, entry->szExeFile, MAX_PATH);
    return TRUE;
  }

  static BOOL WINAPI Process32FirstW(HANDLE snapshot, PROCESSENTRY32W* entry) {
    const auto failure = current->Enter("Process32FirstW", current->NameOf(snapshot));
    if (failure) return FailedWith(*failure);
    return Fill(snapshot, entry);
  }

  static BOOL WINAPI Process32NextW(HANDLE snapshot, PROCESSENTRY32W* entry) {
    const auto failure = current->Enter("Process32NextW", current->NameOf(snapshot));
    if (failure) return FailedWith(*failure);
    return Fill(snapshot, entry);
  }

  static BOOL WINAPI Module32FirstW(HANDLE snapshot, MODULEENTRY32W* entry) {
    const std::string name = current->NameOf(snapshot);
    const auto failure = current->Enter("Module32FirstW", name);
    if (failure) return FailedWith(*failure);
    const ScriptedProcess& process = Find(static_cast<DWORD>(std::stoul(name.substr(11))));
    if (process.moduleError != 0) {
      FailureLedger::OfThisProgram().Failed("Module32FirstW", process.moduleError);
      return FailedWith(process.moduleError);
    }
    if (entry->dwSize != sizeof(*entry)) return FailedWith(ERROR_INVALID_PARAMETER);
    CopyOut(process.module, entry->szModule, MAX_MODULE_NAME32 + 1);
    return TRUE;
  }

  // Drives, paths and files

  static DWORD WINAPI GetLogicalDriveStringsW(DWORD capacity, wchar_t* buffer) {
    const auto failure = current->Enter("GetLogicalDriveStringsW", Number(capacity));
    if (failure) {
      SetLastError(*failure);
      return 0;
    }
    std::wstring roots;
    for (const auto& [drive, device] : current->drives) roots += drive + L"\\" + L'\0';
    return CopyOut(roots, buffer, capacity);
  }

  static DWORD WINAPI QueryDosDeviceW(const wchar_t* drive, wchar_t* target, DWORD capacity) {
    const auto failure = current->Enter("QueryDosDeviceW", Narrow(drive) + ", " + Number(capacity));
    const auto found = std::find_if(current->drives.begin(), current->drives.end(),
                                    [drive](const auto& entry) { return entry.first == drive; });
    if (!failure && found == current->drives.end()) {
      FailureLedger::OfThisProgram().FailedByTheWay("QueryDosDeviceW", ERROR_FILE_NOT_FOUND);
    }
    if (failure || found == current->drives.end()) {
      SetLastError(failure.value_or(ERROR_FILE_NOT_FOUND));
      return 0;
    }
    // A list of targets, of which the first is in force.
    return CopyOut(found->second + L'\0' + L"\\Device\\Earlier" + L'\0', target, capacity);
  }

  static DWORD Translate(const std::string& function, const std::map<std::wstring, std::wstring>& names,
                         const wchar_t* path, wchar_t* buffer, DWORD capacity) {
    auto failure = current->Enter(function, Narrow(path) + ", " + Number(capacity));
    const auto found = names.find(path);
    if (!failure && found != names.end()) return CopyOut(found->second, buffer, capacity);
    if (!failure) {
      failure = ERROR_FILE_NOT_FOUND;
      FailureLedger::OfThisProgram().FailedByTheWay(function, *failure);
    }
    SetLastError(*failure);
    return 0;
  }

  static DWORD WINAPI GetShortPathNameW(const wchar_t* path, wchar_t* buffer, DWORD capacity) {
    return Translate("GetShortPathNameW", current->shortPaths, path, buffer, capacity);
  }

  static DWORD WINAPI GetLongPathNameW(const wchar_t* path, wchar_t* buffer, DWORD capacity) {
    return Translate("GetLongPathNameW", current->longPaths, path, buffer, capacity);
  }

  static BOOL WINAPI PathIsDirectoryW(const wchar_t* path) {
    current->Note("PathIsDirectoryW", Narrow(path));
    // As the system's: some value other than 0.
    return current->directories.count(path) != 0 ? FILE_ATTRIBUTE_DIRECTORY << 8 : 0;
  }

  static HANDLE WINAPI CreateFileW(const wchar_t* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES*,
                                   DWORD disposition, DWORD flags, HANDLE) {
    auto failure =
        current->Enter("CreateFileW", Narrow(path) + ", " + Hex(access) + ", share " + Number(share) +
                                          ", disposition " + Number(disposition) + ", " + Hex(flags));
    if (!failure && current->fileSizes.count(path) == 0) {
      failure = ERROR_FILE_NOT_FOUND;
      FailureLedger::OfThisProgram().FailedByTheWay("CreateFileW", *failure);
    }
    if (!failure) return current->Open("file " + Narrow(path));
    SetLastError(*failure);
    return INVALID_HANDLE_VALUE;
  }

  static BOOL WINAPI GetFileSizeEx(HANDLE file, LARGE_INTEGER* size) {
    const std::string name = current->NameOf(file);
    const auto failure = current->Enter("GetFileSizeEx", name);
    if (failure) return FailedWith(*failure);
    for (const auto& [path, bytes] : current->fileSizes) {
      if ("file " + Narrow(path) == name) size->QuadPart = static_cast<LONGLONG>(bytes);
    }
    return TRUE;
  }

  // Names of addresses

  static const wchar_t* WINAPI InetNtopW(INT family, const void* address, wchar_t* text,
                                         std::size_t capacity) {
    const auto failure =
        current->Enter("InetNtopW", Number(static_cast<unsigned>(family)) + ", " + Number(capacity));
    if (failure) {
      SetLastError(*failure);
      return nullptr;
    }
    return current->Original<decltype(&::InetNtopW)>("InetNtopW")(family, const_cast<void*>(address), text,
                                                                  capacity);
  }

  static INT WINAPI InetPtonW(INT family, const wchar_t* text, void* address) {
    const auto failure =
        current->Enter("InetPtonW", Number(static_cast<unsigned>(family)) + ", " + Narrow(text));
    if (failure) {
      SetLastError(*failure);
      return -1;
    }
    const INT result =
        current->Original<decltype(&::InetPtonW)>("InetPtonW")(family, const_cast<wchar_t*>(text), address);
    if (result != 1) FailureLedger::OfThisProgram().FailedByTheWay("InetPtonW", "no address");
    return result;
  }

  static INT WINAPI GetNameInfoW(const SOCKADDR* address, socklen_t length, wchar_t* host, DWORD capacity,
                                 wchar_t* service, DWORD serviceCapacity, INT flags) {
    wchar_t text[65] = {};
    const void* const bytes =
        address->sa_family == AF_INET
            ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in*>(address)->sin_addr)
            : static_cast<const void*>(&reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr);
    current->Original<decltype(&::InetNtopW)>("InetNtopW")(address->sa_family, const_cast<void*>(bytes), text,
                                                           65);
    const auto failure = current->Enter(
        "GetNameInfoW", "family " + Number(address->sa_family) + ", " + Narrow(text) + ", length " +
                            Number(static_cast<std::uint64_t>(length)) + ", " + Number(capacity) +
                            (service == nullptr ? ", no service " : ", service ") + Number(serviceCapacity) +
                            ", flags " + Number(static_cast<unsigned>(flags)));
    if (failure) return static_cast<INT>(*failure);
    // An address of the other family does not fit into this length.
    if (address->sa_family == AF_INET6 && length < static_cast<socklen_t>(sizeof(sockaddr_in6))) {
      FailureLedger::OfThisProgram().FailedByTheWay("GetNameInfoW", WSAEFAULT);
      return WSAEFAULT;
    }
    const auto found = current->hostNames.find(text);
    if (found == current->hostNames.end()) {
      FailureLedger::OfThisProgram().FailedByTheWay("GetNameInfoW", WSAHOST_NOT_FOUND);
      return WSAHOST_NOT_FOUND;
    }
    CopyOut(found->second, host, capacity);
    return 0;
  }
};

namespace {

struct Replacement {
  const char* name;
  void* function;
};

// The cast inside holds each stand-in to the type of what it stands in for.
#define REPLACEMENT(name)                                                                           \
  Replacement {                                                                                     \
#name, reinterpret_cast < void*>(static_cast <decltype(&::name)>(&ScriptedSystem::Fakes::name)) \
  }

std::vector<Replacement> Replacements() {
  return {REPLACEMENT(OpenProcessToken),
          REPLACEMENT(LookupPrivilegeValueW),
          REPLACEMENT(AdjustTokenPrivileges),
          REPLACEMENT(GetTokenInformation),
          REPLACEMENT(LookupAccountSidW),
          REPLACEMENT(HeapAlloc),
          REPLACEMENT(HeapFree),
          REPLACEMENT(GetModuleFileNameW),
          REPLACEMENT(PathRemoveFileSpecW),
          REPLACEMENT(GetSystemDirectoryW),
          REPLACEMENT(PathFileExistsW),
          REPLACEMENT(DeleteFileW),
          REPLACEMENT(SetupOpenInfFileW),
          REPLACEMENT(SetupInstallFileW),
          REPLACEMENT(SetupInstallServicesFromInfSectionW),
          REPLACEMENT(SetupCloseInfFile),
          REPLACEMENT(FilterLoad),
          REPLACEMENT(FilterUnload),
          REPLACEMENT(FilterConnectCommunicationPort),
          REPLACEMENT(FilterGetMessage),
          REPLACEMENT(FilterReplyMessage),
          REPLACEMENT(FilterSendMessage),
          REPLACEMENT(OpenSCManagerW),
          REPLACEMENT(OpenServiceW),
          REPLACEMENT(StartServiceW),
          REPLACEMENT(QueryServiceStatusEx),
          REPLACEMENT(ControlService),
          REPLACEMENT(CloseServiceHandle),
          REPLACEMENT(CloseHandle),
          REPLACEMENT(CreateThread),
          REPLACEMENT(CreateEventW),
          REPLACEMENT(SetEvent),
          REPLACEMENT(WaitForSingleObject),
          REPLACEMENT(WSAStartup),
          REPLACEMENT(OpenProcess),
          REPLACEMENT(K32GetProcessImageFileNameW),
          REPLACEMENT(CreateToolhelp32Snapshot),
          REPLACEMENT(Process32FirstW),
          REPLACEMENT(Process32NextW),
          REPLACEMENT(Module32FirstW),
          REPLACEMENT(GetLogicalDriveStringsW),
          REPLACEMENT(QueryDosDeviceW),
          REPLACEMENT(GetShortPathNameW),
          REPLACEMENT(GetLongPathNameW),
          REPLACEMENT(PathIsDirectoryW),
          REPLACEMENT(CreateFileW),
          REPLACEMENT(GetFileSizeEx),
          REPLACEMENT(InetNtopW),
          REPLACEMENT(InetPtonW),
          REPLACEMENT(GetNameInfoW)};
}

#undef REPLACEMENT

}  // namespace

ScriptedSystem::ScriptedSystem(HMODULE module) : module_(module) {
  if (current != nullptr) throw std::logic_error("there is a scripted system already");
  current = this;
  for (const Replacement& replacement : Replacements()) {
    // The program of one test may link less of the library than that of another.
    if (ImportPatch::Imported(module, replacement.name) == nullptr) continue;
    patches_.try_emplace(replacement.name, module, replacement.name, replacement.function);
  }
}

ScriptedSystem::~ScriptedSystem() {
  EndThreads();
  patches_.clear();
  for (const auto& [id, thread] : threads_) CloseHandle(thread);
  for (const HANDLE event : events_) CloseHandle(event);
  current = nullptr;
}

void ScriptedSystem::EndThreads() {
  std::vector<HANDLE> events;
  {
    Lock::Holder holder(lock_);
    ending_ = true;
    holder.Changed();
    // A thread may still be making some.
    events = events_;
  }
  for (const HANDLE event : events) SetEvent(event);
  for (const auto& [id, thread] : threads_) {
    if (WaitForSingleObject(thread, static_cast<DWORD>(PATIENCE.count())) != WAIT_OBJECT_0) {
      // A thread that outlives its script would write to whatever comes next.
      std::fprintf(stderr, "a thread of the module under test did not end\n");
      std::abort();
    }
  }
}

void ScriptedSystem::Fail(const std::string& function, DWORD code, int call) {
  const Lock::Holder holder(lock_);
  if (call != 0) call += calls_[function];
  failures_[function] = {code, call};
}

void ScriptedSystem::Succeed(const std::string& function) {
  const Lock::Holder holder(lock_);
  failures_.erase(function);
}

std::optional<DWORD> ScriptedSystem::Enter(const std::string& function, const std::string& arguments) {
  std::string call = function;
  call += "(" + arguments + ")";
  transcript.Add(call);
  const Lock::Holder holder(lock_);
  std::optional<DWORD> code;
  for (const std::string& name : {function, call}) {
    const int number = ++calls_[name];
    const auto failure = failures_.find(name);
    if (failure == failures_.end()) continue;
    if (failure->second.call == 0 || failure->second.call == number) code = failure->second.code;
  }
  if (code) FailureLedger::OfThisProgram().Failed(function, *code);
  return code;
}

void ScriptedSystem::Note(const std::string& function, const std::string& arguments) {
  const std::string call = function + "(" + arguments + ")";
  transcript.Add(call);
  const Lock::Holder holder(lock_);
  if (failures_.count(function) + failures_.count(call) == 0) return;
  ADD_FAILURE() << call << " cannot be made to fail";
}

HANDLE ScriptedSystem::Open(const std::string& name) {
  const Lock::Holder holder(lock_);
  nextHandle_ += 4;
  const auto handle = reinterpret_cast<HANDLE>(nextHandle_);
  handles_[handle] = {name};
  return handle;
}

void ScriptedSystem::AddReal(HANDLE handle, const std::string& name) {
  const Lock::Holder holder(lock_);
  handles_[handle] = {name, true};
}

bool ScriptedSystem::IsOpen(HANDLE handle) const {
  const Lock::Holder holder(lock_);
  return handles_.count(handle) != 0;
}

std::string ScriptedSystem::NameOf(HANDLE handle) const {
  if (handle == nullptr) return "null";
  if (handle == GetCurrentProcess()) return "current process";
  const Lock::Holder holder(lock_);
  const auto found = handles_.find(handle);
  return found == handles_.end() ? "unknown" : found->second.name;
}

void ScriptedSystem::Forget(HANDLE handle) {
  Lock::Holder holder(lock_);
  if (handles_.erase(handle) == 0) transcript.Add("closed what is not open");
  holder.Changed();
}

Lines ScriptedSystem::OpenHandles() const {
  const Lock::Holder holder(lock_);
  Lines names;
  for (const auto& [handle, value] : handles_) names.push_back(value.name);
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<DWORD> ScriptedSystem::ThreadIds() const {
  const Lock::Holder holder(lock_);
  std::vector<DWORD> ids;
  for (const auto& [id, thread] : threads_) ids.push_back(id);
  return ids;
}

bool ScriptedSystem::WaitForThreadEnd(std::size_t index) const {
  HANDLE thread = nullptr;
  {
    const Lock::Holder holder(lock_);
    thread = threads_.at(index).second;
  }
  return WaitForSingleObject(thread, static_cast<DWORD>(PATIENCE.count())) == WAIT_OBJECT_0;
}

void ScriptedSystem::Send(const EventMessage& message) {
  Lock::Holder holder(lock_);
  received_.push_back({S_OK, message});
  holder.Changed();
}

void ScriptedSystem::FailReceive(HRESULT result) {
  Lock::Holder holder(lock_);
  received_.push_back({result, {}});
  holder.Changed();
}

bool ScriptedSystem::WaitUntilHandled() {
  Lock::Holder holder(lock_);
  return holder.WaitFor([this] { return received_.empty() && readers_ > 0; });
}

std::vector<std::vector<std::uint8_t>> ScriptedSystem::SentMessages() const {
  const Lock::Holder holder(lock_);
  return sent_;
}

}  // namespace ostrel::test
