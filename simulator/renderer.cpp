// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "renderer.hpp"

#include <algorithm>
#include <cstring>

#include "renderer_background.hpp"
#include "renderer_landmarks.hpp"
#include "renderer_view.hpp"

namespace sim
{

struct RendererScratch {
  explicit RendererScratch (const World &world) : background (world) {}

  Background background;
  VisibleLandmarks landmarks;
  std::vector<Pixel> row;
  std::vector<uint16_t> sums; // of each byte of the row
};

namespace
{

void pack_row (const Pixel *row, uint32_t width, uint8_t *pixels)
{
  uint32_t x = 0;
  // Four pixels make three words.
  for (; x + 4 <= width; x += 4) {
    const uint32_t words[] = {(row[x] & 0xffffff) | row[x + 1] << 24,
                              (row[x + 1] >> 8 & 0xffff) | row[x + 2] << 16,
                              (row[x + 2] >> 16 & 0xff) | row[x + 3] << 8};
    memcpy (pixels + 3 * size_t{x}, words, sizeof words);
  }
  for (; x < width; x++)
    for (uint32_t channel = 0; channel < 3; channel++)
      pixels[3 * size_t{x} + channel] = static_cast<uint8_t> (row[x] >> (8 * channel));
}

void add_row (const std::vector<Pixel> &row, std::vector<uint16_t> *sums)
{
  for (size_t i = 0; i < row.size (); i++)
    for (size_t channel = 0; channel < 4; channel++)
      (*sums)[4 * i + channel] =
          static_cast<uint16_t> ((*sums)[4 * i + channel] + (row[i] >> (8 * channel) & 255));
}

void average_row (const std::vector<uint16_t> &sums, unsigned count, std::vector<Pixel> *row)
{
  const auto mean = [&] (size_t i) { return (sums[i] + count / 2) / count; };
  for (size_t i = 0; i < row->size (); i++)
    (*row)[i] = mean (4 * i) | mean (4 * i + 1) << 8 | mean (4 * i + 2) << 16;
}

} // namespace

Renderer::Renderer (std::shared_ptr<const World> world)
    : world_ (std::move (world)), scratch_ (std::make_unique<RendererScratch> (*world_))
{
}

Renderer::~Renderer () = default;

void Renderer::render (const Shot &shot, const CameraMotion &motion, uint8_t *pixels, size_t stride)
{
  const PictureGeometry &geometry = shot.geometry;
  const int width = static_cast<int> (geometry.width);
  const int samples = std::clamp (shot.sub_exposures, 1, 64);
  const int64_t first_ns = samples == 1 ? shot.exposure_ns / 2 : 0;
  const int64_t last_ns = shot.readout_ns + (samples == 1 ? first_ns : shot.exposure_ns);
  const ViewTrack track (motion, shot.capture_ns + first_ns, shot.capture_ns + last_ns);
  scratch_->landmarks.collect (*world_, geometry, track);
  scratch_->row.resize (geometry.width);
  std::vector<Pixel> &row = scratch_->row;

  for (uint32_t y = 0; y < geometry.height; y++) {
    // The middle of the row is exposed from here on.
    const int64_t row_ns =
        shot.capture_ns +
        static_cast<int64_t> (static_cast<double> (shot.readout_ns) * (y + 0.5) / geometry.height);
    if (samples > 1)
      scratch_->sums.assign (4 * row.size (), 0);
    for (int sample = 0; sample < samples; sample++) {
      const int64_t time_ns = row_ns + shot.exposure_ns * (2 * sample + 1) / (2 * samples);
      const RowRays rays = rays_of (track.at (time_ns), geometry, y);
      scratch_->background.draw (rays, width, row.data ());
      scratch_->landmarks.draw (rays, static_cast<int> (y), row.data ());
      if (samples > 1)
        add_row (row, &scratch_->sums);
    }
    if (samples > 1)
      average_row (scratch_->sums, static_cast<unsigned> (samples), &row);
    uint8_t *line = pixels + y * stride;
    pack_row (row.data (), geometry.width, line);
    if (shot.curve)
      for (size_t i = 0; i < 3 * size_t{geometry.width}; i++)
        line[i] = (*shot.curve)[line[i]];
  }
}

} // namespace sim
