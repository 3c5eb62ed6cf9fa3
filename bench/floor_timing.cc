#include "floor_timing.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <unordered_map>

namespace floor_bench {
namespace {

// One side timed once: µs per call.
double TimeSide(const Timed& side, int calls) {
  if (side.prepare) side.prepare();
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < calls; ++i) side.run(i);
  const auto end = std::chrono::steady_clock::now();
  if (side.finish) side.finish();
  return std::chrono::duration<double, std::micro>(end - start).count() / calls;
}

// The median of `values`.
double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t n = values.size();
  return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

}  // namespace

Result Measure(const Comparison& comparison, int repetitions) {
  std::vector<double> library, floor;
  for (int r = 0; r < repetitions; ++r) {
    if (r % 2 == 0) {
      library.push_back(TimeSide(comparison.library, comparison.calls));
      floor.push_back(TimeSide(comparison.floor, comparison.calls));
    } else {
      floor.push_back(TimeSide(comparison.floor, comparison.calls));
      library.push_back(TimeSide(comparison.library, comparison.calls));
    }
  }
  std::fprintf(stderr, "%-60s %10.2f %10.2f\n", comparison.operation.c_str(), Median(library),
               Median(floor));
  return {comparison.operation, Median(library), Median(floor), comparison.target};
}

namespace {

std::string Micros(double value) {
  char text[32];
  std::snprintf(text, sizeof text, value >= 1000 ? "%.0f" : value >= 10 ? "%.1f" : "%.2f", value);
  return text;
}

// The operations run against stores of several sizes: the library's time at each size, and
// its growth and its floor's from the smallest to the largest store.
void PrintGrowth(const std::vector<Result>& results) {
  const std::string marker = " stored)";
  std::vector<std::string> order;
  struct Point {
    std::string stored;
    double library, floor;
  };
  std::unordered_map<std::string, std::vector<Point>> sizes;
  for (const Result& result : results) {
    const size_t open = result.operation.rfind(" (");
    if (open == std::string::npos || result.operation.size() < marker.size() ||
        result.operation.compare(result.operation.size() - marker.size(), marker.size(), marker) !=
            0) {
      continue;
    }
    const std::string base = result.operation.substr(0, open);
    const std::string size =
        result.operation.substr(open + 2, result.operation.size() - open - 2 - marker.size());
    if (sizes.find(base) == sizes.end()) order.push_back(base);
    sizes[base].push_back({size, result.library, result.floor});
  }
  if (order.empty()) return;
  std::printf(
      "\n| Operation (library) | Stored: time (µs/op) | Largest / smallest | "
      "Floor: largest / smallest |\n");
  std::printf("|---|---|---:|---:|\n");
  for (const std::string& base : order) {
    const auto& points = sizes[base];
    if (points.size() < 2) continue;
    std::string cells;
    for (const auto& point : points) {
      if (!cells.empty()) cells += ", ";
      cells += point.stored + ": " + Micros(point.library);
    }
    std::printf("| %s | %s | %.2f | %.2f |\n", base.c_str(), cells.c_str(),
                points.back().library / points.front().library,
                points.back().floor / points.front().floor);
  }
}

}  // namespace

void PrintTables(const std::vector<Result>& results, int repetitions) {
  std::printf("| Operation | Library (µs/op) | Floor (µs/op) | Ratio | Target |\n");
  std::printf("|---|---:|---:|---:|---|\n");
  for (const Result& result : results) {
    std::printf("| %s | %s | %s | %.2f | %s |\n", result.operation.c_str(),
                Micros(result.library).c_str(), Micros(result.floor).c_str(),
                result.library / result.floor, result.target.c_str());
  }
  std::printf("\nMedians of %d repetitions per side, library and floor interleaved.\n",
              repetitions);
  PrintGrowth(results);
}

}  // namespace floor_bench
