// SPDX-License-Identifier: Apache-2.0
// Reads recordings, whatever their bytes are: what is damaged is dropped and told.
#ifndef KEL_NN_RECORDING_READER_H_
#define KEL_NN_RECORDING_READER_H_

#include <string>
#include <vector>

#include "recording_format.h"

namespace kelnn_record {

struct Field {
  Kind kind;
  Type type;
  std::string name;
  std::vector<uint8_t> value;

  // Elements of one size; their number is that of the whole ones.
  template <typename Value>
  size_t count() const {
    return value.size() / sizeof(Value);
  }
  template <typename Value>
  Value at(size_t index) const {
    Value element;
    std::memcpy(&element, value.data() + index * sizeof(Value), sizeof(Value));
    return element;
  }
};

// A record, taken apart.
struct Entry {
  CallHeader header;
  std::string name;
  std::vector<Field> fields;

  const Field* find(const std::string& name) const;
};
// False: the bytes are no record.
bool parse(const uint8_t* record, size_t size, Entry* entry);

// One file's records, from the first to the last that is whole.
class RecordingReader {
 public:
  explicit RecordingReader(std::vector<uint8_t> bytes);
  bool next(Entry* entry);
  size_t position() const { return at_; }                  // bytes that were read
  const std::string& problem() const { return problem_; }  // why it ended; none: at the file's end
  bool is_recording() const { return is_recording_; }      // of this version

 private:
  std::vector<uint8_t> bytes_;
  size_t at_ = 0;
  bool is_recording_ = false;
  std::string problem_;
};

}  // namespace kelnn_record

#endif  // KEL_NN_RECORDING_READER_H_
