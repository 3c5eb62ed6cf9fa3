// Timing of the library beside its floor: interleaved repetitions, medians, and the
// Markdown tables floor_table prints.
#ifndef SETVAULT_BENCH_FLOOR_TIMING_H_
#define SETVAULT_BENCH_FLOOR_TIMING_H_

#include <functional>
#include <string>
#include <vector>

namespace floor_bench {

// One side of an operation. `prepare` runs untimed before the side's timed calls (and
// `finish` after them); `run` is called with the call's number.
struct Timed {
  std::function<void()> prepare;
  std::function<void(int)> run;
  std::function<void()> finish = nullptr;
};

// One operation on both sides, run `calls` times per repetition.
struct Comparison {
  std::string operation;
  int calls;
  Timed library;
  Timed floor;
  std::string target;  // the ratio aimed at, for the table
};

// The medians of one operation, in µs per call.
struct Result {
  std::string operation;
  double library, floor;
  std::string target;
};

// Times `comparison` `repetitions` times per side, library and floor one after the other
// (the order alternating); the medians. Prints a progress line to stderr.
Result Measure(const Comparison& comparison, int repetitions);

// Prints the table of `results` and, for operations named "<name> (<n> stored)" at more
// than one size, the growth from the smallest to the largest store, library and floor.
void PrintTables(const std::vector<Result>& results, int repetitions);

}  // namespace floor_bench

#endif  // SETVAULT_BENCH_FLOOR_TIMING_H_
