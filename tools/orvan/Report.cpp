#include "Commands.h"
#include "Console.h"
#include "Output.h"
#include "Timeline.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

// The report is one HTML page with inline CSS and SVG and no script. Its size
// does not grow with the log's: the log is read twice, first for its time
// span and threads, then into drawings of a fixed width where steps too
// narrow to see are merged into one "n steps" bar, marks are counted per
// pixel and memory samples keep their highest value per pixel.

namespace Orvan::Tool {

namespace {

const char* const REPORT_HELP =
    "Usage: orvan report LOG [options]\n"
    "\n"
    "Draws a log file of the library as one HTML page that needs no network and\n"
    "runs no script: a timeline with one lane per thread, the workflow steps as\n"
    "nested bars and the warnings and errors as marks; under it, on the same time\n"
    "axis, the memory curves; the ten longest steps and the warnings and errors\n"
    "with their times; the head of the log. Steps too narrow to see are merged\n"
    "into one bar, so that the page stays small for a log of any size.\n"
    "\n"
    "Exit codes: 0 written, 1 the log cannot be read or is not a log file of the\n"
    "library, or the page cannot be written, 2 bad arguments.\n"
    "\n"
    "Options:\n"
    "  -o, --output FILE     where to write the page (default: LOG.html; '-' for\n"
    "                        standard output)\n"
    "  -h, --help            show this help\n";

constexpr double WIDTH = 1100;    // pixels of the time axis
constexpr double LEFT = 110;      // room for the lane names
constexpr double ROW = 18;        // height of one nesting level
constexpr double MIN_BAR = 4;     // narrower steps are merged
constexpr double MERGE_GAP = 2;   // merged steps closer than this join one bar
constexpr unsigned MAX_DEPTH = 8; // deeper steps are counted in the deepest row
constexpr std::size_t MAX_LANES = 24;
constexpr std::size_t MAX_LISTED_MARKS = 50;
constexpr std::size_t LONGEST = 10;
constexpr double CHART = 90; // height of a memory chart

std::string escape(const std::string& text)
{
  std::string result;
  for (const char c : validUtf8(text)) {
    switch (c) {
    case '&':
      result += "&amp;";
      break;
    case '<':
      result += "&lt;";
      break;
    case '>':
      result += "&gt;";
      break;
    case '"':
      result += "&quot;";
      break;
    case '\t':
      result += ' ';
      break;
    default:
      result += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
    }
  }
  return result;
}

std::string number(double value)
{
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

// What the first reading learns.
class SpanSink : public TimelineSink {
public:
  void thread(unsigned long long) override {}
  void step(const TimelineStep&) override {}
  void mark(const TimelineMark&) override {}
  void memory(const TimelineMemory&) override {}
};

struct Bar {
  double x0 = 0;
  double x1 = 0;
  std::uint64_t count = 0;
  std::string name; // of a single step
  std::int64_t duration = 0;
  bool unfinished = false;
};

struct PixelMarks {
  TimelineMark::Kind worst = TimelineMark::Kind::Progress;
  std::uint64_t count = 0;
  std::string first;
};

struct Lane {
  unsigned long long thread = 0;
  std::vector<std::vector<Bar>> rows;
  std::map<int, PixelMarks> marks;
};

struct Series {
  const char* name;
  const char* colour;
  std::vector<double> top; // highest value per pixel, -1 where none
};

class ReportBuilder : public TimelineSink {
public:
  explicit ReportBuilder(const TimelineSummary& span)
      : scale(WIDTH / static_cast<double>(std::max<std::int64_t>(span.end, 1)))
      , series{Series{"process physical used", "#d1495b", {}}, Series{"process virtual used", "#edae49", {}},
               Series{"machine physical used", "#00798c", {}}}
  {
    for (Series& one : series) {
      one.top.assign(static_cast<std::size_t>(WIDTH) + 1, -1);
    }
  }

  void thread(unsigned long long id) override
  {
    if (lanes.size() < MAX_LANES) {
      lanes.push_back(Lane{id, {}, {}});
    } else {
      ++hiddenThreads;
    }
  }

  void step(const TimelineStep& step) override
  {
    if (longest.size() < LONGEST || step.end - step.start > longest.back().end - longest.back().start) {
      if (longest.size() == LONGEST) {
        longest.pop_back();
      }
      longest.push_back(step);
      std::sort(longest.begin(), longest.end(),
                [](const TimelineStep& a, const TimelineStep& b) { return a.end - a.start > b.end - b.start; });
    }
    Lane* lane = find(step.thread);
    if (lane == nullptr) {
      return;
    }
    const unsigned depth = std::min(step.depth, MAX_DEPTH - 1);
    if (lane->rows.size() <= depth) {
      lane->rows.resize(depth + 1);
    }
    std::vector<Bar>& row = lane->rows[depth];
    const double x0 = static_cast<double>(step.start) * scale;
    const double x1 = static_cast<double>(step.end) * scale;
    const bool narrow = x1 - x0 < MIN_BAR;
    if (narrow && !row.empty() && row.back().name.empty() && x0 - row.back().x1 < MERGE_GAP) {
      Bar& merged = row.back();
      merged.x1 = std::max(merged.x1, x1);
      merged.count += 1;
      merged.duration += step.end - step.start;
      return;
    }
    Bar bar;
    bar.x0 = x0;
    bar.x1 = x1;
    bar.count = 1;
    bar.duration = step.end - step.start;
    bar.unfinished = step.unfinished;
    if (!narrow) {
      bar.name = step.name;
    } else {
      firstNames[{lane->thread, depth, row.size()}] = step.name;
    }
    row.push_back(std::move(bar));
  }

  void mark(const TimelineMark& mark) override
  {
    if (mark.kind != TimelineMark::Kind::Progress) {
      ++problems;
      if (listed.size() < MAX_LISTED_MARKS) {
        listed.push_back(mark);
      }
    }
    Lane* lane = find(mark.thread);
    if (lane == nullptr) {
      return;
    }
    PixelMarks& pixel = lane->marks[static_cast<int>(static_cast<double>(mark.time) * scale)];
    if (pixel.count == 0 || mark.kind > pixel.worst) {
      pixel.worst = mark.kind;
      pixel.first = mark.text;
    }
    ++pixel.count;
  }

  void memory(const TimelineMemory& sample) override
  {
    const auto pixel = static_cast<std::size_t>(std::clamp(static_cast<double>(sample.time) * scale, 0.0, WIDTH));
    const std::uint64_t values[] = {sample.memory.physicalUsedByApplication, sample.memory.virtualUsedByApplication,
                                    sample.memory.physicalUsed};
    for (std::size_t i = 0; i < 3; ++i) {
      series[i].top[pixel] = std::max(series[i].top[pixel], static_cast<double>(values[i]));
    }
    machineTotal = std::max(machineTotal, sample.memory.physicalTotal);
    ++samples;
  }

  std::string page(const TimelineSummary& summary, const std::string& log) const
  {
    std::ostringstream html;
    html << "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n<title>Run of "
         << escape(summary.started.toString().substr(0, 19)) << "</title>\n<style>\n"
         << "body{font:14px system-ui,sans-serif;margin:20px;color:#222;background:#fff}\n"
         << "h1{font-size:20px;margin:0 0 6px} h2{font-size:16px;margin:22px 0 6px}\n"
         << "dl.head{display:grid;grid-template-columns:max-content auto;gap:2px 14px;margin:0}\n"
         << "dl.head dt{color:#666} dl.head dd{margin:0}\n"
         << "svg{display:block;font:11px system-ui,sans-serif}\n"
         << ".bar{fill:#5b8dd6;stroke:#2f5fa8;stroke-width:.5} .bar.merged{fill:#a9c1e8}\n"
         << ".bar.unfinished{fill:#e39b9b;stroke:#b03030}\n"
         << ".lane-name{font-weight:600} .label{fill:#fff;pointer-events:none} .merged-label{fill:#234}\n"
         << ".lane-bg{fill:#f4f6f9} .axis{stroke:#bbb} .tick{fill:#555}\n"
         << ".mark-error{fill:#c0392b} .mark-warning{fill:#e67e22} .mark-progress{fill:#888}\n"
         << ".memory{fill:none;stroke-width:1.5}\n"
         << "table{border-collapse:collapse;margin-top:4px} td,th{padding:2px 10px;border-bottom:1px solid #ddd;"
            "text-align:left}\n"
         << "td.num{text-align:right;font-variant-numeric:tabular-nums} .error{color:#c0392b} "
            ".warning{color:#b9600b}\n"
         << ".legend span{margin-right:16px} .swatch{display:inline-block;width:12px;height:3px;"
            "vertical-align:middle;margin-right:4px}\n"
         << "</style></head><body>\n";

    head(html, summary, log);
    html << "<h2>Timeline</h2>\n";
    timeline(html, summary);
    html << "<h2>Memory</h2>\n";
    memoryCharts(html, summary);
    tables(html, summary);
    html << "</body></html>\n";
    return html.str();
  }

private:
  Lane* find(unsigned long long thread)
  {
    for (Lane& lane : lanes) {
      if (lane.thread == thread) {
        return &lane;
      }
    }
    return nullptr;
  }

  std::string clock(const TimelineSummary& summary, std::int64_t time) const
  {
    const std::int64_t milliseconds = summary.started.milliseconds() + time / 1000;
    // Times past the head's day name their day.
    const std::int64_t days = milliseconds >= 0 ? milliseconds / 86400000 : (milliseconds - 86399999) / 86400000;
    const std::int64_t inDay = milliseconds - days * 86400000;
    const std::int64_t startDays = summary.started.milliseconds() / 86400000;
    std::string text;
    if (days != startDays) {
      text = "day " + std::to_string(days - startDays + 1) + " ";
    }
    char clockText[80];
    std::snprintf(clockText, sizeof clockText, "%02lld:%02lld:%02lld.%03lld", static_cast<long long>(inDay / 3600000),
                  static_cast<long long>(inDay / 60000 % 60), static_cast<long long>(inDay / 1000 % 60),
                  static_cast<long long>(inDay % 1000));
    return text + clockText;
  }

  void head(std::ostringstream& html, const TimelineSummary& summary, const std::string& log) const
  {
    html << "<h1>Run of " << escape(summary.started.toString().substr(0, 19)) << "</h1>\n<dl class=\"head\">"
         << "<dt>Log</dt><dd>" << escape(log) << "</dd>"
         << "<dt>Library version</dt><dd id=\"version\">" << escape(summary.version) << "</dd>"
         << "<dt>Started</dt><dd>" << escape(summary.started.toString()) << "</dd>"
         << "<dt>Duration</dt><dd id=\"duration\">" << formatDuration(summary.end) << "</dd>"
         << "<dt>Threads</dt><dd id=\"threads\">" << summary.threads.size() << "</dd>"
         << "<dt>Lines</dt><dd>" << summary.lines << "</dd>"
         << "<dt>Workflow steps</dt><dd>" << summary.steps << "</dd>"
         << "<dt>Warnings and errors</dt><dd>" << problems << "</dd>"
         << "<dt>Memory samples</dt><dd>" << samples << "</dd>";
    if (summary.ignored > 0) {
      html << "<dt>Steps left out</dt><dd>" << summary.ignored << " (enter lines beyond 256 open steps)</dd>";
    }
    html << "</dl>\n";
  }

  // Ticks of the time axis, at a round interval giving about eight.
  void axis(std::ostringstream& svg, const TimelineSummary& summary, double top, double bottom) const
  {
    const double span = static_cast<double>(std::max<std::int64_t>(summary.end, 1));
    const double rough = span / 8;
    double step = std::pow(10.0, std::floor(std::log10(rough)));
    for (const double factor : {2.0, 5.0, 10.0}) {
      if (step * 1.5 < rough) {
        step = std::pow(10.0, std::floor(std::log10(rough))) * factor;
      }
    }
    for (double at = 0; at <= span; at += step) {
      const double x = LEFT + at * scale;
      svg << "<line class=\"axis\" x1=\"" << number(x) << "\" x2=\"" << number(x) << "\" y1=\"" << number(top)
          << "\" y2=\"" << number(bottom) << "\"/><text class=\"tick\" x=\"" << number(x + 2) << "\" y=\""
          << number(top + 10) << "\">" << formatDuration(static_cast<std::int64_t>(at)) << "</text>\n";
    }
  }

  void timeline(std::ostringstream& html, const TimelineSummary& summary) const
  {
    std::ostringstream svg;
    double y = 16;
    for (const Lane& lane : lanes) {
      const std::size_t depth = std::max<std::size_t>(lane.rows.size(), 1);
      const double height = static_cast<double>(depth) * ROW + 12;
      svg << "<g class=\"lane\" data-thread=\"" << lane.thread << "\">\n<rect class=\"lane-bg\" x=\"" << LEFT
          << "\" y=\"" << number(y) << "\" width=\"" << WIDTH << "\" height=\"" << number(height)
          << "\"/><text class=\"lane-name\" x=\"4\" y=\"" << number(y + 14) << "\">thread " << lane.thread
          << "</text>\n";
      // Narrow bars last, over their wide neighbours, so that they show.
      for (const bool narrow : {false, true}) {
        for (std::size_t row = 0; row < lane.rows.size(); ++row) {
          const double top = y + 10 + static_cast<double>(row) * ROW;
          for (std::size_t i = 0; i < lane.rows[row].size(); ++i) {
            const Bar& one = lane.rows[row][i];
            if ((one.x1 - one.x0 < MIN_BAR) == narrow) {
              bar(svg, lane, row, i, top, summary);
            }
          }
        }
      }
      for (const auto& [x, pixel] : lane.marks) {
        static const char* const KINDS[] = {"progress", "warning", "error"};
        const double mx = LEFT + x;
        const double size = pixel.worst == TimelineMark::Kind::Progress ? 2.5 : 5;
        svg << "<path class=\"mark mark-" << KINDS[static_cast<int>(pixel.worst)] << "\" d=\"M" << number(mx) << ' '
            << number(y + 9) << "l" << number(-size) << ' ' << number(-size * 1.6) << "h" << number(size * 2)
            << "z\"><title>" << escape(pixel.first)
            << (pixel.count > 1 ? " (and " + std::to_string(pixel.count - 1) + " more)" : std::string())
            << "</title></path>\n";
      }
      svg << "</g>\n";
      y += height + 6;
    }
    axis(svg, summary, 0, y);
    html << "<svg id=\"timeline\" width=\"" << LEFT + WIDTH + 10 << "\" height=\"" << number(y + 4)
         << "\" viewBox=\"0 0 " << LEFT + WIDTH + 10 << ' ' << number(y + 4) << "\">\n"
         << svg.str() << "</svg>\n";
    if (hiddenThreads > 0) {
      html << "<p>" << hiddenThreads << " more threads are not drawn.</p>\n";
    }
  }

  void bar(std::ostringstream& svg, const Lane& lane, std::size_t row, std::size_t index, double top,
           const TimelineSummary& summary) const
  {
    const Bar& bar = lane.rows[row][index];
    const double x = LEFT + bar.x0;
    const double width = std::max(bar.x1 - bar.x0, 1.0);
    std::string name = bar.name;
    std::string label;
    std::string kind = "bar";
    if (bar.name.empty()) {
      const auto found = firstNames.find({lane.thread, static_cast<unsigned>(row), index});
      if (bar.count == 1 && found != firstNames.end()) {
        name = found->second;
      } else {
        kind += " merged";
        name = std::to_string(bar.count) + " steps";
      }
    }
    if (bar.unfinished) {
      kind += " unfinished";
    }
    label = name + " " + formatDuration(bar.duration);
    svg << "<rect class=\"" << kind << "\" data-name=\"" << escape(name) << "\" x=\"" << number(x) << "\" y=\""
        << number(top) << "\" width=\"" << number(width) << "\" height=\"" << ROW - 2 << "\"><title>" << escape(label)
        << (bar.unfinished ? " (unfinished)" : "") << ", from "
        << clock(summary, static_cast<std::int64_t>(bar.x0 / scale)) << "</title></rect>\n";
    // A label only where it fits, cut to the bar's width.
    const auto fits = static_cast<std::size_t>(width / 6.2);
    if (fits >= 4) {
      if (label.size() > fits) {
        label = label.substr(0, fits - 1) + "…";
      }
      svg << "<text class=\"" << (bar.name.empty() && bar.count > 1 ? "merged-label" : "label") << "\" x=\""
          << number(x + 3) << "\" y=\"" << number(top + 12) << "\">" << escape(label) << "</text>\n";
    }
  }

  void memoryCharts(std::ostringstream& html, const TimelineSummary& summary) const
  {
    if (samples == 0) {
      html << "<p>The log holds no memory sample.</p>\n";
      return;
    }
    html << "<p class=\"legend\">";
    for (const Series& one : series) {
      html << "<span><i class=\"swatch\" style=\"background:" << one.colour << "\"></i>" << one.name << "</span>";
    }
    html << "</p>\n";
    std::ostringstream svg;
    chart(svg, "this process", {&series[0], &series[1]}, 0, 0, summary);
    chart(svg, "machine", {&series[2]}, 0, CHART + 24, summary, "of " + formatBytes(machineTotal));
    html << "<svg id=\"memory\" width=\"" << LEFT + WIDTH + 10 << "\" height=\"" << 2 * CHART + 52
         << "\" viewBox=\"0 0 " << LEFT + WIDTH + 10 << ' ' << 2 * CHART + 52 << "\">\n"
         << svg.str() << "</svg>\n";
  }

  // `note`: a line under the top value.
  void chart(std::ostringstream& svg, const char* title, const std::vector<const Series*>& shown, double ceiling,
             double top, const TimelineSummary& summary, const std::string& note = {}) const
  {
    for (const Series* one : shown) {
      for (const double value : one->top) {
        ceiling = std::max(ceiling, value);
      }
    }
    ceiling = std::max(ceiling, 1.0);
    const double bottom = top + 14 + CHART;
    svg << "<rect class=\"lane-bg\" x=\"" << LEFT << "\" y=\"" << number(top + 14) << "\" width=\"" << WIDTH
        << "\" height=\"" << CHART << "\"/><text class=\"lane-name\" x=\"4\" y=\"" << number(top + 28) << "\">" << title
        << "</text><text class=\"tick\" x=\"4\" y=\"" << number(top + 42) << "\">"
        << formatBytes(static_cast<unsigned long long>(ceiling)) << "</text><text class=\"tick\" x=\"4\" y=\""
        << number(top + 55) << "\">" << note << "</text>\n";
    axis(svg, summary, top + 14, bottom);
    for (const Series* one : shown) {
      svg << "<polyline class=\"memory\" data-series=\"" << one->name << "\" stroke=\"" << one->colour
          << "\" points=\"";
      for (std::size_t x = 0; x < one->top.size(); ++x) {
        if (one->top[x] >= 0) {
          svg << number(LEFT + static_cast<double>(x)) << ',' << number(bottom - one->top[x] / ceiling * CHART) << ' ';
        }
      }
      svg << "\"/>\n";
    }
  }

  void tables(std::ostringstream& html, const TimelineSummary& summary) const
  {
    html << "<h2>The " << LONGEST << " longest steps</h2>\n<table id=\"longest\"><tr><th>step</th><th>thread</th>"
         << "<th>from</th><th class=\"num\">duration</th></tr>\n";
    for (const TimelineStep& step : longest) {
      html << "<tr><td>" << escape(step.name) << "</td><td>" << step.thread << "</td><td>" << clock(summary, step.start)
           << "</td><td class=\"num\">"
           << (step.unfinished ? "unfinished, " + formatDuration(step.end - step.start) : step.elapsed)
           << "</td></tr>\n";
    }
    html << "</table>\n<h2>Warnings and errors</h2>\n";
    if (problems == 0) {
      html << "<p>None.</p>\n";
      return;
    }
    html << "<table id=\"problems\"><tr><th>time</th><th>thread</th><th>level</th><th>message</th></tr>\n";
    for (const TimelineMark& mark : listed) {
      const bool error = mark.kind == TimelineMark::Kind::Error;
      html << "<tr class=\"" << (error ? "error" : "warning") << "\"><td>" << clock(summary, mark.time) << "</td><td>"
           << mark.thread << "</td><td>" << (error ? "error" : "warning") << "</td><td>" << escape(mark.text)
           << "</td></tr>\n";
    }
    html << "</table>\n";
    if (problems > listed.size()) {
      html << "<p>And " << problems - listed.size() << " more.</p>\n";
    }
  }

  double scale;
  std::vector<Lane> lanes;
  std::size_t hiddenThreads = 0;
  // The name of each single narrow step that no other joined.
  std::map<std::tuple<unsigned long long, unsigned, std::size_t>, std::string> firstNames;
  std::vector<TimelineStep> longest;
  std::vector<TimelineMark> listed;
  std::uint64_t problems = 0;
  Series series[3];
  std::uint64_t machineTotal = 0;
  std::uint64_t samples = 0;
};

} // namespace

std::string writeReport(const std::string& log, const std::string& destination)
{
  SpanSink spanSink;
  const TimelineSummary span = readTimeline(log, spanSink);
  ReportBuilder builder(span);
  const TimelineSummary summary = readTimeline(log, builder);
  OutputFile output(destination);
  output.write(builder.page(summary, log));
  output.close();
  return output.name();
}

int reportCommand(const std::vector<std::string>& words)
{
  std::string log;
  std::string destination;
  CommandLine line(REPORT_HELP);
  line.option("-o,--output", [&](const std::string& value) { destination = value; });
  line.operand("LOG", [&](const std::string& value) { log = value; });
  if (!line.parse(words)) {
    return EXIT_OK;
  }
  if (destination.empty()) {
    destination = log + ".html";
  }
  try {
    const std::string written = writeReport(log, destination);
    if (destination != "-") {
      Console::instance().result("Report written to '" + written + "'");
    }
  } catch (const std::exception& error) {
    Console::instance().message("orvan report: " + std::string(error.what()));
    return EXIT_FAILED;
  }
  return EXIT_OK;
}

} // namespace Orvan::Tool
