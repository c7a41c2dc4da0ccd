// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "log_fold.hpp"

#include <algorithm>

namespace
{

bool same_message (const LogRecord &a, const LogRecord &b)
{
  return a.line == b.line && a.priority == b.priority && a.text == b.text && a.file == b.file &&
         a.tag == b.tag;
}

} // namespace

void LogFold::end (const Window &window, std::vector<LogRecord> &out)
{
  if (window.held == 0)
    return;
  LogRecord summary = window.record;
  summary.text +=
      " (repeated " + std::to_string (window.held) + (window.held == 1 ? " time)" : " times)");
  out.push_back (std::move (summary));
}

void LogFold::end_expired (int64_t now_ns, std::vector<LogRecord> &out)
{
  const auto first_open =
      std::find_if (windows_.begin (), windows_.end (), [now_ns] (const Window &window) {
        return now_ns - window.start_ns < window_ns;
      });
  std::for_each (windows_.begin (), first_open,
                 [&out] (const Window &window) { end (window, out); });
  windows_.erase (windows_.begin (), first_open);
}

void LogFold::admit (const LogRecord &record, int64_t now_ns, std::vector<LogRecord> &out)
{
  end_expired (now_ns, out);
  const auto known =
      std::find_if (windows_.begin (), windows_.end (), [&record] (const Window &window) {
        return same_message (window.record, record);
      });
  if (known == windows_.end ()) {
    if (windows_.size () == max_windows) {
      end (windows_.front (), out);
      windows_.erase (windows_.begin ());
    }
    windows_.push_back ({record, now_ns, 1, 0});
    out.push_back (record);
  } else if (known->passed < burst) {
    known->passed++;
    out.push_back (record);
  } else {
    known->held++;
  }
}

void LogFold::flush (std::vector<LogRecord> &out)
{
  for (const auto &window : windows_)
    end (window, out);
  windows_.clear ();
}
