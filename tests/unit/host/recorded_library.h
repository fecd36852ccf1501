#ifndef OSTREL_TESTS_UNIT_HOST_RECORDED_LIBRARY_H
#define OSTREL_TESTS_UNIT_HOST_RECORDED_LIBRARY_H

#include <map>
#include <string>
#include <vector>

#include "api/exports.h"
#include "support/import_table.h"

namespace ostrel_test {

// Takes the place of the library for this program: every call is put on record with the arguments that
// matter, and answered as the test wants it. One at a time.
class RecordedLibrary {
 public:
  RecordedLibrary();
  RecordedLibrary(const RecordedLibrary&) = delete;
  RecordedLibrary& operator=(const RecordedLibrary&) = delete;
  ~RecordedLibrary();

  std::vector<std::string> calls;

  // By function: an error line that it logs, and what it returns where not 1.
  std::map<std::string, std::wstring> errorLines;
  std::map<std::string, std::uint8_t> results;

  // For the functions that stand in for the library's.
  struct Fakes;

 private:
  std::uint8_t Answer(const std::string& function, const std::string& arguments);

  std::vector<ostrel::test::ImportPatch> patches_;
  LogCallback log_ = nullptr;
};

}  // namespace ostrel_test

#endif
