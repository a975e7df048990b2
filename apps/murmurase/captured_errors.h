#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <string_view>
#include <thread>

namespace host {

// Keeps what the XMP tool says on standard error, so that a failure stays one line. However much that
// is, a few KiB of its start and of its end are kept.
class CapturedErrors {
 public:
  CapturedErrors();
  CapturedErrors(const CapturedErrors&) = delete;
  CapturedErrors& operator=(const CapturedErrors&) = delete;
  ~CapturedErrors() { restore(); }

  // Gives standard error back, and what was written to it meanwhile, without line feeds at the end.
  std::string restore();

 private:
  void read_all();
  void keep(std::string_view text);

  int read_end_ = -1;
  int saved_;
  std::string kept_;
  std::size_t left_out_ = 0;
  std::atomic<bool> ended_ = false;
  std::thread reader_;
};

}  // namespace host
