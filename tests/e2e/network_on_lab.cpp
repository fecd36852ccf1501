#include "e2e/network_on_lab.h"

#include <stdexcept>

#include "util/unique_handle.h"

namespace ostrel::test {

namespace {

void IgnoreActivity(const wchar_t*, const wchar_t*, const wchar_t*, std::uint64_t, std::uint32_t,
                    std::int32_t, wchar_t**, std::uint32_t*, wchar_t**, std::int32_t, wchar_t**,
                    const wchar_t*, std::uint8_t, const wchar_t*, const wchar_t*, std::uint32_t,
                    const wchar_t*, const wchar_t*) {}

std::uint64_t Now() {
  const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count());
}

}  // namespace

void NetworkOnLab::SetUp() {
  ASSERT_NO_FATAL_FAILURE(Load());
}

void NetworkOnLab::TearDown() {
  DisableRemoteAddressInfo();
  EXPECT_EQ(UnloadDriver(), 1);
}

void NetworkOnLab::Load() {
  ASSERT_EQ(LoadDriver(log_, 7), 1);
  wchar_t user[256] = {};
  DWORD length = 256;
  ASSERT_TRUE(GetUserNameW(user, &length));
  const wchar_t* names[] = {L"anything.exe"};
  ASSERT_EQ(EnableActivityDetection(IgnoreActivity, user, names, 1, nullptr, 0, 0, 0, 1), 1);
}

void NetworkOnLab::Enable() {
  const wchar_t* names[] = {L"anything.exe"};
  EnableRemoteAddressInfo(names, 1);
}

lab::NetworkLink NetworkOnLab::Player() {
  auto player = lab::NetworkLink::TryOpen();
  if (!player) throw std::runtime_error("the network driver does not run");
  return std::move(*player);
}

bool NetworkOnLab::IsServiceRunning() {
  const UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  const UniqueServiceHandle service(OpenServiceW(manager.Get(), L"OstrelNWFilter", SERVICE_QUERY_STATUS));
  SERVICE_STATUS status{};
  EXPECT_TRUE(QueryServiceStatus(service.Get(), &status));
  return status.dwCurrentState == SERVICE_RUNNING;
}

OstrelLabPacketRecord NetworkOnLab::Sent(std::uint64_t bytes) {
  OstrelLabPacketRecord record{};
  record.bytes = bytes;
  record.ipv4 = 0xC0000201;
  record.port = 443;
  record.isUpload = 1;
  record.processId = GetCurrentProcessId();
  record.time = Now();
  record.ipVersion = OSTREL_LAB_IPV4;
  return record;
}

void NetworkOnLab::WaitUntilHandled(lab::NetworkLink& player) {
  // A request waits again only when the record that it got before has been filed or dropped.
  ASSERT_TRUE(WaitFor([&player] {
    const OstrelLabNetworkStatus status = player.Status();
    return status.floodRemaining == 0 && status.queued == 0 &&
           status.pendingRequests == OSTREL_LAB_NETWORK_READ_REQUESTS;
  })) << player.Status().floodRemaining
      << " records of the flood remain";
}

}  // namespace ostrel::test
