// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/** The dewarping filter's properties: what they are, and their values, set from any thread. */
#ifndef TOVRINFILTER_SETTINGS_HPP
#define TOVRINFILTER_SETTINGS_HPP

#include <optional>
#include <string>

#include <vorn/raii.hpp>

#include "tovrinfilter_geometry.hpp"
#include "tovrinfilter_view.hpp"

namespace tovrin
{

inline constexpr guint default_smoothing_ms = 200;
inline constexpr guint default_zoom_release_ms = 500;
inline constexpr double default_max_zoom = 2.5;

/** What the properties say. */
struct Settings {
  bool wobble_comp = false;
  CaptureRect rect;
  std::optional<Quaternion> orientation;
  std::string orientation_text;
  guint smoothing_ms = default_smoothing_ms;
  guint zoom_release_ms = default_zoom_release_ms;
  double max_zoom = default_max_zoom;

  ViewSettings view () const
  {
    return {orientation, 1e6 * smoothing_ms, 1e6 * zoom_release_ms, max_zoom};
  }
};

/** Installs the properties of an element that has settings. */
void install_settings (GObjectClass *object_class);

/** The settings behind the properties. Thread-safe. */
class SharedSettings
{
public:
  SharedSettings () { g_mutex_init (&mutex_); }
  ~SharedSettings () { g_mutex_clear (&mutex_); }
  SharedSettings (const SharedSettings &) = delete;
  SharedSettings &operator= (const SharedSettings &) = delete;

  Settings get () const;
  /** A property's value; FALSE when there is no such property. A wrong orientation text is told
   * with a warning and changes nothing. */
  bool set_property (guint id, const GValue *value);
  bool get_property (guint id, GValue *value) const;

private:
  void set_orientation (const char *text);

  /** Guards settings_ only; nothing is called while it is held. */
  mutable GMutex mutex_{};
  Settings settings_;
};

} // namespace tovrin

#endif
