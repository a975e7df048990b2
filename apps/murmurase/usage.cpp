#include "usage.h"

#include <fmt/format.h>

#include <algorithm>

#include "core/nearest.h"

namespace host {
namespace {

std::string did_you_mean(const std::string& mistyped, const std::vector<std::string>& known) {
  const std::string meant = murmurase::nearest(mistyped, known);
  return meant.empty() ? "" : fmt::format(": did you mean {}?", meant);
}

// A word in a command's place is to be one.
void check_commands(const CLI::App& app, const std::vector<std::string>& arguments) {
  const CLI::App* at = &app;
  for (const std::string& word : arguments) {
    std::vector<std::string> known;
    for (const CLI::App* each : at->get_subcommands(nullptr)) known.push_back(each->get_name());
    if (known.empty() || word.starts_with('-')) return;
    if (std::ranges::find(known, word) == known.end()) {
      throw CLI::ValidationError(
          fmt::format("there is no command \"{}\"{}", word, did_you_mean(word, known)));
    }
    at = at->get_subcommand(word);
  }
}

std::string unexpected(const CLI::App& command, const std::string& word) {
  if (!word.starts_with('-')) return fmt::format("\"{}\" is one argument too many", word);
  std::vector<std::string> known;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) known.push_back("--" + name);
  }
  const std::string meant = did_you_mean(word, known);
  return fmt::format("there is no option {} here{}", word,
                     meant.empty() ? "; a file of that name is ./" + word : meant);
}

}  // namespace

void use_plain_words(CLI::App& app) {
  app.set_help_flag("-h,--help", "Show this help");
  app.group("Commands");  // the commands inherit it
  const auto words = app.get_formatter();
  words->column_width(24);
  for (const auto& [theirs, ours] : {std::pair{"Positionals", "Arguments"},
                                     {"REQUIRED", "(required)"},
                                     {"SUBCOMMAND", "COMMAND"}}) {
    words->label(theirs, ours);
  }
}

std::vector<std::string> arguments_of(const CLI::App& app, int count, char** arguments) {
  std::vector<std::string> words(arguments + 1, arguments + std::max(count, 1));
  if (std::ranges::find(words, "") != words.end()) {
    throw CLI::ValidationError("an argument is empty");
  }
  if (!words.empty() && words.front() == "help") {
    words.erase(words.begin());
    words.emplace_back("--help");
  }
  check_commands(app, words);
  return words;
}

std::string usage_error(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App* command = &app;
  std::string help = "murmurase help";
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().back();
    help += ' ' + command->get_name();
  }
  std::string what = error.what();
  const std::vector<std::string> left_over = app.remaining(true);
  if (!left_over.empty()) {
    what = unexpected(*command, left_over.front());
  } else if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
    what = what.substr(0, what.find(':')) + " needs a value";
  } else if (!command->get_subcommands(nullptr).empty() &&
             dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) {
    what = "a command is missing";
  }
  return fmt::format("{}{} '{}' shows how it is used", what, what.ends_with('?') ? "" : ";", help);
}

}  // namespace host
