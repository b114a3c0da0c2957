#include "ConnectionEnd.h"

#include <array>

namespace tools {
namespace {

using Outcome = Connection::Outcome;

constexpr int kStalled = -1;  // no byte for too long
constexpr int kBroken = -2;   // silent and given up
constexpr int kFirstErrorStatus = 400;

struct Ending {
  int code;  // libcurl's
  Outcome outcome;
  const char* words;
};

constexpr Ending kEndings[] = {
    {0, Outcome::kComplete, "complete"},
    {6, Outcome::kFailed, "the server's name is unknown"},
    {7, Outcome::kFailed, "cannot connect"},
    {18, Outcome::kFailed, "cut before the end of the body"},
    {23, Outcome::kEndedByUs, "ended by the library (seek, restart or close)"},
    {28, Outcome::kFailed, "timed out"},
    {35, Outcome::kFailed, "TLS could not be agreed on"},
    {42, Outcome::kEndedByUs, "ended by the library (seek, restart or close)"},
    {47, Outcome::kFailed, "too many redirections"},
    {52, Outcome::kFailed, "closed without an answer"},
    {55, Outcome::kFailed, "the request could not be sent"},
    {56, Outcome::kFailed, "broken while receiving"},
    {60, Outcome::kFailed, "the server's certificate is not trusted"},
};

}  // namespace

void explainEnd(Connection* connection) {
  connection->outcome = Outcome::kFailed;
  connection->why = "failed";
  for (const Ending& ending : kEndings) {
    if (ending.code == connection->code) {
      connection->outcome = ending.outcome;
      connection->why = ending.words;
    }
  }
  if (connection->code == -1) {
    connection->outcome = Outcome::kEndedByUs;
    connection->why = "its end is not in the log";
  }
  if (connection->status >= kFirstErrorStatus) {
    connection->outcome = Outcome::kFailed;
    connection->why = "refused by the server";
  }
}

void explainResult(int result, Connection* connection) {
  if (result != kStalled && result != kBroken) return;
  connection->outcome = Outcome::kFailed;
  connection->why = "given up by the library: the server was silent";
}

std::string eventName(int event) {
  static constexpr std::array<const char*, 8> kNames = {
      "STREAM_NORMAL",  "STREAM_ERROR",          "STREAM_DEAD",          "EVENT_STREAM_PARTIAL_END",
      "STREAM_TIMEOUT", "STREAM_FILE_NOT_FOUND", "STREAM_NOT_AVAILABLE", "STREAM_CANCELED"};
  if (event < 0 || event >= static_cast<int>(kNames.size())) return "";
  return kNames[static_cast<size_t>(event)];
}

}  // namespace tools
