// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * Truncated Taylor series: a number that carries its first N derivatives by time. Motion written
 * once over Taylor<N> gives position, velocity, acceleration and jerk without a second formula that
 * could disagree. Recurrences: A. Griewank, A. Walther, "Evaluating Derivatives", chapter 13.
 */
#ifndef SIMULATOR_TAYLOR_HPP
#define SIMULATOR_TAYLOR_HPP

#include <array>
#include <cmath>

namespace sim
{

/** c[k] is the k-th derivative divided by k!. */
template <int N>
struct Taylor {
  std::array<double, N + 1> c{};

  Taylor () = default;
  Taylor (double constant) { c[0] = constant; }
  /** The independent variable at t. */
  static Taylor variable (double t)
  {
    Taylor result (t);
    result.c[1] = 1;
    return result;
  }

  double value () const { return c[0]; }

  Taylor operator- () const { return *this * -1.0; }
  friend Taylor operator+ (Taylor a, const Taylor &b)
  {
    for (size_t k = 0; k <= N; k++)
      a.c[k] += b.c[k];
    return a;
  }
  friend Taylor operator- (Taylor a, const Taylor &b)
  {
    for (size_t k = 0; k <= N; k++)
      a.c[k] -= b.c[k];
    return a;
  }
  friend Taylor operator* (Taylor a, double b)
  {
    for (auto &coefficient : a.c)
      coefficient *= b;
    return a;
  }
  friend Taylor operator* (double a, const Taylor &b) { return b * a; }
  friend Taylor operator* (const Taylor &a, const Taylor &b)
  {
    Taylor r;
    for (size_t k = 0; k <= N; k++)
      for (size_t j = 0; j <= k; j++)
        r.c[k] += a.c[j] * b.c[k - j];
    return r;
  }
  friend Taylor operator/ (const Taylor &a, const Taylor &b)
  {
    Taylor r;
    for (size_t k = 0; k <= N; k++) {
      double sum = a.c[k];
      for (size_t j = 0; j < k; j++)
        sum -= r.c[j] * b.c[k - j];
      r.c[k] = sum / b.c[0];
    }
    return r;
  }
};

template <int N>
void sin_cos (const Taylor<N> &a, Taylor<N> &s, Taylor<N> &c)
{
  s = std::sin (a.c[0]);
  c = std::cos (a.c[0]);
  for (size_t k = 1; k <= N; k++) {
    for (size_t j = 1; j <= k; j++) {
      const double weight = static_cast<double> (j) / static_cast<double> (k) * a.c[j];
      s.c[k] += weight * c.c[k - j];
      c.c[k] -= weight * s.c[k - j];
    }
  }
}

template <int N>
Taylor<N> sin (const Taylor<N> &a)
{
  Taylor<N> s, c;
  sin_cos (a, s, c);
  return s;
}

template <int N>
Taylor<N> cos (const Taylor<N> &a)
{
  Taylor<N> s, c;
  sin_cos (a, s, c);
  return c;
}

template <int N>
Taylor<N> sqrt (const Taylor<N> &a)
{
  Taylor<N> r (std::sqrt (a.c[0]));
  for (size_t k = 1; k <= N; k++) {
    double sum = a.c[k];
    for (size_t j = 1; j < k; j++)
      sum -= r.c[j] * r.c[k - j];
    r.c[k] = sum / (2 * r.c[0]);
  }
  return r;
}

/** The derivative by time; its highest coefficient is unknown and 0. */
template <int N>
Taylor<N> derivative (const Taylor<N> &a)
{
  Taylor<N> r;
  for (size_t k = 0; k < N; k++)
    r.c[k] = static_cast<double> (k + 1) * a.c[k + 1];
  return r;
}

/** From the integral of (x y' - y x') / (x^2 + y^2). */
template <int N>
Taylor<N> atan2 (const Taylor<N> &y, const Taylor<N> &x)
{
  const Taylor<N> rate = (x * derivative (y) - y * derivative (x)) / (x * x + y * y);
  Taylor<N> r (std::atan2 (y.c[0], x.c[0]));
  for (size_t k = 1; k <= N; k++)
    r.c[k] = rate.c[k - 1] / static_cast<double> (k);
  return r;
}

/** The series of the n-th derivative, cut to order M; M + n must not exceed N. */
template <int M, int n, int N>
Taylor<M> derived (const Taylor<N> &a)
{
  static_assert (M + n <= N);
  Taylor<M> r;
  for (size_t k = 0; k <= M; k++) {
    double factor = 1;
    for (size_t j = k + 1; j <= k + n; j++)
      factor *= static_cast<double> (j);
    r.c[k] = factor * a.c[k + n];
  }
  return r;
}

} // namespace sim

#endif
