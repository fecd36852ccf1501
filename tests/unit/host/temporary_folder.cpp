#include "temporary_folder.h"

#include <windows.h>

#include <fstream>
#include <iterator>

namespace ostrel_test {

TemporaryFolder::TemporaryFolder()
    : path_(std::filesystem::temp_directory_path() /
            (L"ostrel-host-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
             std::to_wstring(GetTickCount64()))) {
  std::filesystem::create_directories(path_);
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void MakeFile(const std::filesystem::path& path) {
  std::ofstream(path) << "content";
}

void WriteWholeFile(const std::filesystem::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

std::string ReadWholeFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace ostrel_test
