// Throws random calls on random servers at the library and checks every answer.
//
//   ordeal_stress [--seconds N] [--seed N] [--round N] [--rounds N]
//
// Without a seed it draws one and prints it. Exit code 0: nothing went wrong; 1: something did; 3:
// a thread hung, and the stacks of all were printed.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include "tests/ordeal/stress/Run.h"

int main(int count, char** words) {
  stress::Plan plan;
  plan.seed = std::random_device()();
  plan.seconds = 10;
  for (int i = 1; i + 1 < count; i += 2) {
    const long value = strtol(words[i + 1], nullptr, 10);
    if (strcmp(words[i], "--seconds") == 0) {
      plan.seconds = static_cast<int>(value);
    } else if (strcmp(words[i], "--seed") == 0) {
      plan.seed = static_cast<unsigned int>(strtoul(words[i + 1], nullptr, 10));
    } else if (strcmp(words[i], "--round") == 0) {
      plan.firstRound = static_cast<int>(value);
    } else if (strcmp(words[i], "--rounds") == 0) {
      plan.rounds = static_cast<int>(value);
    } else {
      fprintf(stderr, "what is \"%s\"?\n", words[i]);
      return 2;
    }
  }
  return stress::run(plan) ? 0 : 1;
}
