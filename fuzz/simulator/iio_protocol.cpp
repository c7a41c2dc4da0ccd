// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What any client may send to the IIO server: the bytes go to the request parser line by line and
// to a whole session in chunks, with time running on between them.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "iio_session.hpp"

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size);

namespace
{

using namespace sim;

const IioSource &source ()
{
  static const IioSource made = [] {
    IioSource s;
    s.model = make_camera_imu_context (GyroModel (), 1000);
    s.sample = [] (uint64_t index) {
      return ImuSample{{1, 2, 3}, static_cast<int64_t> (index) * 1000000};
    };
    return s;
  }();
  return made;
}

void require (bool holds)
{
  if (!holds)
    abort ();
}

bool lies_within (std::string_view part, std::string_view whole)
{
  return part.empty () || (part.data () >= whole.data () &&
                           part.data () + part.size () <= whole.data () + whole.size ());
}

void check_request (std::string_view line)
{
  const auto request = parse_iio_request (line);
  if (!request)
    return;
  for (const auto part :
       {request->device, request->channel, request->attribute, request->trigger, request->mask})
    require (lies_within (part, line));
  if (request->command == IioCommand::open) {
    require (request->mask.size () >= 8 && request->number >= 1 &&
             request->number <= iio_limits::buffer_samples);
    parse_iio_mask (request->mask);
  } else if (request->command == IioCommand::read_buffer) {
    require (request->number >= 1 && request->number <= iio_limits::read_bytes);
  }
}

} // namespace

int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
  if (size == 0)
    return 0;
  const size_t chunk = size_t{data[0]} + 1;
  std::string_view bytes (reinterpret_cast<const char *> (data) + 1, size - 1);
  for (auto rest = bytes; !rest.empty ();) {
    const auto end = std::min (rest.find ('\n'), rest.size () - 1);
    check_request (rest.substr (0, end));
    rest.remove_prefix (end + 1);
  }

  IioShared shared;
  IioSession session (source (), shared);
  int64_t now_ns = 0;
  while (!bytes.empty () && !session.is_finished ()) {
    const auto part = bytes.substr (0, chunk);
    bytes.remove_prefix (part.size ());
    session.receive (part, now_ns);
    // Once a piece is due it comes, and it is all that comes at once.
    for (int i = 0; i < 8 && session.due_ns (); i++) {
      now_ns = std::max (now_ns, *session.due_ns ());
      session.output ().clear ();
      session.advance (now_ns);
      require (session.output ().size () < 200000);
    }
    now_ns += 7'000'000;
    session.output ().clear ();
  }
  return 0;
}
