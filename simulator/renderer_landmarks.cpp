// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "renderer_landmarks.hpp"

#include <algorithm>
#include <cmath>

namespace sim
{

namespace
{

constexpr double glow_rad = 0.17;
constexpr double glow_strength = 0.45;

Vector minus (const Vector &a, const Vector &b)
{
  return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

/** A quantity that is linear over the picture: along this row, and its change to the next. */
struct Plane {
  double at_zero, per_x, per_y;
  double slope = std::hypot (per_x, per_y);

  double at (double x) const { return at_zero + x * per_x; }
  /** Signed distance to where it is zero, pixels. */
  double distance (double x) const { return slope > 0 ? at (x) / slope : at (x) > 0 ? 1 : -1; }
};

/** The inner product of the rays with a vector. */
Plane plane_of (const RowRays &rays, const Vector &v)
{
  return {inner (rays.origin, v), inner (rays.per_x, v), inner (rays.per_y, v)};
}

/** Narrows [begin, end) to where the plane is above minus half a pixel. */
void narrow (const Plane &plane, int *begin, int *end)
{
  const double least = -0.5 * plane.slope;
  if (plane.per_x == 0) {
    if (plane.at_zero <= least)
      *end = *begin;
    return;
  }
  const double x = std::clamp ((least - plane.at_zero) / plane.per_x, -1e6, 1e6);
  if (plane.per_x > 0)
    *begin = std::max (*begin, static_cast<int> (std::floor (x)));
  else
    *end = std::min (*end, static_cast<int> (std::ceil (x)) + 1);
}

double half_covered (double distance)
{
  return std::clamp (0.5 + distance, 0.0, 1.0);
}

/** How much of a pixel lies between two edges that run side by side. */
double between (const Plane &a, const Plane &b, double x)
{
  return std::max (0.0, half_covered (a.distance (x)) + half_covered (b.distance (x)) - 1);
}

void mix_in (Pixel *pixel, const Color &color, double opacity)
{
  const int weight = static_cast<int> (std::lround (256 * opacity));
  const auto channel = [&] (int shift, int value) {
    const int behind = static_cast<int> (*pixel >> shift) & 255;
    return static_cast<Pixel> ((behind * (256 - weight) + value * weight + 128) >> 8) << shift;
  };
  *pixel = channel (0, color.red) | channel (8, color.green) | channel (16, color.blue);
}

/** Inside of two pairs of edges. */
void draw_quad (const Plane (&edges)[4], const Color &color, double opacity, int begin, int end,
                Pixel *row)
{
  for (const Plane &edge : edges)
    narrow (edge, &begin, &end);
  for (int x = begin; x < end; x++) {
    const double covered = between (edges[0], edges[1], x) * between (edges[2], edges[3], x);
    if (covered > 0)
      mix_in (&row[x], color, covered * opacity);
  }
}

Vector scaled (const Vector &v, double factor)
{
  return {v[0] * factor, v[1] * factor, v[2] * factor};
}

Vector plus (const Vector &a, const Vector &b)
{
  return {a[0] + b[0], a[1] + b[1], a[2] + b[2]};
}

/*
 * A ray d meets the ground at p + d * h / d_z. That the place lies within s of the middle c along a
 * unit vector e of the ground, |(p - c).e + d.e * h / d_z| < s, is linear once multiplied by d_z.
 */
void draw_square (const RowRays &rays, const Landmark &landmark, double opacity, int begin, int end,
                  Pixel *row)
{
  const double height = -rays.position[2];
  const Vector offset =
      minus (rays.position, {landmark.north_m, landmark.east_m, rays.position[2]});
  const double c = std::cos (landmark.heading_rad);
  const double s = std::sin (landmark.heading_rad);
  const Vector axes[] = {{c, s, 0}, {-s, c, 0}};
  const auto edge = [&] (const Vector &axis, double sign) {
    return plane_of (rays, plus (scaled (axis, sign * height),
                                 {0, 0, landmark.size_m + sign * inner (offset, axis)}));
  };
  draw_quad ({edge (axes[0], 1), edge (axes[0], -1), edge (axes[1], 1), edge (axes[1], -1)},
             landmark.color, opacity, begin, end, row);
}

/** A pole shows its outline: a strip through its axis, turned towards the camera. */
void draw_pole (const RowRays &rays, const Landmark &landmark, double opacity, int begin, int end,
                Pixel *row)
{
  const double north = landmark.north_m - rays.position[0];
  const double east = landmark.east_m - rays.position[1];
  const double distance = std::hypot (north, east);
  if (distance < landmark.size_m * 1.5)
    return;
  const Vector towards = {north / distance, east / distance, 0};
  const Vector across = {-towards[1] * distance, towards[0] * distance, 0};
  const Vector up_to_top = {towards[0] * (landmark.height_m + rays.position[2]),
                            towards[1] * (landmark.height_m + rays.position[2]), distance};
  const Vector down_to_foot = {-towards[0] * rays.position[2], -towards[1] * rays.position[2],
                               -distance};
  const Vector half_width = scaled (towards, landmark.size_m);
  draw_quad ({plane_of (rays, plus (half_width, across)),
              plane_of (rays, minus (half_width, across)), plane_of (rays, up_to_top),
              plane_of (rays, down_to_foot)},
             landmark.color, opacity, begin, end, row);
}

/** With w = (p - c) d_z + h d, a ray is inside when r d_z > |w|. */
void draw_disc (const RowRays &rays, const Landmark &landmark, double opacity, int begin, int end,
                Pixel *row)
{
  const double height = -rays.position[2];
  const double radius = landmark.size_m;
  const double north = rays.position[0] - landmark.north_m;
  const double east = rays.position[1] - landmark.east_m;
  const Plane w_north = plane_of (rays, {height, 0, north});
  const Plane w_east = plane_of (rays, {0, height, east});
  const Plane dz = plane_of (rays, {0, 0, 1});
  for (int x = begin; x < end; x++) {
    const double wn = w_north.at (x);
    const double we = w_east.at (x);
    const double square = wn * wn + we * we;
    // Edges reach half a pixel out: no disc that is drawn is so small that this is another radius.
    const double limit = 2.5 * radius * dz.at (x);
    if (limit <= 0 || square > limit * limit)
      continue;
    const double from_middle = std::sqrt (square);
    const double inside = radius * dz.at (x) - from_middle;
    double covered = inside > 0 ? 1 : 0;
    if (from_middle > 0) {
      const double per_x =
          radius * dz.per_x - (wn * w_north.per_x + we * w_east.per_x) / from_middle;
      const double per_y =
          radius * dz.per_y - (wn * w_north.per_y + we * w_east.per_y) / from_middle;
      covered = half_covered (inside / std::sqrt (per_x * per_x + per_y * per_y));
    }
    if (covered > 0)
      mix_in (&row[x], landmark.color, covered * opacity);
  }
}

void draw_sun (const RowRays &rays, const World &world, double focal, int begin, int end,
               Pixel *row)
{
  const Plane along = plane_of (rays, world.sun_direction);
  const double least_cosine = std::cos (glow_rad);
  for (int x = begin; x < end; x++) {
    Vector ray;
    for (size_t i = 0; i < 3; i++)
      ray[i] = rays.origin[i] + x * rays.per_x[i];
    const double cosine = along.at (x) / std::sqrt (inner (ray, ray));
    if (ray[2] > 0 || cosine < least_cosine)
      continue;
    // The arc cosine's series: right to 1e-6 within the glow.
    const double versine = std::max (0.0, 1 - cosine);
    const double angle = std::sqrt (2 * versine) * (1 + versine / 12);
    const double disc = half_covered ((world.sun_radius_rad - angle) * focal);
    const double falling = std::max (0.0, 1 - angle / glow_rad);
    const double opacity = std::max (disc, glow_strength * falling * falling);
    if (opacity > 0)
      mix_in (&row[x], world.sun, opacity);
  }
}

/** Whether a ball lies wholly behind one of the four planes through the picture's edges. */
bool is_outside (const PictureGeometry &geometry, double forward, double right, double down,
                 double radius)
{
  const auto beyond = [&] (double along, double tangent) {
    return (along - tangent * forward) / std::sqrt (1 + tangent * tangent) > radius;
  };
  return beyond (right, (geometry.width - geometry.center_x) / geometry.focal_x) ||
         beyond (-right, geometry.center_x / geometry.focal_x) ||
         beyond (down, (geometry.height - geometry.center_y) / geometry.focal_y) ||
         beyond (-down, geometry.center_y / geometry.focal_y);
}

/**
 * The part of the picture in which a ball may show: |right + dr| / (forward + df) differs from
 * right / forward by at most radius * (1 + |right / forward|) / (forward - radius).
 */
PictureArea area_of (const View &view, const PictureGeometry &geometry, const Vector &towards,
                     double radius, double turn_rad)
{
  const int width = static_cast<int> (geometry.width);
  const int height = static_cast<int> (geometry.height);
  const double forward = inner (towards, view.forward);
  if (is_outside (geometry, forward, inner (towards, view.right), inner (towards, view.down),
                  radius + turn_rad * std::sqrt (inner (towards, towards))))
    return {};
  if (forward < 2 * radius)
    return {0, 0, width, height};
  const double right = inner (towards, view.right) / forward;
  const double down = inner (towards, view.down) / forward;
  const double turned = turn_rad * (1 + right * right + down * down) * 1.5;
  const double x = geometry.center_x + geometry.focal_x * right;
  const double y = geometry.center_y + geometry.focal_y * down;
  const double half_x =
      geometry.focal_x * (radius * (1 + std::abs (right)) / (forward - radius) + turned) + 2;
  const double half_y =
      geometry.focal_y * (radius * (1 + std::abs (down)) / (forward - radius) + turned) + 2;
  const auto pixel = [] (double value, int limit) {
    return static_cast<int> (std::clamp (value, 0.0, static_cast<double> (limit)));
  };
  return {pixel (x - half_x, width), pixel (y - half_y, height), pixel (x + half_x + 1, width),
          pixel (y + half_y + 1, height)};
}

/**
 * Discs fade before they are lower than a pixel, where their edge would be anyone's guess. Straight
 * edges need no such thing: thinner than a pixel they cover their share of it.
 */
double opacity_of (const Landmark &landmark, double focal, const Vector &towards)
{
  if (landmark.shape != LandmarkShape::disc)
    return 1;
  const double distance = std::max (1e-3, std::sqrt (inner (towards, towards)));
  const double steepness = std::abs (towards[2]) / distance;
  const double half_height = focal * landmark.size_m / distance * steepness;
  return std::clamp ((half_height - 0.4) / 0.6, 0.0, 1.0);
}

} // namespace

void VisibleLandmarks::collect (const World &world, const PictureGeometry &geometry,
                                const ViewTrack &track)
{
  world_ = &world;
  focal_ = std::min (geometry.focal_x, geometry.focal_y);
  visible_.clear ();
  const View view = track.middle ();
  for (const Landmark &landmark : world.landmarks) {
    const bool pole = landmark.shape == LandmarkShape::pole;
    const Vector middle = {landmark.north_m, landmark.east_m, pole ? -landmark.height_m / 2 : 0};
    const Vector towards = minus (middle, view.position);
    const double radius = (pole ? std::hypot (landmark.height_m / 2, landmark.size_m)
                                : landmark.size_m * std::sqrt (2.0)) +
                          track.way_m ();
    const double opacity = opacity_of (landmark, focal_, towards);
    if (opacity <= 0)
      continue;
    const PictureArea area = area_of (view, geometry, towards, radius, track.turn_rad ());
    if (!area.empty ())
      visible_.push_back ({&landmark, area, opacity, std::sqrt (inner (towards, towards))});
  }
  // What lies flat in the world's order, then what stands up from far to near.
  std::stable_sort (visible_.begin (), visible_.end (), [] (const Visible &a, const Visible &b) {
    const bool a_stands = a.landmark->shape == LandmarkShape::pole;
    const bool b_stands = b.landmark->shape == LandmarkShape::pole;
    return a_stands != b_stands ? b_stands : a_stands && a.distance_m > b.distance_m;
  });
  sun_ = area_of (view, geometry, world.sun_direction, std::sin (glow_rad), track.turn_rad ());
}

void VisibleLandmarks::draw (const RowRays &rays, int y, Pixel *row) const
{
  if (y >= sun_.top && y < sun_.bottom)
    draw_sun (rays, *world_, focal_, sun_.left, sun_.right, row);
  for (const Visible &visible : visible_) {
    const PictureArea &area = visible.area;
    if (y < area.top || y >= area.bottom)
      continue;
    switch (visible.landmark->shape) {
    case LandmarkShape::disc:
      draw_disc (rays, *visible.landmark, visible.opacity, area.left, area.right, row);
      break;
    case LandmarkShape::square:
      draw_square (rays, *visible.landmark, visible.opacity, area.left, area.right, row);
      break;
    case LandmarkShape::pole:
      draw_pole (rays, *visible.landmark, visible.opacity, area.left, area.right, row);
      break;
    }
  }
}

} // namespace sim
