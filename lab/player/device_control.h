#ifndef OSTREL_LAB_PLAYER_DEVICE_CONTROL_H
#define OSTREL_LAB_PLAYER_DEVICE_CONTROL_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "util/unique_handle.h"

namespace ostrel::lab {

struct Buffer {
  void* data = nullptr;
  std::size_t size = 0;
};

// Opens a stand-in driver's player device. None while the driver is not loaded; throws a LabError on any
// other failure.
UniqueFileHandle OpenPlayerDevice(const wchar_t* path, const std::string& driver);

// One request; succeeds when it fills the whole output.
bool Control(HANDLE device, std::uint32_t code, Buffer input, Buffer output);

}  // namespace ostrel::lab

#endif
