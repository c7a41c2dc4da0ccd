// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "options.hpp"

#include <getopt.h>

#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

const char help_text[] = R"(usage: camangles-replay [option...] [INPUT]

Runs recorded gyro data through the camera-angles library and writes the attitudes.

INPUT (default or -: standard input) is CSV, one sample a line:
  timestamp,x,y,z[,qx,qy,qz,qw]
timestamp: unsigned integer, increasing; x y z: rates in rad/s; qx qy qz qw: reference attitude, scalar
last (left out or all zero: none). Empty lines, comments (#) and a heading are skipped.

Output is CSV, one attitude a line:
  time_s,timestamp,qx,qy,qz,qw,roll_deg,pitch_deg,yaw_deg
time_s counts from the first sample at the output's rate; timestamp is empty for interpolated samples.

options:
  -o, --output FILE       write to FILE (default or -: standard output)
  -l, --log2-factor N     resampling factor 2^N, 0 to 7 (default 0)
  -r, --rate HZ           rate of the samples (default 1000)
  -e, --exposure S        exposure time in seconds, sets the filter (default 0: no filter)
  -c, --convergence C     pull towards the reference per sample, 0 to 1 (default 0.01)
  -b, --bias-gain G       gain of the bias correction (default 0)
  -i, --init-samples N    learn the bias from the first N samples, camera still (default 0)
      --filter-min HZ     lowest cut-off of the exposure filter (default 50)
      --filter-max HZ     highest cut-off, above it there is no filter (default 250)
      --window N          samples that the filter takes at a time (default 10)
  -h, --help              this text

Exit status: 0 done, 1 the data cannot be read or written, 2 the command line is wrong.
)";

namespace
{

enum : int { option_filter_min = 256, option_filter_max, option_window };

constexpr option long_options[] = {
    {"output", required_argument, nullptr, 'o'},
    {"log2-factor", required_argument, nullptr, 'l'},
    {"rate", required_argument, nullptr, 'r'},
    {"exposure", required_argument, nullptr, 'e'},
    {"convergence", required_argument, nullptr, 'c'},
    {"bias-gain", required_argument, nullptr, 'b'},
    {"init-samples", required_argument, nullptr, 'i'},
    {"filter-min", required_argument, nullptr, option_filter_min},
    {"filter-max", required_argument, nullptr, option_filter_max},
    {"window", required_argument, nullptr, option_window},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

template <typename Number>
Number between (const char *name, std::string_view text, Number low, Number high, const char *range)
{
  Number value{};
  const auto [end, error] = std::from_chars (text.data (), text.data () + text.size (), value);
  if (error != std::errc () || end != text.data () + text.size () ||
      !(value >= low && value <= high))
    throw BadUsage (std::string (name) + " '" + std::string (text) + "' is not " + range);
  return value;
}

constexpr float largest = std::numeric_limits<float>::max ();
constexpr float smallest = std::numeric_limits<float>::min ();

void apply (Options &options, int option, const char *argument)
{
  switch (option) {
  case 'o':
    options.output = argument;
    break;
  case 'l':
    options.log2_factor = between<uint32_t> ("--log2-factor", argument, 0, 7, "0 to 7");
    break;
  case 'r':
    options.rate_hz = between ("--rate", argument, smallest, largest, "a rate above 0");
    break;
  case 'e':
    options.exposure_s = between ("--exposure", argument, 0.0f, largest, "a time of 0 or more");
    break;
  case 'c':
    options.convergence = between ("--convergence", argument, 0.0f, 1.0f, "0 to 1");
    break;
  case 'b':
    options.bias_gain = between ("--bias-gain", argument, -largest, largest, "a number");
    break;
  case 'i':
    options.init_samples =
        between<uint64_t> ("--init-samples", argument, 0, UINT64_MAX, "a number of samples");
    break;
  case option_filter_min:
    options.min_hz = between ("--filter-min", argument, 0.0f, largest, "a frequency of 0 or more");
    break;
  case option_filter_max:
    options.max_hz = between ("--filter-max", argument, 0.0f, largest, "a frequency of 0 or more");
    break;
  case option_window:
    options.window = between<uint32_t> ("--window", argument, 1, 1000, "1 to 1000");
    break;
  case 'h':
    options.help = true;
    break;
  default:
    throw BadUsage ("see camangles-replay --help");
  }
}

} // namespace

Options parse_options (int argc, char **argv)
{
  Options options;
  for (int option;
       (option = getopt_long (argc, argv, "o:l:r:e:c:b:i:h", long_options, nullptr)) != -1;)
    apply (options, option, optarg);
  if (options.help)
    return options;
  if (!(options.max_hz > options.min_hz))
    throw BadUsage ("--filter-max must be above --filter-min");
  if (optind < argc)
    options.input = argv[optind++];
  if (optind < argc)
    throw BadUsage (std::string ("unexpected argument '") + argv[optind] + "'");
  return options;
}
