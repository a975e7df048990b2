#include "core/error.h"

#include <fmt/format.h>

#include <system_error>

namespace murmurase {

Error system_error(std::string_view action, std::string_view path, int number) {
  return {ErrorKind::system,
          fmt::format("cannot {} {}: {}", action, printable(path),
                      std::generic_category().message(number)),
          number};
}

}  // namespace murmurase
