#include "tool/results/ReportStyle.h"

namespace harvane {

const char* const kReportStyle = R"(
:root {
  --ink: #1a1d21; --soft: #5d656f; --line: #d5dae0; --faint: #eef0f3;
  --good: #17692f; --bad: #b3261e; --aim: #17692f; --band: #dcefe0;
  --strong: #0b4a86; --thin: #86b2dc;
}
* { box-sizing: border-box; }
html { background: #fff; color: var(--ink); -webkit-text-size-adjust: 100%; }
body {
  margin: 0 auto; padding: 40px 32px 64px; max-width: 860px;
  font: 14px/1.45 "Source Sans 3", "Source Sans Pro", "Helvetica Neue", "Segoe UI", Roboto,
    "Liberation Sans", Arial, sans-serif;
  font-variant-numeric: tabular-nums;
}
h1 { font-size: 28px; line-height: 1.15; font-weight: 650; letter-spacing: -0.015em; margin: 0; }
h2 {
  font-size: 19px; line-height: 1.25; font-weight: 650; letter-spacing: -0.01em; margin: 0;
  overflow-wrap: anywhere;
}
h3 { font-size: 14px; font-weight: 650; margin: 0; }
p { margin: 0; }
a { color: inherit; text-decoration-color: var(--line); text-underline-offset: 3px; }
.soft { color: var(--soft); }
.lead { color: var(--soft); margin-top: 6px; }
header { border-bottom: 2px solid var(--ink); padding-bottom: 18px; }
.counts { display: flex; flex-wrap: wrap; gap: 6px 36px; margin: 18px 0 0; padding: 0; }
.counts div { display: flex; align-items: baseline; gap: 7px; }
.counts dt { order: 2; color: var(--soft); }
.counts dd { margin: 0; font-size: 24px; font-weight: 650; letter-spacing: -0.02em; }
.counts .bad dd { color: var(--bad); }
.counts .good dd { color: var(--good); }

table { border-collapse: collapse; width: 100%; }
th {
  text-align: left; font-weight: 500; font-size: 12px; color: var(--soft); vertical-align: bottom;
  padding: 0 12px 5px 0; border-bottom: 1px solid var(--line);
}
td { padding: 6px 12px 6px 0; border-bottom: 1px solid var(--faint); vertical-align: top; }
th:last-child, td:last-child { padding-right: 0; }
th.number, td.number { text-align: right; white-space: nowrap; }
td small, th small { display: block; font-size: 11.5px; color: var(--soft); font-weight: 400; }
td.name { overflow-wrap: anywhere; }
.index { margin-top: 22px; }
.index td { padding-top: 5px; padding-bottom: 5px; }
.rules td { padding-top: 3px; padding-bottom: 3px; }

.chip {
  display: inline-block; font-size: 11.5px; font-weight: 650; line-height: 18px; padding: 0 8px;
  border-radius: 9px; border: 1px solid var(--line); color: var(--soft); white-space: nowrap;
}
.chip.good { color: var(--good); border-color: var(--good); }
.chip.bad { color: #fff; background: var(--bad); border-color: var(--bad); }
.fail { color: var(--bad); font-weight: 650; }
.pass { color: var(--good); }

section { padding-top: 30px; margin-top: 30px; border-top: 1px solid var(--line); }
header + section { border-top: 0; margin-top: 0; }
.head { display: flex; justify-content: space-between; align-items: flex-start; gap: 20px; }
.head .chip { margin-top: 3px; }
.facts { color: var(--soft); margin-top: 5px; overflow-wrap: anywhere; }
.error { margin-top: 12px; padding: 8px 12px; border-left: 3px solid var(--bad); overflow-wrap: anywhere; }
.notes { margin: 12px 0 0; padding: 0 0 0 16px; color: var(--soft); overflow-wrap: anywhere; }
.track { margin-top: 24px; }
.track .head { margin-bottom: 10px; align-items: baseline; }
.track .did { color: var(--soft); font-weight: 400; }
.rules { margin-top: 14px; }
figure { margin: 18px 0 0; }
figcaption {
  display: flex; justify-content: space-between; align-items: baseline; font-weight: 650;
  font-size: 13px; margin-bottom: 6px;
}
.legend { font-weight: 400; font-size: 12px; color: var(--soft); }
.legend span { margin-left: 16px; white-space: nowrap; }
.legend i { display: inline-block; width: 18px; margin-right: 6px; vertical-align: middle; }
.legend .l-strong { border-top: 2.5px solid var(--strong); }
.legend .l-thin { border-top: 1px solid var(--thin); }
.legend .l-aim { height: 9px; background: var(--band); border: solid var(--band); border-width: 4px 0;
  background-color: var(--aim); }

svg { display: block; width: 100%; height: auto; font-size: 10.5px; }
svg text { fill: var(--soft); }
svg .end { text-anchor: end; }
svg .middle { text-anchor: middle; }
svg .value { fill: var(--ink); font-weight: 600; }
svg .aim { fill: var(--aim); }
svg .grid { stroke: var(--faint); stroke-width: 1; }
svg .axis { stroke: #9aa3ad; stroke-width: 1; }
svg .tolerance { fill: var(--band); }
svg .target { stroke: var(--aim); stroke-width: 1.2; }
svg .edge { fill: var(--ink); }
svg .momentary, svg .short-term { fill: none; stroke-linejoin: round; stroke-linecap: round; }
svg .momentary { stroke: var(--thin); stroke-width: 0.8; }
svg .short-term { stroke: var(--strong); stroke-width: 1.8; }
svg .short-term.dense { stroke-width: 1; stroke-opacity: 0.75; }
svg .casing { stroke: var(--band); stroke-width: 3; stroke-opacity: 0.8; }
svg .leader { fill: none; stroke: #9aa3ad; stroke-width: 0.7; }
svg .mark { stroke: #fff; stroke-width: 1; }
svg .mark.strong { fill: var(--strong); }
svg .mark.thin { fill: #3f82c4; }
svg .mark.peak { fill: var(--ink); }

footer {
  margin-top: 40px; padding-top: 12px; border-top: 1px solid var(--line); font-size: 12px;
  color: var(--soft);
}
@media (max-width: 640px) {
  body { padding: 24px 16px 48px; }
  .values { display: block; overflow-x: auto; }
}
@page { size: A4; margin: 15mm 16mm 16mm; }
@media print {
  html { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
  body { max-width: none; padding: 0; font-size: 10.5pt; }
  h1 { font-size: 20pt; }
  h2 { font-size: 13.5pt; }
  a { text-decoration: none; }
  thead { display: table-header-group; }
  tr, figure, .head, .error, .rules, .values { break-inside: avoid; }
  .start, .track { break-inside: avoid; }
}
)";

}  // namespace harvane
