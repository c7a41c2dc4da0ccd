// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/telemetry.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include <vorn/log.h>

#include "blackboard_section.hpp"
#include "telemetry_layout.hpp"

VORN_LOG_TAG ("telemetry");

using namespace vorn::blackboard;
using namespace vorn::telemetry;

namespace
{

constexpr int read_attempts = 8;

/** What is wanted of one section. */
class ConsumedSection
{
public:
  explicit ConsumedSection (Address address) : reader_ (std::move (address), Kind::telemetry) {}

  const std::string &name () const { return reader_.name (); }

  void want (Variable variable, void *destination)
  {
    wanted_.push_back ({std::move (variable), static_cast<std::byte *> (destination)});
  }

  /** Looks for the section, and for the variables in it when it is another one than before. */
  int refresh ()
  {
    if (const int result = reader_.refresh (); result < 0) [[unlikely]]
      return result;
    if (reader_.attachment () != resolved_) [[unlikely]] {
      resolved_ = reader_.attachment ();
      resolution_ = resolve ();
    }
    return resolution_;
  }

  /** Reads a sample, without giving it out yet. */
  int fetch (uint64_t time_ns, uint32_t method)
  {
    for (int attempt = 0; attempt < read_attempts; attempt++) {
      int result = refresh ();
      if (result == 0)
        result = reader_.select (time_ns, method, 0);
      if (result == 0)
        result = std::min (reader_.read (sample_.data (), sample_.size ()), 0);
      if (result != -EAGAIN)
        return result;
    }
    return -EAGAIN;
  }

  void give_out () const
  {
    for (const auto &run : runs_)
      copy_run (run.memory, sample_.data () + run.offset, run.bytes);
  }

private:
  struct Wanted {
    Variable variable;
    std::byte *destination;
  };

  int resolve ();

  SectionReader reader_;
  std::vector<Wanted> wanted_;
  uint64_t resolved_ = 0; // the attachment that the rest belongs to
  int resolution_ = 0;
  std::vector<Run<std::byte *>> runs_; // from the sample to the destinations
  std::vector<std::byte> sample_;
};

int ConsumedSection::resolve ()
{
  runs_.clear ();
  const uint32_t sample_bytes = reader_.geometry ().header.sample_size;
  const auto layout = Layout::parse (reader_.annex (), sample_bytes);
  if (!layout) {
    VORN_LOG_ERROR ("section '%s' refused: its table of variables is damaged", name ().c_str ());
    return -EBADMSG;
  }
  int error = 0;
  for (const auto &[want, destination] : wanted_) {
    const Variable *found = layout->find (want.name);
    if (!found) {
      VORN_LOG_ERROR ("section '%s' has no variable '%s'", name ().c_str (), want.name.c_str ());
      error = error ? error : -ENXIO;
    } else if (found->type != want.type || found->size != want.size || found->count != want.count) {
      VORN_LOG_ERROR ("variable '%s.%s' has type code %u, size %u, count %u; registered with %u, "
                      "%u, %u",
                      name ().c_str (), want.name.c_str (), found->type, found->size, found->count,
                      want.type, want.size, want.count);
      error = error ? error : -EPROTO;
    } else {
      append_run (runs_, {destination, found->offset, found->bytes ()});
    }
  }
  sample_.resize (sample_bytes);
  return error;
}

/** Why an entry cannot be registered; empty when it can. */
std::string entry_fault (const VornTelemetryEntry &entry)
{
  if (!entry.name)
    return "no name";
  const std::string_view name = entry.name;
  const size_t dot = name.find ('.');
  if (dot == std::string_view::npos || !valid_name (name.substr (0, dot)) ||
      !valid_variable_name (name.substr (dot + 1)))
    return "not of the form section.variable";
  if (!entry.destination)
    return "no destination";
  return shape_fault (entry.type, entry.size, entry.count);
}

} // namespace

struct VornTelemetryConsumer {
  std::string name_space;
  std::vector<ConsumedSection> sections;
  bool complete = false;
};

namespace
{

ConsumedSection &section_of (VornTelemetryConsumer *consumer, const std::string &name)
{
  for (auto &section : consumer->sections)
    if (section.name () == name)
      return section;
  return consumer->sections.emplace_back (address_in (consumer->name_space, Kind::telemetry, name));
}

} // namespace

VornTelemetryConsumer *vorn_telemetry_consumer_new (void)
{
  auto space = current_namespace ();
  if (!space) {
    errno = EINVAL;
    return nullptr;
  }
  auto consumer = std::make_unique<VornTelemetryConsumer> ();
  consumer->name_space = std::move (*space);
  return consumer.release ();
}

int vorn_telemetry_consumer_register (VornTelemetryConsumer *consumer,
                                      const VornTelemetryEntry *entries, size_t n_entries)
{
  if (!consumer || (!entries && n_entries > 0))
    return -EINVAL;
  for (size_t i = 0; i < n_entries; i++) {
    const auto fault = consumer->complete ? std::string ("the registration is complete")
                                          : entry_fault (entries[i]);
    if (!fault.empty ()) {
      VORN_LOG_ERROR ("entry '%.160s' refused: %s", entries[i].name ? entries[i].name : "(null)",
                      fault.c_str ());
      return -EINVAL;
    }
  }
  for (size_t i = 0; i < n_entries; i++) {
    const auto &entry = entries[i];
    const std::string name = entry.name;
    const size_t dot = name.find ('.');
    section_of (consumer, name.substr (0, dot))
        .want ({name.substr (dot + 1), entry.type, entry.size, entry.count, 0}, entry.destination);
  }
  return 0;
}

int vorn_telemetry_consumer_complete (VornTelemetryConsumer *consumer)
{
  if (!consumer)
    return -EINVAL;
  if (consumer->complete || consumer->sections.empty ()) {
    VORN_LOG_ERROR ("consumer: %s", consumer->complete
                                        ? "the registration is complete already"
                                        : "no entries to complete the registration with");
    return -EINVAL;
  }
  consumer->complete = true;
  // Whatever does not fit is logged now; the section may be another one by the time of a get.
  for (auto &section : consumer->sections)
    (void)section.refresh ();
  return 0;
}

int vorn_telemetry_consumer_get (VornTelemetryConsumer *consumer, const struct timespec *time,
                                 uint32_t method)
{
  const auto time_ns = method == VORN_TELEMETRY_LATEST ? 0 : time_to_ns (time);
  if (!consumer || !consumer->complete || !time_ns || method > VORN_TELEMETRY_FIRST_NOT_BEFORE)
    return -EINVAL;
  for (auto &section : consumer->sections)
    if (const int result = section.fetch (*time_ns, method); result < 0)
      return result;
  for (const auto &section : consumer->sections)
    section.give_out ();
  return 0;
}

int vorn_telemetry_consumer_destroy (VornTelemetryConsumer *consumer)
{
  if (!consumer)
    return -EINVAL;
  delete consumer;
  return 0;
}
