// SPDX-License-Identifier: Apache-2.0
#include "file_ring.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelnn_record {
namespace {

constexpr size_t kPathSize = 512 + 32;

bool is_full(int error) { return error == ENOSPC || error == EDQUOT; }

// The name in a record's front; its task, which is what stands between kel_nn_ and the last word, and that word.
struct Name {
  char text[256] = "";
  char task[256] = "";
  const char* verb = "";
};
Name name_of(const uint8_t* record) {
  Name name;
  CallHeader header;
  std::memcpy(&header, record, sizeof(header));
  std::memcpy(name.text, record + sizeof(header), header.name_size);
  std::memcpy(name.task, name.text, sizeof(name.task));
  char* const last = std::strrchr(name.task, '_');
  if (last) *last = '\0';
  name.verb = last ? name.text + (last - name.task) : "";
  return name;
}

// The first whole number that the call was given, which says of what handle or graph it is, or that it returned.
int32_t first_integer(Kind kind, const uint8_t* record, size_t size) {
  CallHeader header;
  std::memcpy(&header, record, sizeof(header));
  FieldHeader field;
  for (size_t at = sizeof(header) + header.name_size; at + sizeof(field) <= size;
       at += sizeof(field) + field.name_size + field.size) {
    std::memcpy(&field, record + at, sizeof(field));
    if (field.kind != kind || field.size != sizeof(int32_t)) continue;
    int32_t value;
    std::memcpy(&value, record + at + sizeof(field) + field.name_size, sizeof(value));
    return value;
  }
  return -1;
}

}  // namespace

void FileRing::path_of(uint32_t number, char* path) const {
  snprintf(path, kPathSize, "%s/kelnn-%06u.rec", directory_, static_cast<unsigned>(number));
}

bool FileRing::find_old_files() {
  DIR* const listing = opendir(directory_);
  if (!listing) return false;
  uint32_t lowest = UINT32_MAX;
  while (const struct dirent* entry = readdir(listing)) {
    unsigned number = 0;
    char rest = 0;
    if (sscanf(entry->d_name, "kelnn-%u.re%c", &number, &rest) != 2 || rest != 'c' || number == 0)
      continue;
    char path[kPathSize];
    path_of(number, path);
    struct stat status;
    if (stat(path, &status) != 0) continue;
    old_size_ += static_cast<uint64_t>(status.st_size);
    if (number > number_) number_ = number;
    if (number < lowest) lowest = number;
  }
  closedir(listing);
  oldest_ = lowest == UINT32_MAX ? number_ + 1 : lowest;
  return true;
}

bool FileRing::open(const char* directory, uint64_t limit, const Buffer* start) {
  snprintf(directory_, sizeof(directory_), "%s", directory);
  limit_ = limit;
  start_ = start;
  mkdir(directory_, 0777);  // where it is missing
  if (std::strlen(directory) < sizeof(directory_) && find_old_files() && begin_file()) return true;
  fprintf(stderr, "libkelnn_record: cannot record to %s: %s\n", directory, strerror(errno));
  return false;
}

bool FileRing::remove_oldest() {
  while (oldest_ < number_) {
    char path[kPathSize];
    path_of(oldest_++, path);
    struct stat status;
    if (stat(path, &status) != 0) continue;
    if (unlink(path) != 0) return false;
    const uint64_t size = static_cast<uint64_t>(status.st_size);
    old_size_ = size < old_size_ ? old_size_ - size : 0;
    return true;
  }
  return false;
}

bool FileRing::begin_file() {
  close();
  ++number_;
  while (old_size_ + limit_ / kFiles > limit_ && remove_oldest()) continue;
  char path[kPathSize];
  do {
    path_of(number_, path);
    descriptor_ = ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor_ < 0 && errno == EEXIST) ++number_;  // another process's
  } while (descriptor_ < 0 && (errno == EEXIST || (is_full(errno) && remove_oldest())));
  if (descriptor_ < 0) return --number_, false;
  size_ = 0;
  FileHeader header = {{}, kFormatVersion, number_};
  std::memcpy(header.magic, kMagic, sizeof(kMagic));
  bool fits = append(&header, sizeof(header)) && append_record(start_->data(), start_->size());
  for (size_t i = 0; i < kKept && fits && kept_[i].size() > 0; ++i) {
    fits = append_record(kept_[i].data(), kept_[i].size());
  }
  if (fits) return true;
  close();
  unlink(path);
  old_size_ -= size_;
  --number_;
  return false;
}

// All of it, or nothing.
bool FileRing::append(const void* bytes, size_t size) {
  const uint8_t* from = static_cast<const uint8_t*>(bytes);
  for (size_t done = 0; done < size;) {
    const ssize_t written = ::write(descriptor_, from + done, size - done);
    if (written > 0) {
      done += static_cast<size_t>(written);
    } else if (written == 0 || (errno != EINTR && !(is_full(errno) && remove_oldest()))) {
      const bool is_mended = ftruncate(descriptor_, static_cast<off_t>(size_)) == 0 &&
                             lseek(descriptor_, static_cast<off_t>(size_), SEEK_SET) >= 0;
      if (!is_mended) close();  // the torn record is its file's last
      return false;
    }
  }
  size_ += size;
  return true;
}

bool FileRing::append_record(const uint8_t* record, size_t size) {
  const RecordHeader header = {static_cast<uint32_t>(size), check_of(record, size)};
  const uint64_t before = size_;
  if (!append(&header, sizeof(header))) return false;
  if (append(record, size)) return true;
  if (descriptor_ >= 0 && ftruncate(descriptor_, static_cast<off_t>(before)) == 0 &&
      lseek(descriptor_, static_cast<off_t>(before), SEEK_SET) >= 0) {
    size_ = before;
  } else {
    close();
  }
  return false;
}

// Settings of the library, and tasks that are initialised. An _init that failed may have changed a task's frame size.
void FileRing::keep(const uint8_t* record, size_t size) {
  const Name name = name_of(record);
  const bool is_deinit = std::strcmp(name.verb, "_deinit") == 0;
  const bool is_init = std::strcmp(name.verb, "_init") == 0;
  const bool is_directory = std::strcmp(name.text, "kel_nn_set_model_root_dir") == 0;
  if (!is_deinit && !is_init && !is_directory) return;
  const auto failed = [](const uint8_t* data, size_t length) {
    return first_integer(Kind::kResult, data, length) != 0;
  };
  const auto owner = [](const uint8_t* data, size_t length) {
    return first_integer(Kind::kArgument, data, length);
  };
  size_t count = 0;
  for (size_t i = 0; i < kKept && kept_[i].size() > 0; ++i) {
    const uint8_t* const other = kept_[i].data();
    const size_t other_size = kept_[i].size();
    const bool is_same = std::strcmp(name_of(other).task, name.task) == 0 &&
                         (is_directory || owner(other, other_size) == owner(record, size));
    // The last that failed is enough, and the one before that succeeded.
    const bool goes = is_same && (!is_init || !failed(record, size) || failed(other, other_size));
    if (goes) kept_[i].clear();
    if (!goes && count != i) kept_[count].swap(&kept_[i]);
    if (!goes) ++count;
  }
  if (is_deinit || count == kKept) return;
  kept_[count].clear();
  kept_[count].add(record, size);
  if (kept_[count].is_short()) return kept_[count].clear();
  kept_[count].data()[offsetof(CallHeader, is_repeated)] = 1;
}

bool FileRing::write(const uint8_t* record, size_t size) {
  const uint64_t file_limit = limit_ / kFiles;
  bool fits = sizeof(FileHeader) + sizeof(RecordHeader) + size <= file_limit;
  if (fits && (descriptor_ < 0 || size_ + sizeof(RecordHeader) + size > file_limit))
    fits = begin_file();
  fits = fits && append_record(record, size);
  keep(record, size);  // whether it is in a file or not: later ones follow from it
  return fits;
}

void FileRing::sync() {
  if (descriptor_ >= 0) fdatasync(descriptor_);
}

void FileRing::close() {
  if (descriptor_ < 0) return;
  sync();
  ::close(descriptor_);
  descriptor_ = -1;
  old_size_ += size_;
}

}  // namespace kelnn_record
