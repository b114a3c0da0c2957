// Makes random calls on random servers and checks every result.
//
// Exit code 0: no error; 1: an error; 3: a thread hung, and the stacks of all were printed.
#include <random>

#include "tests/ordeal/stress/Run.h"
#include "tests/support/CommandLine.h"

int main(int count, char** words) {
  stress::Plan plan;
  plan.seed = std::random_device()();
  plan.seconds = 10;
  CLI::App app("Makes random calls on random servers and checks every answer.");
  app.add_option("--seconds", plan.seconds, "0: until the rounds are over")->capture_default_str();
  app.add_option("--seed", plan.seed, "Without it, one is drawn and printed");
  app.add_option("--round", plan.firstRound, "The first round")->capture_default_str();
  app.add_option("--rounds", plan.rounds, "0: until the time is over")->capture_default_str();
  support::parseOrExit(app, count, words);
  return stress::run(plan) ? 0 : 1;
}
