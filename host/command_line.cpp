#include "command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <memory>
#include <sstream>
#include <utility>

#include "utf8.h"

namespace ostrel::host {

namespace {

// What the minifilter can be told; it would drop the rest silently.
constexpr std::size_t MOST_PROCESSES = 64;
constexpr std::size_t MOST_EXCLUDED_PATHS = 200;
constexpr std::size_t MOST_CLOUD_PATHS = 10;
constexpr std::size_t LONGEST_USER_NAME = 255;

// Waiting times are given to Windows as 32-bit milliseconds.
constexpr std::uint32_t MOST_SECONDS = 4'000'000;

const char* const DESCRIPTION =
    "Reports which files the programs you name upload and download, and what cloud-drive\n"
    "clients do in their folders: one JSON object per detection on stdout, as it happens, and\n"
    "the log on stderr. Runs until Ctrl+C. Something to watch is needed: --watch,\n"
    "--cloud-process or both.\n"
    "\n"
    "Start it from an elevated prompt, with OstrelFilterLib.dll and the driver files\n"
    "OstrelFilter.inf, OstrelFilter.sys, OstrelNWFilter.inf and OstrelNWFilter.sys beside it,\n"
    "and for tab titles and files on network drives OstrelUserHelper.exe too. Its own folder\n"
    "becomes its current directory; paths that you give count from yours.\n"
    "It installs and loads the drivers itself. Only one host can run at a time: a second one\n"
    "takes the minifilter from the first, which then ends.\n"
    "\n"
    "A file is reported once it has not been touched for a minute. What was touched in the last\n"
    "minute before the end is not reported.";

const char* const FOOTER =
    "Examples:\n"
    "  What two browsers upload and download, except from the Windows folder:\n"
    "    OstrelHost.exe --watch chrome.exe,firefox.exe --exclude C:\\Windows\n"
    "  Detections into one file, the whole log into another, for ten minutes:\n"
    "    OstrelHost.exe --watch chrome.exe --log-level 7 --log-file host.log --for 600 > found.jsonl\n"
    "  Also which of anna's connections may have carried the files:\n"
    "    OstrelHost.exe --watch chrome.exe --user anna --remote-address-info\n"
    "  What a cloud client does in its folder:\n"
    "    OstrelHost.exe --cloud-process client.exe --cloud-path C:\\Users\\me\\Cloud\n"
    "  Who is logged on, as {\"query\":\"user\",\"result\":...,\"error\":...}, without any driver:\n"
    "    OstrelHost.exe --query user\n"
    "  Why a start fails, when the log does not tell:\n"
    "    OstrelHost.exe --self-check\n"
    "  Which account is logged in to a cloud client:\n"
    "    OstrelHost.exe --query cloud-login --provider OneDrive --home-directory C:\\Users\\anna\n"
    "\n"
    "Exit codes:\n"
    "  0  ended as asked\n"
    "  1  unexpected error\n"
    "  2  wrong command line\n"
    "  3  driver files are not beside OstrelFilterLib.dll\n"
    "  4  not elevated: the privilege to load drivers is missing\n"
    "  5  a driver could not be installed\n"
    "  6  the minifilter, or a thread of the library, could not be started\n"
    "  7  the minifilter refused the connection or the configuration, or went away\n"
    "  8  the minifilter could not be unloaded\n"
    "  9  stdout or the log file cannot be written\n"
    "  10 remote address info could not be switched on or off\n"
    "  11 the query failed; its error says why\n"
    "  12 the self-check found something that fails; its lines say what to do\n";

// Shows an option's value, and not what else it needs: an error says that in time.
class PlainFormatter : public CLI::Formatter {
 public:
  std::string make_option_opts(const CLI::Option* option) const override {
    return option->get_type_name().empty() ? "" : " " + option->get_type_name();
  }
};

struct Utf8Options {
  std::vector<std::string> watchedProcesses;
  std::vector<std::string> excludedPaths;
  std::vector<std::string> cloudProcesses;
  std::vector<std::string> cloudPaths;
  std::vector<std::string> excludedCloudPaths;
  std::string userName;
  bool remoteAddressInfo = false;
  unsigned driverOption = 0;
  bool tabTitles = false;
  bool noTabTitles = false;
  std::string logFile;
  std::uint32_t logLevel = LEVEL_NOTABLE;
  std::uint32_t seconds = 0;
  std::uint32_t refreshSeconds = 5;
  std::string query;
  bool selfCheck = false;
  std::string provider;
  std::string homeDirectory;
};

std::string CheckImageName(std::string& name) {
  CLI::detail::trim(name);
  if (name.empty()) return "an image name is empty";
  if (name.find_first_of("\\/:") == std::string::npos) return {};
  return "\"" + name + "\" is a path; give the image name alone, such as chrome.exe";
}

std::string CheckUserName(std::string& name) {
  return name.empty() ? "an account name is empty" : "";
}

std::string CheckProvider(std::string& name) {
  return name.empty() ? "a provider is empty" : "";
}

std::string CheckPath(std::string& path) {
  return path.empty() ? "a path is empty" : "";
}

// One value for each time the option is given, so that a path may look like anything; names may also be
// parted by commas.
CLI::Option* AddList(CLI::App& app, const char* name, std::vector<std::string>& values, const char* type,
                     const char* description, std::string (*check)(std::string&)) {
  return app.add_option(name, values, description)
      ->type_name(type)
      ->allow_extra_args(false)
      ->transform(CLI::Validator(check, ""));
}

CLI::Option* AddSeconds(CLI::App& app, const char* name, std::uint32_t& value, std::uint32_t least,
                        const char* description) {
  return app.add_option(name, value, description)
      ->type_name("SECONDS")
      ->check(CLI::Range(least, MOST_SECONDS).description(""));
}

void AddActivityOptions(CLI::App& app, Utf8Options& options) {
  CLI::Option* const watch =
      AddList(app, "--watch", options.watchedProcesses, "NAMES",
              "Report uploads and downloads of these programs, such as\nchrome.exe,firefox.exe; only "
              "whole names match, so write\nchrome.exe and not chrome",
              CheckImageName)
          ->delimiter(',');
  AddList(app, "--exclude", options.excludedPaths, "FOLDER",
          "Leave out what lies in this folder; may be given again", CheckPath)
      ->needs(watch);
  CLI::Option* const user = app.add_option("--user", options.userName,
                                           "Account name of the user whose connections\n"
                                           "--remote-address-info looks at")
                                ->type_name("NAME")
                                ->transform(CLI::Validator(CheckUserName, ""))
                                ->needs(watch);
  app.add_flag("--remote-address-info", options.remoteAddressInfo,
               "Report which connections may have carried a file. Needs\n"
               "--user and Windows' Base Filtering Engine; runs the network\n"
               "driver's service until the end, and registers persistent\n"
               "callouts with Windows, which stay")
      ->needs(user);
  app.add_option("--driver-option", options.driverOption, "Byte handed to the minifilter unchanged [0]")
      ->type_name("0..255")
      ->check(CLI::Range(0U, 255U).description(""))
      ->needs(watch);
  app.add_flag("--no-tab-titles", options.noTabTitles, "Do not look for tab titles")
      ->excludes(app.add_flag("--tab-titles", options.tabTitles,
                              "Report the tab titles that were open; the default"));
}

void AddCloudOptions(CLI::App& app, Utf8Options& options) {
  CLI::Option* const process = AddList(app, "--cloud-process", options.cloudProcesses, "NAMES",
                                       "Report what these cloud clients do in their folders", CheckImageName)
                                   ->delimiter(',');
  AddList(app, "--cloud-path", options.cloudPaths, "FOLDER",
          "A folder that they synchronise; may be given again", CheckPath)
      ->needs(process);
  AddList(app, "--cloud-exclude", options.excludedCloudPaths, "FOLDER",
          "A folder in there to leave out; may be given again", CheckPath)
      ->needs(process);
}

void AddRunOptions(CLI::App& app, Utf8Options& options) {
  app.add_option("--log-level", options.logLevel,
                 "3 errors only, 6 also changes of state and detections,\n7 everything [6]")
      ->type_name("3|6|7")
      ->check(CLI::IsMember({LEVEL_ERROR, LEVEL_NOTABLE, LEVEL_DETAIL}).description(""));
  app.add_option("--log-file", options.logFile, "Append the log to this file too")
      ->type_name("FILE")
      ->check(CLI::Validator(CheckPath, ""));
  AddSeconds(app, "--for", options.seconds, 1, "End after this time");
  AddSeconds(app, "--refresh", options.refreshSeconds, 0,
             "How often to look for programs started since and tell the\n"
             "minifilter about them; 0 is never [5]");
}

std::vector<std::string> NamesOf(const Queries& queries) {
  std::vector<std::string> names;
  for (const Query& query : queries) names.emplace_back(query.name);
  return names;
}

// Excludes every option so far, those that print something about the program itself excepted.
void StandAlone(CLI::App& app, CLI::Option* alone) {
  const auto others = app.get_options([&](const CLI::Option* option) {
    return option != alone && option != app.get_help_ptr() && option != app.get_version_ptr();
  });
  for (CLI::Option* const other : others) alone->excludes(other);
}

// To be added after all options of watching, which it excludes.
void AddQueryOptions(CLI::App& app, const Queries& queries, Utf8Options& options) {
  std::string description = "Print the library's answer to one question and end; no driver\nis needed:";
  for (const Query& each : queries) description += std::string("\n") + each.name + ": " + each.answer;
  CLI::Option* const option = app.add_option("--query", options.query, description)
                                  ->type_name("NAME")
                                  ->check(CLI::IsMember(NamesOf(queries)).description(""));
  StandAlone(app, option);
  app.add_option("--provider", options.provider, "The cloud storage provider, such as OneDrive or iCloud")
      ->type_name("NAME")
      ->check(CLI::Validator(CheckProvider, ""));
  app.add_option("--home-directory", options.homeDirectory,
                 "The home directory of the user, such as C:\\Users\\anna")
      ->type_name("FOLDER")
      ->check(CLI::Validator(CheckPath, ""));
}

// To be added last.
void AddSelfCheckOption(CLI::App& app, Utf8Options& options) {
  StandAlone(app, app.add_flag("--self-check", options.selfCheck,
                               "Say what of all that a host needs is there, one line each, and\n"
                               "what to do about the rest, and end; loads and changes nothing"));
}

void RequireAtMost(const char* option, const std::vector<std::string>& values, std::size_t most) {
  if (values.size() <= most) return;
  throw CLI::ValidationError(option, "at most " + std::to_string(most) + " are possible, " +
                                         std::to_string(values.size()) + " are given");
}

void CheckTogether(const Utf8Options& options) {
  const bool watches = !options.watchedProcesses.empty() || !options.cloudProcesses.empty();
  if (!watches && options.query.empty() && !options.selfCheck) {
    throw CLI::ValidationError("Nothing to watch",
                               "name programs with --watch, such as --watch chrome.exe, "
                               "or cloud clients with --cloud-process");
  }
  RequireAtMost("--watch", options.watchedProcesses, MOST_PROCESSES);
  RequireAtMost("--exclude", options.excludedPaths, MOST_EXCLUDED_PATHS);
  RequireAtMost("--cloud-process", options.cloudProcesses, MOST_PROCESSES);
  RequireAtMost("--cloud-path", options.cloudPaths, MOST_CLOUD_PATHS);
  RequireAtMost("--cloud-exclude", options.excludedCloudPaths, MOST_CLOUD_PATHS);
  if (ToUtf16(options.userName).size() > LONGEST_USER_NAME) {
    throw CLI::ValidationError("--user", "longer than 255 characters");
  }
}

std::vector<std::wstring> ToUtf16(const std::vector<std::string>& texts) {
  std::vector<std::wstring> converted;
  converted.reserve(texts.size());
  for (const std::string& text : texts) converted.push_back(host::ToUtf16(text));
  return converted;
}

std::optional<Query> FindQuery(const Queries& queries, const std::string& name) {
  const auto found =
      std::find_if(queries.begin(), queries.end(), [&](const Query& query) { return query.name == name; });
  return found == queries.end() ? std::nullopt : std::optional(*found);
}

Options Converted(const Utf8Options& options, const Queries& queries) {
  return {
      .watchedProcesses = ToUtf16(options.watchedProcesses),
      .excludedPaths = ToUtf16(options.excludedPaths),
      .cloudProcesses = ToUtf16(options.cloudProcesses),
      .cloudPaths = ToUtf16(options.cloudPaths),
      .excludedCloudPaths = ToUtf16(options.excludedCloudPaths),
      .userName = host::ToUtf16(options.userName),
      .remoteAddressInfo = options.remoteAddressInfo,
      .driverOption = static_cast<std::uint8_t>(options.driverOption),
      .tabTitles = !options.noTabTitles,
      .logLevel = options.logLevel,
      .logFile = host::ToUtf16(options.logFile),
      .seconds = options.seconds == 0 ? std::nullopt : std::optional(options.seconds),
      .refreshSeconds = options.refreshSeconds,
      .query = FindQuery(queries, options.query),
      .selfCheck = options.selfCheck,
      .provider = host::ToUtf16(options.provider),
      .homeDirectory = host::ToUtf16(options.homeDirectory),
  };
}

void CheckLogin(const Options& options) {
  const bool isAsked = options.query && options.query->isAboutLogin;
  if (isAsked && (options.provider.empty() || options.homeDirectory.empty())) {
    throw CLI::ValidationError(std::string("--query ") + options.query->name,
                               "needs --provider and --home-directory");
  }
  if (!isAsked && !(options.provider.empty() && options.homeDirectory.empty())) {
    throw CLI::ValidationError("--provider and --home-directory", "only a query about a login takes them");
  }
}

// The parser wants them last first, as UTF-8.
std::vector<std::string> Reversed(const std::vector<std::wstring>& arguments) {
  std::vector<std::string> reversed;
  std::transform(arguments.rbegin(), arguments.rend(), std::back_inserter(reversed), ToUtf8);
  return reversed;
}

}  // namespace

CommandLine ParseCommandLine(const std::vector<std::wstring>& arguments, const Queries& queries) {
  Utf8Options options;
  CLI::App app(DESCRIPTION, "OstrelHost");
  // A path may begin with a slash.
  app.allow_windows_style_options(false);
  app.set_help_flag("-h,--help", "Print this text and end");
  app.set_version_flag("--version", "OstrelHost " OSTREL_VERSION, "Print the version and end");
  app.footer(FOOTER);
  app.formatter(std::make_shared<PlainFormatter>());
  AddActivityOptions(app, options);
  AddCloudOptions(app, options);
  AddRunOptions(app, options);
  AddQueryOptions(app, queries, options);
  AddSelfCheckOption(app, options);
  try {
    app.parse(Reversed(arguments));
    CheckTogether(options);
    Options converted = Converted(options, queries);
    CheckLogin(converted);
    return {.options = std::move(converted), .exitCode = ExitCode::Success, .text = {}};
  } catch (const CLI::ParseError& error) {
    std::ostringstream output;
    std::ostringstream errors;
    if (app.exit(error, output, errors) == 0) {
      return {.options = {}, .exitCode = ExitCode::Success, .text = output.str()};
    }
    return {.options = {}, .exitCode = ExitCode::Usage, .text = errors.str()};
  }
}

}  // namespace ostrel::host
