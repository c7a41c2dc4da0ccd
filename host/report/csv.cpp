// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "csv.hpp"

#include <cerrno>
#include <cstdio>
#include <numbers>

#include <glib.h>

#include "../h264_sei_decode.hpp"
#include "text.hpp"
#include <vorn/raii.hpp>

namespace report
{

namespace
{

constexpr double degrees_per_rad = 180 / std::numbers::pi;

/** A file that is written line by line and tells at the end whether all went well. */
class Lines
{
public:
  explicit Lines (const std::string &path) : path_ (path), file_ (fopen (path.c_str (), "we")) {}

  void add (const std::string &line)
  {
    if (file_) {
      fwrite (line.data (), 1, line.size (), file_.get ());
      fputc ('\n', file_.get ());
    }
  }
  /** The reason of a failure, or empty. */
  std::string finish ()
  {
    if (!file_)
      return reason (error_);
    const bool failed = ferror (file_.get ());
    if (fclose (file_.release ()) != 0 || failed)
      return reason (errno);
    return {};
  }

private:
  std::string reason (int error) const
  {
    return "cannot write " + path_ + ": " + g_strerror (error);
  }

  std::string path_;
  vorn::Owned<FILE, fclose> file_;
  int error_ = errno; // of opening; it comes after the file
};

std::string quaternion_fields (const Attitude &q)
{
  if (!q.known ())
    return ",,,";
  return shortest (q.x) + "," + shortest (q.y) + "," + shortest (q.z) + "," + shortest (q.w);
}

std::string angle_fields (const Attitude &q)
{
  if (!q.known ())
    return ",,";
  const vorn::EulerAngles angles = q.euler ();
  return fixed (angles.roll_rad * degrees_per_rad, 5) + "," +
         fixed (angles.pitch_rad * degrees_per_rad, 5) + "," +
         fixed (angles.yaw_rad * degrees_per_rad, 5);
}

std::string error_field (const Attitude &estimate, const Attitude &truth)
{
  const auto error_rad = angle_between (estimate, truth);
  return error_rad ? fixed (*error_rad * degrees_per_rad, 5) : "";
}

std::string optional_seconds (const std::optional<int64_t> &time_ns)
{
  return time_ns ? seconds_text (*time_ns) : "";
}

} // namespace

std::string write_attitude_csv (const RunRecord &record, const std::string &path)
{
  Lines lines (path);
  lines.add ("time_s,qx,qy,qz,qw,roll_deg,pitch_deg,yaw_deg,true_qx,true_qy,true_qz,true_qw,"
             "true_roll_deg,true_pitch_deg,true_yaw_deg,error_deg");
  for (const AttitudeSample &sample : record.attitudes.samples ())
    lines.add (seconds_text (sample.time_ns) + "," + quaternion_fields (sample.estimate) + "," +
               angle_fields (sample.estimate) + "," + quaternion_fields (sample.truth) + "," +
               angle_fields (sample.truth) + "," + error_field (sample.estimate, sample.truth));
  return lines.finish ();
}

std::string write_frames_csv (const RunRecord &record, const std::string &path)
{
  Lines lines (path);
  lines.add ("recording,frame,key_frame,bytes,presentation_s,capture_s,capture_utc,sei_time,"
             "qx,qy,qz,qw,true_qx,true_qy,true_qz,true_qw,error_deg");
  for (const Frame &frame : record.frames) {
    const std::string capture_utc =
        frame.capture_ns ? utc_text (record.clock.utc_of (*frame.capture_ns)) : "";
    const std::string sei_time =
        frame.sei_time_of_day_us ? h264_sei::format_time_of_day (*frame.sei_time_of_day_us) : "";
    lines.add (csv_field (name_in (record.folder, record.recordings.at (frame.recording).path)) +
               "," + std::to_string (frame.index) + "," + (frame.key_frame ? "1," : "0,") +
               std::to_string (frame.bytes) + "," + optional_seconds (frame.presentation_ns) + "," +
               optional_seconds (frame.capture_ns) + "," + capture_utc + "," + sei_time + "," +
               quaternion_fields (frame.estimate) + "," + quaternion_fields (frame.truth) + "," +
               error_field (frame.estimate, frame.truth));
  }
  return lines.finish ();
}

} // namespace report
