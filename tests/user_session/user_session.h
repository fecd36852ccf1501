#ifndef OSTREL_TESTS_USER_SESSION_USER_SESSION_H
#define OSTREL_TESTS_USER_SESSION_USER_SESSION_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "support/library_copy.h"
#include "support/transcript.h"
#include "userhelper/file_meta_data.h"

namespace ostrel::test {

// What a getter has set.
struct Answer {
  std::optional<std::string> result;
  std::optional<std::string> error;

  bool operator==(const Answer&) const = default;
};
void PrintTo(const Answer& answer, std::ostream* stream);

struct Titles {
  std::string status;
  std::vector<std::string> titles;

  bool operator==(const Titles&) const = default;
};
void PrintTo(const Titles& titles, std::ostream* stream);

struct MetaData {
  std::string status;
  FileMetaData metaData;
};

// The library in a user's session: the DLL's getters, and what the DLL asks on its own account, which is
// linked into this program. The helper is started as Windows starts it.
//
// At the end no helper may be left.
class UserSession : public ::testing::Test {
 protected:
  UserSession();
  ~UserSession() override;

  // The lab's terminal services: application, service or none.
  void SetSession(const wchar_t* session);
  void SetVariable(const wchar_t* name, const std::wstring& value);
  // Where the library finds the helper.
  static void GoTo(const std::filesystem::path& folder);
  static std::filesystem::path Stage();

  Answer AskForProxy();
  Answer AskForLogin(const std::wstring& provider, const std::wstring& homeDirectory);
  Titles AskForTitles();
  MetaData AskForMetaData(const std::filesystem::path& file);

  // "log 3 ..." and so on, but for the texts of request and reply.
  Lines Logs() const;
  Lines Errors() const { return transcript_.StartingWith("log 3 "); }
  // What came back over the pipe, as the log has it.
  std::string Received() const;

  static bool DoesAHelperRun();
  bool WaitUntilNoHelperRuns() const;

  Transcript transcript_;

 private:
  std::filesystem::path formerFolder_;
  std::set<std::wstring> variables_;
  LibraryCopy library_;
};

}  // namespace ostrel::test

#endif
