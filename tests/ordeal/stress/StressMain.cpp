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
  support::CommandLine line("Makes random calls on random servers and checks every answer.");
  line.option("--seconds", &plan.seconds, "0: until the rounds are over").withDefault();
  line.option("--seed", &plan.seed, "Without it, one is drawn and printed");
  line.option("--round", &plan.firstRound, "The first round").withDefault();
  line.option("--rounds", &plan.rounds, "0: until the time is over").withDefault();
  line.parseOrExit(count, words);
  return stress::run(plan) ? 0 : 1;
}
