// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Helps the leak sanitizer to tell our leaks from those that are none of ours.
#include "leak_check.hpp"

#if defined(__SANITIZE_ADDRESS__)
#define ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ADDRESS_SANITIZER 1
#endif
#endif

#ifdef ADDRESS_SANITIZER

#include <cstddef>
#include <dlfcn.h>
#include <link.h>

extern "C" int __sanitizer_install_malloc_and_free_hooks (void (*) (const volatile void *, size_t),
                                                          void (*) (const volatile void *));

namespace
{

// GLib gives up its first table of quarks on purpose when there are more than 2048 of them, which
// gst_init alone makes; without frame pointers no suppression could name that place. The table is
// made before main: it is what has this size then, and a pointer here keeps it reachable.
constexpr size_t quark_table_size = 2048 * sizeof (char *);
const volatile void *volatile kept[16]; // never read, but by the sanitizer
int kept_count;
bool main_runs;

__attribute__ ((no_sanitize ("address", "undefined"))) void on_malloc (const volatile void *memory,
                                                                       size_t size)
{
  if (!main_runs && size == quark_table_size && kept_count < 16)
    kept[kept_count++] = memory;
}

__attribute__ ((no_sanitize ("address", "undefined"))) void on_free (const volatile void *) {}

__attribute__ ((no_sanitize ("address", "undefined"))) void watch (int, char **, char **)
{
  __sanitizer_install_malloc_and_free_hooks (on_malloc, on_free);
}

// Before the constructors of all libraries.
__attribute__ ((section (".preinit_array"), used)) void (*const watch_early) (int, char **,
                                                                              char **) = watch;

int keep_library (dl_phdr_info *info, size_t, void *)
{
  if (info->dlpi_name && *info->dlpi_name)
    dlopen (info->dlpi_name, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
  return 0;
}

} // namespace

void leak_check_start ()
{
  main_runs = true;
}

void leak_check_keep_libraries ()
{
  dl_iterate_phdr (keep_library, nullptr);
}

#else

void leak_check_start () {}

void leak_check_keep_libraries () {}

#endif
