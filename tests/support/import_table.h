#ifndef OSTREL_TESTS_SUPPORT_IMPORT_TABLE_H
#define OSTREL_TESTS_SUPPORT_IMPORT_TABLE_H

#include <windows.h>

#include <string>

namespace ostrel::test {

// Sends one module's calls of one imported function elsewhere, until destruction. Only that module is
// affected, so the code under test meets a system that fails on purpose while everything else in the process
// goes on undisturbed.
class ImportPatch {
 public:
  // Throws std::runtime_error when the module does not import the function: a patch that nothing calls proves
  // nothing.
  ImportPatch(HMODULE module, const std::string& function, void* replacement);
  ImportPatch(ImportPatch&& other) noexcept;
  ImportPatch(const ImportPatch&) = delete;
  ImportPatch& operator=(const ImportPatch&) = delete;
  ~ImportPatch();

  // What the module called before.
  void* Original() const { return original_; }

  // What the module calls by this name now; null when it does not import the function.
  static void* Imported(HMODULE module, const std::string& function);

 private:
  void** slot_;
  void* original_;
};

}  // namespace ostrel::test

#endif
