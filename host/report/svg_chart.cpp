// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "svg_chart.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "text.hpp"

namespace report
{

namespace
{

// In the SVG's own units; the page scales it to its place.
constexpr double width = 900;
constexpr double height = 260;
constexpr double left = 64;
constexpr double right = width - 14;
constexpr double top = 26; // room for the marks' names
constexpr double bottom = height - 34;
constexpr int plot_columns = static_cast<int> (right - left) / 2;

struct Range {
  double low;
  double high;
};

/** Where points of the chart are drawn. */
class Plot
{
public:
  Plot (Range x, Range y) : x_ (x), y_ (y) {}
  std::string x (double value) const
  {
    return fixed (left + (value - x_.low) / (x_.high - x_.low) * (right - left), 1);
  }
  std::string y (double value) const
  {
    return fixed (bottom - (value - y_.low) / (y_.high - y_.low) * (bottom - top), 1);
  }
  const Range &x_range () const { return x_; }
  const Range &y_range () const { return y_; }

private:
  Range x_;
  Range y_;
};

/** A chart's y range with some room; one value alone gets a range around it. */
std::optional<Range> y_range_of (const Chart &chart, const Range &x)
{
  Range range = {std::numeric_limits<double>::infinity (),
                 -std::numeric_limits<double>::infinity ()};
  for (const Series &series : chart.series)
    for (const Point &point : series.points)
      if (std::isfinite (point.y) && point.x >= x.low && point.x <= x.high) {
        range.low = std::min (range.low, point.y);
        range.high = std::max (range.high, point.y);
      }
  if (range.low > range.high)
    return std::nullopt;
  if (chart.from_zero) {
    range.low = std::min (range.low, 0.0);
    range.high = std::max (range.high, 0.0);
  }
  const double span = range.high - range.low;
  const double room = span > 0 ? span * 0.06 : std::max (std::abs (range.high) * 0.1, 1e-3);
  if (!chart.from_zero || range.low < 0)
    range.low -= room;
  range.high += room;
  return range;
}

int decimals_of (const std::vector<double> &ticks)
{
  if (ticks.size () < 2)
    return 1;
  const double step = ticks[1] - ticks[0];
  return std::clamp (static_cast<int> (std::ceil (-std::log10 (step) - 1e-9)), 0, 9);
}

std::string line (const std::string &style, const std::string &x1, const std::string &y1,
                  const std::string &x2, const std::string &y2)
{
  return "<line class=\"" + style + "\" x1=\"" + x1 + "\" y1=\"" + y1 + "\" x2=\"" + x2 +
         "\" y2=\"" + y2 + "\"/>\n";
}

std::string label (const std::string &style, const std::string &x, const std::string &y,
                   const std::string &text)
{
  return "<text class=\"" + style + "\" x=\"" + x + "\" y=\"" + y + "\">" + escape_markup (text) +
         "</text>\n";
}

std::string axes (const Plot &plot)
{
  std::string svg;
  const auto y_ticks = axis_ticks (plot.y_range ().low, plot.y_range ().high, 5);
  for (const double tick : y_ticks) {
    svg += line ("grid", fixed (left, 1), plot.y (tick), fixed (right, 1), plot.y (tick));
    svg +=
        label ("tick y", fixed (left - 8, 1), plot.y (tick), fixed (tick, decimals_of (y_ticks)));
  }
  const auto x_ticks = axis_ticks (plot.x_range ().low, plot.x_range ().high, 10);
  for (const double tick : x_ticks)
    svg += label ("tick x", plot.x (tick), fixed (bottom + 18, 1),
                  fixed (tick, decimals_of (x_ticks)) + " s");
  return svg +
         line ("axis", fixed (left, 1), fixed (bottom, 1), fixed (right, 1), fixed (bottom, 1));
}

std::string marks (const Chart &chart, const Plot &plot)
{
  std::string svg;
  for (const Mark &mark : chart.marks) {
    if (!(mark.x >= plot.x_range ().low && mark.x <= plot.x_range ().high))
      continue;
    svg += "<g class=\"mark\"><title>" + escape_markup (mark.text) + "</title>";
    svg += line ("mark", plot.x (mark.x), fixed (top - 8, 1), plot.x (mark.x), fixed (bottom, 1));
    svg +=
        "<path d=\"M " + plot.x (mark.x) + " " + fixed (top - 4, 1) + " l -4 -8 l 8 0 z\"/></g>\n";
  }
  return svg;
}

/** One line from break to break; a point alone is a dot. */
void add_run (std::string *svg, const std::string &style, const std::vector<std::string> &run)
{
  if (run.size () == 1) {
    const auto comma = run[0].find (',');
    *svg += "<circle class=\"dot series-" + style + "\" cx=\"" + run[0].substr (0, comma) +
            "\" cy=\"" + run[0].substr (comma + 1) + "\" r=\"2.5\"/>\n";
  }
  if (run.size () < 2)
    return;
  *svg += "<polyline class=\"series-" + style + "\" points=\"";
  for (size_t i = 0; i < run.size (); i++)
    *svg += (i > 0 ? " " : "") + run[i];
  *svg += "\"/>\n";
}

std::string lines (const Series &series, const Plot &plot)
{
  std::string svg;
  std::vector<std::string> run;
  for (const Point &point :
       thin_out (series.points, plot.x_range ().low, plot.x_range ().high, plot_columns)) {
    if (std::isfinite (point.y)) {
      run.push_back (plot.x (point.x) + "," + plot.y (point.y));
      continue;
    }
    add_run (&svg, series.style, run);
    run.clear ();
  }
  add_run (&svg, series.style, run);
  return svg;
}

std::string legend (const Chart &chart)
{
  if (chart.series.size () < 2)
    return {};
  std::string html = "<span class=\"legend\">";
  for (const Series &series : chart.series)
    html += "<span class=\"key series-" + series.style + "\">" + escape_markup (series.name) +
            "</span>";
  return html + "</span>";
}

} // namespace

std::vector<double> axis_ticks (double low, double high, int wanted)
{
  std::vector<double> ticks;
  if (!(high > low) || !std::isfinite (high - low) || wanted < 1)
    return ticks;
  const double rough = (high - low) / wanted;
  const double power = std::pow (10, std::floor (std::log10 (rough)));
  double step = power;
  for (const double factor : {2.0, 5.0, 10.0})
    if (step < rough * 0.999)
      step = factor * power;
  const double first = std::ceil (low / step - 1e-9);
  const double last = std::floor (high / step + 1e-9);
  if (!(last - first < 1000)) // steps that vanish beside the numbers
    return ticks;
  const int steps = static_cast<int> (last - first);
  for (int i = 0; i <= steps; i++)
    ticks.push_back ((first + i) * step);
  return ticks;
}

std::vector<Point> thin_out (const std::vector<Point> &points, double x_min, double x_max,
                             int parts)
{
  std::vector<Point> result;
  std::vector<Point> part;
  bool broken = false;
  const auto flush = [&] {
    if (!part.empty ()) {
      // Indices in order, each once: the line keeps its shape.
      const auto [least, most] = std::minmax_element (
          part.begin (), part.end (), [] (const Point &a, const Point &b) { return a.y < b.y; });
      std::vector<size_t> kept = {0, static_cast<size_t> (least - part.begin ()),
                                  static_cast<size_t> (most - part.begin ()), part.size () - 1};
      std::sort (kept.begin (), kept.end ());
      kept.erase (std::unique (kept.begin (), kept.end ()), kept.end ());
      for (const size_t i : kept)
        result.push_back (part[i]);
    }
    part.clear ();
  };
  const double part_width = (x_max - x_min) / parts;
  double current = -1;
  for (const Point &point : points) {
    if (!(point.x >= x_min && point.x <= x_max))
      continue;
    const double index = part_width > 0 ? std::floor ((point.x - x_min) / part_width) : 0;
    if (index != current) {
      flush ();
      current = index;
      broken = false;
    }
    if (std::isfinite (point.y)) {
      part.push_back (point);
    } else if (!broken) {
      flush ();
      if (!result.empty ())
        result.push_back ({point.x, std::numeric_limits<double>::quiet_NaN ()});
      broken = true;
    }
  }
  flush ();
  return result;
}

std::string draw_chart (const Chart &chart)
{
  const std::string heading =
      "<figure class=\"chart\">\n<figcaption>" + escape_markup (chart.title) +
      (chart.unit.empty () ? "" : " <span class=\"unit\">") + escape_markup (chart.unit) +
      (chart.unit.empty () ? "" : "</span>") + legend (chart) + "</figcaption>\n";
  // A run that was over at once still has an axis.
  const Range x = {chart.x_min, chart.x_max > chart.x_min ? chart.x_max : chart.x_min + 1};
  const auto y = y_range_of (chart, x);
  if (!y)
    return heading + "<p class=\"empty\">No data</p>\n</figure>\n";
  const Plot plot (x, *y);
  std::string svg = "<svg viewBox=\"0 0 " + fixed (width, 0) + " " + fixed (height, 0) +
                    "\" role=\"img\" aria-label=\"" + escape_markup (chart.title) + "\">\n" +
                    axes (plot) + marks (chart, plot);
  for (const Series &series : chart.series)
    svg += lines (series, plot);
  return heading + svg + "</svg>\n</figure>\n";
}

} // namespace report
