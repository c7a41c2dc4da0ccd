// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_FRONT_MODES_SUPPORT_HPP
#define TESTS_FRONT_MODES_SUPPORT_HPP

#include <ostream>

#include "test_virtual_camera.hpp"
#include "vorn_morvik_zelto_front_modes.hpp"

enum Flavour { VISIBLE = FALSE, THERMAL = TRUE };

inline VornCapabilitySet caps_of (Flavour flavour)
{
  VornCapabilitySet caps = {};
  vorn_morvik_zelto_front_modes_caps_set (flavour, &caps);
  return caps;
}

// Words are compared, not numbers: 60000/2002 is not 30000/1001.

inline bool operator== (const VornResolution &a, const VornResolution &b)
{
  return a.width == b.width && a.height == b.height;
}

inline bool operator== (const VornFramerate &a, const VornFramerate &b)
{
  return a.num == b.num && a.den == b.den;
}

inline bool operator== (const VornFormat &a, const VornFormat &b)
{
  return a.resolution == b.resolution && a.framerate == b.framerate && a.flag == b.flag;
}

inline std::ostream &operator<< (std::ostream &stream, const VornResolution &value)
{
  return stream << value.width << "x" << value.height;
}

inline std::ostream &operator<< (std::ostream &stream, const VornFramerate &value)
{
  return stream << value.num << "/" << value.den;
}

inline std::ostream &operator<< (std::ostream &stream, const VornFormat &value)
{
  return stream << value.resolution << " at " << value.framerate << " flag " << value.flag;
}

#endif
