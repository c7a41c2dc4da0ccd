// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Who takes the stream's units comes and goes on threads of his own.
#include "stream_units.hpp"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.hpp"

namespace
{

struct Taker {
  std::atomic<int> calls = 0;
  std::atomic<bool> present = false;
  std::atomic<int> destroyed = 0;
  std::atomic<int> too_late = 0;
};

void take (VornGstView *, GstSample *, gpointer data)
{
  auto *taker = static_cast<Taker *> (data);
  taker->calls++;
  if (!taker->present)
    taker->too_late++;
}

void destroy (gpointer data)
{
  static_cast<Taker *> (data)->destroyed++;
}

TEST (StreamUnits, EachGetsEachUnitInOrderOfComing)
{
  vorn::StreamUnits units;
  static std::vector<int> order;
  order.clear ();
  static int first = 1;
  static int second = 2;
  const auto note = [] (VornGstView *, GstSample *, gpointer data) {
    order.push_back (*static_cast<int *> (data));
  };
  units.deliver (nullptr, nullptr);
  const guint id = units.add (note, &first, nullptr);
  EXPECT_NE (units.add (note, &second, nullptr), id);
  units.deliver (nullptr, nullptr);
  units.remove (id);
  units.deliver (nullptr, nullptr);
  units.clear ();
  units.deliver (nullptr, nullptr);
  EXPECT_EQ (order, (std::vector<int>{1, 2, 2}));
}

TEST (StreamUnits, OneMayRemoveTheNext)
{
  vorn::StreamUnits units;
  struct Both {
    vorn::StreamUnits *units;
    guint victim = 0;
    int victims_calls = 0;
  } both = {&units};
  units.add (
      [] (VornGstView *, GstSample *, gpointer data) {
        auto *self = static_cast<Both *> (data);
        self->units->remove (self->victim);
      },
      &both, nullptr);
  both.victim = units.add ([] (VornGstView *, GstSample *,
                               gpointer data) { static_cast<Both *> (data)->victims_calls++; },
                           &both, nullptr);
  units.deliver (nullptr, nullptr);
  EXPECT_EQ (both.victims_calls, 0);
}

TEST (StreamUnits, WhoHasGoneIsNotCalledAndHisDataIsGivenBack)
{
  vorn::StreamUnits units;
  std::atomic<bool> stop = false;
  std::thread stream ([&] {
    while (!stop)
      units.deliver (nullptr, nullptr);
  });
  std::vector<std::thread> takers;
  takers.reserve (3);
  std::atomic<int> wrong = 0;
  for (int i = 0; i < 3; i++)
    takers.emplace_back ([&] {
      for (int round = 0; round < (soak () ? 20000 : 300); round++) {
        Taker taker;
        taker.present = true;
        const guint id = units.add (take, &taker, destroy);
        // Every other one goes before anything came.
        while (round % 2 == 0 && taker.calls == 0)
          std::this_thread::yield ();
        units.remove (id);
        taker.present = false;
        if (taker.destroyed != 1 || taker.too_late != 0)
          wrong++;
      }
    });
  for (std::thread &taker : takers)
    taker.join ();
  stop = true;
  stream.join ();
  EXPECT_EQ (wrong, 0);
}

} // namespace
