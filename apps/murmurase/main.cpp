#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <new>
#include <string>
#include <vector>

#include "batch.h"
#include "commands.h"
#include "core/printable.h"
#include "interruption.h"
#include "platform/standard_streams.h"
#include "timecode_commands.h"
#include "usage.h"

namespace {

constexpr int success = 0;
constexpr int failed = 1;
constexpr int wrong_usage = 2;

int report(const std::string& message, int status) {
  std::fputs(fmt::format("murmurase: {}\n", murmurase::printable(message)).c_str(), stderr);
  return status;
}

// CLI11's own reading of a number takes 010 for eight.
std::int64_t words_of(const std::string& text) {
  if (text == "none") return 100;
  std::int64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end || number < 1) {
    throw CLI::ValidationError("--words: " + text + " is neither a whole number from 1 nor none");
  }
  return number;
}

// What the commands share that read one movie or many.
void add_movie_options(CLI::App& command, host::MovieOptions& options) {
  command
      .add_option_function<std::vector<std::string>>(
          "--name",
          [&options](const std::vector<std::string>& names) {
            for (const std::string& name : names) options.names.push_back(host::name_of(name));
          },
          "Name a speaker of the movie, as in 'Speaker 1=Anna'")
      ->type_name("ID=NAME")
      ->allow_extra_args(false)
      ->check([](const std::string& name) {
        return name.find('=') == std::string::npos ? name + " is not of the form ID=NAME" : "";
      });
  command
      .add_option_function<std::string>(
          "--names",
          [&options](const std::string& path) {
            options.names_file = path;
            options.names_of_file = host::read_names(path);
          },
          "Name speakers by a file: lines ID=NAME, or what\n'speakers --json' prints, its "
          "\"Name\"s filled in")
      ->type_name("FILE");
  command
      .add_option("--xmp-tool", options.xmp_tool,
                  "What prints a movie's XMP, in place of murmurase-xmp")
      ->type_name("PATH");
}

void add_movie(CLI::App& command, host::MovieOptions& options) {
  command.add_option("MOVIE", options.movie, "A QuickTime movie, or an .xmp file")
      ->required()
      ->type_name("");
}

void add_output(CLI::App& command, std::string& output) {
  command.add_option("OUT", output, "The file to write; - is standard output")
      ->required()
      ->type_name("");
}

void add_words(CLI::App& command, host::MovieOptions& options) {
  command
      .add_option_function<std::string>(
          "--words", [&options](const std::string& text) { options.words = words_of(text); },
          "The most words in a phrase; none or 100: no limit")
      ->type_name("N")
      ->default_str("none");
}

void add_keep(CLI::App& command, host::MovieOptions& options) {
  command.add_flag("--keep", options.keep, "Replace no file: fail if an output is there already");
}

// What is left of a command line: the outputs, and what the marker clip is made of.
struct OutputOptions {
  std::string output;
  std::string clip;
  std::string open_with;
};

#ifdef __APPLE__
#define WORKING_FOLDER "~/Library/Application Support/Fernwork"
#else
#define WORKING_FOLDER "~/.local/share/Fernwork"
#endif

void add_markers(CLI::App& app, host::MovieOptions& options, OutputOptions& outputs) {
  CLI::App* markers =
      app.add_subcommand("markers", "Write a Final Cut Pro XML clip, a marker a phrase");
  add_movie(*markers, options);
  markers->add_option("CLIP", outputs.clip, "The Final Cut Pro XML clip to copy and to mark")
      ->required()
      ->type_name("");
  markers
      ->add_option(
          "OUT", outputs.output,
          "The file to write; - is standard output. Without it:\nParlenda.xml in " WORKING_FOLDER)
      ->type_name("");
  add_words(*markers, options);
  add_keep(*markers, options);
  add_movie_options(*markers, options);
  markers->add_option("--open-with", outputs.open_with, "The program to open the written clip with")
      ->type_name("COMMAND");
  markers->footer(
      "A marker ends one frame before its phrase begins.\n"
      "Example:\n  murmurase markers interview.mov clip.xml marked.xml --words 12");
  markers->callback([&] {
    if (outputs.output == "-" && !outputs.open_with.empty()) {
      throw CLI::ValidationError("--open-with needs a file, not standard output");
    }
    host::write_markers(options, outputs.clip, outputs.output, outputs.open_with);
  });
}

void add_exports(CLI::App& app, host::MovieOptions& options, OutputOptions& outputs) {
  CLI::App* text = app.add_subcommand("text", "Write the text transcript");
  add_movie(*text, options);
  add_output(*text, outputs.output);
  add_words(*text, options);
  add_keep(*text, options);
  add_movie_options(*text, options);
  text->footer(
      "Example:\n  murmurase text interview.mov interview.txt --words 12 --name 'Speaker 1=Anna'");
  text->callback([&] { host::write_text(options, outputs.output); });

  CLI::App* excel = app.add_subcommand("excel", "Write an Excel 97-2003 workbook, a row a phrase");
  add_movie(*excel, options);
  add_output(*excel, outputs.output);
  add_words(*excel, options);
  add_keep(*excel, options);
  add_movie_options(*excel, options);
  excel->footer(
      "A phrase's \"Time Out\" is the end of its first word.\n"
      "Example:\n  murmurase excel interview.mov interview.xls --words 12");
  excel->callback([&] { host::write_excel(options, outputs.output); });

  add_markers(app, options, outputs);
}

// Gives the exit status when it has run.
void add_batch(CLI::App& app, host::BatchOptions& batch, int& status) {
  CLI::App* command =
      app.add_subcommand("export", "Write all of these for many movies into a folder");
  command->add_option("MOVIE", batch.movies, "QuickTime movies, or .xmp files")
      ->required()
      ->type_name("");
  command->add_option("--out", batch.folder, "The folder to write into; made if it is missing")
      ->required()
      ->type_name("DIR");
  command
      ->add_option(
          "--clip", batch.clip,
          "Write marker clips too: the Final Cut Pro XML clip for\nall movies, or a folder with "
          "take01.xml for take01.mov")
      ->type_name("CLIP");
  command->add_option("--jobs", batch.jobs, "Movies at once; one for each processor if left out")
      ->type_name("N")
      ->check(CLI::Range(1, 1024).description(""));
  add_words(*command, batch.movie);
  add_keep(*command, batch.movie);
  add_movie_options(*command, batch.movie);
  command->footer(
      "take01.names.json beside take01.mov is a names file for that movie alone, and\n"
      "wins over --names.\n"
      "Example:\n  murmurase export day1/*.mov --out day1-transcripts --words 12");
  command->callback([&] { status = host::export_movies(batch) ? success : failed; });
}

int run(int count, char** arguments) {
  CLI::App app("From a movie's speech transcription to a transcript, a workbook, a marker clip.",
               "murmurase");
  host::use_plain_words(app);
  app.set_version_flag("--version", "murmurase " MURMURASE_RELEASE, "Show the release");
  app.require_subcommand(1);
  app.footer(
      "Examples:\n"
      "  murmurase speakers interview.mov\n"
      "  murmurase phrases interview.mov --words 8\n"
      "  murmurase text interview.mov interview.txt --name 'Speaker 1=Anna'\n"
      "  murmurase markers interview.mov clip.xml marked.xml\n"
      "  murmurase export day1/*.mov --out day1-transcripts\n"
      "'murmurase help COMMAND' shows how each is used.");
  host::MovieOptions options;
  bool as_json = false;
  OutputOptions outputs;
  host::BatchOptions batch;
  host::TimecodeOptions timecode;
  int status = success;

  CLI::App* speakers = app.add_subcommand("speakers", "List the speakers, a line each");
  add_movie(*speakers, options);
  add_movie_options(*speakers, options);
  speakers->add_flag("--json", as_json, "Print a JSON list, to be filled in for --names");
  bool details = false;
  speakers->add_flag("--details", details, "Show how many words each says, and the first");
  speakers->footer(
      "Examples:\n  murmurase speakers interview.mov --details\n"
      "  murmurase speakers interview.mov --json > names.json");
  speakers->callback([&] { host::print_speakers(options, as_json, details); });

  CLI::App* phrases = app.add_subcommand("phrases", "Show the phrases with their times");
  add_movie(*phrases, options);
  add_words(*phrases, options);
  add_movie_options(*phrases, options);
  phrases->add_flag("--json", as_json, "Print one JSON object, times in seconds");
  phrases->footer("Example:\n  murmurase phrases interview.mov --words 8");
  phrases->callback([&] { host::print_phrases(options, as_json); });

  add_exports(app, options, outputs);
  add_batch(app, batch, status);
  host::add_timecode(app, timecode);

  try {
    std::vector<std::string> words = host::arguments_of(app, count, arguments);
    std::ranges::reverse(words);  // as the parser takes them
    app.parse(std::move(words));
    return status;
  } catch (const CLI::Success& asked) {
    return app.exit(asked);
  } catch (const CLI::ParseError& error) {
    return report(host::usage_error(app, error), wrong_usage);
  }
}

}  // namespace

int main(int count, char** arguments) {
  murmurase::hold_standard_streams();
  std::signal(SIGPIPE, SIG_IGN);  // a closed pipe is a failed write, told like every other
  std::signal(SIGCHLD, SIG_DFL);  // ended children wait to be asked, whatever was inherited
  host::end_cleanly_when_interrupted();
  try {
    const int status = run(count, arguments);
    if (status == success && !std::cout.flush())
      return report("cannot write standard output", failed);
    return status;
  } catch (const std::bad_alloc&) {
    std::fputs("murmurase: out of memory; close other programs\n", stderr);
    return failed;
  } catch (const std::exception& error) {
    return report(error.what(), failed);
  }
}
