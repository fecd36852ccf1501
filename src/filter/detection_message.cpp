#include "filter/detection_message.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace ostrel {

namespace {

// Characters, with the terminator, that are written for a path although its slot holds only 300.
constexpr std::size_t PATH_WRITE_LIMIT = 512;

// What lies behind the texts and must not be written over.
constexpr std::size_t END_OF_TEXTS = offsetof(DetectionMessage, processIdCount);

// Writes at most `limit` characters with the terminator. Through the bytes of the message, because a path may
// cross the border of its own array.
void WriteText(DetectionMessage& message, std::size_t offset, const std::wstring& text, std::size_t limit) {
  const std::size_t room = std::min(limit, (END_OF_TEXTS - offset) / sizeof(char16_t));
  const std::size_t length = std::min(text.size(), room - 1);
  auto* const bytes = reinterpret_cast<unsigned char*>(&message);
  for (std::size_t i = 0; i <= length; ++i) {
    const char16_t character = i < length ? static_cast<char16_t>(text[i]) : u'\0';
    std::memcpy(bytes + offset + i * sizeof(character), &character, sizeof(character));
  }
}

// Returns how many texts were written: all, or as many as there are slots.
std::uint32_t WriteSlots(DetectionMessage& message, std::size_t offset, std::size_t slots, std::size_t stride,
                         std::size_t limit, std::span<const std::wstring> texts) {
  const std::size_t count = std::min(texts.size(), slots);
  for (std::size_t i = 0; i < count; ++i) {
    WriteText(message, offset + i * stride * sizeof(char16_t), texts[i], limit);
  }
  return static_cast<std::uint32_t>(count);
}

std::uint32_t WritePaths(DetectionMessage& message, std::size_t offset, std::size_t slots,
                         std::span<const std::wstring> paths) {
  return WriteSlots(message, offset, slots, PATH_SLOT_CAPACITY, PATH_WRITE_LIMIT, paths);
}

}  // namespace

void FillDetectionMessage(DetectionMessage& message, const DetectionContent& content,
                          const DetectionPaths& paths) {
  const std::size_t idCount = std::min(content.processIds.size(), WATCHED_PROCESS_ID_SLOTS);
  std::copy_n(content.processIds.begin(), idCount, message.processIds);
  message.processIdCount = static_cast<std::uint32_t>(idCount);
  message.processNameCount = WriteSlots(message, offsetof(DetectionMessage, processNames), PROCESS_NAME_SLOTS,
                                        PROCESS_NAME_CAPACITY, PROCESS_NAME_CAPACITY, content.processNames);
  message.driverOption = content.driverOption;
  message.code = PROTOCOL_CODE;
  message.hostProcessId = content.hostProcessId;
  message.excludedPathCount =
      WritePaths(message, offsetof(DetectionMessage, excludedPaths), EXCLUDED_PATH_SLOTS, paths.excluded);
  if (content.kind == DetectionKind::CloudDrive) {
    message.cloudPathCount =
        WritePaths(message, offsetof(DetectionMessage, cloudPaths), CLOUD_PATH_SLOTS, paths.cloud);
    message.cloudExclusionPathCount = WritePaths(message, offsetof(DetectionMessage, cloudExclusionPaths),
                                                 CLOUD_PATH_SLOTS, paths.cloudExclusion);
  }
  message.enabled = content.enabled ? 1 : 0;
  message.kind = static_cast<std::uint8_t>(content.kind);
}

}  // namespace ostrel
