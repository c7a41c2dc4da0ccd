// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// From any thread to the framework's, which runs the default main context.
#ifndef VORN_FRAMEWORK_FRAMEWORK_THREAD_HPP
#define VORN_FRAMEWORK_FRAMEWORK_THREAD_HPP

#include <functional>
#include <memory>

#include <glib-object.h>

#include <vorn/raii.hpp>

namespace vorn
{

/** An object that may be gone when it is needed. Thread-safe as GWeakRef is. */
template <typename T>
class WeakRef
{
public:
  explicit WeakRef (T *object) : reference_ (new GWeakRef, free)
  {
    g_weak_ref_init (reference_.get (), object);
  }
  /** The object, held, or nothing. */
  Ref<T> get () const
  {
    return Ref<T>::adopt (static_cast<T *> (g_weak_ref_get (reference_.get ())));
  }

private:
  static void free (GWeakRef *reference)
  {
    g_weak_ref_clear (reference);
    delete reference;
  }
  std::shared_ptr<GWeakRef> reference_; // a GWeakRef must stay where it is
};

/** Calls a function once on the framework's thread, in the order of these calls. */
inline void call_later (std::function<void ()> function)
{
  using Function = std::function<void ()>;
  g_idle_add_full (
      G_PRIORITY_DEFAULT,
      [] (gpointer data) -> gboolean {
        (*static_cast<Function *> (data)) ();
        return G_SOURCE_REMOVE;
      },
      new Function (std::move (function)),
      [] (gpointer data) { delete static_cast<Function *> (data); });
}

} // namespace vorn

#endif
