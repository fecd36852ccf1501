// The lab's network driver, asked as the library asks it.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "api/exports.h"
#include "network_link.h"
#include "support/lock.h"
#include "util/unique_handle.h"

namespace ostrel::test {

namespace {

using lab::NetworkLink;

void IgnoreLines(const wchar_t*, std::uint32_t) {}

DWORD LastErrorOf(BOOL succeeded) {
  return succeeded ? DWORD{ERROR_SUCCESS} : GetLastError();
}

// An open device with the read requests that it was given. A request is the system's until it ends, so that
// each ends before its memory goes.
class Device {
 public:
  struct Request {
    OVERLAPPED overlapped{};
    OstrelLabPacketRecord record{};
    UniqueKernelHandle event;
  };

  Device()
      : handle_(CreateFileW(OSTREL_LAB_NETWORK_PATH, GENERIC_READ | GENERIC_WRITE,
                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED,
                            nullptr)) {
    EXPECT_TRUE(handle_);
  }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;
  ~Device() {
    handle_.Reset();
    for (const auto& request : requests_)
      EXPECT_EQ(WaitForSingleObject(request->event.Get(), 10000), WAIT_OBJECT_0);
  }

  HANDLE Get() const { return handle_.Get(); }
  void Close() { handle_.Reset(); }

  DWORD Enable(OstrelLabEnable input = {1, 0}, DWORD length = sizeof(OstrelLabEnable)) const {
    DWORD returned = 0;
    return LastErrorOf(DeviceIoControl(handle_.Get(), OSTREL_LAB_NETWORK_ENABLE, &input, length, nullptr, 0,
                                       &returned, nullptr));
  }

  DWORD SendProcessList(OstrelLabConfiguration& list, DWORD length = sizeof(OstrelLabConfiguration)) const {
    DWORD returned = 0;
    return LastErrorOf(DeviceIoControl(handle_.Get(), OSTREL_LAB_NETWORK_PROCESS_LIST, &list, length, nullptr,
                                       0, &returned, nullptr));
  }

  DWORD Read() {
    auto request = std::make_unique<Request>();
    request->event.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    request->overlapped.hEvent = request->event.Get();
    const DWORD error =
        LastErrorOf(DeviceIoControl(handle_.Get(), OSTREL_LAB_NETWORK_READ, nullptr, 0, &request->record,
                                    sizeof(request->record), nullptr, &request->overlapped));
    if (error == ERROR_SUCCESS || error == ERROR_IO_PENDING) requests_.push_back(std::move(request));
    return error;
  }

  void Read(std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) ASSERT_EQ(Read(), DWORD{ERROR_IO_PENDING});
  }

  // How request `number` ended; what it got is then in its record.
  DWORD EndOf(std::size_t number) {
    if (WaitForSingleObject(requests_[number]->event.Get(), 10000) != WAIT_OBJECT_0) return WAIT_TIMEOUT;
    DWORD transferred = 0;
    const DWORD error =
        LastErrorOf(GetOverlappedResult(handle_.Get(), &requests_[number]->overlapped, &transferred, FALSE));
    EXPECT_EQ(transferred, error == ERROR_SUCCESS ? sizeof(OstrelLabPacketRecord) : 0);
    return error;
  }

  const OstrelLabPacketRecord& Record(std::size_t number) const { return requests_[number]->record; }
  const Request& RequestOf(std::size_t number) const { return *requests_[number]; }

 private:
  UniqueFileHandle handle_;
  std::vector<std::unique_ptr<Request>> requests_;
};

OstrelLabPacketRecord Numbered(std::uint64_t number) {
  OstrelLabPacketRecord record{};
  record.bytes = number;
  record.port = 443;
  record.time = 1000 + number;
  return record;
}

std::vector<OstrelLabPacketRecord> Numbered(std::uint64_t first, std::size_t count) {
  std::vector<OstrelLabPacketRecord> records;
  for (std::size_t i = 0; i < count; ++i) records.push_back(Numbered(first + i));
  return records;
}

class NetworkDriver : public ::testing::Test {
 protected:
  // The library installs the driver; the service is started and stopped here.
  void SetUp() override {
    ASSERT_EQ(LoadDriver(IgnoreLines, 3), 1);
    manager_.Reset(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    service_.Reset(OpenServiceW(manager_.Get(), L"OstrelNWFilter", SERVICE_START | SERVICE_STOP));
    ASSERT_TRUE(service_);
    ASSERT_EQ(Start(), DWORD{ERROR_SUCCESS});
    player_ = NetworkLink::TryOpen();
    ASSERT_TRUE(player_.has_value());
  }
  void TearDown() override {
    player_.reset();
    Stop();
    EXPECT_EQ(UnloadDriver(), 1);
  }

  DWORD Start() { return LastErrorOf(StartServiceW(service_.Get(), 0, nullptr)); }
  DWORD Stop() {
    SERVICE_STATUS status{};
    return LastErrorOf(ControlService(service_.Get(), SERVICE_CONTROL_STOP, &status));
  }

  NetworkLink& Player() { return *player_; }

 private:
  UniqueServiceHandle manager_;
  UniqueServiceHandle service_;
  std::optional<NetworkLink> player_;
};

TEST_F(NetworkDriver, ReadRequestsPendAndAreServedInTheirOrder) {
  Device device;
  ASSERT_EQ(device.Enable(), 0U);
  device.Read(OSTREL_LAB_NETWORK_READ_REQUESTS);
  EXPECT_EQ(Player().Status().pendingRequests, 63U);
  Player().Submit(Numbered(1, 3));
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(device.EndOf(i), DWORD{ERROR_SUCCESS});
    const OstrelLabPacketRecord expected = Numbered(1 + i);
    EXPECT_EQ(std::memcmp(&device.Record(i), &expected, sizeof(expected)), 0);
  }
  const OstrelLabNetworkStatus status = Player().Status();
  EXPECT_EQ(status.pendingRequests, 60U);
  EXPECT_EQ(status.submitted, 3U);
  EXPECT_EQ(status.completed, 3U);
  EXPECT_EQ(status.queued, 0U);
}

TEST_F(NetworkDriver, RecordsWaitForRequestsUpToTheQueuesCapacityAndTheRestIsDropped) {
  Device device;
  ASSERT_EQ(device.Enable(), 0U);
  constexpr std::size_t PORTION = 500;
  for (std::size_t sent = 0; sent < 4500; sent += PORTION) Player().Submit(Numbered(sent, PORTION));
  OstrelLabNetworkStatus status = Player().Status();
  EXPECT_EQ(status.submitted, 4500U);
  EXPECT_EQ(status.queued, OSTREL_LAB_NETWORK_QUEUE_CAPACITY);
  EXPECT_EQ(status.dropped, 4500U - OSTREL_LAB_NETWORK_QUEUE_CAPACITY);
  device.Read(2);
  EXPECT_EQ(device.EndOf(0), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(device.EndOf(1), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(device.Record(0).bytes, 0U);
  EXPECT_EQ(device.Record(1).bytes, 1U);
  device.Close();
  status = Player().Status();
  EXPECT_EQ(status.queued, 0U);
  EXPECT_EQ(status.dropped, 4498U);
}

TEST_F(NetworkDriver, NothingIsReportedBeforeMonitoringIsEnabledOrAfterTheLastHandleCloses) {
  Device device;
  EXPECT_THROW(Player().Submit(Numbered(1, 1)), std::runtime_error);
  ASSERT_EQ(device.Enable(), 0U);
  EXPECT_EQ(Player().Status().enabled, 1U);
  {
    const Device second;
    EXPECT_EQ(Player().Status().handles, 2U);
  }
  EXPECT_EQ(Player().Status().enabled, 1U);
  device.Close();
  EXPECT_EQ(Player().Status().enabled, 0U);
  EXPECT_EQ(Player().Status().handles, 0U);
  EXPECT_THROW(Player().Submit(Numbered(1, 1)), std::runtime_error);
  OstrelLabFlood flood{};
  flood.count = 1;
  flood.ports = 1;
  EXPECT_THROW(Player().Flood(flood), std::runtime_error);
}

TEST_F(NetworkDriver, TheEnableCodeTakesEightBytesThatSayOne) {
  const Device device;
  EXPECT_EQ(device.Enable({1, 0}, 4), DWORD{ERROR_BAD_LENGTH});
  EXPECT_EQ(device.Enable({0, 0}), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(device.Enable({1, 1}), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(Player().Status().enabled, 0U);
  EXPECT_EQ(device.Enable(), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Player().Status().enables, 1U);
  EXPECT_EQ(Player().Status().badEnables, 3U);
}

TEST_F(NetworkDriver, AReadNeedsRoomForOneRecord) {
  const Device device;
  std::array<std::uint8_t, 63> tooSmall{};
  DWORD returned = 0;
  EXPECT_FALSE(DeviceIoControl(device.Get(), OSTREL_LAB_NETWORK_READ, nullptr, 0, tooSmall.data(), 63,
                               &returned, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_FALSE(DeviceIoControl(device.Get(), 0x22200C, nullptr, 0, nullptr, 0, &returned, nullptr));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_FUNCTION});
}

TEST_F(NetworkDriver, TheNewestProcessListIsKeptByteForByte) {
  const Device device;
  EXPECT_FALSE(Player().ProcessList().has_value());
  const auto list = std::make_unique<OstrelLabConfiguration>();
  auto* const bytes = reinterpret_cast<std::uint8_t*>(list.get());
  for (std::size_t i = 0; i < sizeof(*list); ++i) bytes[i] = static_cast<std::uint8_t>(i * 31 + i / 256);
  list->code = OSTREL_LAB_PROTOCOL_CODE;
  EXPECT_EQ(device.SendProcessList(*list, sizeof(*list) - 1), DWORD{ERROR_BAD_LENGTH});
  list->code = 8;
  EXPECT_EQ(device.SendProcessList(*list), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_FALSE(Player().ProcessList().has_value());
  list->code = OSTREL_LAB_PROTOCOL_CODE;
  ASSERT_EQ(device.SendProcessList(*list), DWORD{ERROR_SUCCESS});
  std::optional<OstrelLabConfiguration> kept = Player().ProcessList();
  ASSERT_TRUE(kept.has_value());
  EXPECT_EQ(std::memcmp(&*kept, list.get(), sizeof(*list)), 0);
  list->processIdCount = 1;
  ASSERT_EQ(device.SendProcessList(*list), DWORD{ERROR_SUCCESS});
  kept = Player().ProcessList();
  ASSERT_TRUE(kept.has_value());
  EXPECT_EQ(kept->processIdCount, 1U);
  EXPECT_EQ(Player().Status().processLists, 2U);
  EXPECT_EQ(Player().Status().badProcessLists, 2U);
}

TEST_F(NetworkDriver, AFloodServesEveryRequestUntilItIsOver) {
  Device device;
  ASSERT_EQ(device.Enable(), 0U);
  device.Read(10);
  OstrelLabFlood flood{};
  flood.count = 12;
  flood.bytesStep = 5;
  flood.timeStep = 7;
  flood.ports = 3;
  flood.first = Numbered(100);
  Player().Flood(flood);
  EXPECT_EQ(Player().Status().floodRemaining, 2U);
  // What is submitted meanwhile goes first.
  Player().Submit(Numbered(1, 1));
  device.Read(5);
  for (std::size_t i = 0; i < 13; ++i) {
    EXPECT_EQ(device.EndOf(i), DWORD{ERROR_SUCCESS});
    if (i == 10) {
      EXPECT_EQ(device.Record(i).bytes, 1U);
      continue;
    }
    const std::uint64_t made = i < 10 ? i : i - 1;
    EXPECT_EQ(device.Record(i).bytes, 100 + 5 * made);
    EXPECT_EQ(device.Record(i).time, 1100 + 7 * made);
    EXPECT_EQ(device.Record(i).port, static_cast<std::int32_t>(443 + made % 3));
  }
  const OstrelLabNetworkStatus status = Player().Status();
  EXPECT_EQ(status.floodRemaining, 0U);
  EXPECT_EQ(status.flooded, 12U);
  EXPECT_EQ(status.completed, 13U);
  EXPECT_EQ(status.pendingRequests, 2U);
}

TEST_F(NetworkDriver, CancellingEndsEveryRequestOfTheHandleAndNoOther) {
  Device device;
  Device other;
  device.Read(OSTREL_LAB_NETWORK_READ_REQUESTS);
  other.Read(1);
  ASSERT_TRUE(CancelIo(device.Get()));
  for (std::size_t i = 0; i < OSTREL_LAB_NETWORK_READ_REQUESTS; ++i)
    EXPECT_EQ(device.EndOf(i), DWORD{ERROR_OPERATION_ABORTED});
  EXPECT_EQ(Player().Status().cancelled, 63U);
  EXPECT_EQ(Player().Status().pendingRequests, 1U);
}

TEST_F(NetworkDriver, ClosingAHandleEndsItsRequestsAndNoOther) {
  Device device;
  Device other;
  device.Read(OSTREL_LAB_NETWORK_READ_REQUESTS);
  other.Read(1);
  device.Close();
  for (std::size_t i = 0; i < OSTREL_LAB_NETWORK_READ_REQUESTS; ++i)
    EXPECT_EQ(WaitForSingleObject(device.RequestOf(i).event.Get(), 10000), WAIT_OBJECT_0);
  EXPECT_EQ(Player().Status().cancelled, 63U);
  EXPECT_EQ(Player().Status().pendingRequests, 1U);
}

TEST_F(NetworkDriver, StoppingTheServiceEndsWhatPendsAndTheNextStartBeginsAnew) {
  Device device;
  ASSERT_EQ(device.Enable(), 0U);
  device.Read(OSTREL_LAB_NETWORK_READ_REQUESTS);
  ASSERT_EQ(Stop(), DWORD{ERROR_SUCCESS});
  for (std::size_t i = 0; i < OSTREL_LAB_NETWORK_READ_REQUESTS; ++i)
    EXPECT_EQ(device.EndOf(i), DWORD{ERROR_OPERATION_ABORTED});
  // The handle outlives the driver and is good for nothing but closing.
  EXPECT_NE(device.Read(), DWORD{ERROR_IO_PENDING});
  EXPECT_TRUE(CancelIo(device.Get()));
  device.Close();
  ASSERT_EQ(Start(), DWORD{ERROR_SUCCESS});
  std::optional<NetworkLink> player = NetworkLink::TryOpen();
  ASSERT_TRUE(player.has_value());
  Device again;
  ASSERT_EQ(again.Enable(), 0U);
  again.Read(1);
  player->Submit(Numbered(7, 1));
  EXPECT_EQ(again.EndOf(0), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(again.Record(0).bytes, 7U);
}

TEST_F(NetworkDriver, AResetForgetsCountersRecordsAndTheProcessListButNotWhoWaits) {
  Device device;
  ASSERT_EQ(device.Enable(), 0U);
  Player().Submit(Numbered(1, 5));
  const auto list = std::make_unique<OstrelLabConfiguration>();
  list->code = OSTREL_LAB_PROTOCOL_CODE;
  ASSERT_EQ(device.SendProcessList(*list), DWORD{ERROR_SUCCESS});
  Player().Reset();
  device.Read(2);
  const OstrelLabNetworkStatus status = Player().Status();
  EXPECT_EQ(status.enabled, 1U);
  EXPECT_EQ(status.handles, 1U);
  EXPECT_EQ(status.pendingRequests, 2U);
  EXPECT_EQ(status.queued, 0U);
  EXPECT_EQ(status.enables, 0U);
  EXPECT_EQ(status.processLists, 0U);
  EXPECT_FALSE(Player().ProcessList().has_value());
}

}  // namespace

}  // namespace ostrel::test
