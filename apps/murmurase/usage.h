#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

// How the command line is explained to its user.
namespace host {

// The words that a page of help is made of.
void use_plain_words(CLI::App& app);

// The arguments without the program's name; "help COMMAND" becomes "COMMAND --help". Errors: an argument
// that is empty, and a word in a command's place that is none.
std::vector<std::string> arguments_of(const CLI::App& app, int count, char** arguments);

// What was wrong, and where help is.
std::string usage_error(const CLI::App& app, const CLI::ParseError& error);

}  // namespace host
