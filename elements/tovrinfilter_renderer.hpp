// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * Draws the warped picture. The output is covered by a grid; each of its corners carries the
 * homogeneous position in the input picture that its ray meets, and the fragment shader divides and
 * looks up. Between the corners the homogeneous position is linear: exactly so while one turn holds
 * for the whole picture (a single cell then does), to a seventh of a pixel with rows. More
 * cells would cost more than they give: a software rasteriser pays for each one's border.
 */
#ifndef TOVRINFILTER_RENDERER_HPP
#define TOVRINFILTER_RENDERER_HPP

#include <cstdint>
#include <vector>

#include <gst/gl/gl.h>

#include <vorn/raii.hpp>

#include "tovrinfilter_geometry.hpp"

namespace tovrin
{

/** One corner of the grid. */
struct Vertex {
  float x, y;    // in the output, -1 to 1; -1 is left and top
  float u, v, w; // u / w and v / w are 0 to 1 from the input's left and top
};

struct Mesh {
  int columns = 0;
  int rows = 0;
  std::vector<Vertex> vertices; // row by row, columns + 1 in each
};

/** The grid that shows the output window of what warp finds in the input window. */
void fill_mesh (const Warp &warp, const Window &input, const Window &output, Mesh *mesh);

/** The GL objects. All calls on the GL thread of the context. */
class Renderer
{
public:
  /** Makes shader and buffers; FALSE and the reason when the context cannot. */
  bool start (GstGLContext *context, GError **error);
  void stop ();

  /** Draws the mesh, with the texture bound to target 2D, into the current framebuffer. */
  void draw (const Mesh &mesh, guint texture);

private:
  void bind_attributes ();
  void set_grid (int columns, int rows);

  GstGLContext *context_ = nullptr; // the element's; valid between start and stop
  vorn::Ref<GstGLShader> shader_;
  guint vertex_array_ = 0;
  guint vertex_buffer_ = 0;
  guint index_buffer_ = 0;
  int position_location_ = -1;
  int texture_location_ = -1;
  int grid_columns_ = 0;
  int grid_rows_ = 0;
};

} // namespace tovrin

#endif
