// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/metadata_provider.h>

#include <cmath>
#include <limits>
#include <mutex>
#include <optional>
#include <string>

#include "internal.hpp"
#include "metadata_angles.hpp"
#include "metadata_telemetry.hpp"
#include <vorn/log.h>
#include <vorn/raii.hpp>

VORN_LOG_TAG ("vorn_metadata");

namespace
{

constexpr char group[] = "metadata";
constexpr char boot_id_file[] = "/proc/sys/kernel/random/boot_id";
constexpr int32_t fewest_satellites = 4; // for a place in three dimensions
constexpr guint takeoff_poll_ms = 200;

constexpr VornTelemetryEntry f32 (const char *name, float *destination)
{
  return {name, VORN_TELEMETRY_F32, sizeof (float), 1, destination};
}

constexpr VornTelemetryEntry f64 (const char *name, double *destination)
{
  return {name, VORN_TELEMETRY_F64, sizeof (double), 1, destination};
}

std::string boot_id ()
{
  gchar *contents = nullptr;
  if (!g_file_get_contents (boot_id_file, &contents, nullptr, nullptr))
    return "unknown";
  const vorn::OwnedString owned (g_strstrip (contents));
  return owned.get ();
}

gchar *copy_or_null (const std::string &text)
{
  return text.empty () ? nullptr : g_strdup (text.c_str ());
}

int64_t now_ns ()
{
  return g_get_monotonic_time () * 1000;
}

/** What the configuration tells; the values here hold where it says nothing. */
struct Settings {
  std::string manufacturer = "Vorn";
  std::string model = "Zelto";
  std::string model_id = "zelto";
  std::string serial = "ZELTO-DESK-0001";
  std::string software_version = VORN_VERSION;
  std::string build_id = "vornmorvikzelto-" VORN_VERSION;
  std::string flight_uid; // empty: none
  std::string run_id;     // empty: none
  double accuracy_horizontal_m = 1.5;
  double accuracy_vertical_m = 3.0;
  std::optional<double> takeoff_altitude_m;

  void read (GKeyFile *file)
  {
    for (const auto &[key, text] : {std::pair{"manufacturer", &manufacturer},
                                    {"model", &model},
                                    {"model-id", &model_id},
                                    {"serial", &serial},
                                    {"software-version", &software_version},
                                    {"build-id", &build_id},
                                    {"flight-uid", &flight_uid},
                                    {"run-id", &run_id}}) {
      const vorn::OwnedString value (g_key_file_get_string (file, group, key, nullptr));
      if (value)
        *text = value.get ();
    }
    for (const auto &[key, number] : {std::pair{"accuracy-horizontal", &accuracy_horizontal_m},
                                      {"accuracy-vertical", &accuracy_vertical_m}})
      if (const auto value = number_of (file, key))
        *number = *value;
    takeoff_altitude_m = number_of (file, "takeoff-altitude");
  }

private:
  static std::optional<double> number_of (GKeyFile *file, const char *key)
  {
    vorn::ErrorOut error;
    const double value = g_key_file_get_double (file, group, key, error.out ());
    return error ? std::nullopt : std::optional (value);
  }
};

/** The drone's telemetry: where the sections put their samples. */
struct Telemetry {
  double latitude_deg = 0;
  double longitude_deg = 0;
  double altitude_m = 0;
  float roll_deg = 0;
  float pitch_deg = 0;
  float yaw_deg = 0;
  int32_t satellites = 0;
  float camera[4] = {};
  float picture[4] = {};
  float hfov_deg = 0;

  vorn::TelemetrySection drone = [this] {
    const VornTelemetryEntry entries[] = {
        f64 ("drone.latitude", &latitude_deg),
        f64 ("drone.longitude", &longitude_deg),
        f64 ("drone.altitude_m", &altitude_m),
        f32 ("drone.roll", &roll_deg),
        f32 ("drone.pitch", &pitch_deg),
        f32 ("drone.yaw", &yaw_deg),
        {"drone.satellites", VORN_TELEMETRY_INT32, sizeof (int32_t), 1, &satellites},
    };
    return vorn::TelemetrySection ("drone", entries);
  }();
  vorn::TelemetrySection video = [this] {
    const VornTelemetryEntry entries[] = {
        f32 ("video.drone_est_ned_start_q_x", &camera[0]),
        f32 ("video.drone_est_ned_start_q_y", &camera[1]),
        f32 ("video.drone_est_ned_start_q_z", &camera[2]),
        f32 ("video.drone_est_ned_start_q_w", &camera[3]),
    };
    return vorn::TelemetrySection ("video", entries);
  }();
  vorn::TelemetrySection camera_controller = [this] {
    const VornTelemetryEntry entries[] = {
        f32 ("camera_controller.video_ref_ned_start_q_x", &picture[0]),
        f32 ("camera_controller.video_ref_ned_start_q_y", &picture[1]),
        f32 ("camera_controller.video_ref_ned_start_q_z", &picture[2]),
        f32 ("camera_controller.video_ref_ned_start_q_w", &picture[3]),
        f32 ("camera_controller.hfov", &hfov_deg),
    };
    return vorn::TelemetrySection ("camera_controller", entries);
  }();

  bool is_place_valid () const
  {
    return std::abs (latitude_deg) <= 90 && std::abs (longitude_deg) <= 180 &&
           std::isfinite (altitude_m) && satellites >= fewest_satellites;
  }
};

std::optional<vorn::Quaternion> attitude_of (const float (&q)[4])
{
  vorn::Quaternion attitude = {q[0], q[1], q[2], q[3]};
  return vorn::normalise (&attitude) ? std::optional (attitude) : std::nullopt;
}

void store (const vorn::Angles &angles, gfloat *roll, gfloat *pitch, gfloat *yaw)
{
  *roll = static_cast<gfloat> (angles.roll);
  *pitch = static_cast<gfloat> (angles.pitch);
  *yaw = static_cast<gfloat> (angles.yaw);
}

} // namespace

struct VornMetadataProvider {
  ~VornMetadataProvider ()
  {
    if (takeoff_poll != 0)
      g_source_remove (takeoff_poll);
  }

  /** Looks for the altitude of the take-off; TRUE when it is known. */
  bool note_takeoff (const Telemetry &seen)
  {
    if (!settings.takeoff_altitude_m && seen.is_place_valid ())
      settings.takeoff_altitude_m = seen.altitude_m;
    return settings.takeoff_altitude_m.has_value ();
  }

  /** Says which sections are silent, once for as long as it stays so. */
  void report_missing (const std::string &sections)
  {
    if (sections != missing && !sections.empty ())
      VORN_LOG_WARNING ("no telemetry of%s: what it tells is 0 in photos", sections.c_str ());
    missing = sections;
  }

  bool get (vorn::TelemetrySection &section, int64_t time_ns, std::string *silent)
  {
    const bool got = section.get (time_ns);
    if (!got)
      *silent += (silent->empty () ? " '" : ", '") + std::string (section.name ()) + "'";
    return got;
  }

  std::mutex mutex; // guards everything but the poll, which is the framework's thread's
  Settings settings;
  Telemetry telemetry;
  std::string missing;
  const std::string boot = boot_id ();
  guint takeoff_poll = 0;
};

VornMetadataProvider *vorn::metadata_provider_new ()
{
  return new VornMetadataProvider;
}

void vorn::metadata_provider_free (VornMetadataProvider *provider)
{
  delete provider;
}

static gboolean poll_takeoff (gpointer data)
{
  auto *provider = static_cast<VornMetadataProvider *> (data);
  const std::lock_guard lock (provider->mutex);
  Telemetry &telemetry = provider->telemetry;
  if (!telemetry.drone.get (now_ns ()) || !provider->note_takeoff (telemetry))
    return G_SOURCE_CONTINUE;
  provider->takeoff_poll = 0;
  return G_SOURCE_REMOVE;
}

void vorn::metadata_provider_configure (VornMetadataProvider *provider, GKeyFile *settings)
{
  {
    const std::lock_guard lock (provider->mutex);
    if (settings)
      provider->settings.read (settings);
  }
  if (provider->takeoff_poll == 0 && poll_takeoff (provider) == G_SOURCE_CONTINUE)
    provider->takeoff_poll = g_timeout_add (takeoff_poll_ms, poll_takeoff, provider);
}

VornUntimedMetadata *vorn_metadata_provider_get_untimed_meta (VornMetadataProvider *provider)
{
  g_return_val_if_fail (provider != NULL, nullptr);
  const std::lock_guard lock (provider->mutex);
  const Settings &settings = provider->settings;
  auto *record = g_new0 (VornUntimedMetadata, 1);
  record->manufacturer = g_strdup (settings.manufacturer.c_str ());
  record->model = g_strdup (settings.model.c_str ());
  record->model_id = g_strdup (settings.model_id.c_str ());
  record->serial = g_strdup (settings.serial.c_str ());
  record->software_version = g_strdup (settings.software_version.c_str ());
  record->build_id = g_strdup (settings.build_id.c_str ());
  record->boot_id = g_strdup (provider->boot.c_str ());
  record->flight_uid = copy_or_null (settings.flight_uid);
  record->run_id = copy_or_null (settings.run_id);
  Telemetry &telemetry = provider->telemetry;
  if (!telemetry.drone.get (now_ns ()))
    return record;
  const vorn::Angles drone = {telemetry.roll_deg, telemetry.pitch_deg, telemetry.yaw_deg};
  store (drone, &record->drone_roll, &record->drone_pitch, &record->drone_yaw);
  if (provider->note_takeoff (telemetry) && telemetry.is_place_valid ())
    record->above_takeoff_altitude = telemetry.altitude_m - *settings.takeoff_altitude_m;
  return record;
}

void vorn_metadata_provider_free_untimed_meta (VornUntimedMetadata *record)
{
  if (!record)
    return;
  for (gchar *text : {record->manufacturer, record->model, record->model_id, record->serial,
                      record->software_version, record->build_id, record->boot_id,
                      record->flight_uid, record->run_id})
    g_free (text);
  g_free (record);
}

static void fill_place (const Telemetry &telemetry, const Settings &settings,
                        VornTimedPhotoMetadata *record)
{
  record->latitude = telemetry.latitude_deg;
  record->longitude = telemetry.longitude_deg;
  record->altitude = telemetry.altitude_m;
  record->satellite_count = static_cast<guint32> (telemetry.satellites);
  record->location_valid = 1;
  record->accuracy_horizontal = settings.accuracy_horizontal_m;
  record->accuracy_vertical = settings.accuracy_vertical_m;
}

gint vorn_metadata_provider_get_timed_photo_meta (VornMetadataProvider *provider,
                                                  guint64 capture_time_ns,
                                                  VornTimedPhotoMetadata *record)
{
  g_return_val_if_fail (provider != NULL, 0);
  g_return_val_if_fail (record != NULL, 0);
  if (capture_time_ns > std::numeric_limits<int64_t>::max ()) {
    VORN_LOG_ERROR ("no metadata of a photo: its capture time is not valid");
    return 0;
  }
  const auto time_ns = static_cast<int64_t> (capture_time_ns);
  const std::lock_guard lock (provider->mutex);
  Telemetry &telemetry = provider->telemetry;
  *record = {};
  record->shutter_den = 1;
  std::string silent;
  if (provider->get (telemetry.drone, time_ns, &silent)) {
    provider->note_takeoff (telemetry);
    if (telemetry.is_place_valid ())
      fill_place (telemetry, provider->settings, record);
  }
  if (provider->get (telemetry.video, time_ns, &silent))
    if (const auto camera = attitude_of (telemetry.camera))
      store (vorn::angles_of (*camera), &record->camera_roll, &record->camera_pitch,
             &record->camera_yaw);
  if (provider->get (telemetry.camera_controller, time_ns, &silent)) {
    record->hfov = std::isfinite (telemetry.hfov_deg) ? telemetry.hfov_deg : 0;
    if (const auto picture = attitude_of (telemetry.picture)) {
      store (vorn::angles_of (*picture), &record->visible_roll, &record->visible_pitch,
             &record->visible_yaw);
      store (vorn::photogrammetry_angles_of (*picture), &record->pix4d_roll, &record->pix4d_pitch,
             &record->pix4d_yaw);
    }
  }
  provider->report_missing (silent);
  return 1;
}
