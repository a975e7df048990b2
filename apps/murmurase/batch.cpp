#include "batch.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <new>
#include <string_view>
#include <thread>

#include "clip.h"
#include "core/printable.h"
#include "interruption.h"
#include "output_names.h"
#include "outputs.h"
#include "platform/posix/held_signals.h"
#include "workbook.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using murmurase::printable;

// The options of one of the movies, with the names file beside it if there is one.
MovieOptions options_of(const BatchOptions& options, const std::string& movie) {
  MovieOptions own = options.movie;
  own.movie = movie;
  const fs::path names = fs::path(movie).replace_extension(".names.json");
  std::error_code error;
  if (fs::exists(names, error)) own.own_names_file = names;
  return own;
}

// The clip for one of the movies: the one for all, or that of its name in the folder of clips.
std::string clip_of(const BatchOptions& options, const std::string& movie) {
  std::error_code error;
  if (!fs::is_directory(options.clip, error)) return options.clip;
  return fs::path(options.clip) / (fs::path(movie).stem() += ".xml");
}

// What one movie's process tells: the line of its outputs, then, on lines of their own, what else is
// to be known.
std::string export_movie(const BatchOptions& options, const MovieOptions& movie,
                         const std::string& name) {
  const fs::path base = fs::path(options.folder) / name;
  std::string notes;
  std::string written;
  std::string failures;
  // One output that cannot be written is no reason to lack the others.
  const auto write = [&](const char* ending, const auto& how) {
    try {
      how(base.string() + ending);
      written += fmt::format(" {}{}", name, ending);
    } catch (const Failure& failure) {
      failures += fmt::format("{}{}", failures.empty() ? "" : "; ", failure.what());
    }
  };
  try {
    load_module();
    Controller controller(movie.words);
    read_movie(controller, movie, notes);
    write(".txt", [&](const std::string& path) {
      controller.call("save_to_text", {movie.words, path});
    });
    write(".xls", [&](const std::string& path) { write_workbook(controller, movie.words, path); });
    if (!options.clip.empty()) {
      write(".xml", [&](const std::string& path) {
        const std::string clip = clip_of(options, movie.movie);
        if (clip != options.clip && access(clip.c_str(), F_OK) != 0) {
          throw Failure(
              fmt::format("there is no clip {} for it; export its clip under that name from "
                          "your editor",
                          printable(clip)));
        }
        controller.set_clip_file(path);
        const MarkerExport done = export_markers(controller, clip);
        notes += clip_line(done, clip, path);
      });
    }
    if (failures.empty()) return printable(movie.movie + ':' + written) + '\n' + notes;
    if (!written.empty()) failures += "; written:" + written;
    throw Failure(failures);
  } catch (const Failure& failure) {
    throw movie_failure(movie.movie, failure, notes);
  } catch (const std::bad_alloc&) {
    throw movie_failure(movie.movie, Failure("out of memory; export fewer movies at once"));
  }
}

struct Job {
  std::string movie;
  pid_t process;
  int report;  // the read end of a pipe
  std::string told;
};

[[noreturn]] void run_job(const BatchOptions& options, const std::string& movie,
                          const std::string& name, int report) {
  int status = 0;
  std::string told;
  try {
    told = export_movie(options, options_of(options, movie), name);
  } catch (const std::exception& error) {
    told = printable(error.what());
    status = 1;
  }
  for (std::string_view rest = told; !rest.empty();) {
    const ssize_t written = write(report, rest.data(), rest.size());
    if (written < 0 && errno != EINTR) _exit(1);
    rest.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
  }
  _exit(status);
}

pid_t fork_remembered() {
  const murmurase::HeldSignals held;
  const pid_t process = fork();
  if (process == 0) forget_all_processes();
  if (process > 0) remember_process(process);
  return process;
}

// Forks a process for one movie. The module is loaded in there only, so nothing of it is shared.
Job start(const BatchOptions& options, const std::string& movie, const std::string& name,
          const std::vector<Job>& running) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) {
    throw Failure(fmt::format("cannot make a pipe: {}", std::strerror(errno)));
  }
  for (const int end : ends) fcntl(end, F_SETFD, FD_CLOEXEC);
  std::fflush(nullptr);
  const pid_t process = fork_remembered();
  const int error = errno;
  if (process == 0) {
    close(ends[0]);
    for (const Job& other : running) close(other.report);
    run_job(options, movie, name, ends[1]);
  }
  close(ends[1]);
  if (process < 0) {
    close(ends[0]);
    throw Failure(fmt::format("cannot start a process: {}", std::strerror(error)));
  }
  return {movie, process, ends[0], {}};
}

// Reads what the jobs tell until one of them has ended, and puts that one last. Gives whether it went
// well.
bool wait_for_one(std::vector<Job>& jobs) {
  while (true) {
    std::vector<pollfd> reports;
    reports.reserve(jobs.size());
    for (const Job& job : jobs) reports.push_back({job.report, POLLIN, 0});
    if (poll(reports.data(), reports.size(), -1) < 0) continue;
    for (std::size_t i = 0; i < jobs.size(); ++i) {
      if (reports[i].revents == 0) continue;
      std::array<char, 4096> part{};
      const ssize_t count = read(jobs[i].report, part.data(), part.size());
      if (count > 0) jobs[i].told.append(part.data(), static_cast<std::size_t>(count));
      if (count != 0) continue;
      close(jobs[i].report);
      std::swap(jobs[i], jobs.back());
      int status = 0;
      forget_process(jobs.back().process);
      while (waitpid(jobs.back().process, &status, 0) < 0 && errno == EINTR) {
      }
      return status == 0;
    }
  }
}

// Whether standard output is a terminal that a bar fits into.
bool terminal_has_room() {
  const char* terminal = std::getenv("TERM");
  if (terminal != nullptr && std::string_view(terminal) == "dumb") return false;
  winsize size{};
  return isatty(STDOUT_FILENO) == 1 &&
         (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_col >= 60);
}

// Tells how far the work is: a bar on a terminal, else what is done, a line a movie.
class Progress {
 public:
  explicit Progress(std::size_t movies) : movies_(movies) { draw(); }

  // `told`: a line, and on further lines what belongs on standard error.
  void done(const std::string& told) {
    ++done_;
    const std::size_t end = told.find('\n') + 1;
    if (!bar_) fmt::print("{}", told.substr(0, end));
    tell(told.substr(end));
  }
  void failed(const std::string& line) {
    ++done_;
    ++failed_;
    tell(fmt::format("murmurase: {}\n", line));
  }

  // Once all are done: how many went well, if they are more than one. Gives whether all did.
  bool end() const {
    const std::size_t written = movies_ - failed_;
    if (movies_ > 1) {
      fmt::print("{} {} written", written, written == 1 ? "movie" : "movies");
      if (failed_ > 0) fmt::print(", {} failed", failed_);
      fmt::print("\n");
    }
    return failed_ == 0;
  }

 private:
  void tell(const std::string& lines) {
    if (bar_ && !lines.empty()) fmt::print("\r\x1B[K");
    std::fflush(stdout);
    std::fputs(lines.c_str(), stderr);
    draw();
  }

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
  std::size_t failed_ = 0;
  bool bar_ = terminal_has_room();
};

// Before anything is written.
void refuse_to_overwrite_inputs(const BatchOptions& options,
                                const std::vector<std::string>& names) {
  std::vector<std::string> inputs;
  std::vector<Output> outputs;
  for (const std::string& movie : options.movies) {
    std::ranges::move(inputs_of(options_of(options, movie)), std::back_inserter(inputs));
    if (!options.clip.empty()) inputs.push_back(clip_of(options, movie));
  }
  for (const std::string& name : names) {
    const std::string base = fs::path(options.folder) / name;
    outputs.push_back({base + ".txt", OutputKind::transcript});
    outputs.push_back({base + ".xls", OutputKind::workbook});
    if (!options.clip.empty()) outputs.push_back({base + ".xml", OutputKind::marker_clip});
  }
  check_outputs(inputs, outputs, options.movie.keep);
}

}  // namespace

bool export_movies(const BatchOptions& options) {
  std::error_code error;
  fs::create_directories(options.folder, error);
  if (error) {
    throw Failure(fmt::format("cannot make the folder {}: {}", options.folder, error.message()));
  }
  if (!options.clip.empty()) require_clip(options.clip);
  const std::vector<std::string> names = output_names(options.movies);
  refuse_to_overwrite_inputs(options, names);
  std::size_t at_once =
      options.jobs > 0 ? options.jobs : std::max(1U, std::thread::hardware_concurrency());
  Progress progress(options.movies.size());
  std::vector<Job> running;
  for (std::size_t next = 0; next < names.size() || !running.empty();) {
    if (next < names.size() && running.size() < at_once) {
      const std::string& movie = options.movies[next];
      try {
        running.push_back(start(options, movie, names[next], running));
        ++next;
      } catch (const Failure& failure) {
        if (!running.empty()) {
          at_once = running.size();  // the system has no more to give
          continue;
        }
        progress.failed(movie_failure(movie, failure).what());
        ++next;
      }
      continue;
    }
    const bool well = wait_for_one(running);
    const Job& job = running.back();
    if (well) {
      progress.done(job.told);
    } else {
      progress.failed(job.told.empty() ? printable(job.movie) + ": its process was killed"
                                       : job.told);
    }
    running.pop_back();
  }
  const bool all_well = progress.end();
  if (std::ferror(stdout) != 0) throw Failure("cannot write standard output");
  return all_well;
}

}  // namespace host
