#ifndef OSTREL_LAB_SYSTEM_FWPUCLNT_FILTERING_OBJECTS_H
#define OSTREL_LAB_SYSTEM_FWPUCLNT_FILTERING_OBJECTS_H

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

// What the stand-in filtering engine holds.
namespace ostrel::lab {

enum class FilteringKind { Callout, SubLayer, Filter };

// Longest first.
enum class FilteringLifetime { Persistent, UntilRestart, Session };

struct FilteringObject {
  FilteringKind kind = FilteringKind::Callout;
  FilteringLifetime lifetime = FilteringLifetime::UntilRestart;
  GUID session{};  // of an object that goes with its session
  GUID key{};
  std::wstring name;
  std::wstring description;
  std::uint32_t flags = 0;
  GUID layer{};     // not of a sub-layer
  GUID subLayer{};  // of a filter, like everything below
  GUID callout{};   // zero when the action calls none
  std::uint32_t action = 0;
  std::uint32_t conditions = 0;
  std::wstring userDescriptor;  // of the condition on the user, as SDDL; empty without a readable one
};

struct FilteringSession {
  GUID key{};
  std::wstring name;
  std::wstring description;
  std::uint32_t flags = 0;
  std::uint32_t processId = 0;
  std::uint64_t processStart = 0;  // tells a process from a later one with the same id
};

struct FilteringState {
  std::vector<FilteringSession> sessions;
  std::vector<FilteringObject> objects;
};

// "{3aaccbc0-2c29-455f-bb91-0e801c8994a4}"
std::wstring TextOf(const GUID& guid);
bool ParseGuid(const std::wstring& text, GUID& guid);

}  // namespace ostrel::lab

#endif
