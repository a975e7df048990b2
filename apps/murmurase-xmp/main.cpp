#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "core/nearest.h"
#include "find_packet.h"
#include "inspect.h"
#include "platform/standard_streams.h"
#include "xmp/failure.h"
#include "xmp/normal_packet.h"
#include "xmp/read_movie.h"

namespace murmurase::tool {
namespace {

enum ExitStatus { success = 0, failure = 1, wrong_usage = 2 };

constexpr const char* description =
    "Prints the XMP packet of a movie in the form that murmurase reads.\n"
    "A movie without one is served from its sidecar: clip.xmp or clip.mov.xmp beside clip.mov.";
constexpr const char* examples =
    "Examples:\n"
    "  murmurase-xmp get interview.mov          the movie's own properties, normalised\n"
    "  murmurase-xmp get --raw interview.mov    the packet byte for byte as it is embedded\n"
    "  murmurase-xmp get interview.xmp          a sidecar\n"
    "  murmurase-xmp inspect interview.mov      rates, timecodes, tracks, speakers, warnings\n"
    "  murmurase-xmp get -- -take2.mov          a name that begins with a dash\n"
    "\n"
    "Exit status: 0 success, 1 failure, 2 wrong usage.";

void print(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0)
    return;
  xmp::fail("cannot write to standard output: {}; check where it goes",
            std::generic_category().message(errno));
}

void report(std::string_view failure) {
  const std::string line = fmt::format("murmurase-xmp: {}\n", failure);
  std::fwrite(line.data(), 1, line.size(), stderr);
}

struct Reading {
  xmp::Packet packet;
  xmp::Movie movie;
};

// The words of the sidecar count if the movie's own packet has none.
Reading read(const std::string& path) {
  xmp::MovieClock clock;
  xmp::Packet packet = find_packet(path, &clock);
  xmp::Movie movie = read_movie(packet, clock);
  if (movie.words.empty() && packet.file == path && !is_xmp_file(path)) {
    try {
      if (const std::optional<xmp::Packet> sidecar = find_sidecar(path)) {
        xmp::Movie both = read_movie(packet, clock, &*sidecar);
        if (!both.words.empty()) {
          movie = std::move(both);
          movie.warnings.push_back(
              fmt::format("its own packet has no words; those of the sidecar {} are used",
                          xmp::in_quotes(sidecar->file.native())));
        }
      }
    } catch (const xmp::Failure& failure) {
      movie.warnings.push_back(fmt::format(
          "its own packet has no words, and the sidecar is passed over: {}", failure.what()));
    }
  }
  return {std::move(packet), std::move(movie)};
}

void get(const std::string& path, bool raw) {
  if (raw) {
    print(find_packet(path, nullptr).bytes);
    return;
  }
  Reading found = read(path);
  found.packet.bytes = {};
  const std::string text = print_normal_packet(found.movie);
  for (const std::string& warning : found.movie.warnings)
    report(xmp::in_quotes(path) + ": " + warning);
  print(text);
}

void show(const std::string& path, bool as_json) {
  Reading found = read(path);
  print(inspect(path, found.packet, found.movie, as_json));
}

// The arguments in the order that CLI11 wants, last first. A movie whose name begins with a dash
// gets the "--" that it needs: callers hand over any name as the last argument.
std::vector<std::string> arguments_of(int argc, char** argv, const CLI::App& app) {
  std::vector<std::string> arguments(argv + 1, argv + argc);
  std::error_code error;
  const auto commands = app.get_subcommands([&](const CLI::App* command) {
    return !arguments.empty() && command->get_name() == arguments.front();
  });
  if (arguments.size() >= 2 && !commands.empty() && arguments.back().starts_with('-') &&
      commands.front()->get_option_no_throw(arguments.back()) == nullptr &&
      std::find(arguments.begin(), arguments.end(), "--") == arguments.end() &&
      std::filesystem::exists(arguments.back(), error))
    arguments.insert(arguments.end() - 1, "--");
  std::reverse(arguments.begin(), arguments.end());
  return arguments;
}

int run(int argc, char** argv) {
  std::string movie;
  bool raw = false;
  bool as_json = false;
  CLI::App app(description, "murmurase-xmp");
  app.footer(examples);
  app.set_version_flag("--version", "murmurase-xmp " MURMURASE_VERSION);
  app.require_subcommand(1);
  const auto add = [&](const char* name, const char* purpose) {
    CLI::App* command = app.add_subcommand(name, purpose);
    command->footer(examples);
    command->add_option("movie", movie, "A movie, or an .xmp file")->required()->type_name("MOVIE");
    return command;
  };
  CLI::App* get_command = add("get", "Print the XMP packet of a movie, normalised");
  get_command->add_flag("--raw", raw, "Print the packet byte for byte as it is embedded");
  CLI::App* inspect_command = add("inspect", "Show what the packet holds and what is made of it");
  inspect_command->add_flag("--json", as_json, "Print one JSON object");

  try {
    app.parse(arguments_of(argc, argv, app));
  } catch (const CLI::CallForHelp&) {
    print(app.help());
    return success;
  } catch (const CLI::CallForVersion& version) {
    print(std::string(version.what()) + '\n');
    return success;
  } catch (const CLI::ParseError& error) {
    const std::vector<std::string> unexpected = app.remaining(true);
    std::string what = unexpected.empty() ? xmp::escaped(error.what())
                                          : "unexpected argument " + xmp::in_quotes(unexpected[0]);
    const std::string meant = unexpected.empty() ? "" : nearest(unexpected[0], {"get", "inspect"});
    if (!meant.empty() && app.get_subcommands().empty()) what += ": did you mean " + meant + "?";
    report(what + (what.ends_with('?') ? " " : "; ") + "see murmurase-xmp --help");
    return wrong_usage;
  }
  if (*inspect_command)
    show(movie, as_json);
  else
    get(movie, raw);
  return success;
}

}  // namespace
}  // namespace murmurase::tool

int main(int argc, char** argv) {
  murmurase::hold_standard_streams();
  std::signal(SIGPIPE, SIG_IGN);  // A closed pipe is a failed write, to be reported as one.
  try {
    return murmurase::tool::run(argc, argv);
  } catch (const std::bad_alloc&) {
    std::fputs("murmurase-xmp: out of memory; close other programs\n", stderr);
  } catch (const std::exception& error) {
    murmurase::tool::report(error.what());
  }
  return murmurase::tool::failure;
}
