#ifndef OSTREL_TESTS_SUPPORT_SCRIPTED_NETWORK_H
#define OSTREL_TESTS_SUPPORT_SCRIPTED_NETWORK_H

#include <windows.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "support/import_table.h"
#include "support/lock.h"
#include "support/scripted_system.h"

namespace ostrel::test {

// A packet record as the driver writes it.
using PacketBytes = std::array<std::uint8_t, 64>;

// The filtering platform and the network driver's device as one module meets them, laid over a scripted
// system: the calls go into its transcript, its Fail makes them fail, its open handles count what is left.
//
// The platform keeps keys as the real one does: one that is taken is refused, for every session, and only a
// committed transaction takes it for good. The device keeps read requests pending until the test completes
// them; a cancelled one completes when it is waited for.
//
// One at a time, and gone before the scripted system is.
class ScriptedNetwork {
 public:
  ScriptedNetwork(HMODULE module, ScriptedSystem& system);
  ScriptedNetwork(const ScriptedNetwork&) = delete;
  ScriptedNetwork& operator=(const ScriptedNetwork&) = delete;
  // Ends the threads that the module still has.
  ~ScriptedNetwork();

  // The driver's side of the device. Blocks are counted from 0 in the order in which a reader first uses
  // them; these are the newest reader's.
  void Complete(std::size_t block, const PacketBytes& record);
  void CompleteWithoutRecord(std::size_t block);
  // For the next request, which then completes at once.
  void Queue(const PacketBytes& record);
  std::size_t PendingCount() const;

  // What is in force on the platform.
  bool HasKey(const std::string& key) const;
  std::size_t FilterCount() const;
  void ForgetKeys();

  // Bytes of every process list that was sent to the driver.
  std::vector<std::vector<std::uint8_t>> ProcessLists() const;

  // From now on writes into the transcript when the reader frees a request block, and whether the driver
  // still had it; refuses the memory for block `refused`, counted from 0. Only for a module other than the
  // test's own, and while no thread of it but the reader runs.
  void WatchMemory(std::optional<std::size_t> refused = std::nullopt);
  // Refuses what the reader asks for by its `call`th request of memory from now, counted from 1.
  void RefuseMemory(int call) { untilRefusal_ = call; }
  bool HasRefusedMemory() const { return untilRefusal_ == 0; }

  // The next call of a function, and every one until LetGo, does not return.
  void Hold(const std::string& function);
  bool WaitUntilHeld();
  void LetGo();

  // What the machine is like.
  std::set<std::wstring> users{L"ann"};
  bool leavesADescriptor = false;             // also when a user is not known
  bool opensNull = false;                     // opening the device gives a null handle
  std::optional<DWORD> readError;             // of every read request
  std::optional<DWORD> waitResult;            // instead of waiting for several
  std::deque<std::function<void()>> onWaits;  // one is taken and called by each wait for several
  std::function<void(const std::string& function)> onCall;

  // For the functions that stand in for the system's.
  struct Fakes;

 private:
  struct Request {
    OVERLAPPED* overlapped;
    void* buffer;
    HANDLE event;
    bool isPending = false;
    bool isCancelled = false;
  };
  struct Transaction {
    std::set<std::string> keys;
    std::size_t filters = 0;
  };
  struct Reader {
    std::vector<Request> requests;
    bool hasCancelled = false;
  };

  [[nodiscard]] std::optional<DWORD> Enter(const std::string& function, const std::string& arguments);
  void Note(const std::string& function, const std::string& arguments);
  void Meet(const std::string& function);
  std::string NameOf(HANDLE handle) const;
  DWORD AddKey(const std::string& function, HANDLE engine, const std::string& key);
  DWORD AddFilter(HANDLE engine);
  // The request that uses the block; a new one at the end when there is none.
  std::size_t IndexOf(OVERLAPPED* overlapped, void* buffer);
  void End(Request& request, const PacketBytes* record);
  std::string DescribeWait(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) const;
  // Of the calling thread; null when the driver was never given it.
  const Request* Find(const void* block, std::size_t& index) const;

  template <typename Function>
  Function Original(const std::string& function) const {
    return reinterpret_cast<Function>(patches_.at(function).Original());
  }

  HMODULE module_;
  ScriptedSystem& system_;
  DWORD testThread_ = GetCurrentThreadId();
  std::map<std::string, ImportPatch> patches_;

  mutable Lock lock_;
  std::string heldFunction_;
  bool isHeld_ = false;
  std::set<std::string> keys_;
  std::size_t filters_ = 0;
  std::map<HANDLE, Transaction> transactions_;
  std::map<DWORD, Reader> readers_;  // by thread
  DWORD newestReader_ = 0;
  std::deque<PacketBytes> queue_;
  std::vector<std::vector<std::uint8_t>> processLists_;
  std::optional<std::size_t> refusedBlock_;
  std::size_t blocks_ = 0;
  std::atomic<int> untilRefusal_{-1};
};

}  // namespace ostrel::test

#endif
