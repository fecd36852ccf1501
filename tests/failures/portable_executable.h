#ifndef OSTREL_TESTS_FAILURES_PORTABLE_EXECUTABLE_H
#define OSTREL_TESTS_FAILURES_PORTABLE_EXECUTABLE_H

#include <cstdint>
#include <string>
#include <vector>

namespace ostrel::test {

// One section's rights once it is loaded.
struct SectionRights {
  bool isWritable;
  bool isExecutable;
};

// What a program's or a DLL's file says of itself, read from its bytes and not through the system's loader.
class PortableExecutable {
 public:
  // Throws std::runtime_error when the file cannot be read.
  explicit PortableExecutable(const std::wstring& path);

  bool Is64Bit() const;
  std::vector<std::string> ExportedNames() const;
  // Of the DLLs, as the file spells them.
  std::vector<std::string> ImportedLibraries() const;
  // IMAGE_DLLCHARACTERISTICS_* flags, which programs have as well.
  std::uint16_t Characteristics() const;
  // True of a file that the linker fixed to one address.
  bool LostItsRelocations() const;
  // False also of a small driver that names no address at all.
  bool HasRelocations() const;
  std::vector<SectionRights> Sections() const;
  // Whether the file's own symbol table, which a stripped file lacks, has this long name: of more than eight
  // characters.
  bool HasLongSymbol(const std::string& name) const;

 private:
  std::uint16_t Word(std::size_t offset) const;
  std::uint32_t Number(std::size_t offset) const;
  std::string Text(std::size_t offset) const;
  // Where what is loaded at `address` stands in the file.
  std::size_t OffsetOf(std::uint32_t address) const;
  std::uint32_t Directory(std::size_t index) const;
  // The sections' headers, of 40 bytes each.
  std::size_t SectionHeaders() const;
  std::size_t SectionCount() const;

  std::vector<std::uint8_t> bytes_;
  std::size_t headers_;
};

}  // namespace ostrel::test

#endif
