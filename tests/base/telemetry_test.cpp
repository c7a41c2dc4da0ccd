// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The telemetry bus, producers and consumers in one process.
#include "blackboard_fixture.hpp"

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <vector>

#include <vorn/telemetry.h>

using Producer = vorn::Owned<VornTelemetryProducer, vorn_telemetry_producer_destroy>;
using Consumer = vorn::Owned<VornTelemetryConsumer, vorn_telemetry_consumer_destroy>;

namespace
{

constexpr uint64_t ms = 1000000;

int add (const Producer &producer, const char *name, const float *address)
{
  return vorn_telemetry_producer_register (producer.get (), name, VORN_TELEMETRY_F32,
                                           sizeof (float), 1, address);
}
int complete (const Producer &producer)
{
  return vorn_telemetry_producer_complete (producer.get ());
}
int put (const Producer &producer, uint64_t time_ns)
{
  const auto time = timespec_of (time_ns);
  return vorn_telemetry_producer_put (producer.get (), &time);
}

/** A producer of f32 variables, complete. */
Producer make_producer (const char *section, uint32_t capacity,
                        const std::vector<std::pair<const char *, const float *>> &variables)
{
  Producer producer (vorn_telemetry_producer_new (section, capacity, 1000));
  for (const auto &[name, address] : variables)
    EXPECT_EQ (add (producer, name, address), 0);
  EXPECT_EQ (complete (producer), 0);
  return producer;
}

Consumer make_consumer (const std::vector<VornTelemetryEntry> &entries)
{
  Consumer consumer (vorn_telemetry_consumer_new ());
  EXPECT_EQ (vorn_telemetry_consumer_register (consumer.get (), entries.data (), entries.size ()),
             0);
  EXPECT_EQ (vorn_telemetry_consumer_complete (consumer.get ()), 0);
  return consumer;
}

VornTelemetryEntry f32 (const char *name, float *destination)
{
  return {name, VORN_TELEMETRY_F32, sizeof (float), 1, destination};
}

int get_latest (const Consumer &consumer)
{
  return vorn_telemetry_consumer_get (consumer.get (), nullptr, VORN_TELEMETRY_LATEST);
}
int get_at (const Consumer &consumer, uint64_t time_ns, uint32_t method = VORN_TELEMETRY_VALID_AT)
{
  const auto time = timespec_of (time_ns);
  return vorn_telemetry_consumer_get (consumer.get (), &time, method);
}

class TelemetryTest : public BlackboardTest
{
};

} // namespace

TEST_F (TelemetryTest, EveryTypeArrivesBitByBit)
{
  // As the photo's values are laid out: types mixed, so that there are gaps in memory.
  struct Record {
    int32_t num = 0;
    int16_t program = 0;
    double bias = 0;
    float ratio = 0;
    uint16_t luma = 0;
    int16_t table[3] = {};
    float quaternion[4] = {};
    double pair[2] = {};
    int32_t last = 0;
  };
  Record out;
  Record in;
  const struct {
    const char *name;
    uint32_t type;
    uint32_t size;
    uint32_t count;
    void *from;
    void *to;
  } rows[] = {
      {"num", VORN_TELEMETRY_INT32, 4, 1, &out.num, &in.num},
      {"program", VORN_TELEMETRY_INT16, 2, 1, &out.program, &in.program},
      {"bias", VORN_TELEMETRY_F64, 8, 1, &out.bias, &in.bias},
      {"ratio", VORN_TELEMETRY_F32, 4, 1, &out.ratio, &in.ratio},
      {"luma", VORN_TELEMETRY_INT16, 2, 1, &out.luma, &in.luma},
      {"table", VORN_TELEMETRY_INT16, 2, 3, out.table, in.table},
      {"quaternion", VORN_TELEMETRY_F32, 4, 4, out.quaternion, in.quaternion},
      {"pair", VORN_TELEMETRY_F64, 8, 2, out.pair, in.pair},
      {"nested.name-1", VORN_TELEMETRY_INT32, 4, 1, &out.last, &in.last},
  };
  const Producer producer (vorn_telemetry_producer_new ("types", 7, 1428571));
  std::vector<std::string> names;
  for (const auto &row : rows) {
    ASSERT_EQ (vorn_telemetry_producer_register (producer.get (), row.name, row.type, row.size,
                                                 row.count, row.from),
               0);
    names.push_back (std::string ("types.") + row.name);
  }
  ASSERT_EQ (complete (producer), 0);
  std::vector<VornTelemetryEntry> entries;
  for (size_t i = 0; i < std::size (rows); i++)
    entries.insert (entries.begin (),
                    {names[i].c_str (), rows[i].type, rows[i].size, rows[i].count, rows[i].to});
  const Consumer consumer = make_consumer (entries);
  names.clear (); // names are needed during registration only

  for (int round = 0; round < 20; round++) {
    out.num = round == 0 ? INT32_MIN : round * 1000003;
    out.program = static_cast<int16_t> (round == 0 ? INT16_MIN : -round);
    out.bias = round == 0 ? std::numeric_limits<double>::denorm_min () : round / 3.0;
    out.ratio = round == 0 ? -0.0f : static_cast<float> (round) / 7;
    out.luma = round == 0 ? UINT16_MAX : 512;
    for (int16_t i = 0; i < 3; i++)
      out.table[i] = static_cast<int16_t> (i * round);
    for (int i = 0; i < 4; i++)
      out.quaternion[i] = static_cast<float> (i + round);
    out.pair[0] = std::numeric_limits<double>::infinity ();
    out.pair[1] = round;
    out.last = -round;
    ASSERT_EQ (put (producer, static_cast<uint64_t> (round) * ms), 0);
    in = {};
    ASSERT_EQ (get_latest (consumer), 0);
    EXPECT_EQ (in.num, out.num);
    EXPECT_EQ (in.program, out.program);
    EXPECT_EQ (in.bias, out.bias);
    EXPECT_EQ (in.ratio, out.ratio);
    EXPECT_EQ (std::signbit (in.ratio), std::signbit (out.ratio));
    EXPECT_EQ (in.luma, out.luma);
    EXPECT_TRUE (std::equal (in.table, in.table + 3, out.table));
    EXPECT_TRUE (std::equal (in.quaternion, in.quaternion + 4, out.quaternion));
    EXPECT_EQ (in.pair[0], out.pair[0]);
    EXPECT_EQ (in.pair[1], out.pair[1]);
    EXPECT_EQ (in.last, out.last);
  }
}

TEST_F (TelemetryTest, TypeCodesAreThoseOfTheBus)
{
  EXPECT_EQ (VORN_TELEMETRY_INT16, 3);
  EXPECT_EQ (VORN_TELEMETRY_INT32, 5);
  EXPECT_EQ (VORN_TELEMETRY_F32, 9);
  EXPECT_EQ (VORN_TELEMETRY_F64, 10);
  EXPECT_EQ (VORN_TELEMETRY_VALID_AT, 1);
}

TEST_F (TelemetryTest, NothingElseThanTheDestinationsIsTouched)
{
  float source[3] = {1, 2, 3};
  const Producer producer =
      make_producer ("sparse", 4, {{"a", &source[0]}, {"b", &source[1]}, {"c", &source[2]}});
  float room[5] = {-1, -1, -1, -1, -1};
  const Consumer consumer =
      make_consumer ({f32 ("sparse.c", &room[1]), f32 ("sparse.a", &room[3])});
  ASSERT_EQ (put (producer, ms), 0);
  ASSERT_EQ (get_latest (consumer), 0);
  EXPECT_EQ (std::vector<float> (room, room + 5), (std::vector<float>{-1, 3, -1, 1, -1}));
}

TEST_F (TelemetryTest, LookUpsByTime)
{
  float source = 0;
  float value = 0;
  const Producer producer = make_producer ("track", 5, {{"v", &source}});
  const Consumer consumer = make_consumer ({f32 ("track.v", &value)});
  const auto expect = [&] (uint64_t time_ns, int result, float expected) {
    value = -1;
    EXPECT_EQ (get_at (consumer, time_ns), result) << time_ns;
    EXPECT_EQ (value, expected) << time_ns;
  };
  expect (10 * ms, -ENOENT, -1); // nothing published
  EXPECT_EQ (get_latest (consumer), -ENOENT);
  for (int i = 1; i <= 4; i++) {
    source = static_cast<float> (i);
    ASSERT_EQ (put (producer, static_cast<uint64_t> (i) * 10 * ms), 0);
  }
  expect (10 * ms - 1, -ENOENT, -1); // before the first
  expect (10 * ms, 0, 1);
  expect (19 * ms, 0, 1); // between
  expect (20 * ms, 0, 2);
  expect (40 * ms, 0, 4);
  expect (4000 * ms, 0, 4); // after the last it stays valid
  value = -1;
  EXPECT_EQ (get_at (consumer, 11 * ms, VORN_TELEMETRY_FIRST_NOT_BEFORE), 0);
  EXPECT_EQ (value, 2);
  EXPECT_EQ (get_at (consumer, 41 * ms, VORN_TELEMETRY_FIRST_NOT_BEFORE), -ENODATA);
  for (int i = 5; i <= 12; i++) {
    source = static_cast<float> (i);
    ASSERT_EQ (put (producer, static_cast<uint64_t> (i) * 10 * ms), 0);
  }
  expect (79 * ms, -ERANGE, -1); // overwritten: 8 to 12 are kept
  expect (10 * ms, -ERANGE, -1);
  expect (80 * ms, 0, 8);
  EXPECT_EQ (get_latest (consumer), 0);
  EXPECT_EQ (value, 12);
}

TEST_F (TelemetryTest, ConsumerBeforeProducer)
{
  LogCapture capture;
  float source = 7;
  float value = 0;
  const Consumer consumer = make_consumer ({f32 ("late.v", &value)});
  EXPECT_EQ (get_latest (consumer), -ENOENT);
  EXPECT_EQ (get_at (consumer, 5), -ENOENT);
  EXPECT_TRUE (capture.lines ().empty ()); // nothing is wrong yet
  const Producer producer (vorn_telemetry_producer_new ("late", 5, 1000));
  ASSERT_EQ (add (producer, "v", &source), 0);
  EXPECT_EQ (get_latest (consumer), -ENOENT); // not complete, not visible
  ASSERT_EQ (complete (producer), 0);
  EXPECT_EQ (get_latest (consumer), -ENOENT);
  ASSERT_EQ (put (producer, 3), 0);
  EXPECT_EQ (get_latest (consumer), 0);
  EXPECT_EQ (value, 7);
}

TEST_F (TelemetryTest, ConsumerOfSeveralSectionsGetsAllOrNothing)
{
  float angle = 1;
  float zoom = 2;
  float got_angle = -1;
  float got_zoom = -1;
  // The entries of one section need not stand together.
  float got_second = -1;
  const Consumer consumer =
      make_consumer ({f32 ("controller.angle", &got_angle), f32 ("zoom.hfov", &got_zoom),
                      f32 ("controller.second", &got_second)});
  const float second = 3;
  const Producer controller =
      make_producer ("controller", 10, {{"angle", &angle}, {"second", &second}});
  ASSERT_EQ (put (controller, 100), 0);
  EXPECT_EQ (get_at (consumer, 500), -ENOENT);
  EXPECT_EQ (got_angle, -1);
  const Producer zooms = make_producer ("zoom", 10, {{"hfov", &zoom}});
  ASSERT_EQ (put (zooms, 300), 0);
  EXPECT_EQ (get_at (consumer, 200), -ENOENT); // the zoom came later
  EXPECT_EQ (got_angle, -1);
  EXPECT_EQ (get_at (consumer, 300), 0);
  EXPECT_EQ (got_angle, 1);
  EXPECT_EQ (got_zoom, 2);
  EXPECT_EQ (got_second, 3);
  // Each section is looked up at the time on its own.
  angle = 10;
  ASSERT_EQ (put (controller, 400), 0);
  zoom = 20;
  ASSERT_EQ (put (zooms, 600), 0);
  EXPECT_EQ (get_at (consumer, 500), 0);
  EXPECT_EQ (got_angle, 10);
  EXPECT_EQ (got_zoom, 2);
  EXPECT_EQ (get_latest (consumer), 0);
  EXPECT_EQ (got_zoom, 20);
}

TEST_F (TelemetryTest, ProducerThatGoesAndComesBack)
{
  float a = 1;
  float b = 2;
  float got_a = -1;
  float got_b = -1;
  const Consumer consumer = make_consumer ({f32 ("back.a", &got_a), f32 ("back.b", &got_b)});
  Producer producer = make_producer ("back", 10, {{"a", &a}, {"b", &b}});
  ASSERT_EQ (put (producer, 100), 0);
  ASSERT_EQ (get_latest (consumer), 0);
  producer.reset ();
  EXPECT_EQ (get_latest (consumer), -ENOENT);
  // Back with another order of its variables, and more of them.
  const float c = 3;
  a = 4;
  producer = make_producer ("back", 20, {{"c", &c}, {"b", &b}, {"a", &a}});
  EXPECT_EQ (get_latest (consumer), -ENOENT);
  ASSERT_EQ (put (producer, 50), 0);
  ASSERT_EQ (get_latest (consumer), 0);
  EXPECT_EQ (got_a, 4);
  EXPECT_EQ (got_b, 2);
}

TEST_F (TelemetryTest, EntriesThatDoNotFitTheSection)
{
  const float source = 1;
  float value = -1;
  double wide = -1;
  float pair[2] = {-1, -1};
  Producer producer = make_producer ("misfit", 10, {{"v", &source}});
  ASSERT_EQ (put (producer, 100), 0);
  const struct {
    VornTelemetryEntry entry;
    int error;
    const char *text;
  } rows[] = {
      {f32 ("misfit.w", &value), -ENXIO, "section 'misfit' has no variable 'w'"},
      {{"misfit.v", VORN_TELEMETRY_F64, 8, 1, &wide},
       -EPROTO,
       "variable 'misfit.v' has type code 9, size 4, count 1; registered with 10, 8, 1"},
      {{"misfit.v", VORN_TELEMETRY_INT32, 4, 1, &value},
       -EPROTO,
       "variable 'misfit.v' has type code 9, size 4, count 1; registered with 5, 4, 1"},
      {{"misfit.v", VORN_TELEMETRY_F32, 4, 2, pair},
       -EPROTO,
       "variable 'misfit.v' has type code 9, size 4, count 1; registered with 9, 4, 2"},
  };
  for (const auto &row : rows) {
    LogCapture capture;
    const Consumer consumer = make_consumer ({row.entry});
    // Said at completion, for the section exists; reported by each get, said once.
    EXPECT_EQ (capture.count (row.text, 3), 1) << row.text;
    for (int i = 0; i < 3; i++)
      EXPECT_EQ (get_latest (consumer), row.error);
    ASSERT_EQ (capture.lines ().size (), 1u);
    EXPECT_EQ (capture.lines ()[0].tag, "telemetry");
  }
  EXPECT_EQ (value, -1);
  EXPECT_EQ (wide, -1);
  EXPECT_EQ (pair[0], -1);

  // Said as soon as the section appears, and over once a fitting producer is there.
  producer.reset ();
  LogCapture capture;
  const Consumer consumer = make_consumer ({f32 ("misfit.w", &value)});
  EXPECT_EQ (get_latest (consumer), -ENOENT);
  EXPECT_TRUE (capture.lines ().empty ());
  producer = make_producer ("misfit", 10, {{"v", &source}});
  EXPECT_EQ (get_latest (consumer), -ENXIO);
  EXPECT_EQ (capture.count (rows[0].text, 3), 1);
  producer.reset ();
  producer = make_producer ("misfit", 10, {{"w", &source}});
  ASSERT_EQ (put (producer, 1), 0);
  EXPECT_EQ (get_latest (consumer), 0);
  EXPECT_EQ (value, 1);
}

TEST_F (TelemetryTest, BadVariablesAreRefused)
{
  const Producer producer (vorn_telemetry_producer_new ("bad", 10, 1000));
  const std::string longest (63, 'v');
  const std::string too_long (64, 'v');
  const double room = 0;
  const auto add_any = [&] (const char *name, uint32_t type, uint32_t size, uint32_t count,
                            const void *address) {
    return vorn_telemetry_producer_register (producer.get (), name, type, size, count, address);
  };
  EXPECT_EQ (add_any (longest.c_str (), 9, 4, 1, &room), 0);
  const struct {
    const char *name;
    const void *address;
    uint32_t type;
    uint32_t size;
    uint32_t count;
    int error;
    std::string text;
  } rows[] = {
      {nullptr, &room, 9, 4, 1, -EINVAL, "variable 'bad.(null)' refused: no name"},
      {"v", nullptr, 9, 4, 1, -EINVAL, "variable 'bad.v' refused: no address"},
      {"", &room, 9, 4, 1, -EINVAL,
       "variable 'bad.' refused: a name has 1 to 63 letters, digits, '_', '-' or '.'"},
      {"a b", &room, 9, 4, 1, -EINVAL,
       "variable 'bad.a b' refused: a name has 1 to 63 letters, digits, '_', '-' or '.'"},
      {too_long.c_str (), &room, 9, 4, 1, -EINVAL,
       "variable 'bad." + too_long +
           "' refused: a name has 1 to 63 letters, digits, '_', '-' or '.'"},
      {longest.c_str (), &room, 9, 4, 1, -EEXIST,
       "variable 'bad." + longest + "' refused: registered already"},
      {"v", &room, 0, 4, 1, -EINVAL, "variable 'bad.v' refused: unknown type code 0"},
      {"v", &room, 11, 4, 1, -EINVAL, "variable 'bad.v' refused: unknown type code 11"},
      {"v", &room, 9, 8, 1, -EINVAL,
       "variable 'bad.v' refused: size 8 does not fit type code 9, which has 4"},
      {"v", &room, 3, 4, 1, -EINVAL,
       "variable 'bad.v' refused: size 4 does not fit type code 3, which has 2"},
      {"v", &room, 10, 4, 1, -EINVAL,
       "variable 'bad.v' refused: size 4 does not fit type code 10, which has 8"},
      {"v", &room, 5, 0, 1, -EINVAL,
       "variable 'bad.v' refused: size 0 does not fit type code 5, which has 4"},
      {"v", &room, 9, 4, 0, -EINVAL, "variable 'bad.v' refused: count 0 is not within 1 to 65536"},
      {"v", &room, 9, 4, 65537, -EINVAL,
       "variable 'bad.v' refused: count 65537 is not within 1 to 65536"},
      {"v", &room, 10, 8, 8192, -EINVAL,
       "variable 'bad.v' refused: more than 65536 bytes in a sample"},
  };
  for (const auto &row : rows) {
    LogCapture capture;
    EXPECT_EQ (add_any (row.name, row.type, row.size, row.count, row.address), row.error)
        << row.text;
    ASSERT_EQ (capture.lines ().size (), 1u) << row.text;
    EXPECT_EQ (capture.lines ()[0].text, row.text);
    EXPECT_EQ (capture.lines ()[0].tag, "telemetry");
    EXPECT_EQ (capture.lines ()[0].priority, 3);
  }
  for (int i = 1; i < 1024; i++)
    ASSERT_EQ (add_any (("v" + std::to_string (i)).c_str (), 3, 2, 1, &room), 0);
  LogCapture capture;
  EXPECT_EQ (add_any ("v1024", 3, 2, 1, &room), -EINVAL);
  EXPECT_TRUE (capture.has ("variable 'bad.v1024' refused: more than 1024 variables", 3));
  // What was good before is published.
  EXPECT_EQ (complete (producer), 0);
}

TEST_F (TelemetryTest, BadProducersAreRefused)
{
  LogCapture capture;
  for (const char *bad : {"", "a.b", "a/b"}) {
    errno = 0;
    EXPECT_EQ (vorn_telemetry_producer_new (bad, 10, 1000), nullptr);
    EXPECT_EQ (errno, EINVAL);
  }
  EXPECT_EQ (vorn_telemetry_producer_new (nullptr, 10, 1000), nullptr);
  EXPECT_EQ (vorn_telemetry_producer_new ("p", 0, 1000), nullptr);
  EXPECT_TRUE (capture.has ("section 'p' refused: capacity 0, period 1000 us", 3));
  EXPECT_EQ (vorn_telemetry_producer_new ("p", 10, 0), nullptr);
  EXPECT_TRUE (capture.has ("section 'p' refused: capacity 10, period 0 us", 3));

  const float value = 0;
  const Producer empty (vorn_telemetry_producer_new ("p", 10, UINT32_MAX));
  EXPECT_EQ (put (empty, 1), -EINVAL);
  EXPECT_EQ (complete (empty), -EINVAL);
  EXPECT_TRUE (capture.has ("section 'p': no variables to complete the registration with", 3));
  EXPECT_EQ (add (empty, "v", &value), 0);
  EXPECT_EQ (complete (empty), 0);
  EXPECT_EQ (complete (empty), -EINVAL);
  EXPECT_TRUE (capture.has ("section 'p': the registration is complete already", 3));
  EXPECT_EQ (add (empty, "w", &value), -EINVAL);
  EXPECT_TRUE (capture.has ("variable 'p.w' refused: the registration is complete", 3));
  EXPECT_EQ (vorn_telemetry_producer_put (empty.get (), nullptr), -EINVAL);
  const struct timespec bad_time = {0, 1000000000};
  EXPECT_EQ (vorn_telemetry_producer_put (empty.get (), &bad_time), -EINVAL);

  // A second producer of a section is refused, and gets it once the first has gone.
  Producer second (vorn_telemetry_producer_new ("p", 10, 1000));
  ASSERT_EQ (add (second, "v", &value), 0);
  EXPECT_EQ (complete (second), -EBUSY);
  EXPECT_EQ (put (second, 1), -EINVAL);
  EXPECT_TRUE (capture.has ("section 'p' not created: has a living writer (process " +
                                std::to_string (getpid ()) + ")",
                            3));
  // Too much for one section.
  const Producer huge (vorn_telemetry_producer_new ("huge", 16777216, 1000));
  double many[4096] = {};
  ASSERT_EQ (vorn_telemetry_producer_register (huge.get (), "v", VORN_TELEMETRY_F64, 8, 4096, many),
             0);
  EXPECT_EQ (complete (huge), -EINVAL);
}

TEST_F (TelemetryTest, BadEntriesAreRefused)
{
  float value = 0;
  const std::string long_section = std::string (65, 's') + ".v";
  const std::string long_variable = "s." + std::string (64, 'v');
  const struct {
    VornTelemetryEntry entry;
    std::string text;
  } rows[] = {
      {f32 (nullptr, &value), "entry '(null)' refused: no name"},
      {f32 ("", &value), "entry '' refused: not of the form section.variable"},
      {f32 ("nodot", &value), "entry 'nodot' refused: not of the form section.variable"},
      {f32 (".v", &value), "entry '.v' refused: not of the form section.variable"},
      {f32 ("s.", &value), "entry 's.' refused: not of the form section.variable"},
      {f32 ("s/../t.v", &value), "entry 's/../t.v' refused: not of the form section.variable"},
      {f32 ("s.a b", &value), "entry 's.a b' refused: not of the form section.variable"},
      {f32 (long_section.c_str (), &value),
       "entry '" + long_section + "' refused: not of the form section.variable"},
      {f32 (long_variable.c_str (), &value),
       "entry '" + long_variable + "' refused: not of the form section.variable"},
      {f32 ("s.v", nullptr), "entry 's.v' refused: no destination"},
      {{"s.v", 4, 2, 1, &value}, "entry 's.v' refused: unknown type code 4"},
      {{"s.v", VORN_TELEMETRY_F32, 8, 1, &value},
       "entry 's.v' refused: size 8 does not fit type code 9, which has 4"},
      {{"s.v", VORN_TELEMETRY_F32, 4, 0, &value},
       "entry 's.v' refused: count 0 is not within 1 to 65536"},
  };
  const Consumer consumer (vorn_telemetry_consumer_new ());
  for (const auto &row : rows) {
    LogCapture capture;
    // With a good one before it: none of the array is taken.
    const VornTelemetryEntry entries[] = {f32 ("good.v", &value), row.entry};
    EXPECT_EQ (vorn_telemetry_consumer_register (consumer.get (), entries, 2), -EINVAL);
    ASSERT_EQ (capture.lines ().size (), 1u) << row.text;
    EXPECT_EQ (capture.lines ()[0].text, row.text);
  }
  LogCapture capture;
  EXPECT_EQ (vorn_telemetry_consumer_complete (consumer.get ()), -EINVAL);
  EXPECT_TRUE (capture.has ("consumer: no entries to complete the registration with", 3));
  EXPECT_EQ (get_latest (consumer), -EINVAL);
  EXPECT_EQ (vorn_telemetry_consumer_register (consumer.get (), nullptr, 1), -EINVAL);
  const auto good = f32 ("good.v", &value);
  EXPECT_EQ (vorn_telemetry_consumer_register (consumer.get (), &good, 1), 0);
  EXPECT_EQ (get_latest (consumer), -EINVAL); // not complete
  EXPECT_EQ (vorn_telemetry_consumer_complete (consumer.get ()), 0);
  EXPECT_EQ (vorn_telemetry_consumer_complete (consumer.get ()), -EINVAL);
  EXPECT_TRUE (capture.has ("consumer: the registration is complete already", 3));
  EXPECT_EQ (vorn_telemetry_consumer_register (consumer.get (), &good, 1), -EINVAL);
  EXPECT_TRUE (capture.has ("entry 'good.v' refused: the registration is complete", 3));
  EXPECT_EQ (vorn_telemetry_consumer_get (consumer.get (), nullptr, VORN_TELEMETRY_VALID_AT),
             -EINVAL);
  const struct timespec time = {1, 0};
  for (const uint32_t method : {3u, 9u, UINT32_MAX})
    EXPECT_EQ (vorn_telemetry_consumer_get (consumer.get (), &time, method), -EINVAL);
}

TEST_F (TelemetryTest, NullHandlesGiveEinval)
{
  const struct timespec time = {1, 0};
  float value = 0;
  const auto entry = f32 ("s.v", &value);
  EXPECT_EQ (vorn_telemetry_producer_register (nullptr, "v", VORN_TELEMETRY_F32, 4, 1, &value),
             -EINVAL);
  EXPECT_EQ (vorn_telemetry_producer_complete (nullptr), -EINVAL);
  EXPECT_EQ (vorn_telemetry_producer_put (nullptr, &time), -EINVAL);
  EXPECT_EQ (vorn_telemetry_producer_destroy (nullptr), -EINVAL);
  EXPECT_EQ (vorn_telemetry_consumer_register (nullptr, &entry, 1), -EINVAL);
  EXPECT_EQ (vorn_telemetry_consumer_complete (nullptr), -EINVAL);
  EXPECT_EQ (vorn_telemetry_consumer_get (nullptr, &time, VORN_TELEMETRY_LATEST), -EINVAL);
  EXPECT_EQ (vorn_telemetry_consumer_destroy (nullptr), -EINVAL);
}

TEST_F (TelemetryTest, DamagedTablesOfVariablesAreRefused)
{
  const float source[2] = {1, 2};
  float value = -1;
  // The table begins at byte 128, a row has 80: name 64, type, size, count, offset.
  const struct {
    const char *name;
    size_t at;
    uint32_t value;
  } damages[] = {
      {"no name", 128, 0},
      {"bad name", 128, '/'},
      {"type", 128 + 64, 77},
      {"size", 128 + 68, 8},
      {"count", 128 + 72, 0},
      {"count huge", 128 + 72, 0x40000000},
      {"offset", 128 + 76, 4},
      {"second offset", 128 + 80 + 76, 0xfffffffc},
      {"sample larger", 128 + 72, 3},
  };
  std::vector<char> good;
  {
    const Producer producer = make_producer ("good", 4, {{"v", &source[0]}, {"w", &source[1]}});
    ASSERT_EQ (put (producer, 1), 0);
    std::ifstream file (object_path ("good", "telemetry"), std::ios::binary);
    good.assign (std::istreambuf_iterator<char> (file), {});
  }
  const auto place = [] (const std::vector<char> &image) {
    std::filesystem::remove (object_path ("damaged", "telemetry"));
    std::ofstream (object_path ("damaged", "telemetry"), std::ios::binary)
        .write (image.data (), static_cast<std::streamsize> (image.size ()));
    std::filesystem::permissions (object_path ("damaged", "telemetry"),
                                  std::filesystem::perms{0600});
  };
  place (good);
  {
    const Consumer consumer = make_consumer ({f32 ("damaged.v", &value)});
    ASSERT_EQ (get_latest (consumer), 0);
    EXPECT_EQ (value, 1);
  }
  for (const auto &damage : damages) {
    SCOPED_TRACE (damage.name);
    auto image = good;
    memcpy (image.data () + damage.at, &damage.value, sizeof damage.value);
    place (image);
    LogCapture capture;
    const Consumer consumer = make_consumer ({f32 ("damaged.v", &value)});
    EXPECT_EQ (get_latest (consumer), -EBADMSG);
    EXPECT_EQ (capture.count ("section 'damaged' refused: its table of variables is damaged", 3),
               1);
  }
  auto version = good;
  version[12] = 5;
  place (version);
  LogCapture capture;
  const Consumer consumer = make_consumer ({f32 ("damaged.v", &value)});
  EXPECT_EQ (get_latest (consumer), -EPROTONOSUPPORT);
  EXPECT_TRUE (capture.has ("section 'damaged' refused: its format has version 5, this program "
                            "reads version 1",
                            3));
}

TEST_F (TelemetryTest, TelemetryAndBlackboardSectionsOfOneNameAreApart)
{
  const float source = 4;
  float value = 0;
  const Writer writer = create ("both", {16, 5, 0, 0});
  const Producer producer = make_producer ("both", 5, {{"v", &source}});
  const Consumer consumer = make_consumer ({f32 ("both.v", &value)});
  const Reader reader ("both");
  ASSERT_EQ (write (writer, 16, 9), 0);
  ASSERT_EQ (put (producer, 1), 0);
  ASSERT_EQ (get_latest (consumer), 0);
  EXPECT_EQ (value, 4);
  ASSERT_EQ (select_latest (reader), 0);
  EXPECT_EQ (read_numbers (reader), (std::vector<uint64_t>{9}));
}

TEST_F (TelemetryTest, ConsumerStaysInItsNamespace)
{
  const float source = 4;
  float value = 0;
  const std::string other = name_space () + "-b";
  const Consumer consumer = make_consumer ({f32 ("space.v", &value)});
  ASSERT_EQ (vorn_blackboard_set_namespace (other.c_str ()), 0);
  const Producer elsewhere = make_producer ("space", 5, {{"v", &source}});
  ASSERT_EQ (put (elsewhere, 1), 0);
  EXPECT_EQ (get_latest (consumer), -ENOENT);
  ASSERT_EQ (vorn_blackboard_set_namespace (nullptr), 0);
  const Producer here = make_producer ("space", 5, {{"v", &source}});
  ASSERT_EQ (put (here, 1), 0);
  EXPECT_EQ (get_latest (consumer), 0);
}
