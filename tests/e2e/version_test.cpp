// Every binary names the version of the project, which stands in one place.

#include <sstream>
#include <vector>

#include "e2e/lab_fixture.h"

namespace ostrel::test {

namespace {

const std::string VERSION = OSTREL_EXPECTED_VERSION;

// What Windows shows as the properties of a file.
class VersionResource {
 public:
  explicit VersionResource(const std::filesystem::path& file) {
    DWORD ignored = 0;
    bytes_.resize(GetFileVersionInfoSizeW(file.c_str(), &ignored));
    if (!bytes_.empty() &&
        !GetFileVersionInfoW(file.c_str(), 0, static_cast<DWORD>(bytes_.size()), bytes_.data())) {
      bytes_.clear();
    }
  }

  bool IsPresent() const { return !bytes_.empty(); }

  // As "1.2.3.4".
  std::string FileNumber() const { return Number(Fixed().dwFileVersionMS, Fixed().dwFileVersionLS); }
  std::string ProductNumber() const { return Number(Fixed().dwProductVersionMS, Fixed().dwProductVersionLS); }

  std::wstring Text(const std::wstring& name) const {
    const auto* text = static_cast<const wchar_t*>(Find(L"\\StringFileInfo\\040904b0\\" + name));
    return text == nullptr ? L"" : text;
  }

 private:
  const void* Find(const std::wstring& path) const {
    void* value = nullptr;
    UINT length = 0;
    return VerQueryValueW(bytes_.data(), path.c_str(), &value, &length) ? value : nullptr;
  }

  const VS_FIXEDFILEINFO& Fixed() const { return *static_cast<const VS_FIXEDFILEINFO*>(Find(L"\\")); }

  static std::string Number(DWORD high, DWORD low) {
    std::ostringstream number;
    number << HIWORD(high) << '.' << LOWORD(high) << '.' << HIWORD(low) << '.' << LOWORD(low);
    return number.str();
  }

  std::vector<std::uint8_t> bytes_;
};

class Version : public LabFixture, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Of, Version,
                         ::testing::Values("OstrelFilterLib.dll", "OstrelUserHelper.exe", "OstrelHost.exe",
                                           "OstrelLab.exe", "OstrelLabProcess.exe", "OstrelFilter.sys",
                                           "OstrelNWFilter.sys", "fltlib.dll", "fwpuclnt.dll", "propsys.dll",
                                           "wtsapi32.dll"),
                         [](const auto& file) {
                           std::string name = file.param;
                           name[name.find('.')] = '_';
                           return name;
                         });

TEST_P(Version, StandsInTheFile) {
  const VersionResource resource(StageDirectory() / GetParam());
  ASSERT_TRUE(resource.IsPresent());
  const std::wstring version(VERSION.begin(), VERSION.end());
  EXPECT_EQ(resource.FileNumber(), VERSION + ".0");
  EXPECT_EQ(resource.ProductNumber(), VERSION + ".0");
  EXPECT_EQ(resource.Text(L"FileVersion"), version);
  EXPECT_EQ(resource.Text(L"ProductVersion"), version);
  EXPECT_EQ(resource.Text(L"ProductName"), L"OstrelFilterLib");
  EXPECT_EQ(resource.Text(L"OriginalFilename"), std::filesystem::path(GetParam()).wstring());
  EXPECT_NE(resource.Text(L"FileDescription"), L"");
}

class DriverPackage : public LabFixture, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Of, DriverPackage, ::testing::Values("OstrelFilter", "OstrelNWFilter"),
                         [](const auto& name) { return std::string(name.param); });

TEST_P(DriverPackage, IsOfTheSameVersion) {
  const std::string text = ReadFile(StageDirectory() / (std::string(GetParam()) + ".inf"));
  const std::size_t line = text.find("\nDriverVer=");
  ASSERT_NE(line, std::string::npos);
  const std::size_t number = text.find(',', line) + 1;
  EXPECT_EQ(text.substr(number, text.find_first_of("\r\n", number) - number), VERSION + ".0");
}

}  // namespace

}  // namespace ostrel::test
