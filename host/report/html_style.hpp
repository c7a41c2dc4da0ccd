// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef HOST_REPORT_HTML_STYLE_HPP
#define HOST_REPORT_HTML_STYLE_HPP

namespace report
{

/** The page's style sheet. No '<', '>' or '&': it stands in a document that is XML as well. */
inline constexpr char html_style[] = R"(
:root {
  color-scheme: light dark;
  --page: #f4f5f7; --card: #ffffff; --text: #1b1f24; --quiet: #5b6570; --line: #d8dde3;
  --truth: #8a939d; --estimate: #1763c6; --error: #c2410c; --good: #1a7f5a; --warn: #9a5b00;
  --warn-card: #fff5e0;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #14171b; --card: #1d2126; --text: #e8ebee; --quiet: #9aa4af; --line: #343b43;
    --truth: #a3adb8; --estimate: #6cabff; --error: #ff9a62; --good: #58cf9f; --warn: #ffc66b;
    --warn-card: #33290f;
  }
}
* { box-sizing: border-box; }
body {
  margin: 0 auto; max-width: 1080px; padding: 28px 20px 60px; background: var(--page);
  color: var(--text); font: 15px/1.5 system-ui, "Segoe UI", "Helvetica Neue", Arial, sans-serif;
}
h1 { margin: 0; font-size: 26px; font-weight: 650; }
h2 { margin: 38px 0 12px; font-size: 18px; font-weight: 650; }
a { color: var(--estimate); }
.subtitle { margin: 2px 0 22px; color: var(--quiet); }
.tiles { display: grid; grid-template-columns: repeat(auto-fill, minmax(158px, 1fr)); gap: 12px; }
.tile, .chart, .card, table { background: var(--card); border: 1px solid var(--line);
  border-radius: 10px; }
.tile { padding: 12px 14px; }
.tile .name { color: var(--quiet); font-size: 13px; }
.tile .value { font-size: 23px; font-weight: 650; font-variant-numeric: tabular-nums; }
.tile .unit { font-size: 13px; font-weight: 400; color: var(--quiet); }
.tile .detail { color: var(--quiet); font-size: 12px; }
.chart { margin: 0 0 14px; padding: 12px 14px 6px; }
figcaption { font-weight: 600; }
figcaption .unit { font-weight: 400; color: var(--quiet); }
.legend { float: right; font-weight: 400; font-size: 13px; }
.legend .key { margin-left: 16px; }
.legend .key::before { content: ""; display: inline-block; width: 16px; height: 3px;
  margin-right: 6px; vertical-align: middle; background: currentColor; }
svg { display: block; width: 100%; height: auto; }
svg text { font-size: 12px; fill: var(--quiet); font-variant-numeric: tabular-nums; }
svg .tick.y { text-anchor: end; dominant-baseline: middle; }
svg .tick.x { text-anchor: middle; }
svg .grid { stroke: var(--line); stroke-width: 1; }
svg .axis { stroke: var(--quiet); stroke-width: 1; }
svg line.mark { stroke: var(--good); stroke-width: 1; stroke-dasharray: 3 4; opacity: 0.6; }
svg .mark path { fill: var(--good); }
svg polyline { fill: none; stroke: currentColor; stroke-width: 1.6; stroke-linejoin: round; }
svg polyline.series-truth { stroke-width: 3.4; opacity: 0.75; }
svg .dot { fill: currentColor; }
.series-truth { color: var(--truth); }
.series-estimate { color: var(--estimate); }
.series-error { color: var(--error); }
.series-good { color: var(--good); }
.empty { color: var(--quiet); padding: 26px 0; text-align: center; }
.pictures { display: grid; grid-template-columns: repeat(auto-fill, minmax(240px, 1fr));
  gap: 14px; }
.card { overflow: hidden; }
.card img { display: block; width: 100%; height: auto; }
.card .blank { padding: 48px 10px; text-align: center; color: var(--quiet); }
.card p { margin: 0; padding: 8px 12px 10px; font-size: 13px; overflow-wrap: anywhere; }
.card .detail { color: var(--quiet); }
.scroll { overflow-x: auto; }
table { width: 100%; border-collapse: separate; border-spacing: 0; font-size: 14px; }
th { text-align: left; color: var(--quiet); font-weight: 500; }
th, td { padding: 7px 14px; border-bottom: 1px solid var(--line); vertical-align: top; }
tr:last-child td, tr:last-child th { border-bottom: none; }
td.number { text-align: right; font-variant-numeric: tabular-nums; white-space: nowrap; }
.warning { margin: 8px 0; padding: 9px 14px; border-radius: 8px; background: var(--warn-card);
  color: var(--warn); }
)";

} // namespace report

#endif
