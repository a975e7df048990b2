#include "batch.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <thread>

#include "clip.h"
#include "core/printable.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using murmurase::printable;

// A name as file systems compare it that do not tell capitals.
std::string folded(std::string name) {
  std::ranges::transform(name, name.begin(), [](unsigned char c) {
    return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  });
  return name;
}

// What the outputs of each movie are called: its name without extension. Where two have one name, the
// later one gets the first number from 2 that makes it no other's.
std::vector<std::string> output_names(const std::vector<std::string>& movies) {
  std::vector<std::string> names;
  std::set<std::string> own;
  std::set<std::string> taken;
  for (const std::string& movie : movies) own.insert(folded(fs::path(movie).stem()));
  for (const std::string& movie : movies) {
    const std::string stem = fs::path(movie).stem();
    std::string name = stem;
    for (int number = 2;
         taken.contains(folded(name)) || (name != stem && own.contains(folded(name))); ++number) {
      name = fmt::format("{}-{}", stem, number);
    }
    taken.insert(folded(name));
    names.push_back(name);
  }
  return names;
}

// All outputs of one movie. Gives the line that tells of them.
std::string export_movie(const BatchOptions& options, const MovieOptions& movie,
                         const std::string& name) {
  const fs::path base = fs::path(options.folder) / name;
  const std::string clip_path = base.string() + ".xml";
  std::optional<ClipTarget> target;
  if (!options.clip.empty()) target.emplace(clip_path);
  load_module();
  Controller controller(movie.words);
  try {
    read_movie(controller, movie);
    std::string line = fmt::format("{}: {}.txt {}.xls", movie.movie, name, name);
    controller.call("save_to_text", {movie.words, base.string() + ".txt"});
    controller.call("save_to_excel", {movie.words, base.string() + ".xls"});
    if (!target) return line;
    const MarkerExport done = export_markers(controller, options.clip, &*target);
    line += fmt::format(" {}.xml", name);
    if (!done.repaired.empty()) line += fmt::format(" (clip repaired: {})", done.repaired);
    return line;
  } catch (const Failure& failure) {
    throw movie_failure(movie.movie, failure.what());
  }
}

struct Job {
  std::string movie;
  int report;  // the read end of a pipe: the line to tell
};

// Forks a process for one movie. The module is loaded in there only, so nothing of it is shared.
std::pair<pid_t, Job> start(const BatchOptions& options, const std::string& movie,
                            const std::string& name) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0)
    throw Failure(fmt::format("cannot make a pipe: {}", std::strerror(errno)));
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) throw Failure(fmt::format("cannot start a process: {}", std::strerror(errno)));
  if (child == 0) {
    close(ends[0]);
    int status = 0;
    std::string line;
    try {
      MovieOptions own = options.movie;
      own.movie = movie;
      line = export_movie(options, own, name);
    } catch (const std::exception& error) {
      line = error.what();
      status = 1;
    }
    std::fflush(nullptr);
    const ssize_t told = write(ends[1], line.data(), line.size());
    _exit(told < 0 ? 1 : status);
  }
  close(ends[1]);
  fcntl(ends[0], F_SETFD, FD_CLOEXEC);
  return {child, {movie, ends[0]}};
}

std::string read_report(int report) {
  std::string line;
  std::array<char, 4096> part{};
  for (ssize_t count = 0; (count = read(report, part.data(), part.size())) > 0;) {
    line.append(part.data(), static_cast<std::size_t>(count));
  }
  close(report);
  return line;
}

// Tells how far the work is: a bar on a terminal, else what is done, a line a movie.
class Progress {
 public:
  explicit Progress(std::size_t movies) : movies_(movies) { draw(); }

  void done(const std::string& line) {
    ++done_;
    if (!bar_) fmt::print("{}\n", printable(line));
    draw();
  }
  void failed(const std::string& line) {
    ++done_;
    if (bar_) fmt::print("\r\x1B[K");
    std::fflush(stdout);
    fmt::print(stderr, "murmurase: {}\n", printable(line));
    draw();
  }

 private:
  void draw() const {
    if (bar_) {
      constexpr std::size_t width = 40;
      const std::size_t full = movies_ == 0 ? width : width * done_ / movies_;
      fmt::print("\r[{:#<{}}{:.<{}}] {}/{}{}", "", full, "", width - full, done_, movies_,
                 done_ == movies_ ? "\n" : "");
    }
    std::fflush(stdout);
  }

  std::size_t movies_;
  std::size_t done_ = 0;
  bool bar_ = isatty(STDOUT_FILENO) == 1;
};

}  // namespace

bool export_movies(const BatchOptions& options) {
  std::error_code error;
  fs::create_directories(options.folder, error);
  if (error) {
    throw Failure(fmt::format("cannot make the folder {}: {}", options.folder, error.message()));
  }
  const std::vector<std::string> names = output_names(options.movies);
  const std::size_t at_once =
      options.jobs > 0 ? options.jobs : std::max(1U, std::thread::hardware_concurrency());
  Progress progress(options.movies.size());
  std::map<pid_t, Job> running;
  bool all_well = true;
  for (std::size_t next = 0; next < names.size() || !running.empty();) {
    if (next < names.size() && running.size() < at_once) {
      running.insert(start(options, options.movies[next], names[next]));
      ++next;
      continue;
    }
    int status = 0;
    const pid_t child = waitpid(-1, &status, 0);
    const auto job = running.find(child);
    if (job == running.end()) continue;
    std::string line = read_report(job->second.report);
    if (status == 0) {
      progress.done(line);
    } else {
      if (line.empty()) line = job->second.movie + ": its process was killed";
      progress.failed(line);
      all_well = false;
    }
    running.erase(job);
  }
  return all_well;
}

}  // namespace host
