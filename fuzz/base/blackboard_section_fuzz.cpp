// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A section's object of any content, as a blackboard reader and as a telemetry consumer meet it.
//
// Input: a byte of flags, 64 bytes that replace the counters after the section was opened, then the
// object. Flag 1: the object gets the size that its header claims.
#include <cerrno>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <vorn/telemetry.h>

#include "fuzz_scope.hpp"

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size);

namespace
{

constexpr size_t at_image_size = 40;
constexpr size_t at_counters = 64;
constexpr uint64_t max_size = 1 << 20;

/** One object under two names: as a blackboard section and as a telemetry section. */
class Object
{
public:
  Object () : fd_ (open (path ("blackboard").c_str (), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600))
  {
    require (fd_ >= 0 && link (path ("blackboard").c_str (), path ("telemetry").c_str ()) == 0);
  }
  ~Object ()
  {
    close (fd_);
    unlink (path ("blackboard").c_str ());
    unlink (path ("telemetry").c_str ());
  }
  Object (const Object &) = delete;
  Object &operator= (const Object &) = delete;

  void write (const void *bytes, size_t size, size_t at)
  {
    require (pwrite (fd_, bytes, size, static_cast<off_t> (at)) == static_cast<ssize_t> (size));
  }
  void resize (uint64_t size) { require (ftruncate (fd_, static_cast<off_t> (size)) == 0); }

private:
  static std::string path (const char *kind)
  {
    return "/dev/shm/vorn." + fuzz_namespace () + "." + kind + ".image";
  }
  int fd_;
};

void look_around (VornBlackboardReader *reader, VornBlackboardRevision *revision,
                  size_t sample_size)
{
  constexpr struct timespec times[] = {{0, 0}, {1, 2000000}, {1, 999999999}, {18446744072, 0}};
  std::vector<char> samples (sample_size * 4);
  struct timespec sample_times[4];
  for (const auto &time : times)
    for (uint32_t method = VORN_BLACKBOARD_LATEST; method <= VORN_BLACKBOARD_SPAN; method++) {
      if (vorn_blackboard_select (reader, &time, method,
                                  method == VORN_BLACKBOARD_SPAN ? UINT32_MAX : 0) != 0)
        continue;
      require (vorn_blackboard_read (reader, 0, samples.data (), samples.size ()) <= 4);
      require (vorn_blackboard_read_times (reader, sample_times, 4) <= 4);
      vorn_blackboard_end_read (reader, revision);
    }
}

} // namespace

int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
  fuzz_namespace ();
  static Object object;
  Bytes input (data, size);
  const auto flags = input.take<uint8_t> ();
  struct Counters {
    char bytes[64];
  };
  const auto counters = input.take<Counters> ();
  object.resize (input.left ());
  object.write (input.rest (), input.left (), 0);
  uint64_t claimed = 0;
  if (input.left () >= at_image_size + sizeof claimed)
    memcpy (&claimed, input.rest () + at_image_size, sizeof claimed);
  if ((flags & 1) != 0 && claimed <= max_size)
    object.resize (claimed);

  float value = 0;
  VornTelemetryConsumer *consumer = vorn_telemetry_consumer_new ();
  const VornTelemetryEntry entry = {"image.v", VORN_TELEMETRY_F32, 4, 1, &value};
  require (vorn_telemetry_consumer_register (consumer, &entry, 1) == 0);
  require (vorn_telemetry_consumer_complete (consumer) == 0);
  vorn_telemetry_consumer_get (consumer, nullptr, VORN_TELEMETRY_LATEST);

  VornBlackboardRevision *revision;
  VornBlackboardReader *reader = vorn_blackboard_open ("image", &revision);
  VornBlackboardHeader header = {};
  if (reader) {
    require (vorn_blackboard_get_header (reader, &header) == 0);
    look_around (reader, revision, header.sample_size);
  }
  // Whoever may write to it may change it under way.
  object.write (&counters, sizeof counters, at_counters);
  if (reader) {
    look_around (reader, revision, header.sample_size);
    require (vorn_blackboard_close (reader, revision) == 0);
  }
  const struct timespec time = {1, 0};
  vorn_telemetry_consumer_get (consumer, &time, VORN_TELEMETRY_VALID_AT);
  require (vorn_telemetry_consumer_destroy (consumer) == 0);
  return 0;
}
