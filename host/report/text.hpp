// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Numbers and names as the result files write them: the same in every locale.
#ifndef HOST_REPORT_TEXT_HPP
#define HOST_REPORT_TEXT_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace report
{

/** With so many decimals; empty for what is no finite number. */
std::string fixed (double value, int decimals);

/** As short as it can be without losing a bit; empty for what is no finite number. */
std::string shortest (float value);

/** As fixed, a dash for what is not known. */
std::string fixed_or_dash (const std::optional<double> &value, int decimals);

/** Nanoseconds as seconds, every digit: "12.000000345". */
std::string seconds_text (int64_t time_ns);

/** "940 B", "12.5 kB", "3.2 MB". */
std::string size_text (uint64_t bytes);

/** For element content and attribute values of XML and HTML. */
std::string escape_markup (std::string_view text);

/** A field of a CSV file: quoted where it must be (RFC 4180). */
std::string csv_field (std::string_view text);

/**
 * A path as seen from a folder: "videos/a.mp4" for a file in it or below it, the last part alone
 * for one elsewhere. An empty folder is not looked at.
 */
std::string name_in (const std::string &folder, const std::string &path);

} // namespace report

#endif
