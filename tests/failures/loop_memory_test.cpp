// The loops on a machine without memory: each request of theirs for memory is refused in turn. Not among them
// is what the compiler's runtime takes for good at a thread's first use of it, and does not look at: each
// loop has gone round once before.

#include <algorithm>
#include <limits>

#include "network_test.h"
#include "support/heap_watch.h"

namespace ostrel::test {

namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAreArray;

constexpr std::uint64_t LONG_AGO = 1000;

const std::string ACKNOWLEDGEMENT = "FilterReplyMessage(notification port";
const std::string EXCEPTION = "log 3 Exception caught in filter loop";
const std::string USER_LOOK_UP = "OpenProcessToken(process 42, 0x8)";

// No rule of any browser applies to this program.
const std::wstring PROGRAM = L"\\a program with a long name.exe";
const std::wstring OTHER_PROGRAM = L"\\another program with a long name.exe";

EventMessage Event(std::int32_t type, const std::string& fileName) {
  EventMessage message{};
  message.messageId = 7;
  message.processId = 42;
  message.eventTime = LONG_AGO;
  message.eventType = type;
  message.streamFlag = 1;
  message.deviceSourceType = 2;
  std::copy(fileName.begin(), fileName.end(), message.fileName);
  message.readSize = 1000;
  return message;
}

// Longer than a short string holds.
std::string FileName(const std::string& purpose, int number) {
  return "\\a folder for " + purpose + "\\file " + std::to_string(number);
}

// What the helper says to either question.
std::wstring Answer(const std::wstring& request) {
  const bool isOfTitles = request[2] == L'0';
  // The second identifier of the request is that of the answer.
  return request.substr(2, 1) + L",32," + request.substr(43, 32) + L",0," +
         (isOfTitles
              ? L"2,22,a title that is longer,28,another title that is longer"
              : std::wstring(64, L'a') + L"," + std::wstring(32, L'b') + L",1000,22,more about the file...");
}

// What of one event can happen to the library.
struct Kind {
  const char* name;
  std::int32_t type;
  std::uint32_t source = 2;
  const wchar_t* program = L"\\a program with a long name.exe";
  bool hasTitles = false;
  // Refusals that lose the event, at least.
  int exceptions = 0;
  // Where the first event of a file asks who its user is.
  bool isCached = false;
};

const Kind KINDS[] = {
    {.name = "Read", .type = 0, .exceptions = 4, .isCached = true},
    {.name = "ReadWithTitles", .type = 0, .hasTitles = true, .exceptions = 4, .isCached = true},
    {.name = "ReadOnALocalDrive", .type = 0, .source = 0, .exceptions = 4, .isCached = true},
    {.name = "ReadOnANetworkDrive", .type = 0, .source = 1, .exceptions = 4, .isCached = true},
    {.name = "ReadThatIsNoUpload", .type = 0, .program = L"\\chrome.exe"},
    {.name = "Write", .type = 1, .exceptions = 5, .isCached = true},
    {.name = "WriteWithTitles", .type = 1, .hasTitles = true, .exceptions = 5, .isCached = true},
    {.name = "NetworkInfoQuery", .type = 2, .exceptions = 2},
    {.name = "NetworkInfoQueryOfABrowser", .type = 2, .program = L"\\firefox.exe", .exceptions = 2},
    {.name = "StandardInfoQuery", .type = 3, .exceptions = 2},
    {.name = "CloudDriveEvent4", .type = 4, .exceptions = 4, .isCached = true},
    {.name = "CloudDriveEvent5", .type = 5, .exceptions = 4, .isCached = true},
    {.name = "CloudDriveEvent6", .type = 6, .exceptions = 4, .isCached = true},
    {.name = "CloudDriveEvent7", .type = 7, .exceptions = 4, .isCached = true},
    {.name = "CloudDriveEvent8", .type = 8, .exceptions = 4, .isCached = true},
    {.name = "CloudDriveEvent9", .type = 9, .exceptions = 4, .isCached = true},
    {.name = "UnknownType", .type = 10}};

class TheNotificationLoopWithoutMemory : public LibraryTest {
 protected:
  TheNotificationLoopWithoutMemory() {
    // Without the disk event thread, which would empty the caches.
    system_.Fail("CreateThread", 8, 2);
    system_.drives = {{L"C:", L"\\Device\\V3"}};
    system_.imageNames = {{42, PROGRAM}};
    session_.randomBytes.assign(32, 1);
    session_.answer = Answer;
    session_.LogOn();
    EXPECT_TRUE(Load());
    EXPECT_TRUE(system_.WaitUntilHandled());
    FailureLedger::OfThisProgram().SetTheStage();
    handles_ = system_.OpenHandles();
    for (const std::int32_t type : {0, 1, 2, 3, 4}) Handle(Event(type, "\\first"));
    // The first exception on a thread.
    const HeapWatch heap(library_.Module(), system_.ThreadIds().at(0));
    HeapWatch::Begin(1);
    Handle(Event(4, FileName("the first", 0)));
    EXPECT_THAT(Loop(), Contains(EXCEPTION));
  }

  void Handle(const EventMessage& message) {
    Forget();
    system_.Send(message);
    ASSERT_TRUE(system_.WaitUntilHandled());
    CameTo("The notification loop: asks for the next message");
    EXPECT_THAT(system_.transcript.StartingWith(ACKNOWLEDGEMENT), SizeIs(1));
    EXPECT_EQ(system_.OpenHandles(), handles_);
    EXPECT_THAT(session_.OpenHandles(), IsEmpty());
  }

  Lines Loop() const { return system_.transcript.Of(system_.ThreadIds().at(0)); }

  Lines handles_;
};

class HandlingAMessageWithoutMemory : public TheNotificationLoopWithoutMemory,
                                      public ::testing::WithParamInterface<Kind> {
 protected:
  HandlingAMessageWithoutMemory() {
    system_.imageNames = {{42, GetParam().program}};
    if (!GetParam().hasTitles) library_.DisableTabTitles();
  }

  EventMessage Message(int number) const {
    const bool isLocal = GetParam().source == 0;
    EventMessage message =
        Event(GetParam().type, (isLocal ? "\\Device\\V3" : "") + FileName("messages", number));
    message.deviceSourceType = GetParam().source;
    return message;
  }

  // What two events of one file leave in the heap.
  long BlocksOfAFile() {
    const long before = HeapWatch::ModuleBlocks();
    const EventMessage message = Message(0);
    Handle(message);
    Handle(message);
    return HeapWatch::ModuleBlocks() - before;
  }
};

TEST_P(HandlingAMessageWithoutMemory, AcknowledgesTheMessageGoesOnFilesNothingHalfAndLeavesNothing) {
  const HeapWatch heap(library_.Module(), system_.ThreadIds().at(0));
  const long blocksOfAFile = BlocksOfAFile();
  int exceptions = 0;
  for (int allocation = 1;; ++allocation) {
    SCOPED_TRACE(allocation);
    const long before = HeapWatch::ModuleBlocks();
    const EventMessage message = Message(allocation);
    HeapWatch::Begin(allocation);
    ASSERT_NO_FATAL_FAILURE(Handle(message));
    const bool wasRefused = HeapWatch::HasRefused();
    HeapWatch::Begin();
    const Lines lines = Loop();
    if (!wasRefused) {
      EXPECT_THAT(lines, Not(Contains(EXCEPTION)));
      break;
    }
    const auto caught = std::count(lines.begin(), lines.end(), EXCEPTION);
    // Without memory for the titles, an event has none.
    EXPECT_LE(caught, 1);
    exceptions += static_cast<int>(caught);

    // The same message once more: new when it got lost, and filed in any case.
    ASSERT_NO_FATAL_FAILURE(Handle(message));
    EXPECT_THAT(Loop(), Not(Contains(EXCEPTION)));
    if (GetParam().isCached) {
      EXPECT_EQ(std::ranges::count(Loop(), USER_LOOK_UP), caught);
    }
    const long blocks = HeapWatch::ModuleBlocks() - before;
    if (GetParam().hasTitles && caught == 0) {
      EXPECT_LE(blocks, blocksOfAFile);
    } else {
      EXPECT_EQ(blocks, blocksOfAFile);
    }
  }
  EXPECT_GE(exceptions, GetParam().exceptions) << "names and entries take memory";
}

INSTANTIATE_TEST_SUITE_P(OfEveryKind, HandlingAMessageWithoutMemory, ::testing::ValuesIn(KINDS),
                         [](const auto& kind) { return std::string(kind.param.name); });

// A query of this program withdraws its read, or does nothing and the next one does.
TEST_F(TheNotificationLoopWithoutMemory, WithdrawsAReadWithTheNextQueryWhenThereIsNoMemoryForTheFirst) {
  system_.imageNames = {{42, L"\\firefox.exe"}};
  const std::string withdrawn = "log 7 Removed from Upload cache: ";
  const HeapWatch heap(library_.Module(), system_.ThreadIds().at(0));
  const long before = HeapWatch::ModuleBlocks();
  int exceptions = 0;
  bool wasRefused = true;
  for (int allocation = 1; wasRefused; ++allocation) {
    SCOPED_TRACE(allocation);
    const std::string file = FileName("queries", allocation);
    HeapWatch::Begin();
    ASSERT_NO_FATAL_FAILURE(Handle(Event(2, file)));
    ASSERT_NO_FATAL_FAILURE(Handle(Event(0, file)));
    HeapWatch::Begin(allocation);
    ASSERT_NO_FATAL_FAILURE(Handle(Event(2, file)));
    wasRefused = HeapWatch::HasRefused();
    HeapWatch::Begin();
    if (system_.transcript.StartingWith(EXCEPTION).size() == 1) {
      ++exceptions;
      ASSERT_NO_FATAL_FAILURE(Handle(Event(2, file)));
    }
    EXPECT_THAT(system_.transcript.StartingWith(withdrawn), SizeIs(1));
    EXPECT_EQ(HeapWatch::ModuleBlocks(), before) << "neither the query nor the read is left";
  }
  EXPECT_GE(exceptions, 2) << "the names take memory";
}

// Unless there is no memory for so much as its name, a write withdraws the read even when it is not filed.
TEST_F(TheNotificationLoopWithoutMemory, WithdrawsAReadWithAWriteThatThereIsNoMemoryToFile) {
  const HeapWatch heap(library_.Module(), system_.ThreadIds().at(0));
  int withdrawals = 0;
  bool wasRefused = true;
  for (int allocation = 1; wasRefused; ++allocation) {
    SCOPED_TRACE(allocation);
    const std::string file = FileName("written", allocation);
    HeapWatch::Begin();
    ASSERT_NO_FATAL_FAILURE(Handle(Event(0, file)));
    HeapWatch::Begin(allocation);
    ASSERT_NO_FATAL_FAILURE(Handle(Event(1, file)));
    wasRefused = HeapWatch::HasRefused();
    HeapWatch::Begin();
    const bool isFiled = system_.transcript.StartingWith(EXCEPTION).empty();
    // Another read joins the first one or, where there is none, is a new event.
    ASSERT_NO_FATAL_FAILURE(Handle(Event(0, file)));
    const bool isWithdrawn = std::ranges::count(Loop(), USER_LOOK_UP) == 1;
    EXPECT_EQ(isWithdrawn, isFiled || allocation > 1) << "the first is the name";
    if (isWithdrawn && !isFiled) ++withdrawals;
  }
  EXPECT_GE(withdrawals, 3) << "the record and its texts take memory";
}

// A host whose callback for cloud-drive events can be kept from returning: such events come last in a pass,
// so what happens meanwhile comes together into the next one. What the callbacks are told goes to the newest
// transcript, because they get no context.
//
// One at a time.
class GatedHost {
 public:
  explicit GatedHost(Transcript& transcript) {
    told = &transcript;
    const Lock::Holder holder(lock);
    arrived = passed = 0;
  }
  GatedHost(const GatedHost&) = delete;
  GatedHost& operator=(const GatedHost&) = delete;
  ~GatedHost() { Open(std::numeric_limits<std::size_t>::max()); }

  static bool WaitUntilAtGate(std::size_t count) {
    Lock::Holder holder(lock);
    return holder.WaitFor([count] { return arrived == count; });
  }
  // Lets so many pass, counted from the first.
  static void Open(std::size_t count) {
    Lock::Holder holder(lock);
    passed = count;
    holder.Changed();
  }

  static void OnActivity(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user,
                         std::uint64_t, std::uint32_t type, std::int32_t streams, wchar_t** addresses,
                         std::uint32_t* ports, wchar_t** hostNames, std::int32_t hints, wchar_t** hintTexts,
                         const wchar_t* tabTitleStatus, std::uint8_t isNetworkDrive, const wchar_t* sha256,
                         const wchar_t* md5, std::uint32_t size, const wchar_t* status,
                         const wchar_t* extra) {
    std::string line =
        "told " + Narrow(fileName) + " " + std::to_string(type) + Narrow(processName) + " " + Narrow(user);
    for (std::int32_t i = 0; i < streams; ++i) {
      line += " " + Narrow(addresses[i]) + " " + std::to_string(ports[i]) + " " + Narrow(hostNames[i]);
    }
    for (std::int32_t i = 0; i < hints; ++i) line += " [" + Narrow(hintTexts[i]) + "]";
    line += " " + Narrow(tabTitleStatus);
    if (isNetworkDrive != 0) {
      line += " " + Narrow(sha256) + " " + Narrow(md5) + " " + std::to_string(size) + " " + Narrow(status) +
              " " + Narrow(extra);
    }
    told->Add(line);
  }

  static void OnCloud(const wchar_t* fileName, const wchar_t* processName, const wchar_t* user, std::uint64_t,
                      std::uint32_t type) {
    const std::string name = Narrow(fileName);
    if (!name.starts_with("\\gate")) {
      told->Add("told " + name + " " + std::to_string(type) + Narrow(processName) + " " + Narrow(user));
      return;
    }
    Lock::Holder holder(lock);
    const std::size_t own = ++arrived;
    holder.Changed();
    holder.WaitFor([own] { return passed >= own; });
  }

 private:
  static inline Transcript* told = nullptr;
  static inline Lock lock;
  static inline std::size_t arrived = 0;
  static inline std::size_t passed = 0;
};

// Passes of the disk event thread with events of every kind in each. The parameter says whether uploads and
// downloads have titles.
class TheDiskEventLoopWithoutMemory : public NetworkTest, public ::testing::WithParamInterface<bool> {
 protected:
  TheDiskEventLoopWithoutMemory() {
    system_.waitDivisor = 500;
    system_.imageNames = {{42, PROGRAM}, {43, OTHER_PROGRAM}};
    system_.hostNames = {{L"192.0.2.1", L"a-host-with-a-long-name.example"}};
    session_.randomBytes.assign(32, 1);
    session_.answer = Answer;
    session_.LogOn();
    const wchar_t* names[] = {L"a program with a long name.exe"};
    EXPECT_TRUE(Load());
    EXPECT_TRUE(system_.WaitUntilHandled());
    EXPECT_EQ(library_.EnableActivityDetection(&GatedHost::OnActivity, L"ann", names, 1, nullptr, 0, 0, 1,
                                               GetParam() ? 1 : 0),
              1);
    EXPECT_EQ(library_.EnablePCDDetection(&GatedHost::OnCloud, names, 1, nullptr, 0, nullptr, 0), 1);
    EXPECT_TRUE(WaitUntilReading());
    FailureLedger::OfThisProgram().SetTheStage();
    FileStreams();
    handles_ = system_.OpenHandles();
    WaitAtNextGate();
  }

  // Those of one process, in both directions: no size of a file is near theirs, so all of them are likely.
  void FileStreams() {
    Packet packet;
    packet.time = std::numeric_limits<std::uint64_t>::max() / 2;
    for (const std::uint8_t direction : {std::uint8_t{0}, std::uint8_t{1}}) {
      packet.direction = direction;
      packet.bytes = 20;
      packet.ipVersion = 1;
      packet.ipv4 = 0xC0000201;
      packet.port = 443;
      network_.Complete(0, packet);
      EXPECT_TRUE(WaitUntilReading(2 + 2U * direction));
      packet.bytes = 10;
      packet.ipVersion = 2;
      packet.ipv6 = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
      packet.port = 8443;
      network_.Complete(0, packet);
      EXPECT_TRUE(WaitUntilReading(3 + 2U * direction));
    }
  }

  void Send(std::int32_t type, const std::string& purpose, std::uint32_t source = 2,
            std::uint32_t process = 42, bool isDue = true) {
    EventMessage message = Event(type, FileName(purpose, 0));
    message.processId = process;
    message.deviceSourceType = source;
    // So far from the round before that what was reported then is forgotten.
    message.eventTime = isDue ? LONG_AGO + static_cast<std::uint64_t>(round_) * 20'000
                              : std::numeric_limits<std::uint64_t>::max() / 2;
    system_.Send(message);
    ++messages_;
  }

  void SetFiles() {
    system_.fileSizes.clear();
    for (const auto* purpose :
         {"uploads", "downloads", "pairs", "what waits", "metadata", "metadata of reads"}) {
      system_.fileSizes[WideName(purpose)] = 1000;
    }
    system_.fileSizes[WideName("what is large")] = 5000;
    system_.directories = {WideName("directories")};
  }

  // While the thread waits at the gate.
  void SendEvents() {
    SetFiles();
    Forget();
    messages_ = 0;
    Send(0, "uploads");
    Send(1, "downloads");
    // Just reported as written.
    Send(0, "downloads");
    Send(1, "metadata", 1);
    Send(0, "metadata of reads", 1);
    Send(0, "pairs", 2, 42);
    Send(0, "pairs", 2, 43);
    Send(0, "what waits", 2, 42);
    Send(0, "what waits", 2, 43, false);
    Send(0, "directories");
    Send(0, "what is large");
    Send(4, "cloud");
    Send(9, "cloud too");
    ASSERT_TRUE(system_.WaitUntilHandled());
  }

  // Until the pass that has begun has ended, and one after it.
  void WaitForPass() {
    const std::string wait = "WaitForSingleObject(event, 1000)";
    ASSERT_TRUE(system_.transcript.WaitFor(wait, system_.transcript.StartingWith(wait).size() + 2))
        << "the loop has ended";
  }

  void WaitAtNextGate() {
    system_.Send(Event(4, "\\gate with a long name " + std::to_string(++gates_)));
    ++messages_;
    ASSERT_TRUE(GatedHost::WaitUntilAtGate(gates_)) << "the loop has ended";
  }

  // The refusal itself brings no line: those that the thread wrote after it are about the pass's other
  // events.
  static void EnterRefusal() {
    FailureLedger& ledger = FailureLedger::OfThisProgram();
    ledger.SetTheStage();
    ledger.Failed("malloc", ERROR_NOT_ENOUGH_MEMORY);
    CameTo("The disk event thread: goes on with the next pass");
  }

  // Reports everything, with that request for memory refused in the pass that does; 0 refuses none.
  void PlayRound(int refused) {
    ++round_;
    ASSERT_NO_FATAL_FAILURE(SendEvents());
    HeapWatch::Begin(refused);
    GatedHost::Open(gates_);
    ASSERT_NO_FATAL_FAILURE(WaitForPass());
    wasRefused_ = HeapWatch::HasRefused();
    if (wasRefused_) EnterRefusal();
    HeapWatch::Begin();
    Send(0, "what waits", 2, 43);
    ASSERT_TRUE(system_.WaitUntilHandled());
    ASSERT_NO_FATAL_FAILURE(WaitForPass());
    ASSERT_NO_FATAL_FAILURE(WaitAtNextGate());
    ASSERT_TRUE(system_.WaitUntilHandled());
    EXPECT_THAT(system_.transcript.StartingWith(ACKNOWLEDGEMENT), SizeIs(messages_));
    EXPECT_EQ(system_.OpenHandles(), handles_);
    EXPECT_THAT(session_.OpenHandles(), IsEmpty());
  }

  Lines Told() const { return system_.transcript.StartingWith("told "); }
  std::size_t Told(const std::string& purpose) const {
    return system_.transcript.StartingWith("told " + FileName(purpose, 0) + " ").size();
  }

  // The file, the type and the process of each.
  Lines ToldEvents() const {
    Lines events = Told();
    for (std::string& event : events) event.resize(event.find(".exe ann"));
    return events;
  }

  std::string Report(const std::string& purpose, const std::string& typeAndProcess,
                     const std::string& rest) const {
    return "told " + FileName(purpose, 0) + " " + typeAndProcess + " ann" + rest;
  }

  // Of a round in which nothing is refused.
  Lines Expected() const {
    const std::string streams = " 192.0.2.1 443 a-host-with-a-long-name.example 2001:db8::1 8443 ";
    const std::string titles =
        GetParam() ? " [a title that is longer] [another title that is longer] TABTITLE_SUCCESS" : " ";
    const std::string metadata = " " + std::string(64, 'a') + " " + std::string(32, 'b') +
                                 " 1000 METADATA_SUCCESS more about the file...";
    const std::string program = Narrow(PROGRAM);
    const std::string other = Narrow(OTHER_PROGRAM);
    Lines expected = {Report("uploads", "0" + program, streams + titles),
                      Report("downloads", "1" + program, streams + titles),
                      Report("metadata", "1" + program, streams + titles + metadata),
                      Report("metadata of reads", "0" + program, streams + titles + metadata),
                      Report("what waits", "0" + other, titles),
                      Report("cloud", "4" + program, ""),
                      Report("cloud too", "9" + program, "")};
    // With titles the first of a pair is reported, without the last; and what is due with titles goes before
    // what is not due yet, without them after it.
    if (GetParam()) {
      expected.push_back(Report("pairs", "0" + other, titles));
      expected.push_back(Report("what waits", "0" + program, streams + titles));
    } else {
      expected.push_back(Report("pairs", "0" + program, streams + titles));
    }
    return expected;
  }

  bool wasRefused_ = false;

 private:
  std::wstring WideName(const std::string& purpose) const {
    const std::string name = FileName(purpose, 0);
    return {name.begin(), name.end()};
  }

  GatedHost host_{system_.transcript};
  Lines handles_;
  int round_ = 0;
  std::size_t gates_ = 0;
  std::size_t messages_ = 0;
};

// A pass that runs out of memory loses what it has taken out of the caches, but tells nothing twice, ends
// nothing and keeps nothing.
TEST_P(TheDiskEventLoopWithoutMemory, TellsAnEventAtMostOnceAndTheNextOneInAnyCase) {
  const HeapWatch heap(library_.Module(), system_.ThreadIds().at(1));
  // With the first exception on the thread.
  ASSERT_NO_FATAL_FAILURE(PlayRound(1));
  for (int warmUp = 0; warmUp < 2; ++warmUp) {
    ASSERT_NO_FATAL_FAILURE(PlayRound(0));
    EXPECT_THAT(Told(), UnorderedElementsAreArray(Expected()));
  }
  const long blocks = HeapWatch::ModuleBlocks();
  int allocation = 0;
  do {
    SCOPED_TRACE(++allocation);
    ASSERT_NO_FATAL_FAILURE(PlayRound(allocation));
    Lines events = ToldEvents();
    std::ranges::sort(events);
    EXPECT_TRUE(std::ranges::adjacent_find(events) == events.end()) << ::testing::PrintToString(events);
    for (const auto* purpose : {"uploads", "metadata", "metadata of reads", "pairs", "cloud", "cloud too"}) {
      EXPECT_LE(Told(purpose), 1U) << purpose;
    }
    // Refused is the taking of the downloads: the read of one that follows is not taken for an upload.
    if (allocation == 1) {
      EXPECT_LE(Told("downloads"), 1U);
    }
    EXPECT_LE(Told("what waits"), GetParam() ? 2U : 1U);
    EXPECT_EQ(Told("directories"), 0U);
    EXPECT_EQ(Told("what is large"), 0U);
    if (!wasRefused_) break;
    ASSERT_NO_FATAL_FAILURE(PlayRound(0));
    EXPECT_THAT(Told(), UnorderedElementsAreArray(Expected()));
    EXPECT_EQ(HeapWatch::ModuleBlocks(), blocks);
  } while (!HasFailure());
  EXPECT_GT(allocation, 100) << "so many events take many texts";
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutTitles, TheDiskEventLoopWithoutMemory, ::testing::Bool());

struct Stream {
  const char* name;
  std::uint8_t direction;
  std::uint32_t ipVersion;
};

class ThePacketReaderWithoutMemory : public NetworkTest, public ::testing::WithParamInterface<Stream> {
 protected:
  ThePacketReaderWithoutMemory() {
    TakeTheLogOnly();
    EnableRemote();
    EXPECT_TRUE(WaitUntilReading());
    FailureLedger::OfThisProgram().SetTheStage();
    // Locks are made at their first use.
    Handle(0);
    // The first exception on a thread.
    const HeapWatch heap(library_.Module(), system_.ThreadIds().at(0));
    HeapWatch::Begin(1);
    Handle(0);
    EXPECT_TRUE(HeapWatch::HasRefused());
  }

  // A record of a program that no other has.
  void Handle(int program) {
    Forget();
    system_.imageNames = {{42, PROGRAM + std::to_wstring(program)}};
    Packet packet;
    packet.direction = GetParam().direction;
    packet.ipVersion = GetParam().ipVersion;
    network_.Complete(0, packet);
    ASSERT_TRUE(WaitUntilReading());
    CameTo("The packet reader: loses the record and makes its request again");
    EXPECT_EQ(network_.PendingCount(), 63U) << "the request was not made again";
    EXPECT_EQ(system_.OpenHandles(), handles_.empty() ? handles_ = system_.OpenHandles() : handles_);
  }

  std::size_t Filed() const { return system_.transcript.StartingWith("log 7 added network event: ").size(); }
  std::size_t Joined() const { return system_.transcript.StartingWith("log 7 added to existing ").size(); }

 private:
  Lines handles_;
};

// A record whose program or stream finds no memory is lost; the next one of the same stream is its first.
TEST_P(ThePacketReaderWithoutMemory, LosesTheRecordOnlyGoesOnAndLeavesNothing) {
  const HeapWatch heap(library_.Module(), system_.ThreadIds().at(0));
  ASSERT_NO_FATAL_FAILURE(Handle(1000));
  const long blocksOfAStream = HeapWatch::ModuleBlocks();
  EXPECT_GT(blocksOfAStream, 2) << "a name and two entries";
  int allocation = 1;
  for (bool wasRefused = true; wasRefused; ++allocation) {
    SCOPED_TRACE(allocation);
    const long before = HeapWatch::ModuleBlocks();
    HeapWatch::Begin(allocation);
    ASSERT_NO_FATAL_FAILURE(Handle(allocation));
    wasRefused = HeapWatch::HasRefused();
    HeapWatch::Begin();
    EXPECT_EQ(Filed(), wasRefused ? 0U : 1U);
    ASSERT_NO_FATAL_FAILURE(Handle(allocation));
    EXPECT_EQ(Filed(), wasRefused ? 1U : 0U);
    EXPECT_EQ(Joined(), wasRefused ? 0U : 1U);
    EXPECT_EQ(HeapWatch::ModuleBlocks() - before, blocksOfAStream);
  }
  EXPECT_GT(allocation, 3) << "names and entries take memory";
}

INSTANTIATE_TEST_SUITE_P(OfEveryKindOfStream, ThePacketReaderWithoutMemory,
                         ::testing::Values(Stream{"UploadOverIpv4", 1, 1}, Stream{"UploadOverIpv6", 1, 2},
                                           Stream{"DownloadOverIpv4", 0, 1},
                                           Stream{"DownloadOverIpv6", 0, 2}),
                         [](const auto& stream) { return std::string(stream.param.name); });

}  // namespace

}  // namespace ostrel::test
