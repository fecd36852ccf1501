// OstrelLab.exe: plays scenarios to the library through the stand-in drivers and compares what came out.
#include <windows.h>
// Need windows.h before them.
#include <fcntl.h>
#include <io.h>
#include <shellapi.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <optional>

#include "check.h"
#include "driver_link.h"
#include "filtering_store.h"
#include "host_readiness.h"
#include "network_link.h"
#include "player.h"
#include "scenario_reader.h"
#include "status_report.h"
#include "text.h"
#include "work_directory.h"

namespace {

using namespace ostrel::lab;

enum ExitCode { EXIT_AGREED = 0, EXIT_DIFFERENT = 1, EXIT_BAD_INPUT = 2, EXIT_LAB_FAILED = 3 };

struct Options {
  std::string scenario;
  std::string detections;
  std::string workDirectory;
  std::uint32_t hostWaitSeconds = 30;
  std::uint32_t checkWaitSeconds = 0;
};

// A scenario that cannot be read; every error has been printed.
struct BadScenario {};

Scenario Load(const std::string& path) {
  ScenarioResult result = ReadScenario(path, ReadWholeFile(ToWide(path)));
  for (const std::string& error : result.errors) std::fprintf(stderr, "%s\n", error.c_str());
  if (!result.scenario) throw BadScenario{};
  return std::move(*result.scenario);
}

int Play(const Options& options) {
  const Scenario scenario = Load(options.scenario);
  const WorkDirectory workDirectory(ToWide(options.workDirectory));
  Player(scenario, workDirectory, options.hostWaitSeconds).Play();
  return EXIT_AGREED;
}

int Check(const Options& options) {
  const Scenario scenario = Load(options.scenario);
  const WorkDirectory workDirectory(ToWide(options.workDirectory));
  const bool agreed =
      CheckDetections(scenario, workDirectory, ToWide(options.detections), options.checkWaitSeconds);
  return agreed ? EXIT_AGREED : EXIT_DIFFERENT;
}

int Validate(const Options& options) {
  const Scenario scenario = Load(options.scenario);
  const WorkDirectory workDirectory(ToWide(options.workDirectory));
  std::printf("%s: valid, %zu processes, %zu files, %zu steps, %zu expected detections\nhost arguments:%s\n",
              options.scenario.c_str(), scenario.processes.size(), scenario.files.size(),
              scenario.steps.size(), scenario.expectations.size(),
              HostArguments(FindNeededProcesses(scenario), workDirectory).c_str());
  return EXIT_AGREED;
}

// The two drivers come and go with the host, each by itself; a host that stops has first stopped the network
// driver.
struct LoadedDrivers {
  std::optional<DriverLink> minifilter = DriverLink::TryOpen();
  std::optional<NetworkLink> network = NetworkLink::TryOpen();
};

FilteringState ReadFilteringState() {
  try {
    return FilteringStore().Read();
  } catch (const RegistryError& error) {
    SetLastError(error.code);
    throw SystemError("read what the filtering platform holds");
  }
}

int Status() {
  LoadedDrivers drivers;
  LabState state;
  if (drivers.minifilter) {
    state.minifilter = drivers.minifilter->Status();
    state.configurations = drivers.minifilter->Configurations();
  }
  if (drivers.network) {
    state.network = drivers.network->Status();
    state.processList = drivers.network->ProcessList();
  }
  state.filtering = ReadFilteringState();
  std::printf("%s\n", StatusReport(state).c_str());
  return EXIT_AGREED;
}

int Reset() {
  LoadedDrivers drivers;
  if (!drivers.minifilter && !drivers.network) throw LabError("no driver is loaded: start a host first");
  if (drivers.minifilter) drivers.minifilter->Reset();
  if (drivers.network) drivers.network->Reset();
  return EXIT_AGREED;
}

void AddScenario(CLI::App* command, Options& options) {
  command->add_option("SCENARIO", options.scenario, "Scenario file (JSON; docs/lab.md describes it)")
      ->required();
}

void AddWorkDirectory(CLI::App* command, Options& options) {
  command->add_option("--work-dir", options.workDirectory,
                      "Where the scenario's files and processes lie; the same for play and check\n"
                      "[default: OstrelLab in the folder for temporary files]");
}

int RunCommandLine(const std::vector<std::string>& arguments) {
  Options options;
  CLI::App app{
      "Plays file-activity scenarios to OstrelFilterLib without real drivers.\n"
      "Start OstrelHost.exe, play a scenario to it, then check what the host reported:\n"
      "  OstrelLab validate default.json          prints the host arguments the scenario needs\n"
      "  OstrelHost ... > detections.jsonl\n"
      "  OstrelLab play default.json\n"
      "  OstrelLab check default.json detections.jsonl --wait 20\n"
      "Exit codes: 0 all well, 1 expected and reported differ, 2 bad arguments or a faulty scenario,\n"
      "3 the lab could not go on (no host, no driver, a file that cannot be read)."};
  app.name("OstrelLab");
  app.set_version_flag("--version", OSTREL_VERSION);
  app.require_subcommand(1);
  // A path may begin with a slash.
  app.allow_windows_style_options(false);

  CLI::App* const play =
      app.add_subcommand("play", "Wait for a host, play the scenario to it, wait until it is done");
  AddScenario(play, options);
  AddWorkDirectory(play, options);
  play->add_option("--wait-host", options.hostWaitSeconds,
                   "Seconds to wait for a fitting host [default: 30]");

  CLI::App* const check =
      app.add_subcommand("check", "Compare the host's output with what the scenario expects");
  AddScenario(check, options);
  check->add_option("DETECTIONS", options.detections, "What the host printed: one JSON object per line")
      ->required();
  AddWorkDirectory(check, options);
  check->add_option("--wait", options.checkWaitSeconds,
                    "Seconds to wait until nothing that is expected is missing [default: 0]");

  CLI::App* const validate =
      app.add_subcommand("validate", "Only read the scenario and say what is wrong with it");
  AddScenario(validate, options);
  AddWorkDirectory(validate, options);
  CLI::App* const status =
      app.add_subcommand("status", "Print as JSON what both drivers and the filtering platform hold");
  app.add_subcommand("reset", "Set the drivers' counters to zero and forget events, records and messages");

  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? EXIT_AGREED : EXIT_BAD_INPUT;
  }
  if (*play) return Play(options);
  if (*check) return Check(options);
  if (*validate) return Validate(options);
  return *status ? Status() : Reset();
}

// As UTF-8, which the C runtime's own arguments are not.
std::vector<std::string> Arguments() {
  int count = 0;
  wchar_t** const words = CommandLineToArgvW(GetCommandLineW(), &count);
  if (words == nullptr) throw SystemError("read the command line");
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i) arguments.push_back(ToUtf8(words[i]));
  LocalFree(words);
  return arguments;
}

}  // namespace

int main() {
  // Plain line ends and UTF-8, whether the reader is a console or a program.
  _setmode(_fileno(stdout), _O_BINARY);
  SetConsoleOutputCP(CP_UTF8);
  try {
    return RunCommandLine(Arguments());
  } catch (const BadScenario&) {
    return EXIT_BAD_INPUT;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "OstrelLab: %s\n", error.what());
    return EXIT_LAB_FAILED;
  }
}
