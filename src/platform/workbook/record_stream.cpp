#include "platform/workbook/record_stream.h"

#include <new>

namespace murmurase::workbook {
namespace {

void require(bool done) {
  if (!done) throw std::bad_alloc();  // all that a file in memory can fail for
}

}  // namespace

RecordStream::RecordStream(GsfOutput* stream) : stream_(stream) {}

void RecordStream::write(std::string_view bytes) {
  require(gsf_output_write(stream_, bytes.size(), reinterpret_cast<const guint8*>(bytes.data())) !=
          FALSE);
}

void RecordStream::seek(std::size_t position) {
  require(gsf_output_seek(stream_, static_cast<gsf_off_t>(position), G_SEEK_SET) != FALSE);
}

void RecordStream::flush() {
  write({buffer_.get(), used_});
  written_ += used_;
  used_ = 0;
}

void RecordStream::patch(std::size_t position, std::string_view bytes) {
  flush();
  seek(position);
  write(bytes);
  seek(written_);
}

}  // namespace murmurase::workbook
