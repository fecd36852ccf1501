#ifndef OSTREL_HOST_QUERY_H
#define OSTREL_HOST_QUERY_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ostrel::host {

struct Options;

// Neither is there when the library has nothing to tell, such as no proxy script.
struct QueryAnswer {
  std::optional<std::wstring> result;
  std::optional<std::wstring> error;
};

// A question that the library answers without its drivers.
struct Query {
  const char* name;
  const char* answer;  // what it is, for --help
  QueryAnswer (*ask)(const Options& options);
};
using Queries = std::vector<Query>;

// One line of JSON in UTF-8, without its line end; what is not there is null.
std::string QueryJson(std::string_view name, const QueryAnswer& answer);

}  // namespace ostrel::host

#endif
