// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Any names, types, sizes and counts, registered with a producer and with a consumer of the same
// section. What arrives must be what was sent, and nothing beside it is touched.
//
// Input: the section's name; then variables and entries, each a byte that says which (0 ends the
// input, odd: a variable, even: an entry), type, size, count and name. An entry with an empty name
// asks for the variable registered last.
#include <map>
#include <memory>
#include <vector>

#include <vorn/telemetry.h>

#include "fuzz_scope.hpp"

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size);

namespace
{

/** Exactly as many bytes as the registration says, on the heap, where an overrun shows. */
struct Place {
  Place (uint32_t size, uint32_t count, uint8_t fill)
  {
    const uint64_t wanted = uint64_t{size} * count;
    // More than that must be refused, so nobody may look at it.
    bytes.assign (wanted <= 1 << 20 ? wanted : 1, fill);
  }
  std::vector<uint8_t> bytes;
};

struct Registered {
  uint32_t type;
  uint32_t size;
  uint32_t count;
  const std::vector<uint8_t> *source;
};

} // namespace

int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
  fuzz_namespace ();
  Bytes input (data, size);
  const std::string section = input.take_text ();
  VornTelemetryProducer *producer = vorn_telemetry_producer_new (section.c_str (), 3, 1000);
  VornTelemetryConsumer *consumer = vorn_telemetry_consumer_new ();
  std::vector<std::unique_ptr<Place>> places;
  std::map<std::string, Registered> registered;
  std::vector<std::pair<std::string, const Place *>> wanted;
  std::string last;

  for (int i = 0; i < 64; i++) {
    const auto what = input.take<uint8_t> ();
    if (what == 0)
      break;
    const auto type = input.take<uint8_t> ();
    const auto element = input.take<uint8_t> ();
    const auto count = input.take<uint32_t> ();
    const std::string name = input.take_text ();
    auto place = std::make_unique<Place> (element, count, what);
    if (what % 2 == 1) {
      const int result = vorn_telemetry_producer_register (producer, name.c_str (), type, element,
                                                           count, place->bytes.data ());
      if (result == 0) {
        require (!registered.contains (name));
        registered[name] = {type, element, count, &place->bytes};
        last = name;
      }
    } else {
      std::string full = name;
      if (full.empty ())
        full.append (section).append (".").append (last);
      const VornTelemetryEntry entry = {full.c_str (), type, element, count, place->bytes.data ()};
      if (vorn_telemetry_consumer_register (consumer, &entry, 1) == 0)
        wanted.emplace_back (full, place.get ());
    }
    places.push_back (std::move (place));
  }

  const bool completed = vorn_telemetry_producer_complete (producer) == 0;
  require (completed == (producer && !registered.empty ()));
  require ((vorn_telemetry_consumer_complete (consumer) == 0) == !wanted.empty ());
  const struct timespec time = {1, 0};
  require ((vorn_telemetry_producer_put (producer, &time) == 0) == completed);
  if (vorn_telemetry_consumer_get (consumer, &time, VORN_TELEMETRY_VALID_AT) == 0) {
    for (const auto &[name, place] : wanted) {
      const auto found = registered.find (name.substr (section.size () + 1));
      require (name.starts_with (section + ".") && found != registered.end ());
      require (place->bytes == *found->second.source);
    }
  }
  require ((vorn_telemetry_producer_destroy (producer) == 0) == (producer != nullptr));
  require (vorn_telemetry_consumer_destroy (consumer) == 0);
  return 0;
}
