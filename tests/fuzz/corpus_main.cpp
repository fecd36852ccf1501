// Runs every file of a folder through the entry function, so that what a fuzzer once found stays found
// wherever no fuzzer is built.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

#include "fuzzer.h"

namespace {

std::vector<std::uint8_t> ContentOf(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::vector<std::uint8_t> content{std::istreambuf_iterator<char>(stream), {}};
  if (!stream) throw std::runtime_error("cannot read " + file.string());
  return content;
}

void RunFolder(const std::filesystem::path& folder) {
  const std::filesystem::directory_iterator entries(folder);
  std::vector<std::filesystem::path> files(begin(entries), end(entries));
  if (files.empty()) throw std::runtime_error("no file in " + folder.string());
  std::sort(files.begin(), files.end());
  for (const std::filesystem::path& file : files) {
    // Said before it runs: a broken promise ends the program.
    std::printf("%s\n", file.filename().string().c_str());
    std::fflush(stdout);
    const std::vector<std::uint8_t> content = ContentOf(file);
    LLVMFuzzerTestOneInput(content.data(), content.size());
  }
  std::printf("%zu files\n", files.size());
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::fprintf(stderr, "usage: %s FOLDER\n", arguments[0]);
    return 2;
  }
  try {
    RunFolder(arguments[1]);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
  return 0;
}
