// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/properties.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include <vorn/raii.hpp>

namespace
{

using Properties = std::map<std::string, std::string, std::less<>>;

/**
 * The mutex guards values; nothing is called while it is held. A shared mutex is no faster for one
 * reader and lets readers and a busy writer wake each other in turn (measured: 20 us a read).
 */
struct Store {
  std::mutex mutex;
  Properties values;
};

/** Never destroyed: others may read while the process exits. */
Store &store ()
{
  static Store *const properties = new Store;
  return *properties;
}

size_t copy_out (std::string_view text, char *value, size_t value_size)
{
  if (value_size > 0) {
    const size_t length = std::min (text.size (), value_size - 1);
    memcpy (value, text.data (), length);
    value[length] = '\0';
  }
  return text.size ();
}

} // namespace

size_t vorn_property_get (const char *name, char *value, size_t value_size,
                          const char *default_value)
{
  if (name) {
    Store &properties = store ();
    std::lock_guard lock (properties.mutex);
    const auto found = properties.values.find (std::string_view (name));
    if (found != properties.values.end ())
      return copy_out (found->second, value, value_size);
  }
  return copy_out (default_value ? default_value : "", value, value_size);
}

int vorn_property_set (const char *name, const char *value)
{
  if (!name || !*name)
    return -EINVAL;
  Store &properties = store ();
  std::lock_guard lock (properties.mutex);
  if (value)
    properties.values.insert_or_assign (name, value);
  else
    properties.values.erase (name);
  return 0;
}

int vorn_properties_load (GKeyFile *key_file, const char *group, GError **error)
{
  gsize n_keys = 0;
  const vorn::OwnedStrings keys (g_key_file_get_keys (key_file, group, &n_keys, error));
  if (!keys)
    return -1;
  Properties loaded;
  for (gsize i = 0; i < n_keys; i++) {
    const char *key = keys.get ()[i];
    // A bad escape sets the error and returns what could be read all the same.
    vorn::ErrorOut bad_value;
    const vorn::OwnedString value (g_key_file_get_string (key_file, group, key, bad_value.out ()));
    if (bad_value || !value) {
      bad_value.propagate (error);
      g_prefix_error (error, "property '%s': ", key);
      return -1;
    }
    loaded.insert_or_assign (key, value.get ());
  }
  Store &properties = store ();
  std::lock_guard lock (properties.mutex);
  for (auto &[name, value] : loaded)
    properties.values.insert_or_assign (name, std::move (value));
  return static_cast<int> (n_keys);
}
