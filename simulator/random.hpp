// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * Random numbers as pure functions of seed, stream and index, so that any sample of any quantity
 * can be computed alone, in any order, and comes out the same on every machine.
 */
#ifndef SIMULATOR_RANDOM_HPP
#define SIMULATOR_RANDOM_HPP

#include <cmath>
#include <cstdint>
#include <numbers>

namespace sim
{

/** The finaliser of SplitMix64 (S. Vigna, public domain): every bit depends on every bit. */
constexpr uint64_t mix_bits (uint64_t x)
{
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9u;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebu;
  return x ^ (x >> 31);
}

constexpr uint64_t random_bits (uint64_t seed, uint64_t stream, uint64_t index)
{
  constexpr uint64_t golden = 0x9e3779b97f4a7c15u;
  return mix_bits (mix_bits (mix_bits (seed + golden) + stream + golden) + index + golden);
}

/** Above 0 and below 1. */
constexpr double random_uniform (uint64_t seed, uint64_t stream, uint64_t index)
{
  return (static_cast<double> (random_bits (seed, stream, index) >> 11) + 0.5) * 0x1p-53;
}

/** Normal with mean 0 and standard deviation 1 (Box and Muller). */
inline double random_normal (uint64_t seed, uint64_t stream, uint64_t index)
{
  const double u = random_uniform (seed, 2 * stream, index);
  const double v = random_uniform (seed, 2 * stream + 1, index);
  return std::sqrt (-2 * std::log (u)) * std::cos (2 * std::numbers::pi * v);
}

} // namespace sim

#endif
