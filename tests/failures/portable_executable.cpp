#include "portable_executable.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace ostrel::test {

namespace {

constexpr std::size_t OPTIONAL_HEADER = 24;
constexpr std::uint16_t MAGIC_64_BIT = 0x20B;
constexpr std::size_t SECTION_SIZE = 40;
constexpr std::size_t BASE_RELOCATIONS = 5;
constexpr std::uint16_t RELOCATIONS_STRIPPED = 1;
constexpr std::uint32_t SECTION_EXECUTABLE = 0x20000000;
constexpr std::uint32_t SECTION_WRITABLE = 0x80000000;

}  // namespace

PortableExecutable::PortableExecutable(const std::wstring& path) {
  std::ifstream file(std::filesystem::path(path), std::ios::binary);
  bytes_.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  if (bytes_.empty()) throw std::runtime_error("the file cannot be read");
  headers_ = Number(0x3C);
}

bool PortableExecutable::Is64Bit() const {
  return Word(headers_ + OPTIONAL_HEADER) == MAGIC_64_BIT;
}

std::vector<std::string> PortableExecutable::ExportedNames() const {
  if (Directory(0) == 0) return {};
  const std::size_t table = OffsetOf(Directory(0));
  const std::uint32_t count = Number(table + 24);
  const std::size_t names = OffsetOf(Number(table + 32));
  std::vector<std::string> exported;
  for (std::size_t i = 0; i < count; ++i) exported.push_back(Text(OffsetOf(Number(names + 4 * i))));
  return exported;
}

std::vector<std::string> PortableExecutable::ImportedLibraries() const {
  constexpr std::size_t entrySize = 20;
  constexpr std::size_t name = 12;
  std::vector<std::string> libraries;
  for (std::size_t entry = OffsetOf(Directory(1)); Number(entry + name) != 0; entry += entrySize) {
    libraries.push_back(Text(OffsetOf(Number(entry + name))));
  }
  return libraries;
}

std::uint16_t PortableExecutable::Characteristics() const {
  return Word(headers_ + OPTIONAL_HEADER + 70);
}

bool PortableExecutable::LostItsRelocations() const {
  return (Word(headers_ + 22) & RELOCATIONS_STRIPPED) != 0;
}

bool PortableExecutable::HasRelocations() const {
  return Directory(BASE_RELOCATIONS) != 0;
}

std::vector<SectionRights> PortableExecutable::Sections() const {
  std::vector<SectionRights> sections;
  for (std::size_t i = 0; i < SectionCount(); ++i) {
    const std::uint32_t rights = Number(SectionHeaders() + SECTION_SIZE * i + 36);
    sections.push_back({(rights & SECTION_WRITABLE) != 0, (rights & SECTION_EXECUTABLE) != 0});
  }
  return sections;
}

bool PortableExecutable::HasLongSymbol(const std::string& name) const {
  constexpr std::size_t symbolSize = 18;
  const std::size_t symbols = Number(headers_ + 12);
  // The long names follow the symbols, each ended by a zero.
  const std::size_t names = symbols + symbolSize * Number(headers_ + 16);
  if (symbols == 0 || names > bytes_.size()) return false;
  std::vector<std::uint8_t> sought(1, 0);
  sought.insert(sought.end(), name.begin(), name.end());
  sought.push_back(0);
  return std::search(bytes_.begin() + static_cast<std::ptrdiff_t>(names), bytes_.end(), sought.begin(),
                     sought.end()) != bytes_.end();
}

std::uint16_t PortableExecutable::Word(std::size_t offset) const {
  return static_cast<std::uint16_t>(bytes_.at(offset) | bytes_.at(offset + 1) << 8);
}

std::uint32_t PortableExecutable::Number(std::size_t offset) const {
  return Word(offset) | static_cast<std::uint32_t>(Word(offset + 2)) << 16;
}

std::string PortableExecutable::Text(std::size_t offset) const {
  std::string text;
  for (; bytes_.at(offset) != 0; ++offset) text += static_cast<char>(bytes_[offset]);
  return text;
}

std::size_t PortableExecutable::OffsetOf(std::uint32_t address) const {
  std::size_t section = SectionHeaders();
  for (std::size_t i = 0; i < SectionCount(); ++i, section += SECTION_SIZE) {
    const std::uint32_t start = Number(section + 12);
    if (address >= start && address < start + Number(section + 16))
      return address - start + Number(section + 20);
  }
  throw std::runtime_error("an address lies in no section");
}

std::uint32_t PortableExecutable::Directory(std::size_t index) const {
  constexpr std::size_t directories = 112;
  return Number(headers_ + OPTIONAL_HEADER + directories + 8 * index);
}

std::size_t PortableExecutable::SectionHeaders() const {
  return headers_ + OPTIONAL_HEADER + Word(headers_ + 20);
}

std::size_t PortableExecutable::SectionCount() const {
  return Word(headers_ + 6);
}

}  // namespace ostrel::test
