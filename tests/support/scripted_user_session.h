#ifndef OSTREL_TESTS_SUPPORT_SCRIPTED_USER_SESSION_H
#define OSTREL_TESTS_SUPPORT_SCRIPTED_USER_SESSION_H

#include <windows.h>
// Needs windows.h before it.
#include <wtsapi32.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/import_table.h"
#include "support/lock.h"
#include "support/transcript.h"

namespace ostrel::test {

// Terminal sessions, the user helper and its pipe as one module meets them; every call on record, and any
// call failing when the test wants it to. No helper is really started.
//
// One at a time.
class ScriptedUserSession {
 public:
  // Takes the place of the system functions that the module imports. Whatever the module calls then goes to
  // `record`, on the thread that called.
  ScriptedUserSession(HMODULE module, std::function<void(std::string)> record);
  ScriptedUserSession(const ScriptedUserSession&) = delete;
  ScriptedUserSession& operator=(const ScriptedUserSession&) = delete;
  ~ScriptedUserSession();

  // Makes a function fail with the code. `call` counts from 1; 0 means every call.
  void Fail(const std::string& function, DWORD code, int call = 0) { failures_[function] = {code, call}; }

  void Succeed(const std::string& function) { failures_.erase(function); }

  // One active session, a helper whose pipe is there at once, and its answer to every request.
  void LogOn() { sessions = {{1, WTSActive}}; }
  // The identifier of the n-th call for random bytes that succeeds: 32 times the same digit.
  static std::wstring Identifier(unsigned n);

  // Keeps every exchange waiting until Release.
  void Hang();
  void Release();

  // Everything that the module opened and has not closed, sorted.
  Lines OpenHandles() const;
  // The texts written into the pipe.
  std::vector<std::wstring> Requests() const;

  // What the machine is like.
  std::vector<std::pair<DWORD, WTS_CONNECTSTATE_CLASS>> sessions;
  std::vector<std::uint8_t> randomBytes;  // where not empty, of every call
  int pipeAppearsAtAttempt = 1;
  std::function<std::wstring(const std::wstring& request)> answer;

  // For the functions that stand in for the system's.
  struct Fakes;

 private:
  struct Failure {
    DWORD code;
    int call;
  };

  std::optional<DWORD> Enter(const std::string& function, const std::string& arguments);
  HANDLE Open(const std::string& name);
  std::string NameOf(HANDLE handle) const;
  bool Close(HANDLE handle);

  template <typename Function>
  Function Original(const std::string& function) const {
    return reinterpret_cast<Function>(patches_.at(function).Original());
  }

  std::function<void(std::string)> record_;
  std::map<std::string, ImportPatch> patches_;

  mutable Lock lock_;
  std::map<std::string, Failure> failures_;
  std::map<std::string, int> calls_;
  std::map<HANDLE, std::string> handles_;
  std::uintptr_t nextHandle_ = 0x6000000;
  unsigned randomCalls_ = 0;
  int pipeAttempts_ = 0;
  std::vector<std::wstring> requests_;
  bool hangs_ = false;
};

}  // namespace ostrel::test

#endif
