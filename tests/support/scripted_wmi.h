#ifndef OSTREL_TESTS_SUPPORT_SCRIPTED_WMI_H
#define OSTREL_TESTS_SUPPORT_SCRIPTED_WMI_H

#include <windows.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/import_table.h"
#include "support/transcript.h"

namespace ostrel::test {

// COM and Windows Management Instrumentation as one module meets them: every call, argument and release on
// record, any step failing when the test wants it to, and objects of the test's choosing as the result of any
// query.
//
// One at a time.
class ScriptedWmi {
 public:
  // Takes the place of the functions that the module imports.
  ScriptedWmi(HMODULE module, Transcript& transcript);
  ScriptedWmi(const ScriptedWmi&) = delete;
  ScriptedWmi& operator=(const ScriptedWmi&) = delete;
  ~ScriptedWmi();

  // Results of the steps.
  HRESULT initialize = S_OK;
  HRESULT createInstance = S_OK;
  HRESULT connectServer = S_OK;
  HRESULT setProxyBlanket = S_OK;
  HRESULT execQuery = S_OK;
  bool givesEnumerator = true;
  std::wstring refusedText;  // of COM's kind, that there is no memory for
  HRESULT next = S_FALSE;    // when there is no further object
  HRESULT get = S_OK;
  HRESULT convert = S_OK;  // a value into text

  // The one property of each object that the query yields; none is a null value.
  std::vector<std::optional<std::wstring>> objects;

  // COM objects that the module holds, sorted.
  Lines HeldObjects() const;
  // How many more texts of COM's kind the module has made or received than given back.
  int HeldTexts() const { return heldTexts_; }

  struct Fakes;
  struct Object;

 private:
  HRESULT Enter(const std::string& call, HRESULT result);
  HRESULT EndOfObjects() const;
  template <typename Made>
  Made* Make(const std::string& name);

  Transcript& transcript_;
  std::vector<std::unique_ptr<Object>> made_;
  std::size_t position_ = 0;
  int heldTexts_ = 0;
  std::vector<ImportPatch> patches_;
};

}  // namespace ostrel::test

#endif
