// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Recorded flights: the CSV reader and the flight along its samples.
#include "flight.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string_view>

#include "cubic_spline.hpp"
#include "flight_dynamics.hpp"

namespace sim
{

namespace
{

constexpr size_t n_columns = 8;
constexpr std::array<std::string_view, n_columns> column_names = {
    "time_s", "north_m", "east_m", "down_m", "qx", "qy", "qz", "qw"};
constexpr double greatest_turn_rad = 90 * degree;

struct LogSample {
  double time_s;
  Vec3 position_m;
  Quat attitude;
};

std::string_view trimmed (std::string_view text)
{
  const auto first = text.find_first_not_of (" \t\r");
  if (first == std::string_view::npos)
    return {};
  return text.substr (first, text.find_last_not_of (" \t\r") - first + 1);
}

std::vector<std::string_view> split_fields (std::string_view line)
{
  std::vector<std::string_view> fields;
  for (;;) {
    const auto comma = line.find (',');
    fields.push_back (trimmed (line.substr (0, comma)));
    if (comma == std::string_view::npos)
      return fields;
    line.remove_prefix (comma + 1);
  }
}

bool parse_number (std::string_view text, double *number)
{
  if (text.starts_with ('+'))
    text.remove_prefix (1);
  const auto [end, code] = std::from_chars (text.data (), text.data () + text.size (), *number);
  return code == std::errc () && end == text.data () + text.size () && std::isfinite (*number);
}

/** Reads the lines one by one; every refusal leaves its reason in error. */
class LogParser
{
public:
  explicit LogParser (std::string name) : name_ (std::move (name)) {}

  bool parse (std::string_view text)
  {
    while (!text.empty ()) {
      const auto end = text.find ('\n');
      const auto line = trimmed (text.substr (0, end));
      text = end == std::string_view::npos ? std::string_view () : text.substr (end + 1);
      line_number_++;
      if (!line.empty () && line[0] != '#' && !parse_line (split_fields (line)))
        return false;
    }
    if (samples_.size () >= 2)
      return true;
    return fail ("a flight needs at least two samples, found " + std::to_string (samples_.size ()));
  }

  const std::vector<LogSample> &samples () const { return samples_; }
  const std::string &error () const { return error_; }

private:
  bool fail (const std::string &reason)
  {
    error_ = name_ + ":" + std::to_string (line_number_) + ": " + reason;
    return false;
  }

  bool parse_line (const std::vector<std::string_view> &fields)
  {
    double number = 0;
    if (!columns_known_) {
      columns_known_ = true;
      if (!parse_number (fields[0], &number))
        return parse_header (fields);
      for (size_t i = 0; i < n_columns; i++)
        column_places_[i] = i;
      n_fields_ = n_columns;
    }
    if (fields.size () != n_fields_)
      return fail ("expected " + std::to_string (n_fields_) + " fields, found " +
                   std::to_string (fields.size ()));
    std::array<double, n_columns> values;
    for (size_t i = 0; i < n_columns; i++) {
      const auto field = fields[column_places_[i]];
      if (!parse_number (field, &values[i]))
        return fail (std::string (column_names[i]) + ": '" + std::string (field) +
                     "' is not a finite number");
    }
    return add_sample (values);
  }

  bool parse_header (const std::vector<std::string_view> &fields)
  {
    n_fields_ = fields.size ();
    for (size_t i = 0; i < n_columns; i++) {
      const auto place = std::find (fields.begin (), fields.end (), column_names[i]);
      if (place == fields.end ())
        return fail ("the header has no column '" + std::string (column_names[i]) + "'");
      column_places_[i] = static_cast<size_t> (place - fields.begin ());
    }
    return true;
  }

  bool add_sample (const std::array<double, n_columns> &v)
  {
    Quat q = {v[4], v[5], v[6], v[7]};
    const double norm = std::sqrt (dot (q, q));
    if (!(norm > 0.9 && norm < 1.1)) {
      std::ostringstream reason;
      reason << "the quaternion's length is " << norm << ", not 1";
      return fail (reason.str ());
    }
    q = {q.x / norm, q.y / norm, q.z / norm, q.w / norm};
    if (!samples_.empty ()) {
      const LogSample &former = samples_.back ();
      if (!(v[0] > former.time_s))
        return fail ("the time does not grow");
      // Both signs are the same attitude; the spline needs neighbours on one side.
      if (dot (former.attitude, q) < 0)
        q = {-q.x, -q.y, -q.z, -q.w};
      if (angle_between (former.attitude, q) >= greatest_turn_rad)
        return fail ("the attitude turns by 90 degrees or more since the sample before; "
                     "log at a higher rate");
    }
    samples_.push_back ({v[0], {v[1], v[2], v[3]}, q});
    return true;
  }

  std::string name_;
  std::string error_;
  int line_number_ = 0;
  bool columns_known_ = false;
  size_t n_fields_ = 0;
  std::array<size_t, n_columns> column_places_{};
  std::vector<LogSample> samples_;
};

/**
 * Position and the four components of the quaternion on natural cubic splines; the quaternion is
 * normalised as a series, so that the rate is exactly the derivative of the attitude.
 */
class RecordedFlight : public Flight
{
public:
  explicit RecordedFlight (const std::vector<LogSample> &samples)
  {
    knots_.reserve (samples.size ());
    for (const auto &sample : samples)
      knots_.push_back (sample.time_s - samples[0].time_s);
    const auto add = [&] (auto &&component) {
      std::vector<double> values;
      values.reserve (samples.size ());
      for (const auto &sample : samples)
        values.push_back (component (sample));
      splines_.emplace_back (knots_, std::move (values));
    };
    add ([] (const LogSample &s) { return s.position_m.x; });
    add ([] (const LogSample &s) { return s.position_m.y; });
    add ([] (const LogSample &s) { return s.position_m.z; });
    add ([] (const LogSample &s) { return s.attitude.x; });
    add ([] (const LogSample &s) { return s.attitude.y; });
    add ([] (const LogSample &s) { return s.attitude.z; });
    add ([] (const LogSample &s) { return s.attitude.w; });
  }

  FlightState at (double time_s) const override
  {
    const double inside_s = std::clamp (time_s, 0.0, knots_.back ());
    const auto next = std::upper_bound (knots_.begin () + 1, knots_.end () - 1, inside_s);
    const auto interval = static_cast<size_t> (next - knots_.begin () - 1);
    const auto value = [&] (size_t component) {
      auto series = splines_[component].at (interval, inside_s - knots_[interval]);
      return inside_s == time_s ? series : PathScalar (series.value ());
    };
    const Vector3<PathScalar> position = {value (0), value (1), value (2)};
    const auto rate = [&] (size_t component) { return derived<1, 0> (value (component)); };
    return state_of (position, {rate (3), rate (4), rate (5), rate (6)});
  }

  std::optional<double> duration_s () const override { return knots_.back (); }

private:
  std::vector<double> knots_; // seconds, the first is 0
  std::vector<CubicSpline> splines_;
};

} // namespace

std::unique_ptr<Flight> parse_flight_log (const std::string &text, const std::string &name,
                                          std::string *error)
{
  LogParser parser (name);
  if (!parser.parse (text)) {
    *error = parser.error ();
    return nullptr;
  }
  return std::make_unique<RecordedFlight> (parser.samples ());
}

std::unique_ptr<Flight> load_flight_log (const std::string &path, std::string *error)
{
  std::ifstream file (path, std::ios::binary);
  std::ostringstream text;
  // Reading a folder only fails here.
  if (!file || !(text << file.rdbuf ())) {
    *error = path + ": " + (file ? "cannot be read or is empty" : strerror (errno));
    return nullptr;
  }
  return parse_flight_log (text.str (), path, error);
}

} // namespace sim
