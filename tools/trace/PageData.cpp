#include "PageData.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "ConnectionEnd.h"
#include "PageText.h"

namespace tools {
namespace {

using Json = nlohmann::ordered_json;
using Outcome = Connection::Outcome;

const char* kindName(Happening::Kind kind) {
  switch (kind) {
    case Happening::Kind::kOpen:
      return "open";
    case Happening::Kind::kClose:
      return "close";
    case Happening::Kind::kSeek:
      return "seek";
    case Happening::Kind::kRestart:
      return "restart";
    case Happening::Kind::kProblem:
      return "problem";
    case Happening::Kind::kEnd:
      return "end";
    case Happening::Kind::kAbort:
      return "abort";
    case Happening::Kind::kNote:
      break;
  }
  return "note";
}

template <typename Items, typename Each>
Json list(const Items& items, Each each) {
  Json all = Json::array();
  for (const auto& item : items) all.push_back(each(item));
  return all;
}

// Time and value alternate.
Json curve(const ThinCurve& thin) {
  Json all = Json::array();
  for (const ThinCurve::Point& point : thin.points()) {
    all.push_back(milliseconds(point.time));
    all.push_back(point.value);
  }
  return all;
}

Json holdings(const ThinHoldings& thin) {
  return list(thin.columns(), [](const ThinHoldings::Column& column) {
    Json one = Json::array({milliseconds(column.time)});
    for (const Span& span : column.held) {
      one.push_back(span.begin);
      one.push_back(span.end);
    }
    return one;
  });
}

Json connectionData(const Connection& connection) {
  return {{"a", milliseconds(connection.begin)},
          {"f", milliseconds(connection.firstByte)},
          {"b", milliseconds(connection.end)},
          {"outcome", outcomeName(connection.outcome)},
          {"range", shownRange(connection)},
          {"status", connection.status},
          {"got", connection.gotKnown ? connection.got : -1},
          {"end", plainText(shownEnd(connection))}};
}

Json waitData(const Lane& lane, const Wait& wait) {
  return {{"a", milliseconds(wait.begin)},
          {"b", milliseconds(wait.end)},
          {"waited", milliseconds(wait.waited)},
          {"handle", wait.handle},
          {"at", wait.offset},
          {"brief", plainText(whyWaitedShortly(wait))},
          {"why", plainText(whyWaited(lane, wait))}};
}

Json happeningData(const Happening& happening) {
  const std::string times =
      happening.times > 1 ? " (" + std::to_string(happening.times) + " times)" : "";
  return {{"t", milliseconds(happening.time)},
          {"kind", kindName(happening.kind)},
          {"text", plainText(happening.text + times)}};
}

Json pausesOf(const Lane& lane) {
  Json all = Json::array();
  for (const Lane::Pause& pause : lane.pauses()) {
    all.push_back(milliseconds(pause.begin));
    all.push_back(milliseconds(pause.end));
  }
  return all;
}

Json laneData(const Lane* shown) {
  const Lane& lane = *shown;
  const auto reader = [](const Lane::Reader& each) {
    return Json{{"handle", each.handle}, {"p", curve(each.positions)}};
  };
  return {{"name", plainText(withoutPassword(lane.name()))},
          {"size", lane.size()},
          {"held", holdings(lane.holdings())},
          {"head", curve(lane.heads())},
          {"readers", list(lane.readers(), reader)},
          {"connections", list(lane.connections(), connectionData)},
          {"waits", list(lane.waits(), [&lane](const Wait& wait) { return waitData(lane, wait); })},
          {"pauses", pausesOf(lane)},
          {"events", list(lane.happenings(), happeningData)}};
}

}  // namespace

long long milliseconds(double seconds) { return seconds < 0 ? -1 : std::llround(seconds * 1000); }

const char* outcomeName(Outcome outcome) {
  switch (outcome) {
    case Outcome::kComplete:
      return "complete";
    case Outcome::kEndedByUs:
      return "ours";
    case Outcome::kFailed:
      return "failed";
    case Outcome::kRunning:
      break;
  }
  return "running";
}

std::string pageData(double duration, const std::vector<const Lane*>& lanes) {
  const Json data = {{"duration", milliseconds(duration)}, {"lanes", list(lanes, laneData)}};
  // A '<' occurs only in texts; without it no text can end the script element.
  std::string safe;
  for (const char c : data.dump()) {
    if (c == '<') {
      safe += "\\u003c";
    } else {
      safe += c;
    }
  }
  return safe;
}

}  // namespace tools
