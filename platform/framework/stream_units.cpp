// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "stream_units.hpp"

#include <algorithm>

namespace vorn
{

guint StreamUnits::add (VornStreamUnitFunc func, gpointer data, GDestroyNotify destroy)
{
  const std::lock_guard lock (mutex_);
  const guint id = ++last_id_;
  takers_.push_back (std::shared_ptr<Taker> (new Taker{id, func, data, destroy}));
  return id;
}

void StreamUnits::remove (guint id)
{
  std::shared_ptr<Taker> removed; // its data is given back without the lock
  const std::lock_guard lock (mutex_);
  const auto found = std::find_if (takers_.begin (), takers_.end (),
                                   [&] (const auto &taker) { return taker->id == id; });
  if (found == takers_.end ())
    return;
  removed = *found;
  removed->removed = true;
  takers_.erase (found);
}

void StreamUnits::clear ()
{
  std::vector<std::shared_ptr<Taker>> removed;
  const std::lock_guard lock (mutex_);
  removed.swap (takers_);
  for (const auto &taker : removed)
    taker->removed = true;
}

void StreamUnits::deliver (VornGstView *view, GstSample *unit)
{
  const std::lock_guard lock (mutex_);
  const auto takers = takers_; // as they are now: the functions may change the list
  for (const auto &taker : takers)
    if (!taker->removed)
      taker->func (view, unit, taker->data);
}

} // namespace vorn
