// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "summary.hpp"

#include <cmath>

#include "../json_writer.hpp"
#include "text.hpp"

namespace report
{

namespace
{

constexpr int64_t format_version = 1;

/** What occurs in a summary. */
class Writer : public JsonWriter
{
public:
  /** Rounded to what is meant, so that nobody reads 29.970029999999998. */
  void number (const char *name, const std::optional<double> &value, double step = 1e-4)
  {
    JsonWriter::number (name, value ? std::optional (std::round (*value / step) / (1 / step))
                                    : std::nullopt);
  }
  void spread (const char *name, const Spread &spread)
  {
    object (name);
    number ("mean", spread.mean);
    number ("min", spread.least);
    number ("max", spread.most);
    end_object ();
  }
  /** Of a picture that is 0 wide when it is not known. */
  void pixels (const char *name, int value)
  {
    number (name, value > 0 ? std::optional<double> (value) : std::nullopt, 1);
  }
};

void write_clock (Writer *json, const ClockPair &clock)
{
  json->object ("clock");
  json->integer ("monotonic_ns", clock.monotonic_ns);
  json->integer ("utc_ns", clock.utc_ns);
  json->text ("utc", utc_text (clock.utc_ns));
  json->end_object ();
}

void write_attitude (Writer *json, const RunRecord &record, const Figures &figures)
{
  const vorn::AttitudeStatistics &totals = record.attitude_totals;
  json->object ("attitude");
  json->boolean ("available", figures.has_attitudes);
  json->text_or_null ("reason", record.no_attitude_reason);
  json->integer ("count", static_cast<int64_t> (totals.count));
  json->number ("rate_hz", figures.attitude_rate_hz);
  json->integer ("gaps", static_cast<int64_t> (totals.gaps));
  json->number ("longest_step_ms",
                totals.count > 1
                    ? std::optional (static_cast<double> (totals.longest_step_ns) * 1e-6)
                    : std::nullopt);
  json->integer ("compared", static_cast<int64_t> (totals.compared));
  json->number ("error_rms_deg", figures.error_rms_deg);
  json->number ("error_max_deg", figures.error_max_deg);
  json->integer ("kept_every", record.attitudes.kept_every ());
  json->end_object ();
}

void write_recordings (Writer *json, const RunRecord &record, const Figures &figures)
{
  json->array ("recordings");
  for (size_t i = 0; i < record.recordings.size (); i++) {
    const Recording &recording = record.recordings[i];
    const RecordingFigures &of = figures.recordings.at (i);
    json->object ();
    json->text ("file", name_in (record.folder, recording.path));
    json->integer ("bytes", static_cast<int64_t> (recording.bytes));
    json->pixels ("width", recording.width);
    json->pixels ("height", recording.height);
    json->integer ("frames", static_cast<int64_t> (of.frames));
    json->integer ("key_frames", static_cast<int64_t> (of.key_frames));
    json->integer ("frames_with_time", static_cast<int64_t> (of.timed));
    json->number ("duration_s", of.duration_s);
    json->number ("fps", of.fps);
    json->number ("bitrate_kbit_s", of.bitrate_kbit_s);
    json->spread ("interval_ms", of.interval_ms);
    json->number ("attitude_error_rms_deg", of.attitude_error_deg);
    json->boolean ("cover", !recording.cover_jpeg.empty ());
    json->text_or_null ("error", recording.error);
    json->end_object ();
  }
  json->end_array ();
}

void write_photos (Writer *json, const RunRecord &record)
{
  json->array ("photos");
  for (const Photo &photo : record.photos) {
    json->object ();
    json->text ("file", name_in (record.folder, photo.path));
    json->text_or_null ("group", photo.group);
    json->number ("time_s", record.seconds_since_start (photo.added_ns));
    json->integer ("bytes", static_cast<int64_t> (photo.bytes));
    json->pixels ("width", photo.width);
    json->pixels ("height", photo.height);
    json->text_or_null ("error", photo.error);
    json->end_object ();
  }
  json->end_array ();
}

void write_seconds (Writer *json, const RunRecord &record)
{
  json->array ("seconds");
  for (const StatusSample &sample : record.status) {
    json->object ();
    json->number ("time_s", record.seconds_since_start (sample.time_ns));
    json->text_or_null ("mode", sample.mode);
    json->number ("fps_in", sample.fps_in);
    json->number ("fps_out", sample.fps_out);
    json->number ("bitrate_kbit_s", sample.bitrate_kbit_s);
    json->number ("latency_ms", sample.latency_ms);
    json->number ("attitudes_per_s", sample.attitudes_per_s);
    json->number ("error_deg", sample.error_deg);
    json->integer ("dropped", static_cast<int64_t> (sample.dropped));
    json->end_object ();
  }
  json->end_array ();
}

} // namespace

std::string summary_json (const RunRecord &record, const Figures &figures)
{
  Writer json;
  json.object ();
  json.integer ("format", format_version);
  json.object ("run");
  for (const auto &[name, value] : record.meta)
    json.text (name.c_str (), value);
  json.end_object ();
  write_clock (&json, record.clock);
  json.number ("duration_s", figures.duration_s);
  json.object ("stream");
  json.spread ("fps_in", figures.fps_in);
  json.spread ("fps_out", figures.fps_out);
  json.spread ("bitrate_kbit_s", figures.bitrate_kbit_s);
  json.spread ("latency_ms", figures.latency_ms);
  json.integer ("dropped", static_cast<int64_t> (figures.dropped));
  json.end_object ();
  write_attitude (&json, record, figures);
  write_recordings (&json, record, figures);
  write_photos (&json, record);
  json.array ("events");
  for (const Event &event : record.events) {
    json.object ();
    json.number ("time_s", record.seconds_since_start (event.time_ns));
    json.text ("text", event.text);
    json.end_object ();
  }
  json.end_array ();
  write_seconds (&json, record);
  json.texts ("warnings", record.warnings);
  json.end_object ();
  return json.on_lines () + "\n";
}

} // namespace report
