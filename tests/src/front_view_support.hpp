// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A front view with a product and a virtual camera around it, calls below it that fail when told
// to, and a framework's class whose operations are the test's.
#ifndef TESTS_FRONT_VIEW_SUPPORT_HPP
#define TESTS_FRONT_VIEW_SUPPORT_HPP

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "own_namespace.hpp"
#include "test_product.hpp"
#include "vorn_morvik_zelto_front_view_private.hpp"
#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>
#include <vorn/virtual_camera.h>

using Texts = std::vector<std::string>;
using Element = vorn::Ref<GstElement>;

/** What goes wrong below the view from now on. */
struct Faults {
  /** Factories that are missing once they have made this many elements. */
  std::map<std::string, int> missing;
  /** A link "factory>factory" that fails after it was made this many times. */
  std::string broken_link;
  int links_before = 0;
  /** A tee gives no more pads after this many. */
  std::optional<int> request_pads;
  /** Kinds of source pads that the framework refuses: bits. */
  guint32 refused_kinds = 0;
  /** The state that the named pipeline cannot reach. */
  std::optional<GstState> failing_state;
  bool no_photo_branch = false;
  bool no_thumbnail_branch = false;
  /** How often the postprocessor was called, with what, and what it answers. */
  int postprocessed = 0;
  const FramePostprocessor *postprocessor = nullptr;
  VornResolution postprocessed_size = {};
  std::optional<int> postprocess_result;
  bool no_postprocessor = false;
  /** The probes that were added. */
  struct Probe {
    GstPadProbeCallback callback;
    gpointer data;
  };
  std::vector<Probe> probes;
};

extern Faults faults;

/** Sets a property as long as it lives. */
class PropertyValue
{
public:
  PropertyValue (const char *name, const char *value);
  ~PropertyValue ();
  PropertyValue (const PropertyValue &) = delete;
  PropertyValue &operator= (const PropertyValue &) = delete;

private:
  std::string name_;
};

/** While it lives, what the view says in GStreamer's default category is kept. (GStreamer's own log
 * functions leak on purpose.) */
class GstLogCapture
{
public:
  GstLogCapture ();
  ~GstLogCapture ();
  GstLogCapture (const GstLogCapture &) = delete;
  GstLogCapture &operator= (const GstLogCapture &) = delete;
  int count (GstDebugLevel level, const std::string &text) const;
  void add (GstDebugLevel level, const std::string &text);

private:
  struct Line {
    GstDebugLevel level;
    std::string text;
  };
  mutable std::mutex mutex_;
  std::vector<Line> lines_;
};

/** The first element of a factory in a bin, or none. */
Element find_factory (GstElement *bin, const std::string &factory);

/** The factories from an element downstream, along first pads; a caps filter with its caps. */
std::string chain_from (const Element &element);

/** How many elements are in the bin itself. */
guint child_count (GstElement *bin);

class FrontViewTest : public testing::Test
{
protected:
  static void SetUpTestSuite ();
  FrontViewTest ();
  ~FrontViewTest () override;

  /** Makes camera, virtual camera and view; nothing is prepared yet. */
  void make_view (const char *element_factory = nullptr);
  /** Lets go of the view as the virtual camera does. */
  void drop_view ();
  /** As the framework does it. */
  void unprepare () { EXPECT_TRUE (vorn_view_unprepare (base ())); }
  VornView *base () const { return VORN_VIEW (view_); }
  GstElement *pipeline (const char *name) const;
  /** What went on in the framework's operations, in order. */
  static Texts &parent_calls ();
  /** The framework's operations that answer FALSE. */
  static std::set<std::string> &parent_failing ();
  /** Errors and warnings of the view, in order. */
  Texts complaints () const;

  OwnNamespace own_namespace_;
  LogCapture log_;
  vorn::Ref<VornProduct> product_;
  vorn::Ref<VornCamera> camera_;
  vorn::Ref<VornVirtualCamera> virtual_camera_;
  VornMorvikZeltoFrontView *view_ = nullptr;
};

#endif
