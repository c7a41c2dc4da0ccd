// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * Owners for what GLib and the system hand out: object references, allocated strings and records,
 * descriptors, locks. This header and <vorn/gst_raii.hpp> (the same for GStreamer) are the only
 * places where reference counts are touched.
 *
 *     auto pipeline = vorn::Ref<GstElement>::adopt (gst_pipeline_new (nullptr));  // takes it over
 *     auto shared = vorn::Ref<GstElement> (pipeline.get ());                      // takes one more
 *     auto text = vorn::OwnedString (g_strdup ("x"));
 */
#ifndef VORN_RAII_HPP
#define VORN_RAII_HPP

#include <memory>
#include <unistd.h>
#include <utility>

#include <glib-object.h>
#include <glib.h>

#if defined(__SANITIZE_THREAD__)
#define VORN_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VORN_THREAD_SANITIZER 1
#endif
#endif

#ifdef VORN_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

namespace vorn
{

/**
 * How a type's references are counted. The general rule is GObject's; other families (mini objects,
 * boxed records) specialise it. sink() turns a floating reference into a full one.
 */
template <typename T>
struct RefTraits {
  static void ref (T *object) { g_object_ref (object); }
  static void unref (T *object) { g_object_unref (object); }
  static void sink (T *object)
  {
    if (g_object_is_floating (object))
      g_object_ref_sink (object);
  }
};

/** Holds one reference on an object, or none. Not thread-safe itself, like any value. */
template <typename T>
class Ref
{
public:
  Ref () = default;
  Ref (std::nullptr_t) {}

  /** Takes a further reference. Does not sink: a floating object is adopted. */
  explicit Ref (T *object) : object_ (object)
  {
    if (object_)
      RefTraits<T>::ref (object_);
  }

  /** Takes over the reference that the caller was given; a floating one is sunk. */
  static Ref adopt (T *object)
  {
    if (object)
      RefTraits<T>::sink (object);
    Ref result;
    result.object_ = object;
    return result;
  }

  Ref (const Ref &other) : Ref (other.object_) {}
  Ref (Ref &&other) noexcept : object_ (std::exchange (other.object_, nullptr)) {}
  Ref &operator= (Ref other) noexcept
  {
    std::swap (object_, other.object_);
    return *this;
  }
  ~Ref ()
  {
    if (object_)
      RefTraits<T>::unref (object_);
  }

  T *get () const { return object_; }
  T *operator->() const { return object_; }
  explicit operator bool () const { return object_ != nullptr; }

  /** Gives the reference to the caller. */
  [[nodiscard]] T *release () { return std::exchange (object_, nullptr); }
  void reset () { *this = Ref (); }

private:
  T *object_ = nullptr;
};

/** Takes over a reference: short for Ref<T>::adopt. */
template <typename T>
Ref<T> adopt (T *object)
{
  return Ref<T>::adopt (object);
}

/** Takes a further reference: short for Ref<T> (object). */
template <typename T>
Ref<T> share (T *object)
{
  return Ref<T> (object);
}

/** Deleter that calls a plain C function. */
template <auto function>
struct Call {
  template <typename T>
  void operator() (T *pointer) const
  {
    function (pointer);
  }
};

/** A unique owner released by a plain C function. */
template <typename T, auto function>
using Owned = std::unique_ptr<T, Call<function>>;

using OwnedString = Owned<gchar, g_free>;
using OwnedStrings = Owned<gchar *, g_strfreev>;
using OwnedError = Owned<GError, g_error_free>;
using OwnedKeyFile = Owned<GKeyFile, g_key_file_unref>;

/** Receives a GError from a call: `vorn::ErrorOut error; f (error.out ()); if (error) ...`. */
class ErrorOut
{
public:
  GError **out ()
  {
    g_clear_error (&error_);
    return &error_;
  }
  explicit operator bool () const { return error_ != nullptr; }
  const GError *operator->() const { return error_; }
  const gchar *message () const { return error_ ? error_->message : "no reason given"; }
  /** Gives the error on, as g_propagate_error does. */
  void propagate (GError **destination)
  {
    g_propagate_error (destination, std::exchange (error_, nullptr));
  }

  ErrorOut () = default;
  ErrorOut (const ErrorOut &) = delete;
  ErrorOut &operator= (const ErrorOut &) = delete;
  ~ErrorOut () { g_clear_error (&error_); }

private:
  GError *error_ = nullptr;
};

/** A file descriptor, closed on destruction. */
class Fd
{
public:
  Fd () = default;
  explicit Fd (int fd) : fd_ (fd) {}
  Fd (Fd &&other) noexcept : fd_ (std::exchange (other.fd_, -1)) {}
  Fd &operator= (Fd &&other) noexcept
  {
    std::swap (fd_, other.fd_);
    return *this;
  }
  ~Fd ()
  {
    if (fd_ >= 0)
      close (fd_);
  }
  int get () const { return fd_; }
  explicit operator bool () const { return fd_ >= 0; }
  [[nodiscard]] int release () { return std::exchange (fd_, -1); }

private:
  int fd_ = -1;
};

/**
 * Holds a GMutex for a scope. GLib's mutexes are made of futexes that the thread sanitizer does not
 * see, so the lock tells it what happens.
 */
class Lock
{
public:
  explicit Lock (GMutex *mutex) : mutex_ (mutex)
  {
#ifdef VORN_THREAD_SANITIZER
    __tsan_mutex_pre_lock (mutex_, 0);
#endif
    g_mutex_lock (mutex_);
#ifdef VORN_THREAD_SANITIZER
    __tsan_mutex_post_lock (mutex_, 0, 0);
#endif
  }
  ~Lock ()
  {
#ifdef VORN_THREAD_SANITIZER
    __tsan_mutex_pre_unlock (mutex_, 0);
#endif
    g_mutex_unlock (mutex_);
#ifdef VORN_THREAD_SANITIZER
    __tsan_mutex_post_unlock (mutex_, 0);
#endif
  }
  Lock (const Lock &) = delete;
  Lock &operator= (const Lock &) = delete;

  /** Waits until signalled or until the monotonic time (us); FALSE when the time came first. */
  bool wait_until (GCond *cond, gint64 end_time_us)
  {
#ifdef VORN_THREAD_SANITIZER
    __tsan_mutex_pre_unlock (mutex_, 0);
    __tsan_mutex_post_unlock (mutex_, 0);
#endif
    const bool signalled = g_cond_wait_until (cond, mutex_, end_time_us);
#ifdef VORN_THREAD_SANITIZER
    __tsan_mutex_pre_lock (mutex_, 0);
    __tsan_mutex_post_lock (mutex_, 0, 0);
#endif
    return signalled;
  }

private:
  GMutex *mutex_;
};

} // namespace vorn

#endif
