// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "tovrinfilter_renderer.hpp"

#include <cstddef>

#include <gst/gl/gstglfuncs.h>

namespace tovrin
{
namespace
{

constexpr int rolling_columns = 8;
constexpr int rolling_rows = 16;

constexpr const char *vertex_source = "attribute vec2 a_position;\n"
                                      "attribute vec3 a_texture;\n"
                                      "varying vec3 v_texture;\n"
                                      "void main ()\n"
                                      "{\n"
                                      "  gl_Position = vec4 (a_position, 0.0, 1.0);\n"
                                      "  v_texture = a_texture;\n"
                                      "}\n";

constexpr const char *fragment_source = "#ifdef GL_ES\n"
                                        "#ifdef GL_FRAGMENT_PRECISION_HIGH\n"
                                        "precision highp float;\n"
                                        "#else\n"
                                        "precision mediump float;\n"
                                        "#endif\n"
                                        "#endif\n"
                                        "varying vec3 v_texture;\n"
                                        "uniform sampler2D tex;\n"
                                        "void main ()\n"
                                        "{\n"
                                        "  gl_FragColor = texture2DProj (tex, v_texture);\n"
                                        "}\n";

vorn::Ref<GstGLShader> make_shader (GstGLContext *context, GError **error)
{
  // No version line: the same text does for GL and GL ES, as with GStreamer's own filters.
  constexpr auto profile =
      static_cast<GstGLSLProfile> (GST_GLSL_PROFILE_ES | GST_GLSL_PROFILE_COMPATIBILITY);
  GstGLSLStage *vertex = gst_glsl_stage_new_with_string (
      context, GL_VERTEX_SHADER, GST_GLSL_VERSION_NONE, profile, vertex_source);
  GstGLSLStage *fragment = gst_glsl_stage_new_with_string (
      context, GL_FRAGMENT_SHADER, GST_GLSL_VERSION_NONE, profile, fragment_source);
  // Takes both stages over.
  return vorn::adopt (
      gst_gl_shader_new_link_with_stages (context, error, vertex, fragment, nullptr));
}

std::vector<guint16> grid_triangles (int columns, int rows)
{
  std::vector<guint16> indices;
  indices.reserve (6 * static_cast<size_t> (columns) * static_cast<size_t> (rows));
  for (int row = 0; row < rows; row++) {
    for (int column = 0; column < columns; column++) {
      const int top_left = row * (columns + 1) + column;
      const int bottom_left = top_left + columns + 1;
      for (const int index :
           {top_left, top_left + 1, bottom_left, bottom_left, top_left + 1, bottom_left + 1})
        indices.push_back (static_cast<guint16> (index));
    }
  }
  return indices;
}

} // namespace

void fill_mesh (const Warp &warp, const Window &input, const Window &output, Mesh *mesh)
{
  mesh->columns = warp.by_rows () ? rolling_columns : 1;
  mesh->rows = warp.by_rows () ? rolling_rows : 1;
  mesh->vertices.clear ();
  const double per_width = 1 / (input.right - input.left);
  const double per_height = 1 / (input.bottom - input.top);
  for (int row = 0; row <= mesh->rows; row++) {
    for (int column = 0; column <= mesh->columns; column++) {
      const double across = static_cast<double> (column) / mesh->columns;
      const double down = static_cast<double> (row) / mesh->rows;
      const Vector found = warp.to_input (output.ray (across, down));
      mesh->vertices.push_back ({static_cast<float> (2 * across - 1),
                                 static_cast<float> (2 * down - 1),
                                 static_cast<float> ((found.y - input.left * found.x) * per_width),
                                 static_cast<float> ((found.z - input.top * found.x) * per_height),
                                 static_cast<float> (found.x)});
    }
  }
}

bool Renderer::start (GstGLContext *context, GError **error)
{
  context_ = context;
  shader_ = make_shader (context, error);
  if (!shader_)
    return false;
  position_location_ = gst_gl_shader_get_attribute_location (shader_.get (), "a_position");
  texture_location_ = gst_gl_shader_get_attribute_location (shader_.get (), "a_texture");
  const GstGLFuncs *gl = context->gl_vtable;
  if (gl->GenVertexArrays)
    gl->GenVertexArrays (1, &vertex_array_);
  gl->GenBuffers (1, &vertex_buffer_);
  gl->GenBuffers (1, &index_buffer_);
  return true;
}

void Renderer::stop ()
{
  if (!context_)
    return;
  const GstGLFuncs *gl = context_->gl_vtable;
  if (vertex_array_)
    gl->DeleteVertexArrays (1, &vertex_array_);
  if (vertex_buffer_)
    gl->DeleteBuffers (1, &vertex_buffer_);
  if (index_buffer_)
    gl->DeleteBuffers (1, &index_buffer_);
  *this = Renderer ();
}

void Renderer::bind_attributes ()
{
  const GstGLFuncs *gl = context_->gl_vtable;
  const auto offset = [] (size_t bytes) { return reinterpret_cast<const void *> (bytes); };
  const auto position = static_cast<guint> (position_location_);
  const auto texture = static_cast<guint> (texture_location_);
  gl->VertexAttribPointer (position, 2, GL_FLOAT, GL_FALSE, sizeof (Vertex),
                           offset (offsetof (Vertex, x)));
  gl->VertexAttribPointer (texture, 3, GL_FLOAT, GL_FALSE, sizeof (Vertex),
                           offset (offsetof (Vertex, u)));
  gl->EnableVertexAttribArray (position);
  gl->EnableVertexAttribArray (texture);
}

void Renderer::set_grid (int columns, int rows)
{
  if (columns == grid_columns_ && rows == grid_rows_)
    return;
  const std::vector<guint16> indices = grid_triangles (columns, rows);
  context_->gl_vtable->BufferData (GL_ELEMENT_ARRAY_BUFFER,
                                   static_cast<GLsizeiptr> (indices.size () * sizeof (guint16)),
                                   indices.data (), GL_STATIC_DRAW);
  grid_columns_ = columns;
  grid_rows_ = rows;
}

void Renderer::draw (const Mesh &mesh, guint texture)
{
  const GstGLFuncs *gl = context_->gl_vtable;
  gst_gl_shader_use (shader_.get ());
  gl->ActiveTexture (GL_TEXTURE0);
  gl->BindTexture (GL_TEXTURE_2D, texture);
  gst_gl_shader_set_uniform_1i (shader_.get (), "tex", 0);

  if (vertex_array_)
    gl->BindVertexArray (vertex_array_);
  gl->BindBuffer (GL_ARRAY_BUFFER, vertex_buffer_);
  gl->BufferData (GL_ARRAY_BUFFER,
                  static_cast<GLsizeiptr> (mesh.vertices.size () * sizeof (Vertex)),
                  mesh.vertices.data (), GL_STREAM_DRAW);
  gl->BindBuffer (GL_ELEMENT_ARRAY_BUFFER, index_buffer_);
  set_grid (mesh.columns, mesh.rows);
  bind_attributes ();
  gl->DrawElements (GL_TRIANGLES, 6 * mesh.columns * mesh.rows, GL_UNSIGNED_SHORT, nullptr);

  gl->DisableVertexAttribArray (static_cast<guint> (position_location_));
  gl->DisableVertexAttribArray (static_cast<guint> (texture_location_));
  if (vertex_array_)
    gl->BindVertexArray (0);
  gl->BindBuffer (GL_ARRAY_BUFFER, 0);
  gl->BindBuffer (GL_ELEMENT_ARRAY_BUFFER, 0);
  gl->BindTexture (GL_TEXTURE_2D, 0);
  gst_gl_context_clear_shader (context_);
}

} // namespace tovrin
