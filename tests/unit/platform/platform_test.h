#ifndef OSTREL_TESTS_UNIT_PLATFORM_PLATFORM_TEST_H
#define OSTREL_TESTS_UNIT_PLATFORM_PLATFORM_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log/log.h"
#include "support/failure_ledger.h"
#include "support/scripted_system.h"

namespace ostrel::test {

// One class of the library, linked into this program, on a scripted system.
class PlatformTest : public ::testing::Test {
 protected:
  PlatformTest() { SetLogSink(&Transcript::RecordLog, LOG_DETAIL); }

  Lines Calls() const { return system_.transcript.OfThisThread(); }
  Lines Logs() const { return system_.transcript.Logs(); }

  ScriptedSystem system_{GetModuleHandleW(nullptr)};
};

}  // namespace ostrel::test

#endif
