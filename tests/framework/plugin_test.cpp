// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/plugin.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "temp_dir.hpp"
#include "test_product.hpp"
#include <vorn/raii.hpp>

namespace
{

/** Path of a fake plug-in of this build. */
std::string fake (const std::string &name)
{
  return std::filesystem::canonical (FAKE_PLUGIN_DIR).string () + "/libfake-plugin-" + name + ".so";
}

void expect_load_error (const std::string &path, VornPluginError code, const std::string &message)
{
  SCOPED_TRACE (path);
  vorn::ErrorOut error;
  EXPECT_EQ (vorn_plugin_load (path.c_str (), error.out ()), nullptr);
  ASSERT_TRUE (error);
  EXPECT_EQ (error->domain, VORN_PLUGIN_ERROR);
  EXPECT_EQ (error->code, static_cast<gint> (code)) << error->message;
  EXPECT_EQ (error->message, message);
}

TEST (PluginError, HasADomainOfItsName)
{
  EXPECT_STREQ (g_quark_to_string (VORN_PLUGIN_ERROR), "vorn-plugin-error-quark");
}

TEST (Plugin, LoadsAndMakesProducts)
{
  vorn::ErrorOut error;
  VornPlugin *plugin = vorn_plugin_load (fake ("good").c_str (), error.out ());
  ASSERT_NE (plugin, nullptr) << error.message ();
  EXPECT_STREQ (vorn_plugin_get_name (plugin), "fake_plugin");
  const vorn::Owned<const gchar *, g_free> elements (vorn_plugin_get_elements (plugin));
  EXPECT_STREQ (elements.get ()[0], "fake");
  EXPECT_EQ (elements.get ()[1], nullptr);
  for (const char *name : {"fake", static_cast<const char *> (nullptr)}) {
    const auto product = vorn::adopt (vorn_plugin_create_product (plugin, name, error.out ()));
    ASSERT_TRUE (product) << error.message ();
    EXPECT_STREQ (G_OBJECT_TYPE_NAME (product.get ()), "FakeGood");
    EXPECT_EQ (g_type_get_plugin (G_OBJECT_TYPE (product.get ())), G_TYPE_PLUGIN (plugin));
    EXPECT_EQ (G_OBJECT (product.get ())->ref_count, 1u);
  }
}

TEST (Plugin, LoadedTwiceIsTheSameObject)
{
  LogCapture log;
  CriticalCapture criticals;
  const std::string path = fake ("good");
  VornPlugin *plugin = vorn_plugin_load (path.c_str (), nullptr);
  ASSERT_NE (plugin, nullptr);
  EXPECT_EQ (vorn_plugin_load (path.c_str (), nullptr), plugin);
  // The same file by other ways to it.
  const std::string file = std::filesystem::path (path).filename ();
  EXPECT_EQ (vorn_plugin_load ((std::string (FAKE_PLUGIN_DIR) + "/./" + file).c_str (), nullptr),
             plugin);
  const std::string relative = std::filesystem::relative (path);
  EXPECT_EQ (vorn_plugin_load (relative.c_str (), nullptr), plugin);
  const TempDir dir;
  const std::string link = dir.at ("link.so");
  std::filesystem::create_symlink (path, link);
  vorn::ErrorOut error;
  EXPECT_EQ (vorn_plugin_load (link.c_str (), error.out ()), plugin) << error.message ();
  EXPECT_TRUE (log.lines ().empty ());
  EXPECT_TRUE (criticals.criticals ().empty ());
  EXPECT_TRUE (criticals.warnings ().empty ());
  // And the product's type still works.
  EXPECT_TRUE (vorn::adopt (vorn_plugin_create_product (plugin, "fake", nullptr)));
}

TEST (Plugin, VersionWordsMustFit)
{
  expect_load_error (fake ("major"), VORN_PLUGIN_ERROR_VERSION,
                     "plug-in " + fake ("major") +
                         " has interface version 1.5, this framework loads 0.5");
  expect_load_error (fake ("minor"), VORN_PLUGIN_ERROR_VERSION,
                     "plug-in " + fake ("minor") +
                         " has interface version 0.6, this framework loads 0.5");
}

TEST (Plugin, NeedsItsDescriptor)
{
  expect_load_error (fake ("no-symbol"), VORN_PLUGIN_ERROR_SYMBOL,
                     fake ("no-symbol") + " is no plug-in: it exports no 'vorn_plugin_desc'");
}

TEST (Plugin, DescriptorNeedsNameAndInit)
{
  for (const std::string name : {"no-name", "empty-name"})
    expect_load_error (fake (name), VORN_PLUGIN_ERROR_INIT,
                       "the descriptor of plug-in " + fake (name) + " has no name");
  expect_load_error (fake ("no-init"), VORN_PLUGIN_ERROR_INIT,
                     "the descriptor of plug-in " + fake ("no-init") + " has no init function");
}

TEST (Plugin, FailingInitIsAnErrorEachTime)
{
  LogCapture log;
  for (const std::string name : {"init-fails", "init-fails-late"})
    for (int i = 0; i < 3; i++)
      expect_load_error (fake (name), VORN_PLUGIN_ERROR_INIT,
                         "plug-in fake_plugin (" + fake (name) + ") failed to initialise");
}

TEST (Plugin, RefusedElementsFailTheInit)
{
  const struct {
    const char *name;
    std::vector<std::string> log;
  } rows[] = {
      {"no-product", {"element 'fake' refused: its type is no product"}},
      {"abstract", {"element 'fake' refused: its type is abstract"}},
      {"duplicate", {"element 'fake' refused: the name is taken"}},
      {"nameless-elements",
       {"element '(null)' refused: it has no name", "element '' refused: it has no name"}},
  };
  for (const auto &row : rows) {
    LogCapture log;
    expect_load_error (fake (row.name), VORN_PLUGIN_ERROR_INIT,
                       "plug-in fake_plugin (" + fake (row.name) + ") failed to initialise");
    EXPECT_EQ (log.texts (VORN_LOG_PRIORITY_ERROR), row.log);
  }
}

TEST (Plugin, ElementsAreOnlyOfItsModules)
{
  LogCapture log;
  const auto stranger =
      static_cast<GTypeModule *> (g_object_new (TEST_TYPE_PRODUCT, nullptr)); // no module at all
  EXPECT_FALSE (vorn_plugin_register_element (stranger, "fake", TEST_TYPE_PRODUCT));
  EXPECT_FALSE (vorn_plugin_register_element (nullptr, "fake", TEST_TYPE_PRODUCT));
  EXPECT_EQ (log.count ("element 'fake' refused: its module is no plug-in of this framework",
                        VORN_LOG_PRIORITY_ERROR),
             2);
  g_object_unref (stranger);
}

TEST (Plugin, ProductsAreMadeByElement)
{
  vorn::ErrorOut error;
  VornPlugin *two = vorn_plugin_load (fake ("two-elements").c_str (), error.out ());
  ASSERT_NE (two, nullptr) << error.message ();
  EXPECT_TRUE (vorn::adopt (vorn_plugin_create_product (two, "one", error.out ())));
  EXPECT_TRUE (vorn::adopt (vorn_plugin_create_product (two, "two", error.out ())));

  EXPECT_EQ (vorn_plugin_create_product (two, "three", error.out ()), nullptr);
  EXPECT_EQ (error->code, VORN_PLUGIN_ERROR_ELEMENT);
  EXPECT_EQ (error.message (), "plug-in " + fake ("two-elements") + " has no element 'three'");
  // Which of them is not to be guessed.
  EXPECT_EQ (vorn_plugin_create_product (two, nullptr, error.out ()), nullptr);
  EXPECT_EQ (error->code, VORN_PLUGIN_ERROR_ELEMENT);
  EXPECT_EQ (vorn_plugin_create_product (two, nullptr, nullptr), nullptr);
}

TEST (Plugin, MayAnnounceNothing)
{
  vorn::ErrorOut error;
  VornPlugin *none = vorn_plugin_load (fake ("no-element").c_str (), error.out ());
  ASSERT_NE (none, nullptr) << error.message ();
  EXPECT_EQ (vorn_plugin_load (fake ("no-element").c_str (), error.out ()), none);
  const vorn::Owned<const gchar *, g_free> elements (vorn_plugin_get_elements (none));
  EXPECT_EQ (elements.get ()[0], nullptr);
  EXPECT_EQ (vorn_plugin_create_product (none, nullptr, error.out ()), nullptr);
  EXPECT_EQ (error->code, VORN_PLUGIN_ERROR_ELEMENT);
}

TEST (Plugin, MissingAndForeignFiles)
{
  const TempDir dir;
  const std::string missing = dir.at ("none.so");
  const std::string text = dir.write ("text.so", "this is no library\n");
  const std::string empty = dir.write ("empty.so", "");
  for (const std::string &path : {missing, text, empty, dir.path ()}) {
    SCOPED_TRACE (path);
    vorn::ErrorOut error;
    EXPECT_EQ (vorn_plugin_load (path.c_str (), error.out ()), nullptr);
    ASSERT_TRUE (error);
    EXPECT_EQ (error->code, VORN_PLUGIN_ERROR_LOAD);
    EXPECT_EQ (std::string (error->message).find ("cannot load plug-in " + path + ": "), 0u)
        << error->message;
  }
  // A caller that does not care why.
  EXPECT_EQ (vorn_plugin_load (missing.c_str (), nullptr), nullptr);
}

TEST (Plugin, FileThatAppearsLaterIsLoaded)
{
  const TempDir dir;
  const std::string path = dir.at ("later.so");
  EXPECT_EQ (vorn_plugin_load (path.c_str (), nullptr), nullptr);
  std::filesystem::copy_file (fake ("later"), path);
  vorn::ErrorOut error;
  EXPECT_NE (vorn_plugin_load (path.c_str (), error.out ()), nullptr) << error.message ();
}

TEST (Plugin, WrongCallsAreCriticals)
{
  CriticalCapture criticals;
  EXPECT_EQ (vorn_plugin_load (nullptr, nullptr), nullptr);
  EXPECT_EQ (vorn_plugin_get_name (nullptr), nullptr);
  EXPECT_EQ (vorn_plugin_get_elements (nullptr), nullptr);
  EXPECT_EQ (vorn_plugin_create_product (nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ (criticals.criticals ().size (), 4u);
}

} // namespace
