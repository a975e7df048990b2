// Labels and frame counts against the C library's own formatting and scanning of the same labels.

#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "timecode/timecode.h"

static std::size_t allocations = 0;

// Inlined, these would look to the compiler like a mismatched pair.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using benchmark::DoNotOptimize;
using murmurase::to_frames;
using murmurase::to_timecode;

constexpr int rate = 30;
constexpr int drop = 2;

struct Position {
  int frames;
  std::string label;
  std::array<int, 4> fields;  // hours, minutes, seconds, frames
};

std::array<int, 4> scan(const std::string& label) {
  std::array<int, 4> f{};
  std::sscanf(label.c_str(), "%d:%d:%d;%d", f.data(), &f[1], &f[2], &f[3]);  // NOLINT(cert-err34-c)
  return f;
}

int scan_frames(const std::string& label) {
  const auto [hours, minutes, seconds, frames] = scan(label);
  const int all_minutes = 60 * hours + minutes;
  return (60 * all_minutes + seconds) * rate + frames - drop * (all_minutes - all_minutes / 10);
}

// From fields already split: the comparison is all the harder.
const char* print(const std::array<int, 4>& f) {
  static std::array<char, 64> label;
  std::snprintf(label.data(), label.size(), "%02d:%02d:%02d;%02d", f[0], f[1], f[2], f[3]);
  return label.data();
}

// Frames all over a day at 29.97 frames per second. Both sides of a comparison must agree on them.
std::vector<Position> make_positions() {
  std::vector<Position> positions;
  for (int frames = 0; frames < 2589408; frames += 2531) {
    const std::string label = to_timecode(frames, rate, "DF");
    positions.push_back({frames, label, scan(label)});
    if (print(scan(label)) != label || scan_frames(label) != frames ||
        to_frames(label, rate, "DF") != frames) {
      std::fprintf(stderr, "timecode_bench: the sides disagree on frame %d\n", frames);
      std::exit(1);
    }
  }
  return positions;
}

// Runs a function over the positions, one a turn.
template <typename Function>
void measure(const char* name, const Function& function) {
  static const std::vector<Position> positions = make_positions();
  benchmark::RegisterBenchmark(name, [function](benchmark::State& state) {
    std::size_t i = 0;
    for (auto _ : state) {
      function(positions[i]);
      if (++i == positions.size()) i = 0;
    }
  });
}

template <typename Function>
std::size_t allocations_of(const Function& function) {
  const std::size_t before = allocations;
  function();
  return allocations - before;
}

// Allocations beyond those that the results take. The second label has no room in a string itself.
void extra_allocations(benchmark::State& state) {
  std::size_t extra = 0;
  for (const double frames : {107892.0, 1e17}) {
    std::string label;
    extra += allocations_of([&] { label = to_timecode(frames, rate, "DF"); });
    extra += allocations_of([&] { DoNotOptimize(to_frames(label, rate, "DF")); });
    extra -= allocations_of([&] { DoNotOptimize(std::string(label)); });
  }
  for (auto _ : state) DoNotOptimize(extra);
  state.counters["extra_allocations"] = static_cast<double>(extra);
}

}  // namespace

int main(int count, char** arguments) {
  measure("to_timecode",
          [](const Position& at) { DoNotOptimize(to_timecode(at.frames, rate, "DF")); });
  measure("snprintf", [](const Position& at) { DoNotOptimize(print(at.fields)); });
  measure("to_frames", [](const Position& at) { DoNotOptimize(to_frames(at.label, rate, "DF")); });
  measure("sscanf", [](const Position& at) { DoNotOptimize(scan_frames(at.label)); });
  benchmark::RegisterBenchmark("allocations", extra_allocations);
  benchmark::Initialize(&count, arguments);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
