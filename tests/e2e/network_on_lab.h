#ifndef OSTREL_TESTS_E2E_NETWORK_ON_LAB_H
#define OSTREL_TESTS_E2E_NETWORK_ON_LAB_H

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

#include "api/exports.h"
#include "network_link.h"

namespace ostrel::test {

// The library loaded into this program and detecting, with remote address info off, on the lab's drivers.
class NetworkOnLab : public ::testing::Test {
 protected:
  // Long enough for a loaded machine; a test that waits that long has failed.
  static constexpr std::chrono::seconds NETWORK_PATIENCE{120};

  explicit NetworkOnLab(LogCallback log) : log_(log) {}

  void SetUp() override;
  void TearDown() override;

  void Load();
  static void Enable();

  // The player's side of the network driver, which must be running.
  static lab::NetworkLink Player();
  static bool IsServiceRunning();

  // Bytes that this process sent to 192.0.2.1, port 443, just now.
  static OstrelLabPacketRecord Sent(std::uint64_t bytes);

  // Waits until every record so far has been handled, so that all read requests wait again.
  static void WaitUntilHandled(lab::NetworkLink& player);

  template <typename Condition>
  static bool WaitFor(Condition condition, std::chrono::milliseconds patience = NETWORK_PATIENCE) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      Sleep(5);
    }
    return true;
  }

 private:
  LogCallback log_;
};

}  // namespace ostrel::test

#endif
