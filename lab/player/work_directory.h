#ifndef OSTREL_LAB_PLAYER_WORK_DIRECTORY_H
#define OSTREL_LAB_PLAYER_WORK_DIRECTORY_H

#include <string>

#include "scenario.h"

namespace ostrel::lab {

// Where a scenario's files and process images lie: <root>\files, or a network share, and <root>\processes.
// The files stay when the player ends, because the host sizes them when it reports.
class WorkDirectory {
 public:
  // An empty root stands for "OstrelLab" in the user's folder for temporary files.
  explicit WorkDirectory(const std::wstring& root);

  const std::wstring& Root() const { return root_; }

  void Create(const FileEntry& file) const;
  // The file's name as the driver gives it, with the device in place of the drive letter.
  std::wstring DeviceName(const FileEntry& file) const;

  // <root>\processes\<id>, created.
  std::wstring CreateProcessDirectory(const ProcessEntry& process) const;

 private:
  std::wstring PathOf(const FileEntry& file) const;

  std::wstring root_;
};

}  // namespace ostrel::lab

#endif
