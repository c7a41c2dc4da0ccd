// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "html.hpp"

#include <glib.h>

#include "html_charts.hpp"
#include "html_style.hpp"
#include "svg_chart.hpp"
#include "text.hpp"
#include <vorn/raii.hpp>

namespace report
{

namespace
{

std::string value_of (const RunRecord &record, const std::string &name)
{
  for (const auto &[key, value] : record.meta)
    if (key == name)
      return value;
  return {};
}

std::string tile (const std::string &name, const std::string &value, const std::string &unit,
                  const std::string &detail = {})
{
  const bool has_unit = !unit.empty () && value != "-";
  return "<div class=\"tile\"><div class=\"name\">" + name + "</div><div class=\"value\">" +
         escape_markup (value) + (has_unit ? " <span class=\"unit\">" + unit + "</span>" : "") +
         "</div>" +
         (detail.empty () ? "" : "<div class=\"detail\">" + escape_markup (detail) + "</div>") +
         "</div>\n";
}

std::string at_most (const std::optional<double> &value, int decimals, const std::string &unit)
{
  return value ? "at most " + fixed (*value, decimals) + " " + unit : "";
}

std::string tiles (const RunRecord &record, const Figures &figures)
{
  uint64_t frames = 0;
  double recorded_s = 0;
  for (const RecordingFigures &recording : figures.recordings) {
    frames += recording.frames;
    recorded_s += recording.duration_s.value_or (0);
  }
  return "<div class=\"tiles\">\n" +
         tile ("Camera", fixed_or_dash (figures.fps_in.mean, 1), "fps",
               figures.fps_in.least ? "at least " + fixed (*figures.fps_in.least, 1) : "") +
         tile ("Stream", fixed_or_dash (figures.fps_out.mean, 1), "fps",
               std::to_string (figures.dropped) + " frames dropped") +
         tile ("Bitrate", fixed_or_dash (figures.bitrate_kbit_s.mean, 0), "kbit/s",
               at_most (figures.bitrate_kbit_s.most, 0, "kbit/s")) +
         tile ("Latency", fixed_or_dash (figures.latency_ms.mean, 1), "ms",
               at_most (figures.latency_ms.most, 1, "ms")) +
         tile ("Attitudes", fixed_or_dash (figures.attitude_rate_hz, 0), "Hz",
               figures.has_attitudes ? std::to_string (record.attitude_totals.gaps) + " gaps"
                                     : "not in this run") +
         tile ("Attitude error", fixed_or_dash (figures.error_rms_deg, 3), "° RMS",
               at_most (figures.error_max_deg, 3, "°")) +
         tile ("Recorded", fixed (recorded_s, 1), "s", std::to_string (frames) + " frames") +
         tile ("Photos", std::to_string (record.photos.size ()), "") + "</div>\n";
}

/** A relative link's target: any name will do. */
std::string link_to (const std::string &name)
{
  const vorn::OwnedString escaped (g_uri_escape_string (name.c_str (), "/", FALSE));
  return "./" + std::string (escaped.get ());
}

std::string link (const std::string &name)
{
  return "<a href=\"" + link_to (name) + "\">" + escape_markup (name) + "</a>";
}

std::string picture (const std::string &jpeg, const std::string &name, const std::string &blank)
{
  if (jpeg.empty ())
    return "<div class=\"blank\">" + escape_markup (blank) + "</div>";
  const vorn::OwnedString data (
      g_base64_encode (reinterpret_cast<const guchar *> (jpeg.data ()), jpeg.size ()));
  return "<a href=\"" + link_to (name) + "\"><img alt=\"" + escape_markup (name) +
         "\" src=\"data:image/jpeg;base64," + data.get () + "\"/></a>";
}

std::string card (const std::string &picture, const std::string &name, const std::string &detail)
{
  return "<div class=\"card\">" + picture + "<p>" + link (name) + "<br/><span class=\"detail\">" +
         escape_markup (detail) + "</span></p></div>\n";
}

std::string pixels (int width, int height)
{
  return width > 0 ? std::to_string (width) + " × " + std::to_string (height) + ", " : "";
}

std::string recordings (const RunRecord &record, const Figures &figures)
{
  if (record.recordings.empty ())
    return {};
  std::string html = "<h2>Recordings</h2>\n<div class=\"pictures\">\n";
  for (size_t i = 0; i < record.recordings.size (); i++) {
    const Recording &recording = record.recordings[i];
    const RecordingFigures &of = figures.recordings.at (i);
    const std::string name = name_in (record.folder, recording.path);
    html += card (picture (recording.cover_jpeg, name,
                           recording.error.empty () ? "no cover" : recording.error),
                  name,
                  pixels (recording.width, recording.height) + std::to_string (of.frames) +
                      " frames, " + fixed_or_dash (of.duration_s, 2) + " s, " +
                      size_text (recording.bytes) + ", longest interval " +
                      fixed_or_dash (of.interval_ms.most, 1) + " ms");
  }
  return html + "</div>\n";
}

std::string photos (const RunRecord &record)
{
  if (record.photos.empty ())
    return {};
  std::string html = "<h2>Photos</h2>\n<div class=\"pictures\">\n";
  for (const Photo &photo : record.photos) {
    const std::string name = name_in (record.folder, photo.path);
    html += card (picture (photo.thumbnail_jpeg, name, photo.error), name,
                  (photo.group.empty () ? "" : photo.group + ", ") +
                      pixels (photo.width, photo.height) + size_text (photo.bytes));
  }
  return html + "</div>\n";
}

std::string row (const std::string &name, const std::string &value)
{
  return "<tr><th>" + escape_markup (name) + "</th><td>" + value + "</td></tr>\n";
}

std::string details (const RunRecord &record)
{
  std::string html = "<h2>Details</h2>\n<div class=\"scroll\"><table>\n";
  for (const auto &[name, value] : record.meta)
    html += row (name, escape_markup (value));
  html += row ("start", utc_text (record.clock.utc_ns) + ", " +
                            seconds_text (record.clock.monotonic_ns) + " s on the drone’s clock");
  for (const char *file : {"summary.json", "frames.csv", "attitude.csv"})
    html += row (file[0] == 's' ? "figures" : file[0] == 'f' ? "frames" : "attitudes", link (file));
  for (const Event &event : record.events)
    html += row (fixed (record.seconds_since_start (event.time_ns), 1) + " s",
                 escape_markup (event.text));
  return html + "</table></div>\n";
}

} // namespace

std::string report_html (const RunRecord &record, const Figures &figures)
{
  const std::string start = utc_text (record.clock.utc_ns).substr (0, 19);
  std::string html = "<!DOCTYPE html>\n"
                     "<html lang=\"en\" xmlns=\"http://www.w3.org/1999/xhtml\">\n<head>\n"
                     "<meta charset=\"utf-8\"/>\n<meta name=\"viewport\" "
                     "content=\"width=device-width, initial-scale=1\"/>\n"
                     "<title>Run of " +
                     start + "</title>\n<style>" + html_style + "</style>\n</head>\n<body>\n";
  const std::string flight = value_of (record, "flight");
  html += "<h1>" + (flight.empty () ? "Run" : "Flight “" + escape_markup (flight) + "”") +
          "</h1>\n<p class=\"subtitle\">" + start.substr (0, 10) + " " +
          (start.size () > 11 ? start.substr (11) : "") + " UTC, " + fixed (figures.duration_s, 1) +
          " s</p>\n";
  for (const std::string &warning : record.warnings)
    html += "<p class=\"warning\">" + escape_markup (warning) + "</p>\n";
  html += tiles (record, figures) + recordings (record, figures) + photos (record);
  html += "<h2>Attitude</h2>\n";
  if (!figures.has_attitudes)
    html += "<p>" +
            escape_markup ("No estimate: " + (record.no_attitude_reason.empty ()
                                                  ? "no attitude came"
                                                  : record.no_attitude_reason)) +
            ".</p>\n";
  for (const Chart &chart : attitude_charts (record))
    html += draw_chart (chart);
  html += "<h2>Frames and stream</h2>\n";
  for (const Chart &chart : stream_charts (record))
    html += draw_chart (chart);
  return html + details (record) + "</body>\n</html>\n";
}

} // namespace report
