// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "iio_protocol.hpp"

#include <gtest/gtest.h>

using namespace sim;

namespace
{

struct GoodCase {
  const char *line;
  IioRequest expected;
};

using Command = IioCommand;
using Owner = IioAttributeOwner;

const GoodCase good_cases[] = {
    {"PRINT", {.command = Command::print}},
    {"ZPRINT", {.command = Command::print_compressed}},
    {"VERSION", {.command = Command::version}},
    {"EXIT", {.command = Command::exit}},
    {"  PRINT\t", {.command = Command::print}},
    {"TIMEOUT 2500", {.command = Command::timeout, .number = 2500}},
    {"TIMEOUT 0", {.command = Command::timeout}},
    {"READ iio:device0 in_anglvel_scale",
     {.command = Command::read_attribute,
      .device = "iio:device0",
      .attribute = "in_anglvel_scale"}},
    {"READ iio:device0 INPUT anglvel_x raw",
     {.command = Command::read_attribute,
      .device = "iio:device0",
      .owner = Owner::input_channel,
      .channel = "anglvel_x",
      .attribute = "raw"}},
    {"READ iio:device0 OUTPUT voltage0 raw",
     {.command = Command::read_attribute,
      .device = "iio:device0",
      .owner = Owner::output_channel,
      .channel = "voltage0",
      .attribute = "raw"}},
    {"READ iio:device0 DEBUG direct_reg_access",
     {.command = Command::read_attribute,
      .device = "iio:device0",
      .owner = Owner::debug,
      .attribute = "direct_reg_access"}},
    {"READ iio:device0 BUFFER watermark",
     {.command = Command::read_attribute,
      .device = "iio:device0",
      .owner = Owner::buffer,
      .attribute = "watermark"}},
    {"WRITE trigger0 sampling_frequency 4",
     {.command = Command::write_attribute,
      .device = "trigger0",
      .attribute = "sampling_frequency",
      .number = 4}},
    {"WRITE d INPUT c a 4096",
     {.command = Command::write_attribute,
      .device = "d",
      .owner = Owner::input_channel,
      .channel = "c",
      .attribute = "a",
      .number = 4096}},
    {"SET iio:device0 BUFFERS_COUNT 4",
     {.command = Command::set_buffers_count, .device = "iio:device0", .number = 4}},
    {"OPEN iio:device0 5 0000000f",
     {.command = Command::open, .device = "iio:device0", .mask = "0000000f", .number = 5}},
    {"OPEN iio:device0 65536 000000000000000F",
     {.command = Command::open,
      .device = "iio:device0",
      .mask = "000000000000000F",
      .number = 65536}},
    {"OPEN iio:device0 5 0000000f CYCLIC",
     {.command = Command::open,
      .device = "iio:device0",
      .mask = "0000000f",
      .number = 5,
      .cyclic = true}},
    {"SETTRIG iio:device0 trigger0",
     {.command = Command::set_trigger, .device = "iio:device0", .trigger = "trigger0"}},
    {"SETTRIG iio:device0", {.command = Command::set_trigger, .device = "iio:device0"}},
    {"GETTRIG iio:device0", {.command = Command::get_trigger, .device = "iio:device0"}},
    {"READBUF iio:device0 80",
     {.command = Command::read_buffer, .device = "iio:device0", .number = 80}},
    {"READBUF iio:device0 1048576",
     {.command = Command::read_buffer, .device = "iio:device0", .number = 1048576}},
    {"CLOSE iio:device0", {.command = Command::close, .device = "iio:device0"}},
};

TEST (IioProtocol, Requests)
{
  for (const auto &[line, expected] : good_cases) {
    const auto request = parse_iio_request (line);
    ASSERT_TRUE (request) << line;
    EXPECT_EQ (request->command, expected.command) << line;
    EXPECT_EQ (request->device, expected.device) << line;
    EXPECT_EQ (request->owner, expected.owner) << line;
    EXPECT_EQ (request->channel, expected.channel) << line;
    EXPECT_EQ (request->attribute, expected.attribute) << line;
    EXPECT_EQ (request->trigger, expected.trigger) << line;
    EXPECT_EQ (request->mask, expected.mask) << line;
    EXPECT_EQ (request->number, expected.number) << line;
    EXPECT_EQ (request->cyclic, expected.cyclic) << line;
  }
}

TEST (IioProtocol, NoRequests)
{
  for (const char *line : {
           "",
           "   ",
           "print",
           "PRINTS",
           "PRINT x",
           "HELP",
           "GET / HTTP/1.1",
           "TIMEOUT",
           "TIMEOUT -1",
           "TIMEOUT x",
           "TIMEOUT 1x",
           "TIMEOUT +1",
           "TIMEOUT 3600001",
           "TIMEOUT 99999999999999999999",
           "TIMEOUT 1 2",
           "READ",
           "READ d",
           "READ d INPUT a",
           "READ d FOO a",
           "READ d INPUT c a x",
           "READ d DEBUG x a",
           "WRITE",
           "WRITE d",
           "WRITE d a",
           "WRITE d a x",
           "WRITE d a -1",
           "WRITE d a 4097",
           "WRITE d a 99999999999999999999",
           "SET d BUFFERS_COUNT",
           "SET d BUFFERS_COUNT 0",
           "SET d BUFFERS_COUNT 65",
           "SET d OTHER 4",
           "OPEN",
           "OPEN d",
           "OPEN d 5",
           "OPEN d 5 f",
           "OPEN d 5 0000000g",
           "OPEN d 0 0000000f",
           "OPEN d 65537 0000000f",
           "OPEN d -5 0000000f",
           "OPEN d 5 0000000f ACYCLIC",
           "OPEN d 5 0000000f CYCLIC x",
           "OPEN d 5 0x00000f",
           "OPEN d 5 000000000f",
           "SETTRIG",
           "SETTRIG d t x",
           "GETTRIG",
           "GETTRIG d x",
           "CLOSE",
           "CLOSE d x",
           "READBUF",
           "READBUF d",
           "READBUF d 0",
           "READBUF d -80",
           "READBUF d 1048577",
           "READBUF d 18446744073709551696",
           "READBUF d 80 x",
           "READ a b c d e f g h i j k l m n o p",
       })
    EXPECT_FALSE (parse_iio_request (line)) << line;
  EXPECT_FALSE (parse_iio_request (std::string_view ("PRINT\0", 6)));
  EXPECT_FALSE (parse_iio_request (std::string_view ("\xff\xfe\x00", 3)));
}

TEST (IioProtocol, Masks)
{
  EXPECT_EQ (parse_iio_mask ("0000000f"), 15u);
  EXPECT_EQ (parse_iio_mask ("DEADbeef"), 0xdeadbeefu);
  EXPECT_EQ (parse_iio_mask ("000000000000000f"), 15u);
  EXPECT_EQ (parse_iio_mask ("000000010000000f"), std::nullopt);
}

} // namespace
