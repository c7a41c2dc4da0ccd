// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "json_writer.hpp"

TEST (JsonWriter, WritesEachKindOfValue)
{
  JsonWriter json;
  json.object ();
  json.text ("text", "a \"b\"\n");
  json.text_or_null ("none", "");
  json.text_or_null ("some", "x");
  json.texts ("texts", std::vector<std::string>{"a", "b"});
  json.integer ("integer", std::numeric_limits<int64_t>::min ());
  json.boolean ("boolean", false);
  json.number ("number", 0.5);
  json.numbers ("numbers", std::vector<double>{1.5, -2.25});
  json.object ("object");
  json.end_object ();
  json.array ("array");
  json.text ("c");
  json.end_array ();
  json.end_object ();
  EXPECT_EQ (json.on_one_line (), R"({"text":"a \"b\"\n","none":null,"some":"x","texts":["a","b"],)"
                                  R"("integer":-9223372036854775808,"boolean":false,"number":0.5,)"
                                  R"("numbers":[1.5,-2.25],"object":{},"array":["c"]})");
}

TEST (JsonWriter, WhatJsonCannotSayIsNullOrReplaced)
{
  JsonWriter json;
  json.object ();
  json.number ("none", std::nullopt);
  json.number ("infinite", INFINITY);
  json.numbers ("numbers", std::vector<double>{NAN, 1.5, -INFINITY});
  json.text ("bytes", "a\xff"
                      "b");
  json.end_object ();
  EXPECT_EQ (json.on_one_line (), "{\"none\":null,\"infinite\":null,\"numbers\":[null,1.5,null],"
                                  "\"bytes\":\"a\xef\xbf\xbd"
                                  "b\"}");
}

TEST (JsonWriter, ADocumentMayHaveLines)
{
  JsonWriter json;
  json.object ();
  json.boolean ("a", true);
  json.end_object ();
  EXPECT_EQ (json.on_lines (), "{\n  \"a\" : true\n}");
}
