#pragma once

#include <cstddef>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "platform/byte_buffer.h"

namespace murmurase {

// What the XMP tool left behind.
struct ToolRun {
  int wait_status = 0;                   // as waitpid reports it: 0 only for an exit with code 0
  ByteBuffer output;                     // all of its standard output
  std::exception_ptr failure = nullptr;  // why its output or its status could not be read
};

// What the module asks of the system. Every function throws an error of kind system, with the
// system's error number, unless it says otherwise.
class Platform {
 public:
  virtual ~Platform() = default;

  // The current user's Application Support directories, the first one counting; may be none, and
  // may begin with a tilde.
  virtual std::vector<std::string> application_support_directories() = 0;

  // The path with a leading "~" replaced by the user's home directory; unchanged without a home.
  virtual std::string expand_tilde(const std::string& path) = 0;

  // Whether a directory, and not a plain file, stands at the path.
  virtual bool is_directory(const std::string& path) = 0;

  // Makes one directory, with the default permissions; its parent must exist.
  virtual void create_directory(const std::string& path) = 0;

  // Has the shell run `command` with the arguments "get" and the movie's path, each of which
  // arrives unchanged as one argument whatever characters it holds, reads all of its standard
  // output, at most `most_bytes`, and waits for its end. What fails from then on is kept in the result:
  // a system error, EFBIG for more bytes, or memory. Throws if the shell cannot be started; argument
  // error for a zero byte in either path. A tool that cannot be started is no error here: the shell
  // reports it with a wait status. A command without a slash is looked up in $PATH, unless it begins
  // with a dash.
  virtual ToolRun run_xmp_tool(const std::string& command, const std::string& movie_path) = 0;

  // Asks the tool that is running to end, by SIGTERM. Nothing happens when none runs. For signal
  // handlers and other threads too.
  virtual void end_xmp_tool() noexcept = 0;

  // All bytes of a file, at most `most_bytes`. Argument error for a zero byte in the path.
  virtual ByteBuffer read_file(const std::string& path) = 0;

  // Makes a file of these bytes, replacing one of that name by a new file: at every moment the path
  // holds either the old file or the whole new one. The same people as before may do the same with it.
  // If a new file cannot have that, or cannot be put there, the old one is written in place, if it can
  // be. Links are followed; devices and pipes are written straight.
  virtual void replace_file(const std::string& path, std::string_view bytes) = 0;

  // The same for a file that is the module's own. A link or a pipe there is replaced too.
  virtual void replace_own_file(const std::string& path, std::string_view bytes) = 0;

  // Hides the file's extension and sets its creator code, four characters, in the file's Finder
  // information. Nothing happens where these cannot be kept; no error.
  virtual void set_finder_info(const std::string& path, std::string_view creator) = 0;

  // Runs `command`, a program's path or its name in $PATH, with the file's path as its one
  // argument, which begins with no dash, and waits for its end. Gives whether it ran and ended with status 0; no error.
  virtual bool open_with(const std::string& command, const std::string& path) = 0;
};

// The platform that this module was built for. Lives as long as the process.
Platform& system_platform();

}  // namespace murmurase
