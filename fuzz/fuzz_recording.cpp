// SPDX-License-Identifier: Apache-2.0
// Recordings from outside: whatever the bytes, reading ends and stays inside them; what is read has the same size when
// it is written again; and playing it calls the library with nothing that it must not be given.
#include <jzdl.h>

#include "player.h"
#include "report.h"
#include "support/input.h"
#include "wrap_networks.h"

namespace {

using namespace kelnn_record;
using Bytes = std::vector<uint8_t>;

jzdl::BaseNet* (*g_wrap)(jzdl::BaseNet*) = nullptr;

// Nearly all changed bytes end at a check. Making each right lets the fuzzer behind them.
Bytes mended(Bytes bytes) {
  FileHeader file = {{}, kFormatVersion, 1};
  std::memcpy(file.magic, kMagic, sizeof(kMagic));
  if (bytes.size() < sizeof(file)) bytes.resize(sizeof(file));
  std::memcpy(bytes.data(), &file, sizeof(file));
  RecordHeader record;
  for (size_t at = sizeof(file); at + sizeof(record) <= bytes.size();
       at += sizeof(record) + record.size) {
    std::memcpy(&record, &bytes[at], sizeof(record));
    if (record.size > bytes.size() - at - sizeof(record)) break;
    record.check = check_of(bytes.data() + at + sizeof(record), record.size);
    std::memcpy(&bytes[at], &record, sizeof(record));
  }
  return bytes;
}

void read(const Bytes& bytes) {
  RecordingReader reader(bytes);
  kelnn_cli::Player player({});
  Record again;
  size_t at = sizeof(FileHeader) + sizeof(RecordHeader);
  for (Entry entry; reader.next(&entry);) {
    // A name with a zero in it would be written shorter.
    bool is_plain = entry.name.find('\0') == std::string::npos;
    again.begin(entry.name.c_str(), entry.header);
    for (const Field& field : entry.fields) {
      is_plain = is_plain && field.name.find('\0') == std::string::npos;
      again.add(field.kind, field.name.c_str(), field.type, field.value.data(), field.value.size());
    }
    RecordHeader header;
    std::memcpy(&header, &bytes[at - sizeof(header)], sizeof(header));
    EXPECT(!is_plain || again.bytes().size() == header.size);
    EXPECT(at + header.size <= bytes.size());
    at += header.size + sizeof(header);
    try {
      player.play(entry);
    } catch (const kelnn_cli::Failure&) {  // says what is missing
      return;
    }
  }
  EXPECT(!reader.is_recording() || !reader.problem().empty() ||
         at == bytes.size() + sizeof(RecordHeader));
}

}  // namespace

// What the library links in the place of a runtime: there are no other networks than those that are played.
namespace kelnn_host {
void wrap_networks(jzdl::BaseNet* (*wrap)(jzdl::BaseNet*)) { g_wrap = wrap; }
}  // namespace kelnn_host
namespace jzdl {
BaseNet* net_create() { return g_wrap(nullptr); }
void net_destory(BaseNet* net) { delete net; }
void image_sub(Mat<unsigned char>& image, unsigned char value) {
  for (size_t i = 0; image.data && i < image.total(); ++i) {
    image.data[i] = static_cast<unsigned char>(image.data[i] - value);
  }
}
}  // namespace jzdl

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const Bytes bytes(data, data + size);
  read(bytes);
  read(mended(bytes));
  return 0;
}
