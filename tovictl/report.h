// A self-contained page of what `watch` has seen: a plot of each value by antenna, as inline SVG,
// with gaps where the modem was away. Nothing is fetched.
#pragma once

#include <cmath>
#include <map>
#include <string>
#include <vector>

namespace ctl {

class Report {
 public:
  // A value of a statistic: `seconds` since the beginning. Values that differ only in the antenna
  // at the end of their names share a plot. What has not a number breaks the line.
  void add(const std::string& statistic, const std::string& unit, const std::string& value,
           double seconds, double level);
  // The modem was away from then on, and back.
  void away(double from, double to);

  std::string page(const std::string& title, const std::string& begun) const;

 private:
  struct Point {
    float seconds, level;
  };
  using Lines = std::map<std::string, std::vector<Point>>;  // by antenna
  struct Plot {
    std::string statistic, quantity, unit;
    Lines lines;
  };
  struct Gap {
    double from, to;
  };

  struct Scale;
  struct Range {
    double low = INFINITY, high = -INFINITY;
    void take(double level);
  };

  static Range range_of(const Plot& plot);
  static std::string table(const Plot& plot);
  std::string path(const std::vector<Point>& points, const Scale& scale) const;
  std::string figure(const Plot& plot, double end) const;

  std::vector<Plot> plots_;
  std::vector<Gap> gaps_;
};

}  // namespace ctl
