#include "report.h"

#include <ctype.h>
#include <stdarg.h>
#include <stdio.h>

#include <algorithm>
#include <cmath>

namespace ctl {
namespace {

constexpr double kWidth = 1000, kHeight = 1000;  // the plot's own units
constexpr int kPlaces = 700;                     // more points than pixels tell nothing

[[gnu::format(printf, 1, 2)]] std::string text_of(const char* format, ...) {
  char text[512];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof text, format, args);
  va_end(args);
  return text;
}

// "rsrp_rx0" is the RSRP of antenna rx0; a name without an antenna is a quantity of its own.
std::pair<std::string, std::string> split_name(const std::string& value) {
  const size_t at = value.find_last_of('_');
  if (at == std::string::npos || at + 1 == value.size()) return {value, ""};
  const std::string last = value.substr(at + 1);
  const bool is_antenna =
      last.starts_with("rx") || last.starts_with("tx") || (last.size() == 1 && isdigit(last[0]));
  return is_antenna ? std::pair(value.substr(0, at), last) : std::pair(value, std::string());
}

std::string clock_text(double seconds) {
  const auto all = static_cast<long>(std::lround(seconds));
  if (all >= 3600) return text_of("%ld:%02ld:%02ld", all / 3600, all / 60 % 60, all % 60);
  return text_of("%ld:%02ld", all / 60, all % 60);
}

// A step that a person would choose for about `count` ticks over `range`.
double nice_step(double range, int count) {
  const double rough = range / count;
  const double magnitude = std::pow(10, std::floor(std::log10(rough)));
  for (const double factor : {1.0, 2.0, 5.0}) {
    if (factor * magnitude >= rough) return factor * magnitude;
  }
  return 10 * magnitude;
}

// The same of seconds.
double time_step(double range) {
  for (const double step : {0.1, 0.2, 0.5, 1.0, 2.0, 5.0, 10.0, 15.0, 30.0, 60.0, 120.0, 300.0,
                            600.0, 900.0, 1800.0, 3600.0, 7200.0}) {
    if (range / step <= 8) return step;
  }
  return 14400;
}

std::string number(double value) {
  return text_of(std::abs(value - std::round(value)) < 0.005 ? "%.0f" : "%.1f", value);
}

constexpr const char* kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>%TITLE%</title>
<style>
:root { color-scheme: light dark; --ink: #1b1f24; --soft: #5b6570; --paper: #fff; --line: #d9dee3;
  --gap: #f3e3e0; --c0: #0067b1; --c1: #c65102; --c2: #00795a; --c3: #a23b83; }
@media (prefers-color-scheme: dark) { :root { --ink: #e8eaed; --soft: #a0a8b2; --paper: #14171a;
  --line: #343a41; --gap: #3d2623; --c0: #6bb7f5; --c1: #f0a35c; --c2: #4fd0a8; --c3: #eb98cf; } }
body { margin: 0 auto; max-width: 70rem; padding: 1rem; background: var(--paper); color: var(--ink);
  font: 15px/1.45 system-ui, sans-serif; }
h1 { font-size: 1.35rem; margin: .2rem 0; }
h2 { font-size: 1.1rem; margin: 2rem 0 .2rem; }
p { margin: .2rem 0 1rem; color: var(--soft); }
figure { margin: 1.2rem 0 1.8rem; }
figcaption { font-weight: 600; margin-bottom: .4rem; }
figcaption span { font-weight: 400; color: var(--soft); }
.plot { position: relative; height: 15rem; margin: 0 .6rem 1.6rem 3.4rem; }
.plot svg { display: block; width: 100%; height: 100%; overflow: visible; }
.plot i { position: absolute; font-style: normal; font-size: .8rem; color: var(--soft);
  font-variant-numeric: tabular-nums; }
.plot .y { right: calc(100% + .5rem); transform: translateY(-50%); }
.plot .x { top: calc(100% + .25rem); transform: translateX(-50%); }
.grid { stroke: var(--line); stroke-width: 1; }
.gap { fill: var(--gap); }
path { fill: none; stroke-width: 1.6; stroke-linejoin: round; }
path, line { vector-effect: non-scaling-stroke; }
.l0 { stroke: var(--c0); } .l1 { stroke: var(--c1); } .l2 { stroke: var(--c2); }
.l3 { stroke: var(--c3); }
table { border-collapse: collapse; font-size: .88rem; font-variant-numeric: tabular-nums; }
th, td { text-align: right; padding: .12rem .9rem .12rem 0; font-weight: 400; }
th { color: var(--soft); }
th:first-child, td:first-child { text-align: left; }
b.k { display: inline-block; width: 1.1rem; height: .2rem; margin-right: .45rem;
  vertical-align: middle; }
.k0 { background: var(--c0); } .k1 { background: var(--c1); } .k2 { background: var(--c2); }
.k3 { background: var(--c3); }
@media (max-width: 40rem) { .plot { height: 11rem; margin-left: 2.7rem; }
  .plot .x:nth-of-type(even) { display: none; } th, td { padding-right: .6rem; } }
</style>
</head>
<body>
)";

}  // namespace

void Report::add(const std::string& statistic, const std::string& unit, const std::string& value,
                 double seconds, double level) {
  const auto parts = split_name(value);
  const auto& [quantity, antenna] = parts;
  auto plot = std::find_if(plots_.begin(), plots_.end(), [&](const Plot& one) {
    return one.statistic == statistic && one.quantity == parts.first;
  });
  if (plot == plots_.end()) {
    plot = plots_.insert(plots_.end(), Plot{statistic, quantity, unit, {}});
  }
  plot->lines[antenna].push_back({static_cast<float>(seconds), static_cast<float>(level)});
}

void Report::away(double from, double to) {
  gaps_.push_back({from, to});
}

void Report::Range::take(double level) {
  if (!std::isfinite(level)) return;
  low = std::min(low, level);
  high = std::max(high, level);
}

Report::Range Report::range_of(const Plot& plot) {
  Range range;
  for (const auto& [antenna, points] : plot.lines) {
    for (const Point& point : points) range.take(point.level);
  }
  return range;
}

struct Report::Scale {
  double end, low, high;
  double x(double seconds) const { return seconds / end * kWidth; }
  double y(double level) const { return kHeight - (level - low) / (high - low) * kHeight; }
  int place(double seconds) const { return static_cast<int>(seconds / end * kPlaces); }
};

// Of the points that fall on one place the lowest and the highest are drawn, in their order. What
// is no number, or behind a gap, begins a new stroke.
std::string Report::path(const std::vector<Point>& points, const Scale& scale) const {
  std::string out;
  size_t gap = 0;
  bool pen_down = false;
  const auto draw = [&](const Point& point) {
    out +=
        text_of("%c%.1f %.1f", pen_down ? 'L' : 'M', scale.x(point.seconds), scale.y(point.level));
    pen_down = true;
  };
  for (size_t i = 0, behind; i < points.size(); i = behind) {
    const int place = scale.place(points[i].seconds);
    const Point *lowest = nullptr, *highest = nullptr;
    bool broken = false;
    for (behind = i; behind < points.size(); ++behind) {
      const Point& point = points[behind];
      if (scale.place(point.seconds) != place) break;
      broken = broken || !std::isfinite(point.level);
      if (!std::isfinite(point.level)) continue;
      if (lowest == nullptr || point.level < lowest->level) lowest = &point;
      if (highest == nullptr || point.level > highest->level) highest = &point;
    }
    for (; gap < gaps_.size() && gaps_[gap].from <= points[i].seconds; ++gap) pen_down = false;
    if (lowest != nullptr) {
      draw(*std::min(lowest, highest));
      if (lowest != highest) draw(*std::max(lowest, highest));
    }
    if (broken) pen_down = false;
  }
  return out;
}

std::string Report::figure(const Plot& plot, double end) const {
  Range range = range_of(plot);
  if (!(range.low <= range.high)) range = {0, 1};
  const double step = nice_step(std::max(range.high - range.low, 1.0), 5);
  // No line lies on the border.
  const double margin = step / 4;
  const double low = std::floor((range.low - margin) / step) * step;
  const Scale scale{end, low, std::ceil((range.high + margin) / step) * step};

  std::string out = text_of(
      "<div class=\"plot\"><svg viewBox=\"0 0 %.0f %.0f\" preserveAspectRatio=\"none\" "
      "role=\"img\" aria-label=\"%s over time\">\n",
      kWidth, kHeight, plot.quantity.c_str());
  for (const Gap& gap : gaps_) {
    const double from = scale.x(gap.from), width = scale.x(gap.to) - from;
    out += text_of("<rect class=\"gap\" x=\"%.1f\" y=\"0\" width=\"%.1f\" height=\"%.0f\"/>\n",
                   from, std::max(width, 1.0), kHeight);
  }
  std::string labels, times;
  for (double level = low; level <= scale.high + step / 2; level += step) {
    const double y = scale.y(level);
    out += text_of("<line class=\"grid\" x1=\"0\" x2=\"%.0f\" y1=\"%.1f\" y2=\"%.1f\"/>\n", kWidth,
                   y, y);
    labels += text_of("<i class=\"y\" style=\"top:%.1f%%\">%s</i>", y / kHeight * 100,
                      number(level).c_str());
  }
  for (double at = 0; at <= end * 1.0001; at += time_step(end)) {
    times += text_of("<i class=\"x\" style=\"left:%.1f%%\">%s</i>", at / end * 100,
                     end < 8 ? text_of("%.1fs", at).c_str() : clock_text(at).c_str());
  }
  int colour = 0;
  for (const auto& [antenna, points] : plot.lines) {
    out += text_of("<path class=\"l%d\" d=\"", colour++ % 4) + path(points, scale) + "\"/>\n";
  }
  return out + "</svg>\n" + labels + "<div>" + times + "</div></div>\n";
}

std::string Report::table(const Plot& plot) {
  std::string out = "<table><tr><th></th><th>last</th><th>mean</th><th>min</th><th>max</th></tr>\n";
  int colour = 0;
  for (const auto& [antenna, points] : plot.lines) {
    Range range;
    double sum = 0, last = NAN;
    size_t count = 0;
    for (const Point& point : points) {
      range.take(point.level);
      if (!std::isfinite(point.level)) continue;
      sum += point.level;
      last = point.level;
      ++count;
    }
    out += text_of("<tr><td><b class=\"k k%d\"></b>%s</td>", colour++ % 4,
                   antenna.empty() ? plot.quantity.c_str() : antenna.c_str());
    if (count == 0) {
      out += "<td colspan=\"4\">no value</td></tr>\n";
      continue;
    }
    out += text_of("<td>%.2f</td><td>%.2f</td><td>%.2f</td><td>%.2f</td></tr>\n", last,
                   sum / static_cast<double>(count), range.low, range.high);
  }
  return out + "</table>\n";
}

std::string Report::page(const std::string& title, const std::string& begun) const {
  double end = 0;
  size_t values = 0;
  for (const Plot& plot : plots_) {
    for (const auto& [antenna, points] : plot.lines) {
      values += points.size();
      if (!points.empty()) end = std::max(end, double{points.back().seconds});
    }
  }
  for (const Gap& gap : gaps_) end = std::max(end, gap.to);
  end = std::max(end, 0.001);
  std::string out = kHead;
  out.replace(out.find("%TITLE%"), 7, title);
  out += "<h1>" + title + "</h1>\n<p>" + begun + ", " + clock_text(end) + " long, " +
         std::to_string(values) + " values";
  if (!gaps_.empty()) {
    double away = 0;
    for (const Gap& gap : gaps_) away += gap.to - gap.from;
    out += text_of("; the modem was away %zu time%s, %.1f s in all (shaded)", gaps_.size(),
                   gaps_.size() == 1 ? "" : "s", away);
  }
  out += "</p>\n";
  std::string statistic;
  bool in_facts = false;
  for (const Plot& plot : plots_) {
    const bool is_new = plot.statistic != statistic;
    if (in_facts && is_new) out += "</p>\n";
    in_facts = in_facts && !is_new;
    if (is_new) out += "<h2>" + plot.statistic + "</h2>\n";
    statistic = plot.statistic;
    // What never changes is a fact, not a plot.
    const Range range = range_of(plot);
    if (plot.lines.size() == 1 && range.low == range.high) {
      out += (in_facts ? ", " : "<p>always ") + plot.quantity + " " + number(range.low);
      in_facts = true;
      continue;
    }
    if (in_facts) out += "</p>\n";
    in_facts = false;
    out += "<figure><figcaption>" + plot.quantity +
           (plot.unit.empty() ? "" : " <span>" + plot.unit + "</span>") + "</figcaption>\n" +
           figure(plot, end) + table(plot) + "</figure>\n";
  }
  return out + (in_facts ? "</p>\n" : "") + "</body>\n</html>\n";
}

}  // namespace ctl
