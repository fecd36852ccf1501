#include "support/scripted_user_session.h"

// Need windows.h before them.
#include <bcrypt.h>
#include <userenv.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "support/failure_ledger.h"

namespace ostrel::test {

namespace {

ScriptedUserSession* current = nullptr;

// What identifiers are made of; nothing else allocates or waits just that.
constexpr SIZE_T RANDOM_BYTES = 32;
constexpr DWORD PAUSE = 50;

// Where a process that the module starts is said to be.
constexpr DWORD HELPER_PROCESS_ID = 4711;

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

BOOL FailedWith(DWORD code) {
  SetLastError(code);
  return FALSE;
}

}  // namespace

// Each stands in for the system function of the same name.
struct ScriptedUserSession::Fakes {
  // Random numbers

  static void* WINAPI HeapAlloc(HANDLE heap, DWORD flags, SIZE_T size) {
    const auto original = current->Original<decltype(&::HeapAlloc)>("HeapAlloc");
    if (size != RANDOM_BYTES || flags != 0) return original(heap, flags, size);
    if (current->Enter("HeapAlloc", Number(size))) return nullptr;
    return original(heap, flags, size);
  }

  static NTSTATUS WINAPI BCryptGenRandom(BCRYPT_ALG_HANDLE algorithm, UCHAR* buffer, ULONG size,
                                         ULONG flags) {
    const auto failure =
        current->Enter("BCryptGenRandom", std::string(algorithm == nullptr ? "null" : "algorithm") + ", " +
                                              Number(size) + ", " + Hex(flags));
    if (failure) return static_cast<NTSTATUS>(*failure);
    const Lock::Holder holder(current->lock_);
    ++current->randomCalls_;
    std::memset(buffer, static_cast<int>(current->randomCalls_), size);
    std::copy_n(current->randomBytes.begin(), std::min<std::size_t>(current->randomBytes.size(), size),
                buffer);
    return 0;
  }

  // Sessions

  static BOOL WINAPI WTSEnumerateSessionsW(HANDLE server, DWORD reserved, DWORD version,
                                           WTS_SESSION_INFOW** list, DWORD* count) {
    const auto failure =
        current->Enter("WTSEnumerateSessionsW", (server == WTS_CURRENT_SERVER_HANDLE ? "here, " : "there, ") +
                                                    Number(reserved) + ", version " + Number(version));
    if (failure) return FailedWith(*failure);
    auto* const sessions = new WTS_SESSION_INFOW[current->sessions.size() + 1]{};
    for (std::size_t i = 0; i < current->sessions.size(); ++i) {
      sessions[i].SessionId = current->sessions[i].first;
      sessions[i].State = current->sessions[i].second;
    }
    if (std::none_of(current->sessions.begin(), current->sessions.end(),
                     [](const auto& session) { return session.second == WTSActive && session.first != 0; })) {
      FailureLedger::OfThisProgram().FailedByTheWay("WTSEnumerateSessionsW", "no session of a user");
    }
    *list = sessions;
    *count = static_cast<DWORD>(current->sessions.size());
    const Lock::Holder holder(current->lock_);
    current->handles_[sessions] = "session list";
    return TRUE;
  }

  static void WINAPI WTSFreeMemory(void* memory) {
    current->Enter("WTSFreeMemory", current->NameOf(memory));
    if (current->Close(memory)) delete[] static_cast<WTS_SESSION_INFOW*>(memory);
  }

  static BOOL WINAPI WTSQueryUserToken(ULONG session, HANDLE* token) {
    const auto failure = current->Enter("WTSQueryUserToken", Number(session));
    if (failure) return FailedWith(*failure);
    *token = current->Open("user token");
    return TRUE;
  }

  static BOOL WINAPI CreateEnvironmentBlock(void** block, HANDLE token, BOOL inherit) {
    const auto failure = current->Enter("CreateEnvironmentBlock",
                                        current->NameOf(token) + (inherit ? ", inherited" : ", own"));
    if (failure) return FailedWith(*failure);
    *block = current->Open("environment");
    return TRUE;
  }

  static BOOL WINAPI DestroyEnvironmentBlock(void* block) {
    current->Enter("DestroyEnvironmentBlock", current->NameOf(block));
    current->Close(block);
    return TRUE;
  }

  // Processes

  static std::string Arguments(const wchar_t* application, const wchar_t* commandLine,
                               const SECURITY_ATTRIBUTES* process, const SECURITY_ATTRIBUTES* thread,
                               BOOL inherit, DWORD flags, const wchar_t* directory,
                               const STARTUPINFOW& startup) {
    STARTUPINFOW expected{};
    expected.cb = sizeof(expected);
    expected.lpDesktop = startup.lpDesktop;
    return Narrow(application) + ", [" + Narrow(commandLine) + "]" +
           (process == nullptr && thread == nullptr ? "" : ", attributes") +
           (inherit ? ", handles inherited" : "") + ", " + Hex(flags) + ", in " + TextOrNull(directory) +
           ", on " + TextOrNull(startup.lpDesktop) +
           (std::memcmp(&expected, &startup, sizeof(expected)) == 0 ? "" : ", more");
  }

  static void Start(PROCESS_INFORMATION* started) {
    *started = {current->Open("helper"), current->Open("helper thread"), HELPER_PROCESS_ID, 1};
  }

  static BOOL WINAPI CreateProcessAsUserW(HANDLE token, const wchar_t* application, wchar_t* commandLine,
                                          SECURITY_ATTRIBUTES* process, SECURITY_ATTRIBUTES* thread,
                                          BOOL inherit, DWORD flags, void* environment,
                                          const wchar_t* directory, STARTUPINFOW* startup,
                                          PROCESS_INFORMATION* started) {
    const auto failure = current->Enter(
        "CreateProcessAsUserW",
        current->NameOf(token) + ", " +
            Arguments(application, commandLine, process, thread, inherit, flags, directory, *startup) +
            ", with " + current->NameOf(environment));
    if (failure) return FailedWith(*failure);
    Start(started);
    return TRUE;
  }

  static BOOL WINAPI CreateProcessW(const wchar_t* application, wchar_t* commandLine,
                                    SECURITY_ATTRIBUTES* process, SECURITY_ATTRIBUTES* thread, BOOL inherit,
                                    DWORD flags, void* environment, const wchar_t* directory,
                                    STARTUPINFOW* startup, PROCESS_INFORMATION* started) {
    const auto failure = current->Enter("CreateProcessW", Arguments(application, commandLine, process, thread,
                                                                    inherit, flags, directory, *startup) +
                                                              ", with " + current->NameOf(environment));
    if (failure) return FailedWith(*failure);
    Start(started);
    return TRUE;
  }

  static BOOL WINAPI CloseHandle(HANDLE handle) {
    const std::string name = current->NameOf(handle);
    if (handle == nullptr || name == "unknown") {
      return current->Original<decltype(&::CloseHandle)>("CloseHandle")(handle);
    }
    current->Enter("CloseHandle", name);
    current->Close(handle);
    return TRUE;
  }

  // The pipe

  static BOOL WINAPI WaitNamedPipeW(const wchar_t* name, DWORD timeOut) {
    const auto failure = current->Enter("WaitNamedPipeW", Narrow(name) + ", " + Number(timeOut));
    if (failure) return FailedWith(*failure);
    const Lock::Holder holder(current->lock_);
    if (++current->pipeAttempts_ >= current->pipeAppearsAtAttempt) return TRUE;
    FailureLedger::OfThisProgram().Failed("WaitNamedPipeW", ERROR_FILE_NOT_FOUND);
    return FailedWith(ERROR_FILE_NOT_FOUND);
  }

  // The pauses between attempts take no time here.
  static void WINAPI Sleep(DWORD milliseconds) {
    if (milliseconds != PAUSE) {
      current->Original<decltype(&::Sleep)>("Sleep")(milliseconds);
      return;
    }
    current->Enter("Sleep", Number(milliseconds));
  }

  static BOOL WINAPI CallNamedPipeW(const wchar_t* name, void* request, DWORD requestSize, void* reply,
                                    DWORD replySize, DWORD* received, DWORD timeOut) {
    const auto failure = current->Enter("CallNamedPipeW", Narrow(name) + ", " + Number(requestSize) + ", " +
                                                              Number(replySize) + ", " + Number(timeOut));
    const std::wstring text(static_cast<const wchar_t*>(request), requestSize / sizeof(wchar_t));
    const std::vector<std::uint8_t> zeros(replySize);
    if (std::memcmp(reply, zeros.data(), replySize) != 0) current->record_("buffer not zeroed");
    {
      Lock::Holder holder(current->lock_);
      current->requests_.push_back(text);
      holder.WaitFor([] { return !current->hangs_; });
    }
    if (failure) return FailedWith(*failure);
    const std::wstring answered = current->answer ? current->answer(text) : std::wstring();
    const auto size = static_cast<DWORD>(answered.size() * sizeof(wchar_t));
    *received = std::min(size, replySize);
    std::memcpy(reply, answered.data(), *received);
    if (size <= replySize) return TRUE;
    FailureLedger::OfThisProgram().Failed("CallNamedPipeW", ERROR_MORE_DATA);
    return FailedWith(ERROR_MORE_DATA);
  }
};

namespace {

struct Replacement {
  const char* name;
  void* function;
};

// Holds each stand-in to the type of what it stands in for.
template <typename Function>
Replacement Replace(const char* name, Function* function) {
  return {name, reinterpret_cast<void*>(function)};
}

#define REPLACEMENT(name) Replace<decltype(::name)>(#name, &ScriptedUserSession::Fakes::name)

std::vector<Replacement> Replacements() {
  return {REPLACEMENT(HeapAlloc),
          REPLACEMENT(BCryptGenRandom),
          REPLACEMENT(WTSEnumerateSessionsW),
          REPLACEMENT(WTSFreeMemory),
          REPLACEMENT(WTSQueryUserToken),
          REPLACEMENT(CreateEnvironmentBlock),
          REPLACEMENT(DestroyEnvironmentBlock),
          REPLACEMENT(CreateProcessAsUserW),
          REPLACEMENT(CreateProcessW),
          REPLACEMENT(CloseHandle),
          REPLACEMENT(WaitNamedPipeW),
          REPLACEMENT(Sleep),
          REPLACEMENT(CallNamedPipeW)};
}

#undef REPLACEMENT

}  // namespace

ScriptedUserSession::ScriptedUserSession(HMODULE module, std::function<void(std::string)> record)
    : record_(std::move(record)) {
  if (current != nullptr) throw std::logic_error("there is a scripted user session already");
  current = this;
  for (const Replacement& replacement : Replacements()) {
    patches_.try_emplace(replacement.name, module, replacement.name, replacement.function);
  }
}

ScriptedUserSession::~ScriptedUserSession() {
  Release();
  patches_.clear();
  current = nullptr;
}

std::wstring ScriptedUserSession::Identifier(unsigned n) {
  return std::wstring(RANDOM_BYTES, static_cast<wchar_t>(L'0' + n));
}

void ScriptedUserSession::Hang() {
  const Lock::Holder holder(lock_);
  hangs_ = true;
}

void ScriptedUserSession::Release() {
  Lock::Holder holder(lock_);
  hangs_ = false;
  holder.Changed();
}

Lines ScriptedUserSession::OpenHandles() const {
  const Lock::Holder holder(lock_);
  Lines names;
  for (const auto& [handle, name] : handles_) names.push_back(name);
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::wstring> ScriptedUserSession::Requests() const {
  const Lock::Holder holder(lock_);
  return requests_;
}

std::optional<DWORD> ScriptedUserSession::Enter(const std::string& function, const std::string& arguments) {
  std::string call = function;
  call += "(" + arguments + ")";
  record_(std::move(call));
  const Lock::Holder holder(lock_);
  const int number = ++calls_[function];
  const auto found = failures_.find(function);
  if (found == failures_.end()) return {};
  const auto [code, failing] = found->second;
  if (failing == 0) {
    FailureLedger::OfThisProgram().Failed(function, code);
    return code;
  }
  if (failing != number) return {};
  FailureLedger::OfThisProgram().FailedOtherwise(function,
                                                 CodeText(code) + ", call " + Number(number) + " alone");
  return code;
}

HANDLE ScriptedUserSession::Open(const std::string& name) {
  const Lock::Holder holder(lock_);
  nextHandle_ += 4;
  const auto handle = reinterpret_cast<HANDLE>(nextHandle_);
  handles_[handle] = name;
  return handle;
}

std::string ScriptedUserSession::NameOf(HANDLE handle) const {
  if (handle == nullptr) return "null";
  const Lock::Holder holder(lock_);
  const auto found = handles_.find(handle);
  return found == handles_.end() ? "unknown" : found->second;
}

bool ScriptedUserSession::Close(HANDLE handle) {
  {
    const Lock::Holder holder(lock_);
    if (handles_.erase(handle) != 0) return true;
  }
  record_("closed what is not open");
  return false;
}

}  // namespace ostrel::test
