// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A machine that has no OpenGL: the pipeline does not start, and says why, once.
#include <gtest/gtest.h>

#include <vorn/gst_raii.hpp>

#include "leak_check.hpp"

namespace
{

const char *plugin_path;

std::vector<std::string> errors_on (GstElement *pipeline)
{
  std::vector<std::string> texts;
  const auto bus = vorn::adopt (gst_element_get_bus (pipeline));
  while (const auto message = vorn::adopt (gst_bus_pop_filtered (bus.get (), GST_MESSAGE_ERROR))) {
    vorn::ErrorOut error;
    gst_message_parse_error (message.get (), error.out (), nullptr);
    EXPECT_EQ (error->domain, GST_RESOURCE_ERROR);
    EXPECT_EQ (error->code, GST_RESOURCE_ERROR_NOT_FOUND);
    texts.emplace_back (error.message ());
  }
  return texts;
}

} // namespace

TEST (NoContext, FailsTheStateChangeWithOneClearMessage)
{
  vorn::ErrorOut error;
  const auto pipeline = vorn::adopt (
      gst_parse_launch ("videotestsrc num-buffers=1 ! video/x-raw,format=RGBA ! glupload ! "
                        "kavrel_tovrinfilter ! gldownload ! fakesink",
                        error.out ()));
  ASSERT_FALSE (error) << error.message ();
  for (int attempt = 0; attempt < 2; attempt++) {
    EXPECT_EQ (gst_element_set_state (pipeline.get (), GST_STATE_PLAYING),
               GST_STATE_CHANGE_FAILURE);
    const auto texts = errors_on (pipeline.get ());
    ASSERT_EQ (texts.size (), 1u);
    EXPECT_EQ (texts[0].find ("No OpenGL context for dewarping: "), 0u) << texts[0];
    EXPECT_GT (texts[0].size (), std::string ("No OpenGL context for dewarping: ").size ());
    EXPECT_EQ (gst_element_set_state (pipeline.get (), GST_STATE_NULL), GST_STATE_CHANGE_SUCCESS);
  }
}

int main (int argc, char **argv)
{
  leak_check_start ();
  testing::InitGoogleTest (&argc, argv);
  if (argc < 2)
    return 2;
  plugin_path = argv[1];
  // EGL finds no driver whatever the machine has.
  g_setenv ("GST_GL_WINDOW", "egl-device", TRUE);
  g_setenv ("GST_GL_PLATFORM", "egl", TRUE);
  g_setenv ("__EGL_VENDOR_LIBRARY_FILENAMES", "/nonexistent", TRUE);
  g_unsetenv ("__EGL_VENDOR_LIBRARY_DIRS");
  gst_init (nullptr, nullptr);
  vorn::ErrorOut error;
  if (!vorn::adopt (gst_plugin_load_file (plugin_path, error.out ()))) {
    fprintf (stderr, "%s\n", error.message ());
    return 2;
  }
  return RUN_ALL_TESTS ();
}
