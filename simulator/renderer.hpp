// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * Renders what a moving pinhole camera sees, on the CPU. Every row is rendered at its own time, and
 * a row's exposure may be sampled several times, so rolling shutter and motion blur come out as a
 * real sensor's do.
 */
#ifndef SIMULATOR_RENDERER_HPP
#define SIMULATOR_RENDERER_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "camera_model.hpp"
#include "camera_pose.hpp"
#include "world.hpp"

namespace sim
{

/** What each colour value becomes. */
using ToneCurve = std::array<uint8_t, 256>;

/** One picture to take. */
struct Shot {
  PictureGeometry geometry;
  int64_t capture_ns;    // when the exposure of the picture's top edge begins
  int64_t exposure_ns;   // of each row
  int64_t readout_ns;    // from the picture's top edge to its bottom edge
  int sub_exposures = 1; // samples of each row's exposure, 1 to 64; 1: its middle, no blur
  const ToneCurve *curve = nullptr;
};

struct RendererScratch;

/** Bound to one thread at a time; renderers may share a world. */
class Renderer
{
public:
  explicit Renderer (std::shared_ptr<const World> world);
  ~Renderer ();
  Renderer (const Renderer &) = delete;
  Renderer &operator= (const Renderer &) = delete;

  /** Writes packed RGB rows, stride bytes apart. */
  void render (const Shot &shot, const CameraMotion &motion, uint8_t *pixels, size_t stride);

private:
  std::shared_ptr<const World> world_;
  std::unique_ptr<RendererScratch> scratch_;
};

} // namespace sim

#endif
