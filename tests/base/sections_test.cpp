// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the list of sections shows of writers that live, died and went.
#include "blackboard_fixture.hpp"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <vector>

#include <sys/wait.h>

#include <vorn/sections.h>
#include <vorn/telemetry.h>

using Producer = vorn::Owned<VornTelemetryProducer, vorn_telemetry_producer_destroy>;

namespace
{

struct Found {
  std::string name;
  VornSectionInfo info;
};

std::vector<Found> list (const char *name_space = nullptr)
{
  std::vector<Found> found;
  const int count = vorn_sections_list (
      name_space,
      [] (const VornSectionInfo *info, void *data) {
        static_cast<std::vector<Found> *> (data)->push_back ({info->name, *info});
      },
      &found);
  EXPECT_EQ (count, static_cast<int> (found.size ()));
  return found;
}

class Sections : public BlackboardTest
{
};

TEST_F (Sections, NoneInAnEmptyNamespace)
{
  EXPECT_TRUE (list ().empty ());
}

TEST_F (Sections, BothKindsInTheOrderOfTheirNames)
{
  const VornBlackboardHeader header = {8, 10, 100, 4};
  const Writer late (vorn_blackboard_create ("b", &header));
  const Writer early (vorn_blackboard_create ("a", &header));
  const Producer producer (vorn_telemetry_producer_new ("a", 5, 1000));
  const float value = 1;
  vorn_telemetry_producer_register (producer.get (), "v", VORN_TELEMETRY_F32, 4, 1, &value);
  ASSERT_EQ (vorn_telemetry_producer_complete (producer.get ()), 0);

  const auto found = list ();
  ASSERT_EQ (found.size (), 3u);
  EXPECT_EQ (found[0].name, "a");
  EXPECT_EQ (found[0].info.kind, VORN_SECTION_BLACKBOARD);
  EXPECT_EQ (found[1].name, "b");
  EXPECT_EQ (found[2].name, "a");
  EXPECT_EQ (found[2].info.kind, VORN_SECTION_TELEMETRY);
  EXPECT_EQ (found[0].info.header.sample_size, 8u);
  EXPECT_EQ (found[0].info.header.sample_count, 10u);
  EXPECT_EQ (found[0].info.header.rate, 100u);
  EXPECT_EQ (found[0].info.header.fourth, 4u);
  EXPECT_EQ (found[0].info.written, 0u);
  EXPECT_EQ (found[0].info.newest.tv_sec, 0);
  for (const Found &section : found)
    EXPECT_EQ (section.info.writer_lives, 1u) << section.name;
}

TEST_F (Sections, CountAndTimeFollowTheWriter)
{
  const VornBlackboardHeader header = {8, 4, 0, 0};
  const Writer writer (vorn_blackboard_create ("ring", &header));
  for (int i = 1; i <= 11; i++) {
    const uint64_t sample = 7;
    const struct timespec time = {i, 500};
    ASSERT_EQ (vorn_blackboard_write (writer.get (), &sample, &time), 0);
  }
  const auto found = list ();
  ASSERT_EQ (found.size (), 1u);
  EXPECT_EQ (found[0].info.written, 11u);
  EXPECT_EQ (found[0].info.newest.tv_sec, 11);
  EXPECT_EQ (found[0].info.newest.tv_nsec, 500);
}

TEST_F (Sections, AWithdrawnOneIsGone)
{
  const VornBlackboardHeader header = {8, 4, 0, 0};
  Writer writer (vorn_blackboard_create ("ring", &header));
  EXPECT_EQ (list ().size (), 1u);
  writer.reset ();
  EXPECT_TRUE (list ().empty ());
}

TEST_F (Sections, ADeadWritersIsShownAsSuch)
{
  const pid_t child = fork ();
  if (child == 0) {
    const VornBlackboardHeader header = {8, 4, 0, 0};
    const uint64_t sample = 7;
    const struct timespec time = {3, 0};
    VornBlackboardWriter *writer = vorn_blackboard_create ("left", &header);
    vorn_blackboard_write (writer, &sample, &time);
    raise (SIGKILL);
  }
  ASSERT_EQ (waitpid (child, nullptr, 0), child);
  const auto found = list ();
  ASSERT_EQ (found.size (), 1u);
  EXPECT_EQ (found[0].info.writer_lives, 0u);
  EXPECT_EQ (found[0].info.written, 1u);
}

TEST_F (Sections, DamagedAndForeignFilesAreLeftOut)
{
  const std::string base = "/dev/shm/vorn." + std::string (getenv ("VORN_NAMESPACE"));
  const std::vector<std::string> paths = {base + ".blackboard.garbage", base + ".other.thing"};
  for (const std::string &path : paths)
    std::ofstream (path) << "no section";
  LogCapture log;
  EXPECT_TRUE (list ().empty ());
  EXPECT_EQ (log.texts (VORN_LOG_PRIORITY_ERROR).size (), 1u);
  for (const std::string &path : paths)
    std::filesystem::remove (path);
}

TEST_F (Sections, OtherNamespacesHaveTheirOwn)
{
  const VornBlackboardHeader header = {8, 4, 0, 0};
  const Writer writer (vorn_blackboard_create ("ring", &header));
  EXPECT_TRUE (list ("nobodys").empty ());
  EXPECT_EQ (list (getenv ("VORN_NAMESPACE")).size (), 1u);
}

TEST_F (Sections, VariablesInTheOrderOfTheirRegistration)
{
  const Producer producer (vorn_telemetry_producer_new ("drone", 5, 1000));
  const double place[3] = {};
  const int16_t number = 0;
  vorn_telemetry_producer_register (producer.get (), "place", VORN_TELEMETRY_F64, 8, 3, place);
  vorn_telemetry_producer_register (producer.get (), "a.number", VORN_TELEMETRY_INT16, 2, 1,
                                    &number);
  ASSERT_EQ (vorn_telemetry_producer_complete (producer.get ()), 0);
  std::vector<std::string> found;
  const int count = vorn_telemetry_list_variables (
      "drone",
      [] (const VornTelemetryVariable *v, void *data) {
        static_cast<std::vector<std::string> *> (data)->push_back (
            std::string (v->name) + " " + std::to_string (v->type) + " " +
            std::to_string (v->size) + " " + std::to_string (v->count));
      },
      &found);
  EXPECT_EQ (count, 2);
  EXPECT_EQ (found, (std::vector<std::string>{"place 10 8 3", "a.number 3 2 1"}));
}

TEST_F (Sections, BadArguments)
{
  LogCapture log;
  const auto on_section = [] (const VornSectionInfo *, void *) {};
  const auto on_variable = [] (const VornTelemetryVariable *, void *) {};
  EXPECT_EQ (vorn_sections_list ("not a name", on_section, nullptr), -EINVAL);
  EXPECT_EQ (vorn_sections_list (nullptr, nullptr, nullptr), -EINVAL);
  EXPECT_EQ (vorn_telemetry_list_variables ("nobody", on_variable, nullptr), -ENOENT);
  EXPECT_EQ (vorn_telemetry_list_variables ("no/name", on_variable, nullptr), -EINVAL);
  EXPECT_EQ (vorn_telemetry_list_variables (nullptr, on_variable, nullptr), -EINVAL);
  EXPECT_EQ (vorn_telemetry_list_variables ("nobody", nullptr, nullptr), -EINVAL);
}

} // namespace
