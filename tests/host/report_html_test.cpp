// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The page of a run: charts with their coordinates, and a document that a strict parser takes.
#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "report/html.hpp"
#include "report/html_charts.hpp"
#include "report/svg_chart.hpp"
#include "report_support.hpp"
#include <vorn/raii.hpp>

using namespace report;
using namespace report_support;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace
{

constexpr double nan = std::numeric_limits<double>::quiet_NaN ();

/** An element as the parser met it. */
struct Element {
  std::string name;
  std::map<std::string, std::string> attributes;
  std::string text; // directly in it
};

/** All elements of a document, in order of their begin; fails the test when it is not well-formed.
 */
class Document
{
public:
  explicit Document (const std::string &text)
  {
    static constexpr GMarkupParser parser = {begin, end, characters, nullptr, nullptr};
    const vorn::Owned<GMarkupParseContext, g_markup_parse_context_free> context (
        g_markup_parse_context_new (&parser, static_cast<GMarkupParseFlags> (0), this, nullptr));
    vorn::ErrorOut error;
    EXPECT_TRUE (g_markup_parse_context_parse (context.get (), text.data (),
                                               static_cast<gssize> (text.size ()), error.out ()) &&
                 g_markup_parse_context_end_parse (context.get (), error.out ()))
        << error.message ();
  }

  std::vector<Element> all (const std::string &name, const std::string &style = {}) const
  {
    std::vector<Element> found;
    std::copy_if (elements_.begin (), elements_.end (), std::back_inserter (found),
                  [&] (const Element &element) {
                    const auto it = element.attributes.find ("class");
                    return element.name == name &&
                           (style.empty () ||
                            (it != element.attributes.end () && it->second == style));
                  });
    return found;
  }
  std::vector<std::string> texts (const std::string &name, const std::string &style = {}) const
  {
    std::vector<std::string> texts;
    for (const Element &element : all (name, style))
      texts.push_back (element.text);
    return texts;
  }
  const std::vector<Element> &elements () const { return elements_; }

private:
  static void begin (GMarkupParseContext *, const gchar *name, const gchar **names,
                     const gchar **values, gpointer self, GError **)
  {
    auto *document = static_cast<Document *> (self);
    Element element;
    element.name = name;
    for (; *names; names++, values++)
      element.attributes[*names] = *values;
    document->open_.push_back (document->elements_.size ());
    document->elements_.push_back (element);
  }
  static void end (GMarkupParseContext *, const gchar *, gpointer self, GError **)
  {
    static_cast<Document *> (self)->open_.pop_back ();
  }
  static void characters (GMarkupParseContext *, const gchar *text, gsize size, gpointer self,
                          GError **)
  {
    auto *document = static_cast<Document *> (self);
    if (!document->open_.empty ())
      document->elements_[document->open_.back ()].text.append (text, size);
  }

  std::vector<Element> elements_;
  std::vector<size_t> open_;
};

size_t count_points (const Element &polyline)
{
  const std::string &points = polyline.attributes.at ("points");
  return static_cast<size_t> (std::count (points.begin (), points.end (), ','));
}

// ---- Ticks

TEST (Chart, TicksAreRound)
{
  const struct {
    double low;
    double high;
    int wanted;
    std::vector<double> ticks;
  } rows[] = {
      {0, 10, 5, {0, 2, 4, 6, 8, 10}},
      {0, 10.6, 5, {0, 5, 10}},
      {-1, 1, 4, {-1, -0.5, 0, 0.5, 1}},
      {0.13, 0.27, 3, {0.15, 0.2, 0.25}},
      {1000, 4000, 3, {1000, 2000, 3000, 4000}},
      {3, 3, 5, {}},
      {4, 3, 5, {}},
      {nan, 3, 5, {}},
      {0, std::numeric_limits<double>::infinity (), 5, {}},
      {1, 2, 0, {}},
  };
  for (const auto &row : rows) {
    const auto ticks = axis_ticks (row.low, row.high, row.wanted);
    ASSERT_EQ (ticks.size (), row.ticks.size ()) << row.low << " to " << row.high;
    for (size_t i = 0; i < ticks.size (); i++)
      EXPECT_NEAR (ticks[i], row.ticks[i], 1e-9);
  }
}

TEST (Chart, TicksOfAnyRange)
{
  for (double low : {-1e9, -3.7, 0.0, 1e-6, 5e7})
    for (double span : {1e-9, 0.03, 1.0, 777.0, 1e12}) {
      const auto ticks = axis_ticks (low, low + span, 5);
      EXPECT_LE (ticks.size (), 8u);
      for (const double tick : ticks) {
        EXPECT_GE (tick, low - span * 1e-6);
        EXPECT_LE (tick, low + span * 1.000001);
      }
    }
}

// ---- Thinning

TEST (Chart, ExtremesSurviveThinning)
{
  std::vector<Point> points;
  for (int i = 0; i < 10000; i++)
    points.push_back ({i * 0.001, std::sin (i * 0.001)});
  points[4321].y = 5;
  points[4322].y = -5;
  const auto thin = thin_out (points, 0, 10, 100);
  EXPECT_LE (thin.size (), 400u);
  EXPECT_EQ (thin.front ().x, 0);
  EXPECT_EQ (thin.back ().x, points.back ().x);
  EXPECT_TRUE (std::is_sorted (thin.begin (), thin.end (),
                               [] (const Point &a, const Point &b) { return a.x < b.x; }));
  const auto has = [&thin] (double y) {
    return std::any_of (thin.begin (), thin.end (), [y] (const Point &p) { return p.y == y; });
  };
  EXPECT_TRUE (has (5));
  EXPECT_TRUE (has (-5));
}

TEST (Chart, FewPointsStayAsTheyAre)
{
  const std::vector<Point> points = {{0, 1}, {1, 3}, {2, 2}};
  const auto thin = thin_out (points, 0, 2, 100);
  ASSERT_EQ (thin.size (), 3u);
  for (size_t i = 0; i < thin.size (); i++)
    EXPECT_TRUE (thin[i].x == points[i].x && thin[i].y == points[i].y);
}

TEST (Chart, BreaksStayBreaks)
{
  std::vector<Point> points;
  for (int i = 0; i < 1000; i++)
    points.push_back ({i * 0.01, i >= 400 && i < 600 ? nan : 1.0});
  const auto thin = thin_out (points, 0, 10, 50);
  const auto broken = [] (const Point &p) { return std::isnan (p.y); };
  EXPECT_GT (std::count_if (thin.begin (), thin.end (), broken), 0);
  for (const Point &point : thin)
    EXPECT_EQ (std::isnan (point.y), point.x >= 4 - 1e-9 && point.x < 6 - 1e-9) << point.x;
}

// ---- Charts

Chart chart_of (std::vector<Point> points)
{
  Chart chart;
  chart.title = "Title";
  chart.unit = "ms";
  chart.x_max = 10;
  chart.from_zero = true;
  chart.series = {{"line", "estimate", std::move (points)}};
  return chart;
}

TEST (Chart, PointsStandWhereTheyBelong)
{
  // The plot is 64 to 886 wide and 226 down to 26 high; the y axis reaches 6 % above 10.
  const Document svg (draw_chart (chart_of ({{0, 0}, {5, 5}, {10, 10}})));
  const auto lines = svg.all ("polyline");
  ASSERT_EQ (lines.size (), 1u);
  EXPECT_EQ (lines[0].attributes.at ("class"), "series-estimate");
  EXPECT_EQ (lines[0].attributes.at ("points"), "64.0,226.0 475.0,131.7 886.0,37.3");
  EXPECT_THAT (svg.texts ("text", "tick y"), ElementsAre ("0", "5", "10"));
  EXPECT_THAT (svg.texts ("text", "tick x"), ElementsAre ("0 s", "1 s", "2 s", "3 s", "4 s", "5 s",
                                                          "6 s", "7 s", "8 s", "9 s", "10 s"));
  EXPECT_THAT (svg.texts ("figcaption"), ElementsAre ("Title "));
  EXPECT_THAT (svg.texts ("span", "unit"), ElementsAre ("ms"));
}

TEST (Chart, WithoutData)
{
  for (const std::vector<Point> &points :
       {std::vector<Point>{}, {{1, nan}, {2, nan}}, {{11, 3}}, {{-1, 3}}}) {
    const Document svg (draw_chart (chart_of (points)));
    EXPECT_THAT (svg.texts ("p", "empty"), ElementsAre ("No data"));
    EXPECT_TRUE (svg.all ("svg").empty ());
  }
}

TEST (Chart, OnePointIsADot)
{
  for (const double y : {0.0, 3.0, -2.0, 1e9}) {
    const Document svg (draw_chart (chart_of ({{5, y}})));
    EXPECT_EQ (svg.all ("circle").size (), 1u) << y;
    EXPECT_TRUE (svg.all ("polyline").empty ());
    EXPECT_EQ (svg.all ("circle")[0].attributes.at ("cx"), "475.0");
  }
}

TEST (Chart, ConstantValuesHaveAnAxis)
{
  Chart chart = chart_of ({{0, 7}, {10, 7}});
  chart.from_zero = false;
  const Document svg (draw_chart (chart));
  EXPECT_EQ (svg.all ("polyline")[0].attributes.at ("points"), "64.0,126.0 886.0,126.0")
      << "in the middle";
  EXPECT_GE (svg.texts ("text", "tick y").size (), 2u);
}

TEST (Chart, LinesBreakWhereNothingIsKnown)
{
  const Document svg (
      draw_chart (chart_of ({{0, 1}, {1, 1}, {2, nan}, {3, 1}, {4, nan}, {5, 1}, {6, 1}})));
  EXPECT_EQ (svg.all ("polyline").size (), 2u);
  EXPECT_EQ (svg.all ("circle").size (), 1u);
}

TEST (Chart, ARunThatWasOverAtOnce)
{
  Chart chart = chart_of ({{0, 1}});
  chart.x_max = 0;
  EXPECT_EQ (Document (draw_chart (chart)).all ("circle").size (), 1u);
}

TEST (Chart, MarksAndLegend)
{
  Chart chart = chart_of ({{0, 1}, {10, 2}});
  chart.series.push_back ({"other <line>", "truth", {{0, 2}, {10, 1}}});
  chart.marks = {{5, "photo & more"}, {-1, "too early"}, {11, "too late"}};
  const Document svg (draw_chart (chart));
  EXPECT_THAT (svg.texts ("title"), ElementsAre ("photo & more"));
  EXPECT_THAT (svg.texts ("span", "key series-truth"), ElementsAre ("other <line>"));
  ASSERT_EQ (svg.all ("line", "mark").size (), 1u);
  EXPECT_EQ (svg.all ("line", "mark")[0].attributes.at ("x1"), "475.0");
  EXPECT_TRUE (Document (draw_chart (chart_of ({{0, 1}}))).all ("span", "legend").empty ())
      << "one line needs none";
}

TEST (Charts, AngleThatComesRoundBreaksTheLine)
{
  RunRecord record;
  record.end_ns = s;
  for (int i = 0; i <= 20; i++) // 170 to 190 degrees, which is -170
    record.attitudes.add ({i * 50 * ms, yaw (170 + i), yaw (170 + i)});
  const auto charts = attitude_charts (record);
  ASSERT_EQ (charts.size (), 4u);
  EXPECT_EQ (charts[2].title, "Yaw");
  EXPECT_EQ (Document (draw_chart (charts[2])).all ("polyline", "series-truth").size (), 2u);
}

TEST (Charts, IntervalsAreOfOneRecordingEach)
{
  const auto charts = stream_charts (made_up_run ());
  ASSERT_EQ (charts.size (), 4u);
  std::vector<double> intervals;
  for (const Point &point : charts[0].series[0].points)
    if (std::isfinite (point.y))
      intervals.push_back (point.y);
  EXPECT_EQ (intervals.size (), 29u);
  EXPECT_EQ (*std::max_element (intervals.begin (), intervals.end ()), 80);
  EXPECT_EQ (std::count (intervals.begin (), intervals.end (), 40), 28);
}

// ---- The page

TEST (ReportHtml, OfAMadeUpRun)
{
  const RunRecord record = made_up_run ();
  const std::string html = report_html (record, figures_of (record));
  const Document page (html);
  EXPECT_THAT (page.texts ("h1"), ElementsAre ("Flight “orbit <1>”"));
  EXPECT_THAT (page.texts ("title"), testing::Contains ("Run of 2026-11-20T14:03:27"));
  EXPECT_THAT (page.texts ("p", "subtitle"), ElementsAre ("2026-11-20 14:03:27 UTC, 10.0 s"));
  EXPECT_THAT (page.texts ("p", "warning"), ElementsAre ("photo <two>: it holds no picture"));
  EXPECT_THAT (page.texts ("div", "name"),
               ElementsAre ("Camera", "Stream", "Bitrate", "Latency", "Attitudes", "Attitude error",
                            "Recorded", "Photos"));
  EXPECT_THAT (page.texts ("div", "value"),
               ElementsAre ("24.5 ", "25.0 ", "1550 ", "45.5 ", "100 ", "1.000 ", "1.2 ", "2"));
  EXPECT_EQ (page.all ("svg").size (), 8u);
  // Truth and estimate of three angles, the error; intervals, two rates, latency, bitrate.
  const auto lines = page.all ("polyline");
  EXPECT_EQ (lines.size (), 12u);
  for (const Element &line : lines)
    EXPECT_GE (count_points (line), 2u);

  const auto images = page.all ("img");
  ASSERT_EQ (images.size (), 2u) << "a cover and a photo";
  EXPECT_EQ (images[0].attributes.at ("src"), "data:image/jpeg;base64,Y292ZXIncyBieXRlcw==");
  EXPECT_EQ (images[1].attributes.at ("src"), "data:image/jpeg;base64,anBlZydzIGJ5dGVz");
  EXPECT_THAT (page.texts ("div", "blank"), ElementsAre ("no cover", "it holds no picture"));
  std::vector<std::string> targets;
  for (const Element &link : page.all ("a"))
    targets.push_back (link.attributes.at ("href"));
  for (const char *target :
       {"./first%20%26%20last.mp4", "./videos/second.mp4", "./one.jpg", "./100%25%20%22two%22.jpg",
        "./summary.json", "./frames.csv", "./attitude.csv"})
    EXPECT_THAT (targets, testing::Contains (target));
}

TEST (ReportHtml, NeedsNothingElse)
{
  const RunRecord record = made_up_run ();
  std::string html = report_html (record, figures_of (record));
  const Document page (html);
  for (const char *name : {"script", "link", "iframe", "object", "embed", "video"})
    EXPECT_TRUE (page.all (name).empty ()) << name;
  for (const Element &element : page.elements ())
    for (const auto &[name, value] : element.attributes)
      if (name == "src" || name == "href") {
        EXPECT_TRUE (value.starts_with ("data:") || value.starts_with ("./")) << value;
      }
  EXPECT_THAT (html, Not (HasSubstr ("url(")));
  EXPECT_THAT (html, Not (HasSubstr ("@import")));
  EXPECT_THAT (html, HasSubstr ("prefers-color-scheme: dark"));
}

TEST (ReportHtml, OfNothing)
{
  RunRecord record;
  record.no_attitude_reason = "the simple build has no attitude";
  const std::string html = report_html (record, figures_of (record));
  const Document page (html);
  EXPECT_THAT (page.texts ("h1"), ElementsAre ("Run"));
  EXPECT_EQ (page.texts ("p", "empty").size (), 8u);
  EXPECT_TRUE (page.all ("img").empty ());
  EXPECT_THAT (html, HasSubstr ("No estimate: the simple build has no attitude."));
  EXPECT_THAT (page.texts ("div", "value"),
               ElementsAre ("-", "-", "-", "-", "-", "-", "0.0 ", "0"));
}

TEST (ReportHtml, AnyTextIsTakenAsText)
{
  RunRecord record;
  const std::string nasty = "</style><script>\"'&\xff\xc3 ]]> <!--";
  record.meta = {{"flight", nasty}, {nasty, nasty}};
  record.warnings = {nasty};
  record.events = {{0, nasty}};
  Photo photo;
  photo.path = "/out/" + nasty + ".jpg";
  photo.error = nasty;
  record.photos.push_back (photo);
  Recording recording;
  recording.path = photo.path;
  recording.error = nasty;
  record.recordings.push_back (recording);
  const Document page (report_html (record, figures_of (record)));
  EXPECT_TRUE (page.all ("script").empty ());
  ASSERT_EQ (page.texts ("p", "warning").size (), 1u);
  EXPECT_THAT (page.texts ("p", "warning")[0], HasSubstr ("</style><script>\"'&"));
}

TEST (ReportHtml, ALongRunIsASmallPage)
{
  RunRecord record;
  record.end_ns = 1000 * s;
  for (int i = 0; i < 200'000; i++)
    record.attitudes.add ({i * 5 * ms, yaw (i % 90), yaw (i % 90 + 1)});
  EXPECT_LT (report_html (record, figures_of (record)).size (), 500'000u);
}

} // namespace
