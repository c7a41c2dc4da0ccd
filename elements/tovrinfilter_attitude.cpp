// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "tovrinfilter_attitude.hpp"

#include <array>

namespace tovrin
{
namespace
{

constexpr std::array<const char *, 4> field_names = {"quaternions_x", "quaternions_y",
                                                     "quaternions_z", "quaternions_w"};
/** Rounding and integration leave less than this; what is further off is no rotation. */
constexpr double norm_tolerance = 0.01;

const GArray *float_array (const GstStructure *structure, const char *name, std::string *problem)
{
  const GValue *value = gst_structure_get_value (structure, name);
  if (!value) {
    *problem = std::string (name) + " is missing";
    return nullptr;
  }
  const auto *array = G_VALUE_HOLDS (value, G_TYPE_ARRAY)
                          ? static_cast<GArray *> (g_value_get_boxed (value))
                          : nullptr;
  if (!array || g_array_get_element_size (const_cast<GArray *> (array)) != sizeof (float)) {
    *problem = std::string (name) + " is no array of 32-bit floats";
    return nullptr;
  }
  if (array->len == 0) {
    *problem = std::string (name) + " is empty";
    return nullptr;
  }
  return array;
}

bool is_unit (Quaternion q)
{
  // A comparison that NaN fails.
  return std::abs (norm (q) - 1) <= norm_tolerance;
}

} // namespace

std::optional<AttitudeTrack> AttitudeTrack::parse (const GstStructure *imu_data,
                                                   std::string *problem)
{
  if (!gst_structure_has_name (imu_data, "imu-data")) {
    *problem = std::string ("the structure is named ") + gst_structure_get_name (imu_data);
    return std::nullopt;
  }
  std::array<const GArray *, 4> arrays{};
  for (size_t i = 0; i < arrays.size (); i++) {
    arrays[i] = float_array (imu_data, field_names[i], problem);
    if (!arrays[i])
      return std::nullopt;
    if (arrays[i]->len != arrays[0]->len) {
      *problem = std::string (field_names[i]) + " has " + std::to_string (arrays[i]->len) +
                 " elements, quaternions_x has " + std::to_string (arrays[0]->len);
      return std::nullopt;
    }
  }
  const auto component = [&] (size_t i, guint k) {
    return static_cast<double> (g_array_index (arrays[i], float, k));
  };
  std::vector<Quaternion> samples;
  samples.reserve (arrays[0]->len);
  for (guint k = 0; k < arrays[0]->len; k++) {
    const Quaternion q = {component (0, k), component (1, k), component (2, k), component (3, k)};
    if (!is_unit (q)) {
      *problem = "sample " + std::to_string (k) + " is no unit quaternion";
      return std::nullopt;
    }
    samples.push_back (normalized (q));
  }
  return AttitudeTrack (std::move (samples));
}

Quaternion AttitudeTrack::at (double after_start_ns) const
{
  if (samples_.size () == 1)
    return samples_[0];
  const double latest = end_ns () + continued_ns;
  const double position =
      std::max (0.0, (std::min (after_start_ns, latest) + first_sample_age_ns) / sample_period_ns);
  const size_t index = std::min (static_cast<size_t> (position), samples_.size () - 2);
  return slerp (samples_[index], samples_[index + 1], position - static_cast<double> (index));
}

} // namespace tovrin
