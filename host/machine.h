#ifndef OSTREL_HOST_MACHINE_H
#define OSTREL_HOST_MACHINE_H

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace ostrel::host {

// Folder of a module that this process has loaded; empty when it has not.
std::wstring ModuleFolder(const wchar_t* moduleName);

// Those of the four driver files that do not lie in the folder.
std::vector<std::wstring> MissingDriverFiles(const std::wstring& folder);

// Whether this process, or the owner of the token, could enable the privilege to load drivers. Only an
// elevated administrator's token and the system's hold it.
bool HoldsLoadDriverPrivilege();
bool HoldsLoadDriverPrivilege(void* token);

// Ids of the running processes with one of these image names; the case does not matter.
std::set<std::uint32_t> RunningProcesses(const std::vector<std::wstring>& imageNames);

}  // namespace ostrel::host

#endif
