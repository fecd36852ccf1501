#include "device_control.h"

#include "text.h"

namespace ostrel::lab {

UniqueFileHandle OpenPlayerDevice(const wchar_t* path, const std::string& driver) {
  UniqueFileHandle device(CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                      nullptr, OPEN_EXISTING, 0, nullptr));
  if (!device && GetLastError() != ERROR_FILE_NOT_FOUND) throw SystemError("open the " + driver);
  return device;
}

bool Control(HANDLE device, std::uint32_t code, Buffer input, Buffer output) {
  DWORD returned = 0;
  return DeviceIoControl(device, code, input.data, static_cast<DWORD>(input.size), output.data,
                         static_cast<DWORD>(output.size), &returned, nullptr) &&
         returned == output.size;
}

}  // namespace ostrel::lab
