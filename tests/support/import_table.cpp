#include "support/import_table.h"

#include <cstdint>
#include <stdexcept>
#include <utility>

namespace ostrel::test {

namespace {

template <typename T>
T* At(HMODULE module, std::uintptr_t offset) {
  return reinterpret_cast<T*>(reinterpret_cast<std::uintptr_t>(module) + offset);
}

// The slot of the function in one library's list of imports, or null.
void** FindIn(HMODULE module, const IMAGE_IMPORT_DESCRIPTOR& library, const std::string& function) {
  const auto* names = At<const IMAGE_THUNK_DATA>(module, library.OriginalFirstThunk);
  auto* slots = At<IMAGE_THUNK_DATA>(module, library.FirstThunk);
  for (; names->u1.AddressOfData != 0; ++names, ++slots) {
    if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal)) continue;
    const auto* name = At<const IMAGE_IMPORT_BY_NAME>(module, names->u1.AddressOfData);
    if (function == reinterpret_cast<const char*>(name->Name))
      return reinterpret_cast<void**>(&slots->u1.Function);
  }
  return nullptr;
}

void** FindSlot(HMODULE module, const std::string& function) {
  const auto* dos = At<const IMAGE_DOS_HEADER>(module, 0);
  const auto* headers = At<const IMAGE_NT_HEADERS>(module, static_cast<std::uintptr_t>(dos->e_lfanew));
  const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  if (directory.VirtualAddress == 0) return nullptr;
  for (const auto* library = At<const IMAGE_IMPORT_DESCRIPTOR>(module, directory.VirtualAddress);
       library->Name != 0; ++library) {
    if (void** const slot = FindIn(module, *library, function); slot != nullptr) return slot;
  }
  return nullptr;
}

void Write(void** slot, void* function) {
  DWORD protection = 0;
  if (!VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection)) {
    throw std::runtime_error("the import table cannot be made writable");
  }
  *slot = function;
  VirtualProtect(slot, sizeof(*slot), protection, &protection);
}

}  // namespace

ImportPatch::ImportPatch(HMODULE module, const std::string& function, void* replacement)
    : slot_(FindSlot(module, function)) {
  if (slot_ == nullptr) throw std::runtime_error("the module does not import " + function);
  original_ = *slot_;
  Write(slot_, replacement);
}

ImportPatch::ImportPatch(ImportPatch&& other) noexcept
    : slot_(std::exchange(other.slot_, nullptr)), original_(other.original_) {}

ImportPatch::~ImportPatch() {
  if (slot_ != nullptr) Write(slot_, original_);
}

void* ImportPatch::Imported(HMODULE module, const std::string& function) {
  void** const slot = FindSlot(module, function);
  return slot == nullptr ? nullptr : *slot;
}

}  // namespace ostrel::test
