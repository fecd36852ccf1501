#ifndef OSTREL_TESTS_E2E_PROGRAM_H
#define OSTREL_TESTS_E2E_PROGRAM_H

#include <windows.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "util/unique_handle.h"

namespace ostrel::test {

// A program with its output in files. It is ended with this object if it still runs.
class Program {
 public:
  // `commandLine` with the program's path in front; output goes to `output`.out and `output`.err.
  Program(const std::wstring& commandLine, const std::filesystem::path& output);
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program();

  // Exit code; nothing when the program still runs at the deadline.
  std::optional<DWORD> Wait(std::chrono::seconds patience);
  bool IsRunning() const;

  std::string Output() const;
  std::string Errors() const;

  // Waits until the text appears in what the program writes to standard error.
  bool WaitForError(const std::string& text, std::chrono::seconds patience) const;

 private:
  std::filesystem::path output_;
  UniqueKernelHandle process_;
};

std::string ReadFile(const std::filesystem::path& path);

}  // namespace ostrel::test

#endif
