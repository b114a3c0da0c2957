#include "ConnectionEnd.h"

#include <array>

namespace tools {
namespace {

using Outcome = Connection::Outcome;

struct Ending {
  RunResult code;
  Outcome outcome;
  const char* words;
};

constexpr Ending kEndings[] = {
    {RUN_COMPLETE, Outcome::kComplete, "complete"},
    {RUN_UNKNOWN_HOST, Outcome::kFailed, "the server's name is unknown"},
    {RUN_NOT_CONNECTED, Outcome::kFailed, "cannot connect"},
    {RUN_PARTIAL, Outcome::kFailed, "cut before the end of the body"},
    {RUN_WRITE_REFUSED, Outcome::kEndedByUs, "ended by the library (seek, restart or close)"},
    {RUN_TIMED_OUT, Outcome::kFailed, "timed out"},
    {RUN_TLS_REFUSED, Outcome::kFailed, "TLS could not be agreed on"},
    {RUN_ABORTED, Outcome::kEndedByUs, "ended by the library (seek, restart or close)"},
    {RUN_REDIRECTED_TOO_OFTEN, Outcome::kFailed, "too many redirections"},
    {RUN_NO_ANSWER, Outcome::kFailed, "closed without an answer"},
    {RUN_NOT_SENT, Outcome::kFailed, "the request could not be sent"},
    {RUN_NOT_RECEIVED, Outcome::kFailed, "broken while receiving"},
    {RUN_NOT_TRUSTED, Outcome::kFailed, "the server's certificate is not trusted"},
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
  if (connection->status >= RUN_FIRST_ERROR_STATUS) {
    connection->outcome = Outcome::kFailed;
    connection->why = "refused by the server";
  }
}

void explainResult(int result, Connection* connection) {
  if (result != RUN_STALLED && result != RUN_BROKEN) return;
  connection->outcome = Outcome::kFailed;
  connection->why = result == RUN_STALLED
                        ? "given up by the library: the server was silent"
                        : "given up by the library: a reader was broken off, the server was silent";
}

std::string eventName(int event) {
  static constexpr std::array<const char*, 8> kNames = {
      "STREAM_NORMAL",  "STREAM_ERROR",          "STREAM_DEAD",          "EVENT_STREAM_PARTIAL_END",
      "STREAM_TIMEOUT", "STREAM_FILE_NOT_FOUND", "STREAM_NOT_AVAILABLE", "STREAM_CANCELED"};
  if (event < 0 || event >= static_cast<int>(kNames.size())) return "";
  return kNames[static_cast<size_t>(event)];
}

}  // namespace tools
