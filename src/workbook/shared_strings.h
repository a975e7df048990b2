#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace murmurase::workbook {

class RecordStream;

// The workbook's table of distinct texts: all of them one behind the other in the form that the
// SST record holds (unit count, option byte, units), found again through a hash table of their
// indices.
class SharedStrings {
 public:
  // Gives the index of a text in the form that encode_text gives. Its first appearance stores it.
  std::uint32_t add(std::string_view encoded);

  // Bytes of all texts in encoded form.
  [[nodiscard]] std::size_t size_bytes() const { return texts_.size(); }

  // Frees what only add needs.
  void finish();

  // Writes SST with its CONTINUE records, and EXTSST. `references` is the number of cells that show a
  // text of the table.
  void write(RecordStream& out, std::uint32_t references) const;

 private:
  struct Slot {
    std::uint32_t hash;
    std::uint32_t number;  // index + 1; 0 is a free slot
  };

  [[nodiscard]] bool equal(std::uint32_t index, std::string_view encoded) const;
  void grow();

  std::string texts_;
  std::vector<std::uint32_t> offsets_;  // of each text in texts_
  std::vector<Slot> slots_;             // a power of two, at most half full
};

}  // namespace murmurase::workbook
