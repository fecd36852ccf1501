#include "figures.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace ostrel::bench {

namespace {

std::string Number(double value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%.6g", value);
  return text;
}

}  // namespace

double Quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

void Figures::Add(const std::string& name, const std::string& unit, const std::vector<double>& library,
                  const std::vector<double>& alternative) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < library.size(); ++i) ratios.push_back(library[i] / alternative[i]);
  figures_[name] = "{\"library\": " + Number(Quantile(library, 0.5)) +
                   ", \"alternative\": " + Number(Quantile(alternative, 0.5)) +
                   ", \"ratio\": " + Number(Quantile(ratios, 0.5)) + ", \"unit\": \"" + unit + "\"}";
}

void Figures::Add(const std::string& name, const std::string& unit, double value) {
  figures_[name] = "{\"library\": " + Number(value) + ", \"unit\": \"" + unit + "\"}";
}

void Figures::AddPoint(const std::string& series, double x, double y) {
  std::string& points = points_[series];
  points += (points.empty() ? "[" : ", [") + Number(x) + ", " + Number(y) + "]";
}

void Figures::Write(const std::filesystem::path& file) const {
  std::ofstream stream(file, std::ios::binary);
  stream << "{\n\"figures\": {";
  const char* separator = "\n";
  for (const auto& [name, figure] : figures_) {
    stream << separator << "  \"" << name << "\": " << figure;
    separator = ",\n";
  }
  stream << "\n},\n\"points\": {";
  separator = "\n";
  for (const auto& [series, points] : points_) {
    stream << separator << "  \"" << series << "\": [" << points << "]";
    separator = ",\n";
  }
  stream << "\n}\n}\n";
  stream.close();
  if (!stream) throw std::runtime_error("cannot write " + file.string());
}

Rounds TakeTurns(int rounds, const Contender& library, const Contender& alternative) {
  Rounds taken;
  for (int round = 0; round < rounds; ++round) {
    if (round % 2 == 0) library(taken.library);
    alternative(taken.alternative);
    if (round % 2 == 1) library(taken.library);
  }
  return taken;
}

}  // namespace ostrel::bench
