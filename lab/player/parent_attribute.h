#ifndef OSTREL_LAB_PLAYER_PARENT_ATTRIBUTE_H
#define OSTREL_LAB_PLAYER_PARENT_ATTRIBUTE_H

#include <windows.h>

#include <vector>

namespace ostrel::lab {

// What makes a new process the child of another one than its creator.
class ParentAttribute {
 public:
  // The handle, of a process that is to be the parent, outlives this object. Null: the creator.
  explicit ParentAttribute(HANDLE parent);
  ParentAttribute(const ParentAttribute&) = delete;
  ParentAttribute& operator=(const ParentAttribute&) = delete;
  ~ParentAttribute();

  // Null without another parent.
  LPPROC_THREAD_ATTRIBUTE_LIST List();

 private:
  HANDLE parent_;
  std::vector<char> list_;
};

}  // namespace ostrel::lab

#endif
