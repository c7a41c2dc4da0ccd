// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// That the calibration is right: places on the ground are where it says in the rendered picture.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <numbers>
#include <sstream>

#include "camera_options.hpp"
#include "camera_views.hpp"
#include "log_capture.hpp"
#include "own_namespace.hpp"
#include "temp_dir.hpp"
#include "vertical_camera_support.hpp"
#include <vorn/product.h>

namespace
{

constexpr double degree = std::numbers::pi / 180;

using Vector3 = std::array<double, 3>;

/** How a camera sits on the drone, and where the drone is. */
struct Scene {
  const char *name;
  double yaw; // of the camera on the drone, degrees, clockwise seen from above
  Vector3 place_m;
  Vector3 drone_m;
  Attitude drone;
};

const Scene scenes[] = {
    {"Level", 0, {0, 0, 0}, {12, -7, -40}, {0, 0, 0}},
    {"TurnedCamera", 30, {0, 0, 0}, {-21, 31, -40}, {0, 0, 70}},
    {"QuarterTurn", 90, {0, 0, 0}, {-21, 31, -60}, {0, 0, 0}},
    {"Elsewhere", 0, {0.9, -0.6, 0.3}, {-21, 31, -35}, {0, 0, 110}},
    {"All", -135, {0.8, 0.5, 0.2}, {12, -7, -50}, {12, -9, 35}},
};

void PrintTo (const Scene &scene, std::ostream *out)
{
  *out << scene.name;
}

constexpr sim::CameraSensor sensor = {640, 480, 75 * degree, 30, 1, 2'000'000, 0};

Matrix3 multiply (const Matrix3 &a, const Matrix3 &b)
{
  Matrix3 product{};
  for (size_t row = 0; row < 3; row++)
    for (size_t column = 0; column < 3; column++)
      for (size_t i = 0; i < 3; i++)
        product[row][column] += a[row][i] * b[i][column];
  return product;
}

Vector3 turn (const Matrix3 &matrix, const Vector3 &v)
{
  Vector3 turned{};
  for (size_t row = 0; row < 3; row++)
    for (size_t i = 0; i < 3; i++)
      turned[row] += matrix[row][i] * v[i];
  return turned;
}

/** What an algorithm knows of its camera once it has read its properties. */
struct View {
  double focal_pixels;
  double center_x, center_y;
  Matrix3 rotation; // camera to drone: x to the picture's top, y to its right, z along the axis
  Vector3 place_m;
};

/** Where a place of the world is in the picture. */
std::optional<Point> locate (const View &view, const Scene &scene, const Vector3 &place_m)
{
  const Matrix3 drone = matrix_of (scene.drone);
  Vector3 on_drone{};
  for (size_t axis = 0; axis < 3; axis++) {
    for (size_t i = 0; i < 3; i++)
      on_drone[axis] += drone[i][axis] * (place_m[i] - scene.drone_m[i]);
    on_drone[axis] -= view.place_m[axis];
  }
  Vector3 seen{};
  for (size_t axis = 0; axis < 3; axis++)
    for (size_t i = 0; i < 3; i++)
      seen[axis] += view.rotation[i][axis] * on_drone[i];
  if (seen[2] <= 0)
    return std::nullopt;
  return Point{view.center_x + view.focal_pixels * seen[1] / seen[2],
               view.center_y - view.focal_pixels * seen[0] / seen[2]};
}

// ---- What the bins were told

class Reader
{
public:
  explicit Reader (GstElement *bin) : bin_ (bin) {}

  template <typename T>
  double number (const std::string &name) const
  {
    T value{};
    gst_child_proxy_get (GST_CHILD_PROXY (bin_), name.c_str (), &value, nullptr);
    return static_cast<double> (value);
  }
  /** All numbers of a text or an array, however they are nested. */
  std::vector<double> numbers (const std::string &name) const
  {
    GValue value = G_VALUE_INIT;
    gst_child_proxy_get_property (GST_CHILD_PROXY (bin_), name.c_str (), &value);
    std::vector<double> found;
    collect (&value, &found);
    g_value_unset (&value);
    return found;
  }

private:
  static void collect (const GValue *value, std::vector<double> *found)
  {
    if (G_VALUE_HOLDS_FLOAT (value))
      found->push_back (static_cast<double> (g_value_get_float (value)));
    else if (GST_VALUE_HOLDS_ARRAY (value))
      for (guint i = 0; i < gst_value_array_get_size (value); i++)
        collect (gst_value_array_get_value (value, i), found);
    else if (G_VALUE_HOLDS_STRING (value)) {
      std::string text = g_value_get_string (value);
      std::erase_if (text, [] (char c) { return c == '{' || c == '}' || c == ' '; });
      std::istringstream items (text);
      for (std::string item; std::getline (items, item, ',');)
        found->push_back (g_ascii_strtod (item.c_str (), nullptr));
    }
  }

  GstElement *bin_;
};

Matrix3 matrix_of_numbers (const std::vector<double> &numbers)
{
  Matrix3 matrix{};
  EXPECT_EQ (numbers.size (), 9u);
  for (size_t i = 0; i < std::min<size_t> (9, numbers.size ()); i++)
    matrix[i / 3][i % 3] = numbers[i];
  return matrix;
}

Vector3 vector_of_numbers (const std::vector<double> &numbers, double unit)
{
  EXPECT_EQ (numbers.size (), 3u);
  return {numbers.at (0) * unit, numbers.at (1) * unit, numbers.at (2) * unit};
}

View condor_view (const VerticalPipeline &pipeline)
{
  const Reader reader (pipeline.child ("condor-bin"));
  const double pixels_per_mm = reader.number<guint> ("condor::sensor-width") /
                               reader.number<gfloat> ("condor::sensor-width-mm");
  return {reader.number<gdouble> ("condor::focal-length") * pixels_per_mm,
          reader.number<gdouble> ("condor::principal-point-x"),
          reader.number<gdouble> ("condor::principal-point-y"),
          matrix_of_numbers (reader.numbers ("condor::rotation-matrix")),
          vector_of_numbers (reader.numbers ("condor::translation-vector"), 1)};
}

View precise_view (const VerticalPipeline &pipeline, const std::string &name)
{
  const Reader reader (pipeline.child (name + "-bin"));
  return {sensor.width / 2.0 / std::tan (reader.number<gfloat> (name + "::hfov") / 2),
          reader.number<gdouble> (name + "::optical-center-x"),
          reader.number<gdouble> (name + "::optical-center-y"),
          matrix_of_numbers (reader.numbers (name + "::rotation-mat")),
          vector_of_numbers (reader.numbers (name + "::translation-vec"), 1)};
}

View carpet_view (const VerticalPipeline &pipeline)
{
  const Reader reader (pipeline.child ("magic-carpet-bin"));
  // It has no optical centre of its own: the picture's middle.
  return {reader.number<gdouble> ("visioncarpet::focal"), sensor.width / 2.0, sensor.height / 2.0,
          matrix_of_numbers (reader.numbers ("visioncarpet::rotation-matrix")),
          vector_of_numbers (reader.numbers ("visioncarpet::cam-pos"), 0.001)};
}

// ---- What the camera sees

/** The camera's parameters as a configuration would have them. */
VornCameraParameters parameters_of (const Scene &scene)
{
  VornCameraParameters parameters = small_camera ();
  parameters.sensor_configuration.resolution = {sensor.width, sensor.height};
  parameters.sensor_configuration.framerate = {30, 1};
  parameters.optical_center_x = 320;
  parameters.optical_center_y = 240;
  parameters.focal_length = 2.304 / 2 / std::tan (sensor.horizontal_fov_rad / 2);
  // A third of the turn is the calibration's.
  parameters.orientation = {0, 0, scene.yaw * 2 / 3};
  parameters.factory_orientation = {0, 0, scene.yaw / 3};
  parameters.position = {scene.place_m[0], scene.place_m[1], scene.place_m[2]};
  return parameters;
}

/** The drone's camera in the simulator's terms: turned about the drone's down, moved on it. */
sim::CameraMotion motion_of (const Scene &scene)
{
  const Vector3 offset = turn (matrix_of (scene.drone), scene.place_m);
  const Vector3 place = {scene.drone_m[0] + offset[0], scene.drone_m[1] + offset[1],
                         scene.drone_m[2] + offset[2]};
  const auto attitude =
      sim::compose (quaternion_of (scene.drone), quaternion_of ({0, 0, scene.yaw}));
  return sim::looking_down (standing (place, attitude));
}

/** A landmark: its outline on the ground, and where its middle is in the picture. */
struct Found {
  std::vector<Vector3> outline_m;
  Point point;
};

/** Flat landmarks that stand alone, found by their colour near where the scene itself has them: the
 * calibration under test is not asked. */
std::vector<Found> find_landmarks (const sim::World &world, const Scene &scene,
                                   const Picture &picture)
{
  const Matrix3 yaw = matrix_of ({0, 0, scene.yaw});
  const Matrix3 on_drone = multiply (matrix_of (scene.drone), yaw);
  Matrix3 camera{};
  for (size_t row = 0; row < 3; row++)
    camera[row] = {on_drone[row][2], on_drone[row][1], -on_drone[row][0]};
  const Vector3 offset = turn (matrix_of (scene.drone), scene.place_m);
  const Vector3 camera_m = {scene.drone_m[0] + offset[0], scene.drone_m[1] + offset[1],
                            scene.drone_m[2] + offset[2]};
  const auto geometry = sim::picture_geometry (sensor, {0, 0, sensor.width, sensor.height},
                                               sensor.width, sensor.height);
  struct Box {
    double left, top, right, bottom;
  };
  std::vector<Box> boxes (world.landmarks.size (), Box{1e9, 1e9, -1e9, -1e9});
  for (size_t i = 0; i < world.landmarks.size (); i++)
    for (const auto &place : outline (world.landmarks[i], camera_m))
      if (const auto point = project (camera, camera_m, geometry, place)) {
        Box &box = boxes[i];
        box = {std::min (box.left, point->x), std::min (box.top, point->y),
               std::max (box.right, point->x), std::max (box.bottom, point->y)};
      }
  std::vector<Found> found;
  constexpr double margin = 6;
  for (size_t i = 0; i < boxes.size (); i++) {
    const Box &box = boxes[i];
    const sim::Landmark &landmark = world.landmarks[i];
    const bool whole = box.left > margin && box.top > margin && box.right < sensor.width - margin &&
                       box.bottom < sensor.height - margin;
    const bool large = box.right - box.left > 5 && box.bottom - box.top > 5;
    bool alone = true;
    for (size_t k = 0; k < boxes.size (); k++)
      alone = alone && (k == i || boxes[k].left > box.right + 8 || boxes[k].right < box.left - 8 ||
                        boxes[k].top > box.bottom + 8 || boxes[k].bottom < box.top - 8);
    if (landmark.shape == sim::LandmarkShape::pole || !whole || !large || !alone)
      continue;
    const auto point = find_color (picture, landmark.color, static_cast<int> (box.left - 5),
                                   static_cast<int> (box.top - 5), static_cast<int> (box.right + 5),
                                   static_cast<int> (box.bottom + 5));
    if (point)
      found.push_back ({outline (landmark, camera_m), *point});
  }
  return found;
}

/** How far the view is from what was found, the worst of all, pixels. */
double worst_error (const View &view, const Scene &scene, const std::vector<Found> &found)
{
  double worst = 0;
  for (const Found &one : found) {
    std::vector<Point> polygon;
    for (const auto &place : one.outline_m)
      if (const auto point = locate (view, scene, place))
        polygon.push_back (*point);
    if (polygon.size () != one.outline_m.size ())
      return std::numeric_limits<double>::infinity ();
    const Point expected = centroid (polygon);
    worst = std::max (worst, std::hypot (expected.x - one.point.x, expected.y - one.point.y));
  }
  return worst;
}

class GroundTruth : public testing::TestWithParam<Scene>
{
protected:
  static void SetUpTestSuite () { prepare_test_camera (); }
  void SetUp () override { set_test_camera (pushed_frames); }

  OwnNamespace name_space_;
  LogCapture log_;
};

/** The picture as it reaches a bin of the pipeline. */
Picture picture_at_bin (const VerticalPipeline &pipeline, const Scene &scene,
                        const sim::World &world)
{
  sim::Renderer renderer (std::shared_ptr<const sim::World> (&world, [] (const sim::World *) {}));
  const auto geometry = sim::picture_geometry (sensor, {0, 0, sensor.width, sensor.height},
                                               sensor.width, sensor.height);
  const Picture rendered = take (renderer, plain_shot (geometry), motion_of (scene));
  Picture seen = {sensor.width, sensor.height, {}};
  const auto pad =
      vorn::adopt (gst_element_get_static_pad (pipeline.child ("precise-home-bin"), "sink"));
  gst_pad_add_probe (
      pad.get (), GST_PAD_PROBE_TYPE_BUFFER,
      [] (GstPad *, GstPadProbeInfo *info, gpointer data) {
        const vorn::BufferMap map (GST_PAD_PROBE_INFO_BUFFER (info), GST_MAP_READ);
        static_cast<Picture *> (data)->rgb.assign (map.data (), map.data () + map.size ());
        return GST_PAD_PROBE_OK;
      },
      &seen, nullptr);
  const FrameCounter frames (pipeline.child ("precise-home-bin"));
  EXPECT_TRUE (pipeline.play ());
  pipeline.push (gst_buffer_new_memdup (rendered.rgb.data (), rendered.rgb.size ()));
  EXPECT_TRUE (frames.wait_for (1));
  return seen;
}

TEST_P (GroundTruth, IsWhereEachBinsCalibrationSays)
{
  static const auto world = sim::make_world (1);
  const Scene &scene = GetParam ();
  set_test_camera ("appsrc name=frames format=time is-live=true caps=video/x-raw,format=RGB,"
                   "width=640,height=480,framerate=30/1");
  const VerticalPipeline pipeline (parameters_of (scene));
  const Picture picture = picture_at_bin (pipeline, scene, *world);
  ASSERT_EQ (picture.rgb.size (), size_t{3} * sensor.width * sensor.height);
  const auto found = find_landmarks (*world, scene, picture);
  ASSERT_GE (found.size (), 4u);

  const struct {
    const char *bin;
    View view;
  } rows[] = {{"condor", condor_view (pipeline)},
              {"precise-hovering", precise_view (pipeline, "precise-hovering")},
              {"precise-home", precise_view (pipeline, "precise-home")},
              {"magic carpet", carpet_view (pipeline)}};
  for (const auto &[bin, view] : rows) {
    EXPECT_LT (worst_error (view, scene, found), 1) << bin;

    // Each of these mistakes shows.
    View wrong = view;
    wrong.rotation = multiply (matrix_of ({0, 0, 1}), view.rotation);
    EXPECT_GT (worst_error (wrong, scene, found), 1) << bin << " a degree off";
    wrong = view;
    for (size_t i = 0; i < 3; i++)
      std::swap (wrong.rotation[i][0], wrong.rotation[i][1]);
    EXPECT_GT (worst_error (wrong, scene, found), 1) << bin << " axes swapped";
    if (scene.yaw != 0) {
      wrong = view;
      for (size_t row = 0; row < 3; row++)
        for (size_t column = 0; column < 3; column++)
          wrong.rotation[row][column] = view.rotation[column][row];
      EXPECT_GT (worst_error (wrong, scene, found), 1) << bin << " the other way round";
    }
    wrong = view;
    wrong.focal_pixels *= 1.02;
    EXPECT_GT (worst_error (wrong, scene, found), 1) << bin << " focal length";
    if (scene.place_m[0] != 0) {
      wrong = view;
      wrong.place_m = {};
      EXPECT_GT (worst_error (wrong, scene, found), 1) << bin << " without its place";
      wrong = view;
      std::swap (wrong.place_m[0], wrong.place_m[1]);
      EXPECT_GT (worst_error (wrong, scene, found), 1) << bin << " place turned";
    }
  }
}

INSTANTIATE_TEST_SUITE_P (Scenes, GroundTruth, testing::ValuesIn (scenes),
                          [] (const auto &scene) { return std::string (scene.param.name); });

// ---- The desk's configuration

/** The desk's group for the vertical camera. */
std::string desk_vertical_group ()
{
  std::ifstream file (DESK_CONFIGURATION);
  std::string group;
  bool inside = false;
  for (std::string line; std::getline (file, line);) {
    if (line.starts_with ("["))
      inside = line == "[camera-vertical]";
    if (inside)
      group += line + "\n";
  }
  return group;
}

TEST (DeskConfiguration, FitsTheSimulatorsDownCamera)
{
  const TempDir dir;
  const LogCapture log;
  vorn::ErrorOut error;
  const vorn::Owned<VornProductConfiguration, vorn_product_configuration_free> configuration (
      vorn_product_configuration_load (dir.write ("desk.conf", desk_vertical_group ()).c_str (),
                                       error.out ()));
  ASSERT_TRUE (configuration) << error.message ();
  EXPECT_TRUE (log.lines ().empty ());
  ASSERT_EQ (g_list_length (configuration->cameras), 1u);
  auto *camera = VORN_CAMERA (configuration->cameras->data);
  EXPECT_STREQ (vorn_camera_get_name (camera), "vertical");

  const sim::CameraSensor down = sim::CameraOptions{}.down.sensor;
  const VornSensorConfiguration *configured = vorn_camera_get_sensor_configuration (camera);
  EXPECT_EQ (configured->resolution.width, down.width);
  EXPECT_EQ (configured->resolution.height, down.height);
  EXPECT_EQ (configured->framerate.num, down.rate_numerator);
  EXPECT_EQ (configured->framerate.den, down.rate_denominator);
  const auto geometry =
      sim::picture_geometry (down, {0, 0, down.width, down.height}, down.width, down.height);
  // As the pipeline reckons it: less than a tenth of a pixel at the picture's edge.
  EXPECT_NEAR (down.width * vorn_camera_get_focal_length (camera) / 2.304, geometry.focal_x, 0.1);
  double x = 0;
  double y = 0;
  double z = 0;
  vorn_camera_get_optical_center (camera, &x, &y);
  EXPECT_EQ (x, geometry.center_x);
  EXPECT_EQ (y, geometry.center_y);
  // The simulator's camera sits in the drone's middle, its picture's top edge forward.
  vorn_camera_get_position (camera, &x, &y, &z);
  EXPECT_TRUE (x == 0 && y == 0 && z == 0);
  for (const auto get : {vorn_camera_get_camera_orientation, vorn_camera_get_factory_orientation}) {
    get (camera, &x, &y, &z);
    EXPECT_EQ (z, 0);
  }
}

} // namespace
