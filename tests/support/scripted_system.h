#ifndef OSTREL_TESTS_SUPPORT_SCRIPTED_SYSTEM_H
#define OSTREL_TESTS_SUPPORT_SCRIPTED_SYSTEM_H

#include <windows.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "filter/port_messages.h"
#include "support/import_table.h"
#include "support/lock.h"
#include "support/transcript.h"

namespace ostrel::test {

struct ScriptedProcess {
  std::uint32_t id = 0;
  std::wstring executable;  // as the process list shows it
  std::wstring module;      // name of the first module
  DWORD snapshotError = 0;  // of taking its modules
  DWORD moduleError = 0;    // of reading the first module
};

// The system as one module meets it: drivers, services, tokens, processes, drives and files of the test's
// choosing, every call on record, and any call failing when the test wants it to. What is not scripted here
// goes to the real system.
//
// One at a time.
class ScriptedSystem {
 public:
  // Takes the place of the system functions that the module imports.
  explicit ScriptedSystem(HMODULE module);
  ScriptedSystem(const ScriptedSystem&) = delete;
  ScriptedSystem& operator=(const ScriptedSystem&) = delete;
  // Ends the threads that the module still has.
  ~ScriptedSystem();

  // Makes a function fail with the code, named by itself or with arguments as the transcript writes it.
  // `call` counts from 1; 0 means every call.
  void Fail(const std::string& function, DWORD code, int call = 0);
  void Succeed(const std::string& function);

  Transcript transcript;

  // Everything that the module opened and has not closed, sorted.
  Lines OpenHandles() const;

  // Ids of the threads that the module started, in order.
  std::vector<DWORD> ThreadIds() const;
  // Waits until that thread, counted from 0, has ended.
  bool WaitForThreadEnd(std::size_t index) const;

  // The driver's side of the notification port.
  void Send(const EventMessage& message);
  void FailReceive(HRESULT result);
  // Waits until every message was taken and the reader is back for the next.
  bool WaitUntilHandled();

  // Bytes of every message sent to the control port.
  std::vector<std::vector<std::uint8_t>> SentMessages() const;

  // What the machine is like.
  std::wstring modulePath;  // where the module says it lies; empty is where it does
  std::wstring systemDirectory = L"S:\\system";
  std::set<std::wstring> existingFiles;
  std::set<std::wstring> directories;
  std::map<std::wstring, std::uint64_t> fileSizes;
  std::vector<std::pair<std::wstring, std::wstring>> drives;  // "C:" and its device, in list order
  std::map<std::wstring, std::wstring> shortPaths;
  std::map<std::wstring, std::wstring> longPaths;
  std::map<std::wstring, std::wstring> hostNames;    // by address text
  std::map<std::uint32_t, std::wstring> imageNames;  // of the processes that can be opened
  std::function<void()> onImageName;                 // called by each look-up of one
  std::vector<ScriptedProcess> processes;
  std::wstring account = L"ann";  // empty: the look-up writes nothing
  DWORD serviceState = SERVICE_RUNNING;
  UINT infErrorLine = 0;
  DWORD adjustPrivilegesLastError = ERROR_SUCCESS;
  DWORD waitDivisor = 1;  // waits for the module's own events and threads are that much shorter

  // For the functions that stand in for the system's.
  struct Fakes;

 private:
  friend class ScriptedNetwork;

  struct Handle {
    std::string name;
    bool isReal = false;
    std::size_t position = 0;  // in a snapshot
  };
  struct Failure {
    DWORD code;
    int call;
  };
  struct Received {
    HRESULT result;
    EventMessage message;
  };

  // Notes a call and returns the code that it fails with, if the test wants it to.
  [[nodiscard]] std::optional<DWORD> Enter(const std::string& function, const std::string& arguments);
  // For a call that cannot be made to fail.
  void Note(const std::string& function, const std::string& arguments);
  HANDLE Open(const std::string& name);
  void AddReal(HANDLE handle, const std::string& name);
  bool IsOpen(HANDLE handle) const;
  std::string NameOf(HANDLE handle) const;
  void Forget(HANDLE handle);
  void EndThreads();

  template <typename Function>
  Function Original(const std::string& function) const {
    return reinterpret_cast<Function>(patches_.at(function).Original());
  }

  HMODULE module_;
  std::map<std::string, ImportPatch> patches_;

  mutable Lock lock_;
  std::map<std::string, Failure> failures_;
  std::map<std::string, int> calls_;
  std::map<HANDLE, Handle> handles_;
  std::uintptr_t nextHandle_ = 0x5000000;
  std::vector<std::pair<DWORD, HANDLE>> threads_;
  std::vector<HANDLE> events_;
  std::deque<Received> received_;
  int readers_ = 0;
  bool ending_ = false;
  std::vector<std::vector<std::uint8_t>> sent_;
};

}  // namespace ostrel::test

#endif
