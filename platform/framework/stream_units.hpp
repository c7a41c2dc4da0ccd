// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Who gets the stream's access units.
#ifndef VORN_FRAMEWORK_STREAM_UNITS_HPP
#define VORN_FRAMEWORK_STREAM_UNITS_HPP

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include <vorn/gst_view.h>

namespace vorn
{

/** Thread-safe. */
class StreamUnits
{
public:
  ~StreamUnits () { clear (); }

  guint add (VornStreamUnitFunc func, gpointer data, GDestroyNotify destroy);
  /** After this the function does not run and will not, unless it is the one that calls. */
  void remove (guint id);
  void clear ();
  void deliver (VornGstView *view, GstSample *unit);

private:
  struct Taker {
    guint id;
    VornStreamUnitFunc func;
    gpointer data;
    GDestroyNotify destroy;
    bool removed = false;
    ~Taker ()
    {
      if (destroy)
        destroy (data);
    }
  };
  // Held while the functions are called, so that removing waits; recursive, so that one of them may
  // remove itself. Guards all below.
  std::recursive_mutex mutex_;
  std::vector<std::shared_ptr<Taker>> takers_;
  guint last_id_ = 0;
};

} // namespace vorn

#endif
