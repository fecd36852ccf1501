#include "scenario_reader.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <map>

#include "json_document.h"
#include "object_reader.h"

namespace ostrel::lab {

namespace {

constexpr std::size_t MOST_TEXT = 16u << 20;
constexpr std::size_t MOST_ENTRIES = 100000;
constexpr std::int64_t MOST_FILE_SIZE = std::int64_t{1} << 30;
constexpr std::int64_t MOST_WAIT = 600000;
constexpr std::int64_t MOST_REPEATS = 1000000;
constexpr std::int64_t MOST_TIME_OFFSET = 86400000;
constexpr std::int64_t MOST_RECORDS = 100000;
constexpr std::int64_t MOST_FLOOD = 100000000;
constexpr std::int64_t MOST_STREAM_BYTES = std::int64_t{1} << 50;
constexpr std::int64_t MOST_PORTS = 65536;
constexpr std::size_t LONGEST_IMAGE = 200;
constexpr std::size_t LONGEST_PATH = 200;
constexpr std::size_t LONGEST_DEVICE_NAME = 2048;

struct Word {
  const char* word;
  std::int64_t value;
};

constexpr Word EVENT_WORDS[] = {{"read", EVENT_READ},
                                {"write", EVENT_WRITE},
                                {"network-info", EVENT_NETWORK_INFO},
                                {"standard-info", EVENT_STANDARD_INFO},
                                {"cloud-drive", EVENT_CLOUD_DRIVE_FIRST}};
constexpr Word SOURCE_WORDS[] = {{"local", SOURCE_LOCAL}, {"network", SOURCE_NETWORK}, {"other", 2}};
constexpr Word DETECTION_WORDS[] = {{"upload", static_cast<std::int64_t>(DetectionKind::Upload)},
                                    {"download", static_cast<std::int64_t>(DetectionKind::Download)},
                                    {"cloud-drive", static_cast<std::int64_t>(DetectionKind::CloudDrive)}};

constexpr Word DIRECTION_WORDS[] = {{"upload", 1}, {"download", 0}};
constexpr Word MEANING_WORDS[] = {{"match", static_cast<std::int64_t>(EndpointsMeaning::Match)},
                                  {"fallback", static_cast<std::int64_t>(EndpointsMeaning::Fallback)},
                                  {"none", static_cast<std::int64_t>(EndpointsMeaning::None)}};

template <typename Entries, typename NameOfEntry>
std::string Listed(const Entries& entries, const NameOfEntry& nameOf) {
  constexpr std::size_t MOST_NAMES = 20;
  std::string names;
  std::size_t count = 0;
  for (const auto& entry : entries) {
    if (count++ == MOST_NAMES) return names + ", ...";
    if (!names.empty()) names += ", ";
    names += nameOf(entry);
  }
  return names.empty() ? "none" : names;
}

template <std::size_t N>
std::string ListedWords(const Word (&words)[N]) {
  return Listed(words, [](const Word& word) { return std::string(word.word); });
}

bool IsPlainName(std::string_view text) {
  constexpr std::string_view FORBIDDEN = "<>:\"|?*/\\";
  if (text.empty() || text.back() == '.' || text.back() == ' ') return false;
  return std::none_of(text.begin(), text.end(), [&](char c) {
    return (c >= 0 && c < ' ') || FORBIDDEN.find(c) != std::string_view::npos;
  });
}

bool IsId(std::string_view text) {
  constexpr std::string_view ALLOWED = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
  return !text.empty() && text.size() <= 40 && text.find_first_not_of(ALLOWED) == std::string_view::npos;
}

// Each component must be a name that Windows keeps as it stands, so that the path stays below the work
// directory.
bool IsRelativePath(std::string_view path) {
  for (;;) {
    const std::size_t separator = path.find('\\');
    if (!IsPlainName(path.substr(0, separator))) return false;
    if (separator == std::string_view::npos) return true;
    path.remove_prefix(separator + 1);
  }
}

class ScenarioReader {
 public:
  explicit ScenarioReader(ErrorList& errors) : errors_(errors) {}

  Scenario Read(const JsonValue& root) {
    ObjectReader reader(root, "", errors_);
    scenario_.name = reader.Text("name").value_or("");
    scenario_.description = reader.Text("description").value_or("");
    ReadProcesses(reader);
    ReadFiles(reader);
    ReadList(reader, "steps",
             [this](const JsonValue& value, const std::string& place) { ReadStep(value, place); });
    ReadList(reader, "expect",
             [this](const JsonValue& value, const std::string& place) { ReadExpectation(value, place); });
    reader.ComplainAboutUnknownKeys();
    return std::move(scenario_);
  }

 private:
  template <typename ReadOne>
  void ReadList(ObjectReader& reader, const char* key, const ReadOne& readOne) {
    if (reader.Required(key) == nullptr) return;
    const JsonValue* const list = reader.OptionalOf(key, JsonKind::Array);
    if (list == nullptr) return;
    if (list->elements.size() > MOST_ENTRIES) {
      reader.Complain(key, "holds more than " + std::to_string(MOST_ENTRIES) + " entries");
      return;
    }
    for (std::size_t i = 0; i < list->elements.size(); ++i) {
      readOne(list->elements[i], reader.PlaceOf(key) + "/" + std::to_string(i));
    }
  }

  // A map from ids to entries. `readOne` gets each entry with its id.
  template <typename ReadOne>
  void ReadMap(ObjectReader& reader, const char* key, const ReadOne& readOne) {
    const JsonValue* const map = reader.OptionalOf(key, JsonKind::Object);
    if (map == nullptr) return;
    for (std::size_t i = 0; i < map->keys.size(); ++i) {
      const std::string place = reader.PlaceOf(key) + "/" + map->keys[i];
      if (!IsId(map->keys[i])) {
        errors_.Add(map->elements[i].line, place, "an id is 1 to 40 letters, digits, hyphens or underscores");
        continue;
      }
      ObjectReader entry(map->elements[i], place, errors_);
      readOne(entry, map->keys[i]);
      entry.ComplainAboutUnknownKeys();
    }
  }

  void ReadProcesses(ObjectReader& reader) {
    ReadMap(reader, "processes", [this](ObjectReader& entry, const std::string& id) {
      const std::string image = entry.RequiredText("image").value_or("x");
      if (!IsPlainName(image) || image.size() > LONGEST_IMAGE) {
        entry.Complain("image", "must be a plain file name such as chrome.exe");
      }
      processIndex_.emplace(id, scenario_.processes.size());
      scenario_.processes.push_back({id, image});
    });
  }

  void ReadFiles(ObjectReader& reader) {
    ReadMap(reader, "files", [this](ObjectReader& entry, const std::string& id) {
      FileEntry file;
      file.id = id;
      if (entry.Has("deviceName")) {
        ReadDeviceFile(entry, file);
      } else {
        ReadRealFile(entry, file);
      }
      fileIndex_.emplace(id, scenario_.files.size());
      scenario_.files.push_back(std::move(file));
    });
  }

  static void ReadDeviceFile(ObjectReader& entry, FileEntry& file) {
    file.deviceName = entry.Text("deviceName").value_or("");
    file.reportedName = entry.Text("reportedName").value_or("");
    if (file.deviceName.size() > LONGEST_DEVICE_NAME) {
      entry.Complain("deviceName", "is longer than " + std::to_string(LONGEST_DEVICE_NAME) + " bytes");
    }
  }

  static void ReadRealFile(ObjectReader& entry, FileEntry& file) {
    file.path = entry.RequiredText("path").value_or("x");
    std::replace(file.path.begin(), file.path.end(), '/', '\\');
    if (!IsRelativePath(file.path) || file.path.size() > LONGEST_PATH) {
      entry.Complain("path", "must be a relative path of plain names, at most " +
                                 std::to_string(LONGEST_PATH) + " bytes long");
    }
    file.isDirectory = entry.Boolean("directory").value_or(false);
    file.size = static_cast<std::uint64_t>(entry.Integer("size", 0, MOST_FILE_SIZE).value_or(0));
    if (file.isDirectory && entry.Has("size")) entry.Complain("size", "a directory has no size");
  }

  void ReadStep(const JsonValue& value, const std::string& place) {
    ObjectReader step(value, place, errors_);
    if (value.kind != JsonKind::Object) return;
    if (unloaded_) errors_.Add(value.line, place, "no step can follow \"unload\"");
    const std::size_t kinds = std::size_t{step.Has("event")} + step.Has("wait") + step.Has("exit") +
                              step.Has("unload") + step.Has("traffic") + step.Has("flood");
    if (kinds != 1) {
      errors_.Add(value.line, place, "a step has exactly one of event, exit, flood, traffic, unload, wait");
      return;
    }
    if (step.Has("event")) ReadEvent(step);
    if (step.Has("traffic")) ReadTraffic(step);
    if (step.Has("flood")) ReadFlood(step);
    if (step.Has("wait")) {
      scenario_.steps.emplace_back(
          WaitStep{static_cast<std::uint32_t>(step.Integer("wait", 0, MOST_WAIT).value_or(0))});
    }
    if (step.Has("exit")) scenario_.steps.emplace_back(ExitStep{ReadProcess(step, "exit")});
    if (step.Has("unload")) ReadUnload(step);
    step.ComplainAboutUnknownKeys();
  }

  void ReadUnload(ObjectReader& step) {
    if (!step.Boolean("unload").value_or(true)) step.Complain("unload", "can only be true");
    scenario_.steps.emplace_back(UnloadStep{});
    unloaded_ = true;
  }

  void ReadEvent(ObjectReader& step) {
    EventStep event;
    event.type = static_cast<std::int32_t>(ReadWord(step, "event", EVENT_WORDS, INT32_MIN, INT32_MAX));
    const bool byWord = step.Optional("event")->kind == JsonKind::String;
    if (byWord && IsCloudDriveEvent(event.type)) event.type = ReadCloudDriveCode(step);
    event.process = ReadProcess(step, "process");
    event.file = ReadFile(step, "file");
    event.stream = step.Text("stream").value_or("");
    if (!event.stream.empty() && event.stream.front() != ':') step.Complain("stream", "must begin with ':'");
    // The driver marks with 0 a name that carries a stream after its last colon.
    event.streamFlag = static_cast<std::uint8_t>(
        step.Integer("streamFlag", 0, UINT8_MAX).value_or(event.stream.empty() ? 1 : 0));
    event.readSize =
        static_cast<std::uint32_t>(step.Integer("readSize", 0, UINT32_MAX).value_or(DefaultReadSize(event)));
    if (step.Optional("deviceSource") != nullptr) {
      event.deviceSource =
          static_cast<std::uint32_t>(ReadWord(step, "deviceSource", SOURCE_WORDS, 0, UINT32_MAX));
    }
    event.detail = static_cast<std::int32_t>(step.Integer("detail", INT32_MIN, INT32_MAX).value_or(0));
    event.timeOffset =
        step.Integer("time", -MOST_TIME_OFFSET, MOST_TIME_OFFSET).value_or(DEFAULT_TIME_OFFSET);
    event.repeat = static_cast<std::uint32_t>(step.Integer("repeat", 1, MOST_REPEATS).value_or(1));
    scenario_.steps.emplace_back(std::move(event));
  }

  void ReadTraffic(ObjectReader& step) {
    TrafficStep traffic;
    traffic.stream = ReadStream(step, "traffic");
    step.Required("bytes");
    traffic.bytes = ReadUnsigned(step, "bytes", 0, MOST_STREAM_BYTES, 0);
    traffic.records = static_cast<std::uint32_t>(ReadUnsigned(step, "records", 1, MOST_RECORDS, 1));
    traffic.timeOffset = step.Integer("time", -MOST_TIME_OFFSET, MOST_TIME_OFFSET).value_or(0);
    traffic.timeStep = step.Integer("timeStep", 0, MOST_TIME_OFFSET).value_or(0);
    scenario_.steps.emplace_back(std::move(traffic));
  }

  void ReadFlood(ObjectReader& step) {
    FloodStep flood;
    flood.count = ReadUnsigned(step, "flood", 1, MOST_FLOOD, 1);
    step.Required("direction");
    flood.stream = ReadStream(step, "direction");
    flood.bytes = ReadUnsigned(step, "bytes", 0, MOST_STREAM_BYTES, 1);
    flood.bytesStep = ReadUnsigned(step, "bytesStep", 0, MOST_STREAM_BYTES, 0);
    flood.ports =
        static_cast<std::uint32_t>(ReadUnsigned(step, "ports", 1, MOST_PORTS - flood.stream.port, 1));
    flood.timeOffset = step.Integer("time", -MOST_TIME_OFFSET, MOST_TIME_OFFSET).value_or(0);
    flood.timeStep = step.Integer("timeStep", 0, MOST_TIME_OFFSET).value_or(0);
    scenario_.steps.emplace_back(std::move(flood));
  }

  StreamEntry ReadStream(ObjectReader& step, const char* directionKey) {
    StreamEntry stream;
    if (step.Optional(directionKey) != nullptr) {
      stream.isUpload = ReadWord(step, directionKey, DIRECTION_WORDS, 0, -1) != 0;
    }
    stream.process = ReadProcess(step, "process");
    stream.address = ReadAddress(step, stream.addressText);
    stream.port = ReadPort(step);
    return stream;
  }

  static NetworkAddress ReadAddress(ObjectReader& reader, std::string& text) {
    const auto member = reader.RequiredText("address");
    if (!member) return {};
    text = *member;
    const auto address = ParseAddress(text);
    if (!address) {
      reader.Complain("address", "must be an address such as 192.0.2.1 or 2001:db8::1, is \"" + text + "\"");
    }
    return address.value_or(NetworkAddress{});
  }

  static std::uint16_t ReadPort(ObjectReader& reader) {
    if (reader.Required("port") == nullptr) return 0;
    return static_cast<std::uint16_t>(reader.Integer("port", 0, UINT16_MAX).value_or(0));
  }

  static std::uint64_t ReadUnsigned(ObjectReader& reader, const char* key, std::int64_t least,
                                    std::int64_t most, std::int64_t usual) {
    return static_cast<std::uint64_t>(reader.Integer(key, least, most).value_or(usual));
  }

  // A read or write moves the whole file unless the step says otherwise.
  std::int64_t DefaultReadSize(const EventStep& event) const {
    if (event.type != EVENT_READ && event.type != EVENT_WRITE) return 0;
    if (event.file >= scenario_.files.size()) return 0;
    return static_cast<std::int64_t>(scenario_.files[event.file].size);
  }

  static std::int32_t ReadCloudDriveCode(ObjectReader& step) {
    if (step.Required("code") == nullptr) return EVENT_CLOUD_DRIVE_FIRST;
    return static_cast<std::int32_t>(step.Integer("code", EVENT_CLOUD_DRIVE_FIRST, EVENT_CLOUD_DRIVE_LAST)
                                         .value_or(EVENT_CLOUD_DRIVE_FIRST));
  }

  void ReadExpectation(const JsonValue& value, const std::string& place) {
    ObjectReader reader(value, place, errors_);
    if (value.kind != JsonKind::Object) return;
    Expectation expectation;
    if (reader.RequiredText("detection")) {
      expectation.kind = static_cast<DetectionKind>(ReadWord(reader, "detection", DETECTION_WORDS, 0, -1));
    }
    expectation.file = ReadFile(reader, "file");
    expectation.processes = ReadProcessChoice(reader);
    expectation.fileEventType = ReadExpectedType(reader, expectation.kind);
    expectation.isNetworkDrive = reader.Boolean("isNetworkDrive");
    if (expectation.isNetworkDrive && expectation.kind == DetectionKind::CloudDrive) {
      reader.Complain("isNetworkDrive", "is not part of a cloud-drive detection");
    }
    ReadExpectedEndpoints(reader, expectation);
    const bool known = expectation.file < scenario_.files.size();
    if (known && !IsReportable(scenario_.files[expectation.file])) {
      reader.Complain("file",
                      "has a deviceName but no reportedName, so no detection can be compared with it");
    }
    reader.ComplainAboutUnknownKeys();
    scenario_.expectations.push_back(std::move(expectation));
  }

  void ReadExpectedEndpoints(ObjectReader& reader, Expectation& expectation) {
    if (reader.Optional("endpointsAre") != nullptr) {
      expectation.endpointsMeaning =
          static_cast<EndpointsMeaning>(ReadWord(reader, "endpointsAre", MEANING_WORDS, 0, -1));
    }
    if (const JsonValue* const list = reader.OptionalOf("endpoints", JsonKind::Array)) {
      ReadEndpointList(*list, reader.PlaceOf("endpoints"), expectation.endpoints.emplace());
    }
    for (const char* const key : {"endpoints", "endpointsAre"}) {
      if (expectation.kind == DetectionKind::CloudDrive && reader.Has(key))
        reader.Complain(key, "is not part of a cloud-drive detection");
    }
  }

  void ReadEndpointList(const JsonValue& list, const std::string& place,
                        std::vector<ExpectedEndpoint>& endpoints) {
    for (std::size_t i = 0; i < list.elements.size(); ++i) {
      ObjectReader reader(list.elements[i], place + "/" + std::to_string(i), errors_);
      if (list.elements[i].kind != JsonKind::Object) continue;
      ExpectedEndpoint endpoint;
      endpoint.address = ReadAddress(reader, endpoint.addressText);
      endpoint.port = ReadPort(reader);
      endpoint.hostName = reader.Text("hostName");
      reader.ComplainAboutUnknownKeys();
      endpoints.push_back(std::move(endpoint));
    }
  }

  static bool IsReportable(const FileEntry& file) { return !file.path.empty() || !file.reportedName.empty(); }

  static std::int32_t ReadExpectedType(ObjectReader& reader, DetectionKind kind) {
    if (kind == DetectionKind::CloudDrive) {
      if (reader.Required("fileEventType") == nullptr) return EVENT_CLOUD_DRIVE_FIRST;
      return static_cast<std::int32_t>(
          reader.Integer("fileEventType", EVENT_CLOUD_DRIVE_FIRST, EVENT_CLOUD_DRIVE_LAST).value_or(0));
    }
    const std::int64_t usual = kind == DetectionKind::Upload ? EVENT_READ : EVENT_WRITE;
    return static_cast<std::int32_t>(reader.Integer("fileEventType", usual, usual).value_or(usual));
  }

  // One process id, or a list of which any may be reported.
  std::vector<std::size_t> ReadProcessChoice(ObjectReader& reader) {
    const JsonValue* const member = reader.Required("process");
    if (member == nullptr) return {};
    if (member->kind != JsonKind::Array) return {ReadProcess(reader, "process")};
    if (member->elements.empty()) reader.Complain("process", "the list is empty");
    std::vector<std::size_t> processes;
    for (std::size_t i = 0; i < member->elements.size(); ++i) {
      processes.push_back(Resolve(member->elements[i], reader.PlaceOf("process") + "/" + std::to_string(i),
                                  "process", processIndex_));
    }
    return processes;
  }

  // One of the words, or a number from `least` to `most`.
  template <std::size_t N>
  std::int64_t ReadWord(ObjectReader& reader, const char* key, const Word (&words)[N], std::int64_t least,
                        std::int64_t most) {
    const JsonValue* const member = reader.Optional(key);
    if (member->kind == JsonKind::Integer && least <= most) {
      return reader.Integer(key, least, most).value_or(least);
    }
    if (member->kind == JsonKind::String) {
      const auto known = std::find_if(std::begin(words), std::end(words),
                                      [&](const Word& word) { return member->string == word.word; });
      if (known != std::end(words)) return known->value;
    }
    reader.Complain(key, "must be one of " + ListedWords(words) + (least <= most ? ", or a number" : ""));
    return 0;
  }

  std::size_t ReadProcess(ObjectReader& reader, const char* key) {
    const JsonValue* const member = reader.Required(key);
    return member == nullptr ? NONE : Resolve(*member, reader.PlaceOf(key), "process", processIndex_);
  }

  std::size_t ReadFile(ObjectReader& reader, const char* key) {
    const JsonValue* const member = reader.Required(key);
    return member == nullptr ? NONE : Resolve(*member, reader.PlaceOf(key), "file", fileIndex_);
  }

  using Index = std::map<std::string, std::size_t>;

  std::size_t Resolve(const JsonValue& value, const std::string& place, const char* what,
                      const Index& index) {
    if (value.kind != JsonKind::String) {
      errors_.Add(value.line, place,
                  std::string("must be the id of a ") + what + ", is " + NameOf(value.kind));
      return NONE;
    }
    const auto found = index.find(value.string);
    if (found != index.end()) return found->second;
    errors_.Add(value.line, place,
                std::string("no ") + what + " \"" + value.string + "\"; known: " +
                    Listed(index, [](const Index::value_type& entry) { return entry.first; }));
    return NONE;
  }

  static constexpr std::size_t NONE = std::numeric_limits<std::size_t>::max();

  ErrorList& errors_;
  Scenario scenario_;
  Index processIndex_;
  Index fileIndex_;
  bool unloaded_ = false;
};

ScenarioResult ReadOrThrow(std::string_view fileName, std::string_view text) {
  if (text.size() > MOST_TEXT) return {std::nullopt, {std::string(fileName) + ": larger than 16 MiB"}};
  JsonResult document = ParseJson(text);
  if (!document.value) return {std::nullopt, {std::string(fileName) + ":" + document.error}};
  ErrorList errors(fileName);
  Scenario scenario = ScenarioReader(errors).Read(*document.value);
  if (!errors.IsEmpty()) return {std::nullopt, errors.Take()};
  return {std::move(scenario), {}};
}

}  // namespace

ScenarioResult ReadScenario(std::string_view fileName, std::string_view text) noexcept {
  try {
    return ReadOrThrow(fileName, text);
  } catch (const std::exception&) {
    // Only memory can run out here. A short text needs no memory of its own.
    ScenarioResult result;
    result.errors.resize(1);
    result.errors.front() = "out of memory";
    return result;
  }
}

}  // namespace ostrel::lab
