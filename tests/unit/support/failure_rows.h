#ifndef OSTREL_TESTS_UNIT_SUPPORT_FAILURE_ROWS_H
#define OSTREL_TESTS_UNIT_SUPPORT_FAILURE_ROWS_H

#include <string>
#include <vector>

#ifdef _WIN32
#include "support/failure_ledger.h"
#endif

namespace ostrel_test {

// Enters a failure into the page of failures with everything that came of it: `lines` are those that it
// brought about, as a transcript has them ("log 7 ..."), whatever else happened in between. `chosen` is the
// answer taken where more than one would be right. Only Windows builds make the page.
#ifdef _WIN32
inline void EnterFailure(const std::string& what, const std::string& how,
                         const std::vector<std::string>& lines, const std::string& result,
                         const std::string& chosen = {}) {
  auto& ledger = ostrel::test::FailureLedger::OfThisProgram();
  ledger.FailedOtherwise(what, how);
  for (const std::string& line : lines) ledger.Happened(line);
  ledger.CameTo(result);
  if (!chosen.empty()) ledger.Chosen(what, chosen);
}
#else
inline void EnterFailure(const std::string&, const std::string&, const std::vector<std::string>&,
                         const std::string&, const std::string& = {}) {}
#endif

}  // namespace ostrel_test

#endif
