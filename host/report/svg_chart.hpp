// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Charts as inline SVG: lines over time, with axes, marks and a legend; no scripts.
#ifndef HOST_REPORT_SVG_CHART_HPP
#define HOST_REPORT_SVG_CHART_HPP

#include <optional>
#include <string>
#include <vector>

namespace report
{

struct Point {
  double x; // seconds
  double y; // not a number: the line is broken here
};

/** A line; its colour is that of the style's class "series-STYLE". */
struct Series {
  std::string name;
  std::string style;
  std::vector<Point> points; // in order of x
};

/** A vertical line with a name. */
struct Mark {
  double x;
  std::string text;
};

struct Chart {
  std::string title;
  std::string unit; // of y
  std::vector<Series> series;
  std::vector<Mark> marks;
  double x_min = 0;
  double x_max = 0;
  bool from_zero = false; // the y axis includes 0
};

/**
 * Draws a chart, a <figure> with an <svg> as wide as its place, well-formed as XML. Points outside
 * x_min to x_max are left out; of many points at one place the extremes are drawn. A chart without
 * any point says so. Reentrant.
 */
std::string draw_chart (const Chart &chart);

/**
 * Round numbers for an axis from low to high, about so many of them, ascending, all within the
 * range: steps of 1, 2 or 5 times a power of ten. Empty when the range is none.
 */
std::vector<double> axis_ticks (double low, double high, int wanted);

/**
 * Thins points out to at most four for each of so many equal parts of x_min to x_max: the first,
 * the least, the most and the last of a part, and one break where there is any.
 */
std::vector<Point> thin_out (const std::vector<Point> &points, double x_min, double x_max,
                             int parts);

} // namespace report

#endif
