// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A product whose setup and flavour switch are the test's.
#ifndef TESTS_TEST_PRODUCT_HPP
#define TESTS_TEST_PRODUCT_HPP

#include <functional>
#include <vector>

#include <vorn/product.h>

struct TestProductRecord {
  std::function<bool (const VornProductConfiguration *)> setup;
  std::vector<gint> flavors; // that set_flavor was asked for
  bool flavor_result = true;
};

#define TEST_TYPE_PRODUCT (test_product_get_type ())
GType test_product_get_type (void);

/** A new product; the caller owns the reference. */
VornProduct *test_product_new (void);

TestProductRecord &test_product_record (VornProduct *product);

#endif
