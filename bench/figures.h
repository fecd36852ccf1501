#ifndef OSTREL_BENCH_FIGURES_H
#define OSTREL_BENCH_FIGURES_H

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace ostrel::bench {

// The value below which that part of the values lies.
double Quantile(std::vector<double> values, double part);

// What a program has measured, as one JSON object of two: "figures", {"name": {"library": 1.2, "alternative":
// 1.1, "ratio": 1.09, "unit": "us"}}, of which one whose limit is absolute has neither alternative nor ratio;
// and "points" to be plotted, {"series": [[1000, 0.8], [10000, 0.9]]}.
class Figures {
 public:
  // Medians of the rounds. The ratio is the median of the rounds' own ratios, so that whatever slows the
  // machine down for a while meets both sides of it.
  void Add(const std::string& name, const std::string& unit, const std::vector<double>& library,
           const std::vector<double>& alternative);
  void Add(const std::string& name, const std::string& unit, double value);
  void AddPoint(const std::string& series, double x, double y);

  // Throws std::runtime_error when the file cannot be written.
  void Write(const std::filesystem::path& file) const;

 private:
  // Name to JSON.
  std::map<std::string, std::string> figures_;
  std::map<std::string, std::string> points_;
};

// A side of a comparison: runs one round and adds to `values` what it took.
using Contender = std::function<void(std::vector<double>& values)>;

struct Rounds {
  std::vector<double> library;
  std::vector<double> alternative;
};

// Both sides in turns; each goes first every other time.
Rounds TakeTurns(int rounds, const Contender& library, const Contender& alternative);

}  // namespace ostrel::bench

#endif
