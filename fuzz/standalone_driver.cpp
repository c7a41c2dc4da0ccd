// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target without libFuzzer: replays the given files and folders, then feeds mutations
// of them for --seconds N from a fixed seed. A crash leaves the input in crash-<target> in the work
// folder.
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

// There only with a sanitizer, which reports first and then does not come back to a signal handler.
extern "C" __attribute__ ((weak)) void __sanitizer_set_death_callback (void (*callback) ());

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size);

namespace
{

using Input = std::vector<uint8_t>;

// What is being run; a crash leaves it in the file that is open already.
const Input *current = nullptr;
int crash_file = -1;
std::string crash_path;

/** Async-signal-safe. */
void leave_input ()
{
  if (current && crash_file >= 0 && ftruncate (crash_file, 0) == 0)
    (void)!pwrite (crash_file, current->data (), current->size (), 0);
}

void on_signal (int number)
{
  leave_input ();
  // The handler was reset when it was called: this ends the process as the crash would have.
  raise (number);
}

void run (const Input &input)
{
  current = &input;
  LLVMFuzzerTestOneInput (input.data (), input.size ());
  current = nullptr;
}

Input read_file (const std::filesystem::path &path)
{
  std::ifstream file (path, std::ios::binary);
  return Input (std::istreambuf_iterator<char> (file), {});
}

Input mutate (Input input, std::mt19937 &random)
{
  const int edits = 1 + static_cast<int> (random () % 8);
  for (int i = 0; i < edits; i++) {
    const size_t at = input.empty () ? 0 : random () % input.size ();
    switch (random () % 5) {
    case 0:
      if (!input.empty ())
        input[at] = static_cast<uint8_t> (input[at] ^ (1u << (random () % 8)));
      break;
    case 1:
      input.insert (input.begin () + static_cast<std::ptrdiff_t> (at),
                    static_cast<uint8_t> (random ()));
      break;
    case 2:
      if (!input.empty ())
        input.erase (input.begin () + static_cast<std::ptrdiff_t> (at));
      break;
    case 3:
      if (!input.empty ())
        input.resize (at);
      break;
    default: {
      static constexpr uint8_t interesting[] = {0, 1, 3, 0x7f, 0x80, 0xfe, 0xff};
      if (!input.empty ())
        input[at] = interesting[random () % std::size (interesting)];
    }
    }
  }
  return input;
}

} // namespace

int main (int argc, char **argv)
{
  double seconds = 0;
  std::vector<Input> corpus;
  for (int i = 1; i < argc; i++) {
    const std::string argument = argv[i];
    if (argument == "--seconds" && i + 1 < argc) {
      seconds = strtod (argv[++i], nullptr);
    } else if (std::filesystem::is_directory (argument)) {
      for (const auto &entry : std::filesystem::directory_iterator (argument))
        corpus.push_back (read_file (entry.path ()));
    } else if (std::filesystem::is_regular_file (argument)) {
      corpus.push_back (read_file (argument));
    }
  }
  crash_path = "crash-" + std::filesystem::path (argv[0]).filename ().string ();
  crash_file = open (crash_path.c_str (), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0644);
  if (__sanitizer_set_death_callback)
    __sanitizer_set_death_callback (leave_input);
  for (const int number : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL}) {
    struct sigaction action = {};
    action.sa_handler = on_signal;
    action.sa_flags = static_cast<int> (SA_RESETHAND);
    sigaction (number, &action, nullptr);
  }
  corpus.emplace_back ();
  for (const auto &input : corpus)
    run (input);

  std::mt19937 random (1);
  size_t runs = corpus.size ();
  const auto end = std::chrono::steady_clock::now () + std::chrono::duration<double> (seconds);
  while (std::chrono::steady_clock::now () < end) {
    run (mutate (corpus[random () % corpus.size ()], random));
    runs++;
  }
  std::filesystem::remove (crash_path);
  printf ("%zu inputs, none crashed\n", runs);
  return 0;
}
