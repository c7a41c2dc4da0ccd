// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A blackboard namespace of a test program's own, so that tests run side by side.
#ifndef TESTS_OWN_NAMESPACE_HPP
#define TESTS_OWN_NAMESPACE_HPP

#include <cstdlib>
#include <string>

#include <unistd.h>

#include <gtest/gtest.h>

#include <vorn/blackboard.h>

/** While it lives; child processes share it through the environment. */
class OwnNamespace
{
public:
  OwnNamespace () : name_ ("test-" + std::to_string (getpid ()))
  {
    setenv ("VORN_NAMESPACE", name_.c_str (), 1);
    EXPECT_EQ (vorn_blackboard_set_namespace (nullptr), 0);
  }
  ~OwnNamespace () { EXPECT_GE (vorn_blackboard_remove_namespace (name_.c_str ()), 0); }
  OwnNamespace (const OwnNamespace &) = delete;
  OwnNamespace &operator= (const OwnNamespace &) = delete;

private:
  std::string name_;
};

#endif
