#include "TracePage.h"

#include <algorithm>
#include <vector>

#include "ConnectionEnd.h"
#include "PageData.h"
#include "PageText.h"

namespace tools {
namespace {

using Outcome = Connection::Outcome;

// Waits that the table and the summary list, over all resources.
constexpr size_t kToldWaits = 12;
constexpr size_t kToldConnections = 1000;

// In the order of the page: the one with the longest waits first, those without a byte last.
using Lanes = std::vector<const Lane*>;

double waitedIn(const Lane& lane) {
  double seconds = lane.shortWaited();
  for (const Wait& wait : lane.waits()) seconds += wait.waited;
  return seconds;
}

Lanes inOrder(const TraceStory& story) {
  Lanes lanes;
  for (const Lane& lane : story.lanes()) lanes.push_back(&lane);
  std::stable_sort(lanes.begin(), lanes.end(), [](const Lane* one, const Lane* other) {
    const bool bytes = !one->holdings().columns().empty();
    const bool otherBytes = !other->holdings().columns().empty();
    return bytes != otherBytes ? bytes : waitedIn(*one) > waitedIn(*other);
  });
  return lanes;
}

struct LaneWait {
  const Lane* lane;
  const Wait* wait;
};

std::string plural(long long count, const std::string& thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

// The longest first.
std::vector<LaneWait> longestWaits(const Lanes& lanes) {
  std::vector<LaneWait> waits;
  for (const Lane* lane : lanes) {
    for (const Wait& wait : lane->waits()) waits.push_back({lane, &wait});
  }
  std::stable_sort(waits.begin(), waits.end(), [](const LaneWait& one, const LaneWait& other) {
    return one.wait->waited > other.wait->waited;
  });
  return waits;
}

std::string laneNumber(const Lanes& lanes, const Lane* lane) {
  return std::to_string(std::find(lanes.begin(), lanes.end(), lane) - lanes.begin() + 1);
}

std::string cell(const std::string& text) { return "<td>" + htmlText(text) + "</td>"; }
std::string numberCell(const std::string& text) {
  return "<td class=\"n\">" + htmlText(text) + "</td>";
}

std::string summary(const TraceStory& story) {
  long long connections = 0;
  long long failed = 0;
  double waited = 0;
  long long waits = 0;
  for (const Lane& lane : story.lanes()) {
    connections += static_cast<long long>(lane.connections().size()) + lane.moreConnections();
    for (const Connection& connection : lane.connections()) {
      failed += connection.outcome == Outcome::kFailed ? 1 : 0;
    }
    waited += waitedIn(lane);
    waits += static_cast<long long>(lane.waits().size()) + lane.shortWaits();
  }
  return "<p class=\"summary\" id=\"summary\"><b>" + shownSeconds(story.duration()) +
         "</b> of log; <b>" +
         plural(static_cast<long long>(story.lanes().size()) + story.moreLanes(), "resource") +
         "</b>; <b>" + plural(connections, "connection") + "</b>, " + std::to_string(failed) +
         " failed; readers waited <b>" + shownSeconds(waited) + "</b> in " + plural(waits, "wait") +
         " of a millisecond or more.</p>\n";
}

std::string waitTable(const Lanes& lanes) {
  const std::vector<LaneWait> waits = longestWaits(lanes);
  if (waits.empty()) return "";
  std::string text =
      "<h2>Longest waits</h2>\n<table id=\"waits\"><thead><tr><th>Waited</th><th>From (s)</th>"
      "<th>Resource</th><th>Handle</th><th>For offset</th><th>Why</th></tr></thead><tbody>\n";
  for (size_t i = 0; i < std::min(waits.size(), kToldWaits); ++i) {
    const Wait& wait = *waits[i].wait;
    const std::string lane = laneNumber(lanes, waits[i].lane);
    text += "<tr><td class=\"n\"><button data-a=\"" + std::to_string(milliseconds(wait.begin)) +
            "\" data-b=\"" + std::to_string(milliseconds(wait.end)) + "\" data-lane=\"" + lane +
            "\">" + shownSeconds(wait.waited) + "</button></td>" +
            numberCell(shownMoment(wait.begin)) + numberCell(lane) +
            numberCell(std::to_string(wait.handle)) +
            numberCell(wait.offset < 0 ? "?" : std::to_string(wait.offset)) +
            cell(whyWaited(*waits[i].lane, wait)) + "</tr>\n";
  }
  return text + "</tbody></table>\n";
}

std::string connectionRow(const Connection& connection, const std::string& lane, size_t number) {
  const bool ended = connection.end >= 0;
  const double answer = connection.firstByte - connection.begin;
  return std::string("<tr class=\"") + outcomeName(connection.outcome) + "\">" + numberCell(lane) +
         numberCell(std::to_string(number)) + numberCell(shownMoment(connection.begin)) +
         cell(shownRange(connection)) +
         numberCell(connection.status < 0 ? "-" : std::to_string(connection.status)) +
         numberCell(connection.firstByte < 0 ? "-" : shownSeconds(answer)) +
         numberCell(connection.gotKnown ? std::to_string(connection.got) : "-") +
         numberCell(connection.heldBack > 0 ? shownSeconds(connection.heldBack) : "-") +
         numberCell(ended ? shownMoment(connection.end) : "-") + "<td><i></i>" +
         htmlText(shownEnd(connection)) + "</td>" +
         cell(connection.event < 0 ? "" : eventName(connection.event)) + "</tr>\n";
}

std::string connectionTable(const Lanes& lanes) {
  std::string text =
      "<h2>Connections</h2>\n<table id=\"connections\"><thead><tr><th>Resource</th><th>No.</th>"
      "<th>Start (s)</th><th>Bytes asked</th><th>Status</th><th>First byte after</th>"
      "<th>Bytes received</th><th>Held back</th><th>End (s)</th><th>How it ended</th>"
      "<th>Event</th></tr></thead><tbody>\n";
  size_t told = 0;
  long long untold = 0;
  for (const Lane* lane : lanes) {
    const std::string number = laneNumber(lanes, lane);
    untold += lane->moreConnections();
    size_t index = 0;
    for (const Connection& connection : lane->connections()) {
      ++index;
      if (told == kToldConnections) {
        ++untold;
        continue;
      }
      ++told;
      text += connectionRow(connection, number, index);
    }
  }
  text += "</tbody></table>\n";
  if (untold != 0) text += "<p>" + plural(untold, "more connection") + " not listed.</p>\n";
  return text;
}

const char kTools[] = R"(<div class="tools" role="toolbar" aria-label="Time axis">
<button id="in">Zoom in (+)</button> <button id="out">Zoom out (&minus;)</button>
<button id="left" aria-label="Earlier">&larr;</button> <button id="right" aria-label="Later">&rarr;</button>
<button id="all">All (0)</button><span>Wheel or drag over a plot zooms; arrow keys move.</span></div>
)";

const char kLegend[] = R"(<ul class="legend" aria-label="Legend">
<li><i class="held"></i>offsets held in the buffer</li>
<li><i class="head"></i>write head: where the connection stores</li>
<li><i class="reader"></i>reader's position (other handles in other colours)</li>
<li><i class="wait"></i>reader waits</li>
<li><i class="ahead"></i>held ahead of the reader</li>
<li><i class="bar complete"></i>connection, complete</li>
<li><i class="bar ours"></i>ended by the library</li>
<li><i class="bar failed"></i>failed</li>
<li><i class="bar running"></i>still running</li>
<li><i class="bar asked"></i>no byte yet</li>
<li><i class="bar full"></i>held back: the buffer is full</li>
<li><b>S</b> seek <b>R</b> restart <b>!</b> problem <b>E</b> end <b>A</b> abort <b>O</b> open
<b>C</b> close <b>N</b> note</li>
</ul>
)";

const char kKnowing[] = R"(<h2>What is known and what is derived</h2>
<ul class="notes">
<li>Times are the log's own, in whole milliseconds, as seconds since its first line. Long logs are
thinned: of each stretch of time the first, lowest, highest and last value of a curve are kept.</li>
<li>What is held is derived from the lines that tell what was stored in which block, and is exact again
at every dump of the buffer (level 3). Blocks that are given up without a line stay until the next.</li>
<li>A reader's position is told when a read begins and when its bytes are there. Why it waited is
derived from what its connection did meanwhile; &ldquo;silent&rdquo; is a connection that brought nothing
for 250 ms.</li>
<li>Lines name a thread and no handle: they are given to the handle whose call that thread is in. An
asynchronous read is taken for the oldest one of its size. Several local files in use at one time have no
write head, because no line tells them apart. Several processes in one log are taken for one.</li>
<li>The log does not tell of bytes that were still in the system's buffers, nor of the player's own
waiting.</li>
</ul>
)";

std::string notes(const TraceStory& story, const LogReader::Counts& counts) {
  std::string text = kKnowing;
  text += "<p>" + plural(counts.lines, "line") + " of the library, " +
          plural(counts.foreign, "other or cut line") + " skipped, " +
          std::to_string(counts.mixed) + " lines stood in each other, " +
          std::to_string(story.homeless()) + " belong to no resource that is known.</p>\n";
  long long more = 0;
  for (const Lane& lane : story.lanes()) more += lane.moreHappenings();
  if (more != 0) text += "<p>" + plural(more, "more event") + " not shown.</p>\n";
  if (story.moreLanes() != 0) {
    text += "<p>" + plural(story.moreLanes(), "more name") + " not shown.</p>\n";
  }
  return text;
}

std::string warnings(const TraceStory& story, const LogReader::Counts& counts) {
  if (counts.lines == 0) {
    return "<p class=\"warning\">This log has no line of the library.</p>\n";
  }
  if (story.lanes().empty()) {
    return "<p class=\"warning\">This log names no resource: it was written below level 0, or is "
           "only a "
           "piece.</p>\n";
  }
  if (!story.hasTracing()) {
    return "<p class=\"warning\">This log has no lines of level 2: what was held, the readers' "
           "positions "
           "and the waits are not known. Log with level 3.</p>\n";
  }
  return story.hasDumps()
             ? ""
             : "<p class=\"warning\">This log has no dumps of level 3: what is held is "
               "derived from what was stored.</p>\n";
}

}  // namespace

std::string tracePage(const std::string& title, const TraceStory& story,
                      const LogReader::Counts& counts) {
  const Lanes lanes = inOrder(story);
  const std::string shown = htmlText(withoutPassword(title));
  std::string page =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
      "style-src 'unsafe-inline'; script-src 'unsafe-inline'\">\n"
      "<meta name=\"viewport\" content=\"width=device-width\">\n<title>Buffer trace: " +
      shown + "</title>\n<style>\n" + kPageStyle +
      "</style>\n</head>\n<body>\n<header><h1>Buffer trace</h1><p class=\"source\">" + shown +
      "</p></header>\n" + summary(story) + warnings(story, counts) + kTools + kLegend +
      "<main id=\"lanes\"></main>\n<noscript><p class=\"warning\">The plots need scripts; the "
      "tables do not.</p></noscript>\n";
  page += waitTable(lanes) + connectionTable(lanes) + notes(story, counts);
  page +=
      "<div id=\"tip\" aria-hidden=\"true\" hidden></div>\n<script type=\"application/json\" "
      "id=\"data\">" +
      pageData(story.duration(), lanes) + "</script>\n<script>\n" + kPageProgram +
      "</script>\n</body>\n</html>\n";
  return page;
}

}  // namespace tools
