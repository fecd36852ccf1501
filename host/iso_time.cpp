#include "iso_time.h"

#include <chrono>
#include <cstdio>

namespace ostrel::host {

std::string IsoTime(std::uint64_t milliseconds) {
  using namespace std::chrono;
  if (milliseconds > LAST_ISO_TIME) return {};
  const sys_time<std::chrono::milliseconds> time{
      std::chrono::milliseconds{static_cast<std::int64_t>(milliseconds)}};
  const sys_days day = floor<days>(time);
  const year_month_day date{day};
  const hh_mm_ss clock{time - day};
  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
  return text;
}

std::uint64_t MillisecondsNow() {
  using namespace std::chrono;
  return static_cast<std::uint64_t>(
      duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

}  // namespace ostrel::host
