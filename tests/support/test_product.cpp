// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "test_product.hpp"

struct TestProduct {
  VornProduct parent_instance;
  TestProductRecord *record;
};

using TestProductClass = VornProductClass;

G_DEFINE_TYPE (TestProduct, test_product, VORN_TYPE_PRODUCT)

TestProductRecord &test_product_record (VornProduct *product)
{
  return *reinterpret_cast<TestProduct *> (product)->record;
}

static void test_product_finalize (GObject *object)
{
  delete &test_product_record (VORN_PRODUCT (object));
  G_OBJECT_CLASS (test_product_parent_class)->finalize (object);
}

static gboolean test_product_setup (VornProduct *product,
                                    const VornProductConfiguration *configuration)
{
  const auto &setup = test_product_record (product).setup;
  return !setup || setup (configuration);
}

static gboolean test_product_set_flavor (VornProduct *product, gint flavor)
{
  test_product_record (product).flavors.push_back (flavor);
  return test_product_record (product).flavor_result;
}

static void test_product_class_init (TestProductClass *klass)
{
  G_OBJECT_CLASS (klass)->finalize = test_product_finalize;
  klass->setup = test_product_setup;
  klass->set_flavor = test_product_set_flavor;
}

static void test_product_init (TestProduct *product)
{
  product->record = new TestProductRecord;
}

VornProduct *test_product_new (void)
{
  return VORN_PRODUCT (g_object_new (TEST_TYPE_PRODUCT, nullptr));
}
