#include "filtering_store.h"

#include <map>
#include <optional>
#include <tuple>
#include <utility>

namespace ostrel::lab {

namespace {

using Kept = RegistryKey::Kept;

constexpr wchar_t MUTEX_NAME[] = L"Global\\OstrelLabFilteringPlatform";
constexpr wchar_t PERSISTENT_PATH[] = L"Software\\OstrelLab\\FilteringPlatform\\Persistent";
constexpr wchar_t RUNNING_PATH[] = L"Software\\OstrelLab\\FilteringPlatform\\Running";

UniqueKernelHandle CreateSharedMutex() {
  UniqueKernelHandle mutex(CreateMutexW(nullptr, FALSE, MUTEX_NAME));
  if (!mutex) throw RegistryError{GetLastError()};
  return mutex;
}

// Nothing when the process has ended.
std::optional<std::uint64_t> StartOf(HANDLE process) {
  FILETIME start{};
  FILETIME ignored{};
  if (WaitForSingleObject(process, 0) != WAIT_TIMEOUT) return std::nullopt;
  if (!GetProcessTimes(process, &start, &ignored, &ignored, &ignored)) return std::nullopt;
  return std::uint64_t{start.dwHighDateTime} << 32 | start.dwLowDateTime;
}

// Process id and start.
using Process = std::pair<std::uint32_t, std::uint64_t>;

bool IsAlive(const Process& described) {
  const UniqueKernelHandle process(
      OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, described.first));
  return process && StartOf(process.Get()) == described.second;
}

Process ReadProcess(const RegistryKey& session) {
  return {static_cast<std::uint32_t>(session.Number(L"ProcessId")), session.Number(L"ProcessStart")};
}

// An unreadable key gives zero, which no object and no session has.
GUID GuidIn(const std::wstring& text) {
  GUID guid{};
  return ParseGuid(text, guid) ? guid : GUID{};
}

void Write(const RegistryKey& key, const FilteringSession& session) {
  key.Set(L"Name", session.name);
  key.Set(L"Description", session.description);
  key.Set(L"Flags", session.flags);
  key.Set(L"ProcessId", session.processId);
  key.Set(L"ProcessStart", session.processStart);
}

FilteringSession ReadSession(const RegistryKey& key, const std::wstring& name) {
  FilteringSession session;
  session.key = GuidIn(name);
  session.name = key.Text(L"Name");
  session.description = key.Text(L"Description");
  session.flags = static_cast<std::uint32_t>(key.Number(L"Flags"));
  std::tie(session.processId, session.processStart) = ReadProcess(key);
  return session;
}

void Write(const RegistryKey& key, const FilteringObject& object) {
  key.Set(L"Kind", static_cast<std::uint64_t>(object.kind));
  key.Set(L"Key", TextOf(object.key));
  key.Set(L"Name", object.name);
  key.Set(L"Description", object.description);
  key.Set(L"Flags", object.flags);
  key.Set(L"Layer", TextOf(object.layer));
  key.Set(L"SubLayer", TextOf(object.subLayer));
  key.Set(L"Callout", TextOf(object.callout));
  key.Set(L"Action", object.action);
  key.Set(L"Conditions", object.conditions);
  key.Set(L"UserDescriptor", object.userDescriptor);
}

FilteringObject ReadObject(const RegistryKey& key) {
  FilteringObject object;
  object.kind = static_cast<FilteringKind>(key.Number(L"Kind"));
  object.key = GuidIn(key.Text(L"Key"));
  object.name = key.Text(L"Name");
  object.description = key.Text(L"Description");
  object.flags = static_cast<std::uint32_t>(key.Number(L"Flags"));
  object.layer = GuidIn(key.Text(L"Layer"));
  object.subLayer = GuidIn(key.Text(L"SubLayer"));
  object.callout = GuidIn(key.Text(L"Callout"));
  object.action = static_cast<std::uint32_t>(key.Number(L"Action"));
  object.conditions = static_cast<std::uint32_t>(key.Number(L"Conditions"));
  object.userDescriptor = key.Text(L"UserDescriptor");
  return object;
}

void ReadObjects(const RegistryKey& folder, FilteringLifetime lifetime, const GUID& session,
                 std::vector<FilteringObject>& objects) {
  for (const std::wstring& name : folder.Names()) {
    const auto key = folder.Open(name);
    if (!key) continue;
    objects.push_back(ReadObject(*key));
    objects.back().lifetime = lifetime;
    objects.back().session = session;
  }
}

// Objects of two kinds may have the same key.
std::wstring NameOf(const FilteringObject& object) {
  return std::to_wstring(static_cast<int>(object.kind)) + TextOf(object.key);
}

}  // namespace

class FilteringStore::Lock {
 public:
  // A holder that died leaves the mutex abandoned, which is as good as released.
  explicit Lock(FilteringStore& store) : mutex_(store.mutex_.Get()) {
    if (WaitForSingleObject(mutex_, INFINITE) == WAIT_FAILED) throw RegistryError{GetLastError()};
  }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  ~Lock() { ReleaseMutex(mutex_); }

 private:
  HANDLE mutex_;
};

FilteringStore::FilteringStore()
    : mutex_(CreateSharedMutex()),
      persistent_(RegistryKey::CreateForMachine(PERSISTENT_PATH, Kept::Always)),
      running_(RegistryKey::CreateForMachine(RUNNING_PATH, Kept::UntilRestart)),
      untilRestart_(running_.Create(L"Objects", Kept::UntilRestart)),
      sessions_(running_.Create(L"Sessions", Kept::UntilRestart)) {}

void FilteringStore::RemoveDeadSessions() {
  // A process may have hundreds of sessions open.
  std::map<Process, bool> verdicts;
  for (const std::wstring& name : sessions_.Names()) {
    const auto key = sessions_.Open(name);
    if (!key) continue;
    const auto [verdict, isFirst] = verdicts.try_emplace(ReadProcess(*key));
    if (isFirst) verdict->second = IsAlive(verdict->first);
    if (!verdict->second) sessions_.Delete(name);
  }
}

bool FilteringStore::IsThere(const std::wstring& session) {
  if (!sessions_.Open(session)) return false;
  RemoveDeadSessions();
  return sessions_.Open(session).has_value();
}

std::vector<FilteringObject> FilteringStore::ReadAllObjects() {
  std::vector<FilteringObject> read;
  ReadObjects(persistent_, FilteringLifetime::Persistent, {}, read);
  ReadObjects(untilRestart_, FilteringLifetime::UntilRestart, {}, read);
  for (const std::wstring& name : sessions_.Names()) {
    const auto objects = sessions_.Open(name + L"\\Objects");
    if (objects) ReadObjects(*objects, FilteringLifetime::Session, GuidIn(name), read);
  }
  return read;
}

std::vector<FilteringObject> FilteringStore::Objects() {
  const Lock lock(*this);
  RemoveDeadSessions();
  return ReadAllObjects();
}

FilteringState FilteringStore::Read() {
  const Lock lock(*this);
  RemoveDeadSessions();
  FilteringState state;
  state.objects = ReadAllObjects();
  for (const std::wstring& name : sessions_.Names()) {
    const auto key = sessions_.Open(name);
    if (key) state.sessions.push_back(ReadSession(*key, name));
  }
  return state;
}

bool FilteringStore::AddSession(const FilteringSession& session) {
  const Lock lock(*this);
  const std::wstring name = TextOf(session.key);
  if (IsThere(name)) return false;
  Write(sessions_.Create(name, Kept::UntilRestart), session);
  return true;
}

void FilteringStore::RemoveSession(const GUID& session) {
  const Lock lock(*this);
  sessions_.Delete(TextOf(session));
}

bool FilteringStore::TryBecomeWriter(const GUID& session) {
  const Lock lock(*this);
  const std::wstring own = TextOf(session);
  const std::wstring writer = running_.Text(L"Writer");
  // A writer whose session has gone writes no more.
  if (!writer.empty() && writer != own && IsThere(writer)) return false;
  running_.Set(L"Writer", own);
  return true;
}

void FilteringStore::StopWriting(const GUID& session) {
  const Lock lock(*this);
  if (running_.Text(L"Writer") == TextOf(session)) running_.Set(L"Writer", std::wstring());
}

void FilteringStore::Add(const std::vector<FilteringObject>& objects) {
  const Lock lock(*this);
  for (const FilteringObject& object : objects) {
    const std::wstring name = NameOf(object);
    switch (object.lifetime) {
      case FilteringLifetime::Persistent:
        Write(persistent_.Create(name, Kept::Always), object);
        break;
      case FilteringLifetime::UntilRestart:
        Write(untilRestart_.Create(name, Kept::UntilRestart), object);
        break;
      case FilteringLifetime::Session:
        if (const auto session = sessions_.Open(TextOf(object.session))) {
          Write(session->Create(L"Objects", Kept::UntilRestart).Create(name, Kept::UntilRestart), object);
        }
        break;
    }
  }
}

std::uint64_t CurrentProcessStart() {
  return StartOf(GetCurrentProcess()).value_or(0);
}

}  // namespace ostrel::lab
