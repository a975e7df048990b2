#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <locale>
#include <new>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "batch.h"
#include "commands.h"
#include "core/printable.h"
#include "interruption.h"
#include "platform/standard_streams.h"

namespace {

constexpr int success = 0;
constexpr int failed = 1;
constexpr int wrong_usage = 2;

int report(const std::string& message, int status) {
  std::fputs(fmt::format("murmurase: {}\n", murmurase::printable(message)).c_str(), stderr);
  return status;
}

// One to four fields of digits, as labels have them: the module itself takes any text for a label.
bool is_label(std::string_view text) {
  int fields = 1;
  bool after_digit = false;
  for (const char c : text) {
    const bool digit = c >= '0' && c <= '9';
    const bool separator = c == ':' || c == ';' || c == '.';
    if (!digit && !(separator && after_digit)) return false;
    if (separator) ++fields;
    after_digit = digit;
  }
  return after_digit && fields <= 4;
}

// CLI11's own reading of a number takes 010 for eight.
std::int64_t words_of(const std::string& text) {
  std::int64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end || number < 1) {
    throw CLI::ValidationError("--words: " + text + " is not a whole number from 1");
  }
  return number;
}

// CLI11's own reading takes a decimal comma where the locale has one.
double number_of(const char* option, const std::string& text) {
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  double number = 0;
  if (!(stream >> number) || stream.peek() != std::istringstream::traits_type::eof()) {
    throw CLI::ValidationError(fmt::format("{}: {} is not a number", option, text));
  }
  return number;
}

// What the commands share that read one movie or many.
void add_movie_options(CLI::App& command, host::MovieOptions& options) {
  command.add_option("--xmp-tool", options.xmp_tool,
                     "The XMP tool that prints the movie's packet (default: murmurase-xmp beside "
                     "this program)");
  command
      .add_option("--name", options.names,
                  "Name a speaker: the identifier that 'speakers' prints, =, the name; repeatable")
      ->type_name("ID=NAME")
      ->allow_extra_args(false)
      ->check([](const std::string& name) {
        return name.find('=') == std::string::npos ? name + " is not of the form ID=NAME" : "";
      });
  command
      .add_option("--names", options.names_file,
                  "Name speakers by a file: what 'speakers --json' prints, \"Name\"s filled in")
      ->type_name("FILE");
}

void add_movie(CLI::App& command, host::MovieOptions& options) {
  command.add_option("MOVIE", options.movie, "A QuickTime movie, or an .xmp file")->required();
  add_movie_options(command, options);
}

void add_words(CLI::App& command, host::MovieOptions& options) {
  command
      .add_option_function<std::string>(
          "--words", [&options](const std::string& text) { options.words = words_of(text); },
          "The largest number of words in a phrase; 100 means no limit")
      ->type_name("N")
      ->default_str("100");
}

void add_keep(CLI::App& command, host::MovieOptions& options) {
  command.add_flag("--keep", options.keep, "Replace no file: fail if an output is there already");
}

struct TimecodeOptions {
  double number = 0;  // frames or seconds
  std::string label;
  double rate = 0;
  bool drop_frame = false;
};

void add_timecode(CLI::App& app, TimecodeOptions& options) {
  CLI::App* timecode = app.add_subcommand("timecode", "Convert between frames, labels and times");
  timecode->require_subcommand(1);
  const auto add = [&](const char* name, const char* about, const char* example) {
    CLI::App* command = timecode->add_subcommand(name, about);
    command->footer(fmt::format("Example:\n  murmurase timecode {} {}", name, example));
    return command;
  };
  const auto add_rate = [&](CLI::App* command) {
    command
        ->add_option_function<std::string>(
            "--rate",
            [&options](const std::string& text) {
              options.rate = number_of("--rate", text);
              if (options.rate < 0.5 || options.rate > 1e6) {
                throw CLI::ValidationError("--rate: " + text + " is not from 0.5 to 1000000");
              }
            },
            "Frames per second, such as 25 or 29.97; labels count it rounded to a whole number")
        ->type_name("R")
        ->required();
    command->add_flag("--drop-frame", options.drop_frame,
                      "Count drop-frame: labels are skipped at the start of most minutes");
  };
  CLI::App* label =
      add("label", "The timecode label of a frame count", "107892 --rate 29.97 --drop-frame");
  const auto add_number = [&](CLI::App* command, const char* name, const char* about) {
    command
        ->add_option_function<std::string>(
            name,
            [&options, name](const std::string& text) {
              options.number = number_of(name, text);
              if (options.number < 0) {
                throw CLI::ValidationError(fmt::format("{}: {} is below 0", name, text));
              }
            },
            about)
        ->required();
  };
  add_number(label, "FRAMES", "A frame count, from 0");
  add_rate(label);
  label->callback([&] { host::print_label(options.number, options.rate, options.drop_frame); });
  CLI::App* frames = add("frames", "The frame count of a timecode label",
                         "'01:00:00;00' --rate 29.97 --drop-frame");
  frames->add_option("LABEL", options.label, "A timecode label, such as 01:00:00:00")
      ->required()
      ->check([](const std::string& text) {
        return is_label(text) ? "" : "'" + text + "' is no timecode label, such as 01:00:00:00";
      });
  add_rate(frames);
  frames->callback([&] { host::print_frames(options.label, options.rate, options.drop_frame); });
  CLI::App* clock = add("clock", "The clock label of a time in seconds", "3725.4");
  add_number(clock, "SECONDS", "A time, from 0");
  clock->callback([&] { host::print_clock(options.number); });
}

// What is left of a command line: the outputs, and what the marker clip is made of.
struct OutputOptions {
  std::string output;
  std::string clip;
  std::string open_with;
};

void add_exports(CLI::App& app, host::MovieOptions& options, OutputOptions& outputs) {
  CLI::App* text = app.add_subcommand("text", "Write the text transcript");
  add_movie(*text, options);
  text->add_option("OUT", outputs.output, "The file to write; - is standard output")->required();
  add_words(*text, options);
  add_keep(*text, options);
  text->footer(
      "Example:\n  murmurase text interview.mov interview.txt --words 12 --name 'Speaker 1=Anna'");
  text->callback([&] { host::write_text(options, outputs.output); });

  CLI::App* excel = app.add_subcommand("excel", "Write an Excel 97-2003 workbook, a row a phrase");
  add_movie(*excel, options);
  excel->add_option("OUT", outputs.output, "The file to write; - is standard output")->required();
  add_words(*excel, options);
  add_keep(*excel, options);
  excel->footer("Example:\n  murmurase excel interview.mov interview.xls --words 12");
  excel->callback([&] { host::write_excel(options, outputs.output); });

  CLI::App* markers =
      app.add_subcommand("markers", "Write a Final Cut Pro XML clip with the phrases as markers");
  add_movie(*markers, options);
  markers
      ->add_option("CLIP", outputs.clip,
                   "The Final Cut Pro XML clip to add them to; it is not changed")
      ->required();
  markers->add_option(
      "OUT", outputs.output,
      "The file to write; - is standard output; without it, the file in the working "
      "folder whose path is printed");
  add_words(*markers, options);
  add_keep(*markers, options);
  markers->add_option("--open-with", outputs.open_with, "The program to open the written clip with")
      ->type_name("COMMAND");
  markers->footer("Example:\n  murmurase markers interview.mov clip.xml marked.xml --words 12");
  markers->callback([&] {
    if (outputs.output == "-" && !outputs.open_with.empty()) {
      throw CLI::ValidationError("--open-with needs a file, not standard output");
    }
    host::write_markers(options, outputs.clip, outputs.output, outputs.open_with);
  });
}

// Gives the exit status when it has run.
void add_batch(CLI::App& app, host::BatchOptions& batch, int& status) {
  CLI::App* command = app.add_subcommand(
      "export", "Write transcript, workbook and marker clip of many movies into a folder");
  command->add_option("MOVIE", batch.movies, "QuickTime movies, or .xmp files")->required();
  command->add_option("--out", batch.folder, "The folder to write into; made when missing")
      ->required()
      ->type_name("DIR");
  command->add_option("--clip", batch.clip, "A Final Cut Pro XML clip: write marker clips too");
  command->add_option("--jobs", batch.jobs, "Movies at once; one for each processor by default")
      ->type_name("N")
      ->check(CLI::Range(1, 1024));
  add_movie_options(*command, batch.movie);
  add_words(*command, batch.movie);
  add_keep(*command, batch.movie);
  command->footer("Example:\n  murmurase export day1/*.mov --out day1-transcripts --words 12");
  command->callback([&] { status = host::export_movies(batch) ? success : failed; });
}

int run(int count, char** arguments) {
  CLI::App app(
      "From a movie's speech transcription to a transcript, a workbook, a clip of markers.",
      "murmurase");
  app.set_version_flag("--version", "murmurase " MURMURASE_RELEASE);
  app.require_subcommand(1);
  app.footer(
      "Examples:\n"
      "  murmurase speakers interview.mov\n"
      "  murmurase phrases interview.mov --words 8\n"
      "  murmurase text interview.mov interview.txt --name 'Speaker 1=Anna'\n"
      "  murmurase excel interview.mov interview.xls\n"
      "  murmurase markers interview.mov clip.xml marked.xml\n"
      "  murmurase export day1/*.mov --out day1-transcripts\n"
      "  murmurase timecode label 107892 --rate 29.97 --drop-frame\n"
      "'murmurase COMMAND --help' tells more of each. Exit status: 0 success, 1 failure, 2 wrong "
      "usage.");
  host::MovieOptions options;
  bool as_json = false;
  OutputOptions outputs;
  host::BatchOptions batch;
  TimecodeOptions timecode;
  int status = success;

  CLI::App* speakers = app.add_subcommand("speakers", "List the speakers, one identifier a line");
  add_movie(*speakers, options);
  speakers->add_flag("--json", as_json, "Print a JSON list that --names takes");
  bool details = false;
  speakers->add_flag("--details", details, "Show how many words each says, and the first ones");
  speakers->footer(
      "Examples:\n  murmurase speakers interview.mov --details\n"
      "  murmurase speakers interview.mov --json > names.json");
  speakers->callback([&] { host::print_speakers(options, as_json, details); });

  CLI::App* phrases = app.add_subcommand("phrases", "Show the phrases with their times");
  add_movie(*phrases, options);
  add_words(*phrases, options);
  phrases->add_flag("--json", as_json, "Print one JSON object, times in seconds");
  phrases->footer("Example:\n  murmurase phrases interview.mov --words 8");
  phrases->callback([&] { host::print_phrases(options, as_json); });

  add_exports(app, options, outputs);
  add_batch(app, batch, status);
  add_timecode(app, timecode);

  try {
    if (std::any_of(arguments, arguments + count, [](const char* each) { return *each == '\0'; })) {
      throw CLI::ValidationError("an argument is empty");
    }
    app.parse(count, arguments);
    return status;
  } catch (const CLI::Success& asked) {
    return app.exit(asked);
  } catch (const CLI::RequiredError& error) {
    const std::vector<std::string> unknown = app.remaining(true);
    return report((unknown.empty() ? error.what()
                                   : fmt::format("{} is neither a command nor an option; a file of "
                                                 "that name is ./{}",
                                                 unknown.front(), unknown.front())) +
                      std::string("; 'murmurase --help' shows how it is used"),
                  wrong_usage);
  } catch (const CLI::ParseError& error) {
    return report(std::string(error.what()) + "; 'murmurase --help' shows how it is used",
                  wrong_usage);
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
