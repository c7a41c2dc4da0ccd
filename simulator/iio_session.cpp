// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "iio_session.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace sim
{

namespace
{

constexpr int refusals_before_end = 100;
/** With so much to send, further requests wait until the client has read. */
constexpr size_t output_limit = 65536;
/** Longer blocks go out in pieces, so that no client's block keeps the others waiting. */
constexpr uint32_t piece_samples = 256;
/** The tag is padded to seven characters. */
constexpr std::string_view version_text = "0.24.v0.24  ";

const IioAttribute *find_attribute (const std::vector<IioAttribute> &attributes,
                                    std::string_view name)
{
  const auto found =
      std::find_if (attributes.begin (), attributes.end (),
                    [name] (const IioAttribute &attribute) { return attribute.name == name; });
  return found == attributes.end () ? nullptr : &*found;
}

} // namespace

uint64_t IioSource::first_after (int64_t time_ns) const
{
  const int64_t after_ns = time_ns - start_ns;
  return after_ns <= 0 ? 0 : static_cast<uint64_t> ((after_ns + period_ns - 1) / period_ns);
}

void IioSession::receive (std::string_view bytes, int64_t now_ns)
{
  if (finished_)
    return;
  input_ += bytes;
  answer_requests (now_ns);
}

void IioSession::advance (int64_t now_ns)
{
  const auto due = due_ns ();
  if (due && *due <= now_ns)
    answer_piece ();
  answer_requests (now_ns);
}

bool IioSession::is_full () const
{
  return input_.size () > iio_limits::line_bytes || output_.size () > output_limit;
}

void IioSession::answer_requests (int64_t now_ns)
{
  // Answers come in the order of their requests: while a block is waited for, the rest waits.
  std::string_view line;
  while (!finished_ && pending_samples_ == 0 && output_.size () <= output_limit) {
    if (write_bytes_) {
      if (written_.size () + input_.size () < *write_bytes_) {
        written_ += input_;
        input_.clear ();
        return;
      }
      finish_write ();
    } else if (take_line (&line)) {
      const std::string kept (line);
      input_.erase (0, line.size () + 1);
      handle_line (kept, now_ns);
    } else {
      return;
    }
  }
}

bool IioSession::take_line (std::string_view *line)
{
  const auto end = input_.find ('\n');
  if (end <= iio_limits::line_bytes) { // npos is above
    *line = std::string_view (input_).substr (0, end);
    return true;
  }
  if (input_.size () > iio_limits::line_bytes)
    end_session ("a line without end");
  return false;
}

void IioSession::handle_line (std::string_view line, int64_t now_ns)
{
  if (line.ends_with ('\r'))
    line.remove_suffix (1);
  if (line.empty ())
    return;
  const auto request = parse_iio_request (line);
  if (request) {
    is_client_ = true;
    refused_in_a_row_ = 0;
    handle (*request, now_ns);
    return;
  }
  shared_.statistics.refused_requests++;
  answer (-EINVAL);
  if (line.starts_with ("WRITE "))
    end_session ("a WRITE whose length is not known");
  else if (++refused_in_a_row_ == refusals_before_end)
    end_session ("nothing but garbage");
}

void IioSession::handle (const IioRequest &request, int64_t now_ns)
{
  switch (request.command) {
  case IioCommand::print: {
    const std::string xml = source_.model.xml ();
    output_ += std::to_string (xml.size ()) + "\n" + xml + "\n";
    return;
  }
  case IioCommand::print_compressed:
    return answer (-EINVAL);
  case IioCommand::version:
    output_ += version_text;
    output_ += '\n';
    return;
  case IioCommand::timeout:
    return answer (0);
  case IioCommand::exit:
    return end_session ("");
  case IioCommand::close:
    answer (device_ ? 0 : -EBADF);
    device_ = nullptr;
    return;
  case IioCommand::read_buffer:
    return start_block (request, now_ns);
  case IioCommand::write_attribute:
    return start_write (request);
  default:
    break;
  }

  const IioDevice *device = source_.model.find_device (request.device);
  if (!device)
    answer (-ENODEV);
  else if (request.command == IioCommand::read_attribute)
    read_attribute (*device, request, now_ns);
  else if (request.command == IioCommand::open)
    open (*device, request, now_ns);
  else if (request.command == IioCommand::set_trigger)
    set_trigger (*device, request, now_ns);
  else if (request.command == IioCommand::get_trigger)
    get_trigger (*device);
  else
    answer (0); // SET BUFFERS_COUNT: blocks are made when they are asked for
}

void IioSession::read_attribute (const IioDevice &device, const IioRequest &request, int64_t now_ns)
{
  const IioChannel *channel = nullptr;
  const IioAttribute *attribute = nullptr;
  if (request.owner == IioAttributeOwner::device)
    attribute = find_attribute (device.attributes, request.attribute);
  else if (request.owner == IioAttributeOwner::input_channel)
    channel = device.find_channel (request.channel);
  if (channel)
    attribute = find_attribute (channel->attributes, request.attribute);
  if (!attribute)
    return answer (-ENOENT);
  if (!attribute->live || !channel)
    return answer_text (attribute->value);
  const uint64_t produced = source_.first_after (now_ns + 1);
  const ImuSample sample = source_.sample (produced > 0 ? produced - 1 : 0);
  answer_text (std::to_string (quantity_of (sample, channel->quantity)));
}

/** Nothing here can be changed; writing the trigger the rate that it has is accepted. */
void IioSession::start_write (const IioRequest &request)
{
  write_bytes_ = request.number;
  written_.clear ();
  write_expected_.clear ();
  const IioDevice *device = source_.model.find_device (request.device);
  write_result_ = device ? -EACCES : -ENODEV;
  if (!device || !device->is_trigger () || request.owner != IioAttributeOwner::device)
    return;
  const IioAttribute *rate = find_attribute (device->attributes, request.attribute);
  if (rate && rate->name == "sampling_frequency")
    write_expected_ = rate->value;
}

void IioSession::finish_write ()
{
  const size_t missing = *write_bytes_ - written_.size ();
  written_ += input_.substr (0, missing);
  input_.erase (0, missing);
  // Values come with or without their NUL or line feed.
  const auto text = written_.substr (0, written_.find_first_of (std::string_view ("\0\n", 2)));
  if (!write_expected_.empty ())
    answer (text == write_expected_ ? int64_t{*write_bytes_} : -EINVAL);
  else
    answer (write_result_);
  write_bytes_.reset ();
}

void IioSession::open (const IioDevice &device, const IioRequest &request, int64_t now_ns)
{
  if (device_)
    return answer (-EBUSY);
  const auto mask = parse_iio_mask (request.mask);
  const uint32_t all = (1u << device.channels.size ()) - 1;
  if (!mask || *mask == 0 || (*mask & ~all) || request.cyclic)
    return answer (-EINVAL);
  device_ = &device;
  mask_ = *mask;
  layout_ = make_sample_layout (device, *mask);
  opened_ns_ = now_ns;
  next_index_.reset ();
  place_reader ();
  answer (0);
}

void IioSession::set_trigger (const IioDevice &device, const IioRequest &request, int64_t now_ns)
{
  // A real kernel refuses this while a buffer is enabled; the clients served here open first.
  const IioDevice *trigger =
      request.trigger.empty () ? nullptr : source_.model.find_device (request.trigger);
  if (device.is_trigger () || (!request.trigger.empty () && !(trigger && trigger->is_trigger ())))
    return answer (-EINVAL);
  const std::string id = trigger ? trigger->id : "";
  if (shared_.trigger_id != id)
    shared_.trigger_since_ns = now_ns;
  shared_.trigger_id = id;
  place_reader ();
  answer (0);
}

void IioSession::get_trigger (const IioDevice &device)
{
  const IioDevice *trigger = source_.model.find_device (shared_.trigger_id);
  if (!trigger || device.is_trigger ())
    return answer (0);
  output_ += std::to_string (trigger->name.size ()) + "\n" + trigger->name + "\n";
}

/** The next sample; a trigger that came, or came back, starts the buffer anew. */
uint64_t IioSession::next_index () const
{
  if (next_index_ && placed_for_trigger_ns_ == shared_.trigger_since_ns)
    return *next_index_;
  return source_.first_after (std::max (opened_ns_, shared_.trigger_since_ns));
}

void IioSession::place_reader ()
{
  if (!device_ || shared_.trigger_id.empty ())
    return;
  next_index_ = next_index ();
  placed_for_trigger_ns_ = shared_.trigger_since_ns;
}

void IioSession::skip_lost_samples (int64_t now_ns)
{
  place_reader ();
  if (!next_index_ || source_.queue_depth == 0)
    return;
  const uint64_t produced = source_.first_after (now_ns + 1);
  const uint64_t oldest =
      produced > source_.queue_depth ? produced - source_.queue_depth : uint64_t{0};
  if (*next_index_ < oldest) {
    shared_.statistics.lost_samples += oldest - *next_index_;
    next_index_ = oldest;
  }
}

void IioSession::start_block (const IioRequest &request, int64_t now_ns)
{
  if (!device_ || device_ != source_.model.find_device (request.device))
    return answer (-EBADF);
  if (request.number % layout_.sample_bytes != 0)
    return answer (-EINVAL);
  pending_samples_ = request.number / layout_.sample_bytes;
  is_first_piece_ = true;
  skip_lost_samples (now_ns);
  const auto due = due_ns ();
  if (due && *due <= now_ns)
    answer_piece ();
}

std::optional<int64_t> IioSession::due_ns () const
{
  if (pending_samples_ == 0 || shared_.trigger_id.empty ())
    return std::nullopt;
  return source_.time_of (next_index () + std::min (pending_samples_, piece_samples) - 1);
}

/** Spends a fault that a test has prepared; true when the block has been answered by it. */
bool IioSession::spend_fault ()
{
  IioFaults &faults = shared_.faults;
  if (faults.failing_blocks > 0) {
    faults.failing_blocks--;
    next_index_ = *next_index_ + pending_samples_;
    pending_samples_ = 0;
    answer (faults.error_code);
    return true;
  }
  const int samples = faults.short_block_samples.exchange (-1);
  if (samples >= 0 && static_cast<uint32_t> (samples) < pending_samples_) {
    const uint32_t lost = pending_samples_ - static_cast<uint32_t> (samples);
    append_piece (static_cast<uint32_t> (samples));
    next_index_ = *next_index_ + lost;
    pending_samples_ = 0;
    output_ += "0\n";
    return true;
  }
  return false;
}

void IioSession::answer_piece ()
{
  place_reader ();
  if (is_first_piece_) {
    shared_.statistics.blocks++;
    if (spend_fault ())
      return;
  }
  append_piece (std::min (pending_samples_, piece_samples));
}

void IioSession::append_piece (uint32_t samples)
{
  if (samples == 0)
    return;
  char header[32];
  const int length = snprintf (header, sizeof header, is_first_piece_ ? "%u\n%08x\n" : "%u\n",
                               samples * layout_.sample_bytes, mask_);
  output_.append (header, static_cast<size_t> (length));
  for (uint32_t i = 0; i < samples; i++)
    append_sample (layout_, source_.sample (*next_index_ + i), &output_);
  next_index_ = *next_index_ + samples;
  pending_samples_ -= samples;
  is_first_piece_ = false;
  shared_.statistics.samples += samples;
}

void IioSession::answer (int64_t number)
{
  output_ += std::to_string (number);
  output_ += '\n';
}

void IioSession::answer_text (std::string_view text)
{
  // As from a real device's file, the length counts a closing NUL.
  answer (static_cast<int64_t> (text.size () + 1));
  output_ += text;
  output_ += '\0';
  output_ += '\n';
}

void IioSession::end_session (const std::string &fault)
{
  finished_ = true;
  fault_ = fault;
  device_ = nullptr;
  pending_samples_ = 0;
}

} // namespace sim
