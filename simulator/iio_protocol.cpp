// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "iio_protocol.hpp"

#include <algorithm>
#include <array>
#include <charconv>

namespace sim
{

namespace
{

constexpr size_t max_words = 8;

struct Words {
  std::array<std::string_view, max_words> word;
  size_t count = 0;
};

std::optional<Words> split_words (std::string_view line)
{
  Words words;
  size_t at = 0;
  while ((at = line.find_first_not_of (" \t", at)) != std::string_view::npos) {
    if (words.count == max_words)
      return std::nullopt;
    const size_t end = std::min (line.find_first_of (" \t", at), line.size ());
    words.word[words.count++] = line.substr (at, end - at);
    at = end;
  }
  return words;
}

bool parse_number (std::string_view text, uint32_t least, uint32_t most, uint32_t *number)
{
  const char *const end = text.data () + text.size ();
  const auto [stop, code] = std::from_chars (text.data (), end, *number);
  return code == std::errc () && stop == end && *number >= least && *number <= most;
}

bool is_mask (std::string_view text)
{
  return !text.empty () && text.size () % 8 == 0 &&
         text.find_first_not_of ("0123456789abcdefABCDEF") == std::string_view::npos;
}

/** "DEVICE ATTR", "DEVICE DEBUG|BUFFER ATTR" or "DEVICE INPUT|OUTPUT CHANNEL ATTR". */
bool parse_attribute (const std::string_view *word, size_t count, IioRequest *request)
{
  if (count < 2)
    return false;
  request->device = word[0];
  request->attribute = word[count - 1];
  if (count == 2)
    return true;
  if (count == 3 && (word[1] == "DEBUG" || word[1] == "BUFFER")) {
    request->owner = word[1] == "DEBUG" ? IioAttributeOwner::debug : IioAttributeOwner::buffer;
    return true;
  }
  if (count == 4 && (word[1] == "INPUT" || word[1] == "OUTPUT")) {
    request->owner =
        word[1] == "INPUT" ? IioAttributeOwner::input_channel : IioAttributeOwner::output_channel;
    request->channel = word[2];
    return true;
  }
  return false;
}

bool parse_open (const Words &words, IioRequest *request)
{
  request->cyclic = words.count == 5 && words.word[4] == "CYCLIC";
  if (words.count != 4 && !request->cyclic)
    return false;
  request->device = words.word[1];
  request->mask = words.word[3];
  return is_mask (request->mask) &&
         parse_number (words.word[2], 1, iio_limits::buffer_samples, &request->number);
}

bool parse_words (const Words &words, IioRequest *request)
{
  const auto &word = words.word;
  const auto is = [&] (std::string_view name, IioCommand command) {
    request->command = command;
    return word[0] == name;
  };
  const auto alone = [&] { return words.count == 1; };
  const auto with_device = [&] (size_t count) {
    request->device = word[1];
    return words.count == count;
  };

  if (is ("PRINT", IioCommand::print) || is ("ZPRINT", IioCommand::print_compressed) ||
      is ("VERSION", IioCommand::version) || is ("EXIT", IioCommand::exit))
    return alone ();
  if (is ("TIMEOUT", IioCommand::timeout))
    return words.count == 2 && parse_number (word[1], 0, iio_limits::timeout_ms, &request->number);
  if (is ("READ", IioCommand::read_attribute))
    return parse_attribute (&word[1], words.count - 1, request);
  if (is ("WRITE", IioCommand::write_attribute))
    return words.count >= 4 && parse_attribute (&word[1], words.count - 2, request) &&
           parse_number (word[words.count - 1], 0, iio_limits::write_bytes, &request->number);
  if (is ("SET", IioCommand::set_buffers_count))
    return with_device (4) && word[2] == "BUFFERS_COUNT" &&
           parse_number (word[3], 1, iio_limits::buffers, &request->number);
  if (is ("OPEN", IioCommand::open))
    return parse_open (words, request);
  if (is ("SETTRIG", IioCommand::set_trigger)) {
    request->trigger = word[2];
    return with_device (2) || with_device (3);
  }
  if (is ("GETTRIG", IioCommand::get_trigger) || is ("CLOSE", IioCommand::close))
    return with_device (2);
  if (is ("READBUF", IioCommand::read_buffer))
    return with_device (3) && parse_number (word[2], 1, iio_limits::read_bytes, &request->number);
  return false;
}

} // namespace

std::optional<IioRequest> parse_iio_request (std::string_view line)
{
  const auto words = split_words (line);
  IioRequest request;
  if (!words || words->count == 0 || !parse_words (*words, &request))
    return std::nullopt;
  return request;
}

std::optional<uint32_t> parse_iio_mask (std::string_view mask)
{
  const size_t high = mask.size () - 8;
  if (mask.substr (0, high).find_first_not_of ('0') != std::string_view::npos)
    return std::nullopt;
  uint32_t bits = 0;
  std::from_chars (mask.data () + high, mask.data () + mask.size (), bits, 16);
  return bits;
}

} // namespace sim
