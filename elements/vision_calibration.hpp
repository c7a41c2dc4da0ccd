// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/** What a vision algorithm is told of its camera: named, typed properties, checked when set. */
#ifndef VISION_CALIBRATION_HPP
#define VISION_CALIBRATION_HPP

#include <span>
#include <string>
#include <vector>

#include <gst/gst.h>

#include <vorn/raii.hpp>

namespace vision
{

enum class FieldType {
  pixels,  // whole number
  single,  // number of single precision
  real,    // number of double precision
  text,    // "{a, b, ...}", decimal points whatever the locale
  numbers, // value array of floats
  matrix,  // value array of three value arrays of three floats, rows
};

/** One property. Numbers have a range; arrays and texts have a count. */
struct Field {
  const char *name;
  const char *blurb;
  FieldType type;
  unsigned count = 1;
  double least = 0;
  double most = 0;
};

/** Installs the fields as properties with ids from 1 on. The fields must outlive the class. */
void install_fields (GObjectClass *object_class, std::span<const Field> fields);

/** The values behind the properties. Thread-safe. */
class Calibration
{
public:
  explicit Calibration (std::span<const Field> fields);
  ~Calibration () { g_mutex_clear (&mutex_); }
  Calibration (const Calibration &) = delete;
  Calibration &operator= (const Calibration &) = delete;

  /** Sets the property; FALSE when there is none. A value that does not parse or has another shape
   * is told with a warning that names property and value, and changes nothing. */
  bool set_property (guint id, const GValue *value);
  /** The value as it was set; FALSE when there is no such property. */
  bool get_property (guint id, GValue *value) const;

  /** A property's numbers (a matrix row by row); none before it was set or without it. */
  std::vector<double> numbers (const char *name) const;

private:
  struct Entry {
    GValue value = G_VALUE_INIT;
    std::vector<double> numbers;

    Entry () = default;
    Entry (const Entry &) = delete;
    Entry &operator= (const Entry &) = delete;
    ~Entry ()
    {
      if (G_IS_VALUE (&value))
        g_value_unset (&value);
    }
  };

  std::span<const Field> fields_;
  /** Guards entries_ only; nothing is called while it is held. */
  mutable GMutex mutex_{};
  std::vector<Entry> entries_;
};

} // namespace vision

#endif
