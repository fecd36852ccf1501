#ifndef OSTREL_TESTS_UNIT_HOST_TEMPORARY_FOLDER_H
#define OSTREL_TESTS_UNIT_HOST_TEMPORARY_FOLDER_H

#include <filesystem>
#include <string>

namespace ostrel_test {

// A new empty folder, gone with everything in it at the end.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::wstring Path() const { return path_.wstring(); }
  std::filesystem::path operator/(const wchar_t* name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

void MakeFile(const std::filesystem::path& path);
void WriteWholeFile(const std::filesystem::path& path, const std::string& content);
std::string ReadWholeFile(const std::filesystem::path& path);

}  // namespace ostrel_test

#endif
