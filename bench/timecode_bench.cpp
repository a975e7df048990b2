// Labels and frame counts against the C library's own formatting and scanning of the same labels.

#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "timecode/timecode.h"

namespace {

std::size_t allocations = 0;

}  // namespace

// Inlined, these would look to the compiler like a mismatched pair.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

constexpr int rate = 30;
constexpr int drop = 2;

struct Position {
  int frames;
  int hours, minutes, seconds, rest;
  std::string label;
};

// Frames all over a day at 29.97 frames per second, drop-frame, with their labels.
std::vector<Position> make_positions() {
  std::vector<Position> positions;
  for (int frames = 0; frames < 2589408; frames += 2531) {
    Position position{.frames = frames,
                      .hours = 0,
                      .minutes = 0,
                      .seconds = 0,
                      .rest = 0,
                      .label = murmurase::to_timecode(frames, rate, "DF")};
    if (std::sscanf(position.label.c_str(), "%2d:%2d:%2d;%2d", &position.hours, &position.minutes,
                    &position.seconds, &position.rest) != 4) {
      std::abort();
    }
    positions.push_back(position);
  }
  return positions;
}

const std::vector<Position> positions = make_positions();

// Runs a function over the positions, one a turn.
template <typename Function>
void measure(benchmark::State& state, const Function& function) {
  std::size_t i = 0;
  for (auto _ : state) {
    function(positions[i]);
    if (++i == positions.size()) i = 0;
  }
}

// Splitting the count into fields is left out: the comparison is all the harder.
void format(std::array<char, 64>& buffer, const Position& at) {
  std::snprintf(buffer.data(), buffer.size(), "%02d:%02d:%02d;%02d", at.hours, at.minutes,
                at.seconds, at.rest);
}

int scan(const char* label) {
  int hours = 0;
  int minutes = 0;
  int seconds = 0;
  int frames = 0;
  std::sscanf(label, "%d:%d:%d;%d", &hours, &minutes, &seconds, &frames);
  const int all_minutes = 60 * hours + minutes;
  return (60 * all_minutes + seconds) * rate + frames - drop * (all_minutes - all_minutes / 10);
}

void to_timecode(benchmark::State& state) {
  measure(state, [](const Position& at) {
    benchmark::DoNotOptimize(murmurase::to_timecode(at.frames, rate, "DF"));
  });
}

void snprintf_label(benchmark::State& state) {
  std::array<char, 64> buffer{};
  measure(state, [&](const Position& at) {
    format(buffer, at);
    benchmark::DoNotOptimize(buffer);
  });
}

void to_frames(benchmark::State& state) {
  measure(state, [](const Position& at) {
    benchmark::DoNotOptimize(murmurase::to_frames(at.label, rate, "DF"));
  });
}

void sscanf_label(benchmark::State& state) {
  measure(state, [](const Position& at) { benchmark::DoNotOptimize(scan(at.label.c_str())); });
}

template <typename Function>
std::size_t allocations_of(const Function& function) {
  const std::size_t before = allocations;
  function();
  return allocations - before;
}

// Allocations of one call beyond those that its result takes; the second label is too long for a
// string's own room.
void extra_allocations(benchmark::State& state) {
  std::size_t extra = 0;
  for (const double frames : {107892.0, 1e17}) {
    std::string label;
    const std::size_t made =
        allocations_of([&] { label = murmurase::to_timecode(frames, rate, "DF"); });
    const std::size_t needed = allocations_of([&] {
      std::string copy(label);
      benchmark::DoNotOptimize(copy);
    });
    extra += made - needed;
    extra +=
        allocations_of([&] { benchmark::DoNotOptimize(murmurase::to_frames(label, rate, "DF")); });
  }
  for (auto _ : state) benchmark::DoNotOptimize(extra);
  state.counters["extra_allocations"] = static_cast<double>(extra);
}

BENCHMARK(to_timecode);
BENCHMARK(snprintf_label);
BENCHMARK(to_frames);
BENCHMARK(sscanf_label);
BENCHMARK(extra_allocations);

// Both sides of a comparison must do the same.
bool sides_agree() {
  std::array<char, 64> buffer{};
  for (const Position& at : positions) {
    format(buffer, at);
    if (buffer.data() != murmurase::to_timecode(at.frames, rate, "DF")) return false;
    if (scan(at.label.c_str()) != murmurase::to_frames(at.label, rate, "DF")) return false;
  }
  return true;
}

}  // namespace

int main(int count, char** arguments) {
  if (!sides_agree()) {
    std::fprintf(stderr, "timecode_bench: the sides of a comparison disagree\n");
    return 1;
  }
  benchmark::Initialize(&count, arguments);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
