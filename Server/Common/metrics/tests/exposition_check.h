// Checks for Prometheus text in tests: that it reads as format 0.0.4 does,
// and the value of one series.
#pragma once

#include <regex>
#include <sstream>
#include <string>

namespace metricstest {

// Empty when every sample line belongs to the family announced (HELP, then
// TYPE) before it and has the form name{label="value",...} number; else
// the first line that does not.
inline std::string FirstBadLine(const std::string& text) {
  static const std::regex kSample(R"(([a-z_:][a-z0-9_:]*)(\{([a-z_][a-z0-9_]*="([^"\\\n]|\\[\\"n])*",?)*\})? (-?[0-9.e+-]+|\+Inf|NaN))");
  static const std::regex kType(R"(# TYPE [a-z_:][a-z0-9_:]* (counter|gauge|histogram))");
  std::string family;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("# HELP ", 0) == 0) {
      family = line.substr(7, line.find(' ', 7) - 7);
      continue;
    }
    if (line.rfind("# TYPE " + family + " ", 0) == 0 && std::regex_match(line, kType)) continue;
    std::smatch match;
    if (!std::regex_match(line, match, kSample) || match[1].str().rfind(family, 0) != 0) return line;
  }
  return "";
}

// A sample's value; 0 for a series not shown (a counter never moved).
inline double Sample(const std::string& text, const std::string& series) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, series.size() + 1, series + " ") == 0) return std::stod(line.substr(series.size() + 1));
  }
  return 0;
}

}  // namespace metricstest
