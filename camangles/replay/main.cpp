// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <numbers>

#include <camangles/camera_angles.h>

#include "options.hpp"
#include "recording.hpp"

namespace
{

struct ContextCloser {
  void operator() (cameraAngles_t *context) const { cameraAngles_Close (context); }
};
using Context = std::unique_ptr<cameraAngles_t, ContextCloser>;

/** Data that cannot be read or written; what () names the place. */
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

Context make_context (const Options &options)
{
  Context context (cameraAngles_New (options.log2_factor, options.rate_hz));
  if (!context || cameraAngles_setConvergence (context.get (), options.convergence) != 0 ||
      cameraAngles_setBiasGain (context.get (), options.bias_gain) != 0 ||
      cameraAngles_setExpFilterRange (context.get (), options.min_hz, options.max_hz) != 0 ||
      cameraAngles_setExpFilterWindow (context.get (), options.window) != 0)
    throw Failure ("cannot set the camera-angles library up");
  return context;
}

class AttitudeWriter
{
public:
  AttitudeWriter (const Options &options, std::ostream &out)
      : out_ (out), rate_hz_ (static_cast<double> (options.rate_hz) * (1u << options.log2_factor))
  {
    out_ << "time_s,timestamp,qx,qy,qz,qw,roll_deg,pitch_deg,yaw_deg\n";
  }

  void write (const quat_t &q, uint64_t timestamp)
  {
    float roll = 0, pitch = 0, yaw = 0;
    quat2euler (&q, &roll, &pitch, &yaw);
    char line[320];
    const auto degrees = [] (float angle) {
      return static_cast<double> (angle) * 180 / std::numbers::pi;
    };
    const std::string stamp = timestamp == UINT64_MAX ? "" : std::to_string (timestamp);
    snprintf (line, sizeof line, "%.9g,%s,%.9g,%.9g,%.9g,%.9g,%.7g,%.7g,%.7g\n",
              static_cast<double> (count_) / rate_hz_, stamp.c_str (), static_cast<double> (q.x),
              static_cast<double> (q.y), static_cast<double> (q.z), static_cast<double> (q.w),
              degrees (roll), degrees (pitch), degrees (yaw));
    out_ << line;
    count_++;
  }
  uint64_t count () const { return count_; }

private:
  std::ostream &out_;
  double rate_hz_;
  uint64_t count_ = 0;
};

void replay (const Options &options, std::istream &in, std::ostream &out)
{
  const std::string name = options.input == "-" ? "standard input" : options.input;
  const std::string place = name + ":";
  const Context context = make_context (options);
  AttitudeWriter writer (options, out);
  RecordingParser parser;
  uint64_t line_number = 0;
  uint64_t samples = 0;
  for (std::string line; std::getline (in, line);) {
    line_number++;
    const auto fail = [&] (const char *reason) {
      throw Failure (
          std::string (place).append (std::to_string (line_number)).append (": ").append (reason));
    };
    std::optional<Sample> sample;
    try {
      sample = parser.parse (line);
    } catch (const MalformedLine &error) {
      fail (error.what ());
    }
    if (!sample)
      continue;
    cameraAngles_setGyroInitStage (context.get (), samples++ < options.init_samples);
    if (cameraAngles_Feed (context.get (), sample->reference ? &*sample->reference : nullptr,
                           sample->timestamp, sample->x, sample->y, sample->z,
                           options.exposure_s) != 0)
      fail ("the sample was not processed");
    quat_t attitude;
    uint64_t timestamp;
    while (cameraAngles_GetAngles (context.get (), &attitude, &timestamp) == 0)
      writer.write (attitude, timestamp);
    if (!out)
      break;
  }
  if (in.bad ())
    throw Failure ("cannot read " + name + ": " + strerror (errno));
  if (samples == 0)
    throw Failure (name + ": no samples");
  out.flush ();
  if (!out)
    throw Failure ("cannot write " + options.output + ": " + strerror (errno));
  const uint64_t held = samples - writer.count () / (1u << options.log2_factor);
  if (held > 0)
    std::cerr << "camangles-replay: filter and resampler held the last " << held << " of "
              << samples << " samples back\n";
}

void run (const Options &options)
{
  std::ifstream input_file;
  std::ofstream output_file;
  if (options.input != "-") {
    input_file.open (options.input);
    /* Opening a folder succeeds, reading it does not. */
    if (!input_file || (input_file.peek (), input_file.bad ()))
      throw Failure ("cannot read " + options.input + ": " + strerror (errno));
    input_file.clear ();
  }
  if (options.output != "-") {
    output_file.open (options.output);
    if (!output_file)
      throw Failure ("cannot write " + options.output + ": " + strerror (errno));
  }
  replay (options, options.input == "-" ? std::cin : input_file,
          options.output == "-" ? std::cout : output_file);
}

} // namespace

int main (int argc, char **argv)
{
  std::ios::sync_with_stdio (false);
  try {
    const Options options = parse_options (argc, argv);
    if (options.help)
      std::cout << help_text << std::flush;
    else
      run (options);
    return 0;
  } catch (const BadUsage &error) {
    std::cerr << "camangles-replay: " << error.what () << "\n";
    return 2;
  } catch (const std::exception &error) {
    std::cerr << "camangles-replay: " << error.what () << "\n";
    return 1;
  }
}
