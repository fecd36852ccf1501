#include "parent_attribute.h"

#include "text.h"

namespace ostrel::lab {

ParentAttribute::ParentAttribute(HANDLE parent) : parent_(parent) {
  if (parent_ == nullptr) return;
  SIZE_T size = 0;
  InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
  list_.resize(size);
  if (!InitializeProcThreadAttributeList(List(), 1, 0, &size)) throw SystemError("choose a process's parent");
  if (UpdateProcThreadAttribute(List(), 0, PROC_THREAD_ATTRIBUTE_PARENT_PROCESS, &parent_, sizeof(parent_),
                                nullptr, nullptr)) {
    return;
  }
  const DWORD error = GetLastError();
  DeleteProcThreadAttributeList(List());
  SetLastError(error);
  throw SystemError("choose a process's parent");
}

ParentAttribute::~ParentAttribute() {
  if (parent_ != nullptr) DeleteProcThreadAttributeList(List());
}

LPPROC_THREAD_ATTRIBUTE_LIST ParentAttribute::List() {
  return list_.empty() ? nullptr : reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(list_.data());
}

}  // namespace ostrel::lab
