// SPDX-License-Identifier: Apache-2.0
// Where records go: files of a directory, kelnn-000001.rec and so on, of which the oldest is removed when all together
// would exceed a limit. Each begins with what a reader needs to know of the calls before it.
#ifndef KEL_NN_FILE_RING_H_
#define KEL_NN_FILE_RING_H_

#include "recording_format.h"

namespace kelnn_record {

class FileRing {
 public:
  // False, and told on standard error: nothing can be written there. `start` is the record that each file begins with.
  bool open(const char* directory, uint64_t limit, const Buffer* start);
  // False: there was no room for it, and the files are as they were.
  bool write(const uint8_t* record, size_t size);
  // What has been written withstands a loss of power from here on.
  void sync();
  void close();

 private:
  static constexpr uint32_t kFiles = 8;
  static constexpr size_t kKept = 32;  // calls that are told again in each file

  void path_of(uint32_t number, char* path) const;
  bool find_old_files();
  bool begin_file();
  bool remove_oldest();
  bool append(const void* bytes, size_t size);
  bool append_record(const uint8_t* record, size_t size);
  void keep(const uint8_t* record, size_t size);

  char directory_[512] = "";
  uint64_t limit_ = 0, old_size_ = 0;  // bytes; of all files but the one that is written
  uint32_t oldest_ = 1, number_ = 0;
  int descriptor_ = -1;
  uint64_t size_ = 0;
  const Buffer* start_ = nullptr;
  Buffer kept_[kKept];  // in order; empty ones at the end
};

}  // namespace kelnn_record

#endif  // KEL_NN_FILE_RING_H_
