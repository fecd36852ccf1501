#include "cache/irp_cache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "support/log_capture.h"

namespace {

using ostrel::ULong32;
using ostrel_test::LogCapture;
using ostrel_test::LogLine;

constexpr wchar_t PATH[] = L"C:\\f";

// One program asking about one file, from one process unless a test says otherwise.
class IrpCacheTest : public testing::Test {
 protected:
  void StdInfo(const std::wstring& program, unsigned long long time, ULong32 processId = 1) {
    cache_.AddStdInfoQuery(PATH, processId, time, program);
  }
  bool NetworkInfo(const std::wstring& program, unsigned long long time, ULong32 processId = 1) {
    return cache_.AddNetworkInfoQuery(PATH, processId, time, program);
  }
  bool Read(const std::wstring& program, unsigned long long time, ULong32 processId = 1) {
    return ostrel::ShouldAllowRead(cache_, PATH, processId, time, program);
  }

  LogCapture log_;
  IrpCache cache_;
};

TEST_F(IrpCacheTest, TheMemberDecidesAsTheLibraryDoes) {
  EXPECT_FALSE(cache_.ShouldAllowRead(PATH, 1, 1, L"chrome.exe"));
  NetworkInfo(L"chrome.exe", 2);
  NetworkInfo(L"chrome.exe", 3);
  EXPECT_TRUE(cache_.ShouldAllowRead(PATH, 1, 4, L"chrome.exe"));
}

TEST_F(IrpCacheTest, ChromiumNeedsTwoNetworkInfoQueries) {
  EXPECT_TRUE(NetworkInfo(L"chrome.exe", 1));
  EXPECT_TRUE(NetworkInfo(L"chrome.exe", 2));
  EXPECT_TRUE(Read(L"chrome.exe", 3));
  EXPECT_TRUE(Read(L"chrome.exe", 4));
  EXPECT_TRUE(log_.Take().empty());
}

TEST_F(IrpCacheTest, ARefusedChromiumReadKeepsItsKeySoThatALaterQueryLetsTheNextReadThrough) {
  NetworkInfo(L"chrome.exe", 1);
  EXPECT_FALSE(Read(L"chrome.exe", 2));
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
  EXPECT_TRUE(NetworkInfo(L"chrome.exe", 3));
  EXPECT_TRUE(Read(L"chrome.exe", 4));
}

TEST_F(IrpCacheTest, ChromiumStandardInfoQueriesAloneAllowNothing) {
  for (unsigned long long time = 1; time < 9; ++time) StdInfo(L"chrome.exe", time);
  EXPECT_FALSE(Read(L"chrome.exe", 5000));
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
  EXPECT_TRUE(log_.Take().empty());
}

TEST_F(IrpCacheTest, AStandardInfoQueryLessThanASecondBeforeNegatesAChromiumRead) {
  NetworkInfo(L"chrome.exe", 1);
  NetworkInfo(L"chrome.exe", 2);
  StdInfo(L"chrome.exe", 5000);
  EXPECT_FALSE(Read(L"chrome.exe", 5999));
  EXPECT_EQ(log_.Take(), (std::vector<LogLine>{{6, L"Event negated for C:\\f"}}));
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
  EXPECT_TRUE(Read(L"chrome.exe", 6000));
  EXPECT_TRUE(log_.Take().empty());
}

TEST_F(IrpCacheTest, AStandardInfoQueryAtTheSameTimeNegatesAChromiumRead) {
  NetworkInfo(L"chrome.exe", 1);
  NetworkInfo(L"chrome.exe", 2);
  StdInfo(L"chrome.exe", 5000);
  EXPECT_FALSE(Read(L"chrome.exe", 5000));
}

// The driver's messages need not arrive in order of time.
TEST_F(IrpCacheTest, AStandardInfoQueryAfterTheReadNegatesNothing) {
  NetworkInfo(L"chrome.exe", 1);
  NetworkInfo(L"chrome.exe", 2);
  StdInfo(L"chrome.exe", 5000);
  EXPECT_TRUE(Read(L"chrome.exe", 4999));
  EXPECT_TRUE(log_.Take().empty());
}

TEST_F(IrpCacheTest, NegationNeedsTwoNetworkInfoQueriesToBeLogged) {
  NetworkInfo(L"chrome.exe", 1);
  StdInfo(L"chrome.exe", 2);
  EXPECT_FALSE(Read(L"chrome.exe", 3));
  EXPECT_TRUE(log_.Take().empty());
}

TEST_F(IrpCacheTest, AStandardInfoQueryDoesNotNegateOtherPrograms) {
  NetworkInfo(L"firefox.exe", 1);
  NetworkInfo(L"firefox.exe", 1);
  StdInfo(L"firefox.exe", 2);
  EXPECT_TRUE(Read(L"firefox.exe", 3));
  EXPECT_TRUE(log_.Take().empty());
}

TEST_F(IrpCacheTest, EdgeLegacyNeedsThreeStandardInfoQueriesAndARefusalErasesTheKey) {
  StdInfo(L"microsoftedgecp.exe", 1);
  StdInfo(L"microsoftedgecp.exe", 2);
  EXPECT_FALSE(Read(L"microsoftedgecp.exe", 3));
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
  for (unsigned long long time = 4; time < 7; ++time) StdInfo(L"microsoftedgecp.exe", time);
  EXPECT_TRUE(Read(L"microsoftedgecp.exe", 7));
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
}

TEST_F(IrpCacheTest, InternetExplorerNeedsSixStandardInfoQueriesAndARefusalErasesTheKey) {
  for (unsigned long long time = 1; time < 6; ++time) StdInfo(L"iexplore.exe", time);
  EXPECT_FALSE(Read(L"iexplore.exe", 6));
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
  for (unsigned long long time = 7; time < 13; ++time) StdInfo(L"iexplore.exe", time);
  EXPECT_TRUE(Read(L"iexplore.exe", 13));
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
}

TEST_F(IrpCacheTest, WinScpNeedsOneStandardInfoQueryAndARefusalErasesTheKey) {
  EXPECT_FALSE(Read(L"winscp.exe", 1));
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
  NetworkInfo(L"winscp.exe", 2);
  EXPECT_FALSE(Read(L"winscp.exe", 3));
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
  StdInfo(L"winscp.exe", 4);
  EXPECT_TRUE(Read(L"winscp.exe", 5));
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
}

TEST_F(IrpCacheTest, FirefoxNeedsOneNetworkInfoQueryAndARefusalErasesTheKey) {
  StdInfo(L"firefox.exe", 1);
  EXPECT_FALSE(Read(L"firefox.exe", 2));
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
  EXPECT_TRUE(NetworkInfo(L"firefox.exe", 3));
  EXPECT_TRUE(Read(L"firefox.exe", 4));
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
}

TEST_F(IrpCacheTest, AFirefoxQueryAfterAReadWithdrawsTheReadAndErasesTheKey) {
  EXPECT_TRUE(NetworkInfo(L"firefox.exe", 1));
  EXPECT_TRUE(Read(L"firefox.exe", 2));
  EXPECT_FALSE(NetworkInfo(L"firefox.exe", 3));
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
  EXPECT_TRUE(NetworkInfo(L"firefox.exe", 4));
}

TEST_F(IrpCacheTest, AFirefoxReadAtTheTimeOfTheLastQueryIsWithdrawnToo) {
  NetworkInfo(L"firefox.exe", 5);
  Read(L"firefox.exe", 5);
  EXPECT_FALSE(NetworkInfo(L"firefox.exe", 6));
}

TEST_F(IrpCacheTest, AFirefoxReadBeforeTheLastQueryIsNotWithdrawn) {
  NetworkInfo(L"firefox.exe", 5);
  Read(L"firefox.exe", 4);
  EXPECT_TRUE(NetworkInfo(L"firefox.exe", 6));
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
}

TEST_F(IrpCacheTest, FirefoxQueriesWithoutAReadWithdrawNothing) {
  EXPECT_TRUE(NetworkInfo(L"firefox.exe", 1));
  EXPECT_TRUE(NetworkInfo(L"firefox.exe", 2));
  EXPECT_TRUE(NetworkInfo(L"firefox.exe", 3));
}

TEST_F(IrpCacheTest, OnlyFirefoxWithdraws) {
  for (const wchar_t* program : {L"chrome.exe", L"microsoftedgecp.exe", L"iexplore.exe", L"winscp.exe"}) {
    IrpCache cache;
    for (unsigned long long time = 1; time < 7; ++time) cache.AddStdInfoQuery(PATH, 1, time, program);
    cache.AddNetworkInfoQuery(PATH, 1, 10, program);
    cache.ShouldAllowRead(PATH, 1, 11, program);
    EXPECT_TRUE(cache.AddNetworkInfoQuery(PATH, 1, 12, program));
    EXPECT_EQ(cache.GetCacheCount(), 1U);
  }
}

TEST_F(IrpCacheTest, ProgramsWithoutARuleMayAlwaysReadAndLeaveNoKey) {
  EXPECT_TRUE(Read(L"notepad.exe", 1));
  EXPECT_TRUE(Read(L"", 1));
  EXPECT_TRUE(Read(L"C:\\chrome.exe\\", 1));
  EXPECT_TRUE(Read(L"chrome", 1));
  EXPECT_TRUE(Read(L"chrome.exe ", 1));
  EXPECT_TRUE(Read(L"C:/chrome.exe", 1));
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
}

TEST_F(IrpCacheTest, AReadNeverCreatesAKey) {
  for (const wchar_t* program :
       {L"chrome.exe", L"firefox.exe", L"microsoftedgecp.exe", L"iexplore.exe", L"winscp.exe"}) {
    EXPECT_FALSE(Read(program, 1));
  }
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
}

TEST_F(IrpCacheTest, QueriesOfProgramsWithoutARuleAreKeptPerProcess) {
  StdInfo(L"notepad.exe", 1, 5);
  StdInfo(L"wordpad.exe", 1, 5);
  NetworkInfo(L"notepad.exe", 1, 6);
  EXPECT_EQ(cache_.GetCacheCount(), 2U);
}

TEST_F(IrpCacheTest, EveryChromiumBrowserSharesOneKeyPerFile) {
  NetworkInfo(L"chrome.exe", 1, 10);
  NetworkInfo(L"msedge.exe", 2, 20);
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
  EXPECT_TRUE(Read(L"opera.exe", 3, 30));
  EXPECT_TRUE(Read(L"slack.exe", 3, 40));
}

TEST_F(IrpCacheTest, ProcessesOfTheOtherFamiliesShareTheirKeysAndFamiliesDoNot) {
  for (const wchar_t* program : {L"firefox.exe", L"microsoftedgecp.exe", L"iexplore.exe", L"chrome.exe"}) {
    StdInfo(program, 1, 10);
    StdInfo(program, 1, 20);
  }
  EXPECT_EQ(cache_.GetCacheCount(), 4U);
}

TEST_F(IrpCacheTest, EachWinScpProcessHasItsOwnKey) {
  StdInfo(L"winscp.exe", 1, 10);
  EXPECT_FALSE(Read(L"winscp.exe", 2, 20));
  EXPECT_TRUE(Read(L"winscp.exe", 2, 10));
}

TEST_F(IrpCacheTest, FilesAreToldApartByTheirExactPath) {
  cache_.AddStdInfoQuery(L"C:\\F", 1, 1, L"winscp.exe");
  EXPECT_FALSE(Read(L"winscp.exe", 2));
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
}

TEST_F(IrpCacheTest, TheLastComponentOfTheImagePathDecidesWhateverItsCase) {
  NetworkInfo(L"\\Device\\HarddiskVolume3\\Google\\CHROME.EXE", 1);
  NetworkInfo(L"c:\\x\\Chrome.Exe", 2);
  EXPECT_TRUE(Read(L"chrome.exe", 3));
}

// Names are folded byte by byte: whoever names a program so passes for the browser.
TEST_F(IrpCacheTest, ANameWhoseLowBytesSpellABrowserIsTakenForIt) {
  std::wstring disguised = L"chrome.exe";
  for (wchar_t& character : disguised) character = static_cast<wchar_t>(character + 0x4E00);
  NetworkInfo(disguised, 1);
  NetworkInfo(disguised, 2);
  EXPECT_TRUE(Read(L"chrome.exe", 3));
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
}

TEST_F(IrpCacheTest, ADisguisedNameMatchesInUpperCaseToo) {
  std::wstring disguised = L"CHROME.EXE";
  for (wchar_t& character : disguised) character = static_cast<wchar_t>(character + 0x4E00);
  NetworkInfo(disguised, 1);
  NetworkInfo(disguised, 2);
  EXPECT_TRUE(Read(L"chrome.exe", 3));
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
}

// A family's key lies beyond every process id, the highest included.
TEST_F(IrpCacheTest, NoProcessSharesAKeyWithABrowserFamily) {
  for (const ULong32 processId : {0xFFFFFFFFU, 0xFFFFFFFEU, 0xFFFFFFFDU, 0xFFFFFFFCU}) {
    StdInfo(L"notepad.exe", 1, processId);
  }
  EXPECT_EQ(cache_.GetCacheCount(), 4U);
  unsigned long long count = 4;
  for (const wchar_t* browser : {L"firefox.exe", L"microsoftedgecp.exe", L"chrome.exe", L"iexplore.exe"}) {
    StdInfo(browser, 1, 0xFFFFFFFF);
    EXPECT_EQ(cache_.GetCacheCount(), ++count);
  }
}

TEST_F(IrpCacheTest, OnlyARealBackslashSeparatesComponents) {
  const std::wstring disguised = std::wstring(L"x") + static_cast<wchar_t>(0x4E00 + L'\\') + L"winscp.exe";
  EXPECT_TRUE(Read(disguised, 1));  // another program: always allowed
}

TEST_F(IrpCacheTest, AKeyIsForgottenWhenItsLastEventIsMoreThanTenSecondsOld) {
  StdInfo(L"winscp.exe", 1000);
  Read(L"notepad.exe", 11000);  // a purge that keeps what is exactly ten seconds old
  EXPECT_EQ(cache_.GetCacheCount(), 1U);

  IrpCache other;
  other.AddStdInfoQuery(PATH, 1, 1000, L"winscp.exe");
  other.ShouldAllowRead(L"C:\\other", 1, 11001, L"notepad.exe");
  EXPECT_EQ(other.GetCacheCount(), 0U);
}

TEST_F(IrpCacheTest, APurgeRunsOnlyMoreThanTenSecondsAfterTheLastOne) {
  Read(L"notepad.exe", 20000);  // purges; the next purge is due after 30000
  StdInfo(L"winscp.exe", 5);
  Read(L"notepad.exe", 30000);
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
  Read(L"notepad.exe", 30001);
  EXPECT_EQ(cache_.GetCacheCount(), 0U);
}

TEST_F(IrpCacheTest, AnyOfTheThreeLastTimesKeepsAKey) {
  const auto survives = [](auto refresh) {
    IrpCache cache;
    cache.AddStdInfoQuery(PATH, 1, 100, L"chrome.exe");
    refresh(cache);
    cache.ShouldAllowRead(L"C:\\other", 1, 15000, L"notepad.exe");
    return cache.GetCacheCount() == 1;
  };
  EXPECT_FALSE(survives([](IrpCache&) {}));
  EXPECT_TRUE(survives([](IrpCache& cache) { cache.AddStdInfoQuery(PATH, 1, 5000, L"chrome.exe"); }));
  EXPECT_TRUE(survives([](IrpCache& cache) { cache.AddNetworkInfoQuery(PATH, 1, 5000, L"chrome.exe"); }));
  EXPECT_TRUE(survives([](IrpCache& cache) { cache.ShouldAllowRead(PATH, 1, 5000, L"chrome.exe"); }));
}

TEST_F(IrpCacheTest, EveryOperationPurgesBeforeItLooks) {
  StdInfo(L"winscp.exe", 1000);
  EXPECT_FALSE(Read(L"winscp.exe", 11001));
  EXPECT_EQ(cache_.GetCacheCount(), 0U);

  IrpCache queried;
  queried.AddNetworkInfoQuery(PATH, 1, 1000, L"chrome.exe");
  queried.AddNetworkInfoQuery(PATH, 1, 11001, L"chrome.exe");
  EXPECT_FALSE(queried.ShouldAllowRead(PATH, 1, 11002, L"chrome.exe"));

  IrpCache standard;
  standard.AddStdInfoQuery(PATH, 1, 1000, L"winscp.exe");
  standard.AddStdInfoQuery(L"C:\\g", 1, 11001, L"winscp.exe");
  EXPECT_EQ(standard.GetCacheCount(), 1U);
}

TEST_F(IrpCacheTest, ACopyGoesItsOwnWay) {
  NetworkInfo(L"firefox.exe", 1);
  IrpCache copy(cache_);
  EXPECT_TRUE(copy.ShouldAllowRead(PATH, 1, 2, L"firefox.exe"));
  EXPECT_FALSE(copy.AddNetworkInfoQuery(PATH, 1, 3, L"firefox.exe"));
  EXPECT_EQ(copy.GetCacheCount(), 0U);
  EXPECT_EQ(cache_.GetCacheCount(), 1U);
  EXPECT_TRUE(NetworkInfo(L"firefox.exe", 3));
}

// The rules once more, over a plain list of keys.
class ReferenceIrpCache {
 public:
  void StdInfo(const std::wstring& path, ULong32 process, unsigned long long time, std::size_t program) {
    Purge(time);
    Entry& entry = FindOrAdd(path, process, program);
    ++entry.stdInfos;
    entry.lastStdInfo = std::max(entry.lastStdInfo, time);
  }

  bool NetworkInfo(const std::wstring& path, ULong32 process, unsigned long long time, std::size_t program) {
    Purge(time);
    const int known = Find(path, process, program);
    if (known >= 0) {
      const Entry& entry = entries_[static_cast<std::size_t>(known)];
      if (PROGRAMS[program].family == L"firefox" && entry.reads > 0 && entry.networkInfos >= 1 &&
          entry.lastRead >= entry.lastNetworkInfo) {
        entries_.erase(entries_.begin() + known);
        return false;
      }
    }
    Entry& entry = FindOrAdd(path, process, program);
    ++entry.networkInfos;
    entry.lastNetworkInfo = std::max(entry.lastNetworkInfo, time);
    return true;
  }

  bool Read(const std::wstring& path, ULong32 process, unsigned long long time, std::size_t program,
            std::vector<LogLine>& log) {
    Purge(time);
    const std::wstring family = PROGRAMS[program].family;
    if (family.empty()) return true;
    const int known = Find(path, process, program);
    if (known < 0) return false;
    Entry& entry = entries_[static_cast<std::size_t>(known)];
    ++entry.reads;
    entry.lastRead = std::max(entry.lastRead, time);
    if (family == L"chromium") {
      if (entry.networkInfos < 2) return false;
      const bool negated = entry.stdInfos > 0 && time >= entry.lastStdInfo && time - entry.lastStdInfo < 1000;
      if (negated) log.push_back({6, L"Event negated for " + path});
      return !negated;
    }
    const bool allowed =
        family == L"firefox" ? entry.networkInfos >= 1 : entry.stdInfos >= PROGRAMS[program].stdInfos;
    if (!allowed) entries_.erase(entries_.begin() + known);
    return allowed;
  }

  std::size_t Count() const { return entries_.size(); }

  struct Program {
    const wchar_t* image;
    std::wstring family;
    unsigned stdInfos;
    bool perProcess;
  };
  static inline const std::array<Program, 9> PROGRAMS{{{L"\\D\\chrome.exe", L"chromium", 0, false},
                                                       {L"\\D\\Opera.exe", L"chromium", 0, false},
                                                       {L"slack.exe", L"chromium", 0, false},
                                                       {L"msedge.EXE", L"chromium", 0, false},
                                                       {L"\\D\\firefox.exe", L"firefox", 0, false},
                                                       {L"microsoftedgecp.exe", L"edge legacy", 3, false},
                                                       {L"iexplore.exe", L"internet explorer", 6, false},
                                                       {L"winscp.exe", L"winscp", 1, true},
                                                       {L"notepad.exe", L"", 0, true}}};

  static constexpr std::size_t FIREFOX = 4;

 private:
  struct Entry {
    std::wstring path;
    // The family, or the process where each has a key of its own.
    std::wstring owner;
    unsigned networkInfos = 0;
    unsigned reads = 0;
    unsigned stdInfos = 0;
    unsigned long long lastNetworkInfo = 0;
    unsigned long long lastStdInfo = 0;
    unsigned long long lastRead = 0;
  };

  static std::wstring Owner(ULong32 process, std::size_t program) {
    return PROGRAMS[program].perProcess ? std::to_wstring(process) : PROGRAMS[program].family;
  }

  int Find(const std::wstring& path, ULong32 process, std::size_t program) const {
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      if (entries_[i].path == path && entries_[i].owner == Owner(process, program))
        return static_cast<int>(i);
    }
    return -1;
  }

  Entry& FindOrAdd(const std::wstring& path, ULong32 process, std::size_t program) {
    const int known = Find(path, process, program);
    if (known >= 0) return entries_[static_cast<std::size_t>(known)];
    entries_.push_back({path, Owner(process, program)});
    return entries_.back();
  }

  void Purge(unsigned long long now) {
    if (now <= lastPurge_ + 10000) return;
    lastPurge_ = now;
    std::erase_if(entries_, [now](const Entry& entry) {
      return entry.lastNetworkInfo + 10000 < now && entry.lastStdInfo + 10000 < now &&
             entry.lastRead + 10000 < now;
    });
  }

  std::vector<Entry> entries_;
  unsigned long long lastPurge_ = 0;
};

TEST(IrpCacheReference, RandomHistoriesEndAsInTheReference) {
  LogCapture log;
  unsigned allowed = 0;
  unsigned withdrawn = 0;
  unsigned negated = 0;
  for (unsigned seed = 0; seed < 6000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    IrpCache cache;
    ReferenceIrpCache reference;
    std::vector<LogLine> expectedLog;
    unsigned long long clock = 0;
    for (int step = 0; step < 80; ++step) {
      clock += random() % 8 == 0 ? random() % 11000 : random() % 600;
      // Now and then a message that was overtaken.
      const unsigned long long time =
          random() % 6 == 0 ? clock - std::min<unsigned long long>(clock, random() % 2500) : clock;
      const std::wstring path(1, static_cast<wchar_t>(L'a' + random() % 2));
      const ULong32 process = static_cast<ULong32>(1 + random() % 2);
      // Firefox, whose rule has the most steps, takes part more often than the others.
      const std::size_t program =
          random() % 3 == 0 ? ReferenceIrpCache::FIREFOX : random() % ReferenceIrpCache::PROGRAMS.size();
      const wchar_t* const image = ReferenceIrpCache::PROGRAMS[program].image;
      switch (random() % 3) {
        case 0:
          cache.AddStdInfoQuery(path, process, time, image);
          reference.StdInfo(path, process, time, program);
          break;
        case 1: {
          const bool kept = reference.NetworkInfo(path, process, time, program);
          withdrawn += kept ? 0 : 1;
          ASSERT_EQ(cache.AddNetworkInfoQuery(path, process, time, image), kept);
          break;
        }
        default: {
          const bool expected = reference.Read(path, process, time, program, expectedLog);
          allowed += expected && image != std::wstring(L"notepad.exe") ? 1 : 0;
          ASSERT_EQ(cache.ShouldAllowRead(path, process, time, image), expected);
        }
      }
      ASSERT_EQ(cache.GetCacheCount(), reference.Count());
    }
    negated += static_cast<unsigned>(expectedLog.size());
    ASSERT_EQ(log.Take(), expectedLog);
  }
  // The histories would prove nothing if they never came this far.
  EXPECT_GT(allowed, 500U);
  EXPECT_GT(withdrawn, 500U);
  EXPECT_GT(negated, 500U);
}

}  // namespace
