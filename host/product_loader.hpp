// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// From a configuration and a plug-in to a product.
#ifndef HOST_PRODUCT_LOADER_HPP
#define HOST_PRODUCT_LOADER_HPP

#include <string>
#include <vector>

#include <vorn/product.h>
#include <vorn/raii.hpp>

using ProductConfiguration = vorn::Owned<VornProductConfiguration, vorn_product_configuration_free>;

/** What a product is made from. */
struct ProductSource {
  std::string config;
  std::string plugin;                  // empty: the one that was built or installed with the host
  std::vector<std::string> properties; // NAME=VALUE, over the configuration's
};

struct LoadedProduct {
  ProductConfiguration configuration;
  vorn::Ref<VornProduct> product;
};

/**
 * Loads configuration, system properties and plug-in and makes the product, which is not set up
 * yet. Starts the framework. False with the reason. Framework's thread.
 */
bool load_product (const ProductSource &source, LoadedProduct *loaded, std::string *error);

#endif
