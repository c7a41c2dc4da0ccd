// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the leak check has to know of the libraries below us. Part of a test's own sources, not of a
// library; empty without the address sanitizer.
#if defined(__SANITIZE_ADDRESS__)
#define WITH_LEAK_CHECK 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define WITH_LEAK_CHECK 1
#endif
#endif

#ifdef WITH_LEAK_CHECK

#include <cstddef>

#include <dlfcn.h>

// The sanitizers' <sanitizer/allocator_interface.h>, which GCC 12 does not install.
extern "C" int __sanitizer_install_malloc_and_free_hooks (void (*on_malloc) (const volatile void *,
                                                                             size_t),
                                                          void (*on_free) (const volatile void *));

// GLib 2.74 makes its first table of quarks (2048 pointers) before main, and forgets it on purpose
// when a larger one takes its place: other threads may still be reading it. GStreamer's plug-ins
// fill it. A suppression cannot name it, since GLib has no frame pointers: a leak of ours that went
// through g_malloc would look the same. So this one block is kept in sight here.
namespace
{

constexpr size_t quark_table_size = 2048 * sizeof (void *);
const volatile void *first_quark_table = nullptr;

void see_allocation (const volatile void *block, size_t size)
{
  if (!first_quark_table && size == quark_table_size)
    first_quark_table = block;
}

void see_release (const volatile void *block)
{
  if (block == first_quark_table)
    first_quark_table = nullptr;
}

void install ()
{
  __sanitizer_install_malloc_and_free_hooks (see_allocation, see_release);
}

// Before the constructors of all shared libraries, GLib's included.
__attribute__ ((section (".preinit_array"), used)) void (*const install_first) () = install;

} // namespace

// A driver that is unloaded takes the roots of what it keeps along: nothing is unloaded.
extern "C" int dlclose (void *) noexcept
{
  return 0;
}

#endif
