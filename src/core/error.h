#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "core/printable.h"

namespace murmurase {

// The kinds of the public interface, by the same numbers.
enum class ErrorKind {
  argument = 1,
  name,
  type,
  zero_division,
  range,
  missing_value,
  xml,
  system,
  host,
  memory,
  internal
};

// Every failure inside the module. The message is one line that says what failed and on what.
class Error : public std::exception {
 public:
  Error(ErrorKind kind, std::string message, int number = 0)
      : kind_(kind), number_(number), message_(std::move(message)) {}

  ErrorKind kind() const { return kind_; }
  int number() const { return number_; }  // errno for ErrorKind::system, else 0
  const char* what() const noexcept override { return message_.c_str(); }

 private:
  ErrorKind kind_;
  int number_;
  std::string message_;
};

// "cannot DO PATH: the system's reason", with the error number kept.
Error system_error(std::string_view action, std::string_view path, int number);

}  // namespace murmurase
