// SPDX-License-Identifier: Apache-2.0
#include "inputs.h"

#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>

#include "files.h"
#include "picture.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

constexpr char kPictures[] =
    " .bmp .gif .jpe .jpeg .jpg .pbm .pgm .png .pnm .ppm .tif .tiff .webp ";
constexpr char kVideos[] =
    " .3gp .avi .flv .m2ts .m4v .mjpeg .mkv .mov .mp4 .mpeg .mpg .mts .ogv .ts .webm .wmv ";
constexpr char kSounds[] =
    " .aac .aif .aiff .amr .au .caf .flac .m4a .mp3 .oga .ogg .opus .w64 .wav .wma ";

bool is_of_kind(const std::string& name, InputKind kind) {
  const std::string extension = " " + extension_of(name) + " ";
  const auto is_among = [&](const char* all) {
    return std::strstr(all, extension.c_str()) != nullptr;
  };
  return (kind != InputKind::kVideos && kind != InputKind::kSounds && is_among(kPictures)) ||
         (kind != InputKind::kPictures && is_among(kVideos)) ||
         (kind == InputKind::kSounds && is_among(kSounds));
}

// Hidden ones are not meant, nor are links to directories, which may lead in circles.
void add_directory(const fs::path& directory, const InputList& list, InputKind kind,
                   std::vector<std::string>* inputs) {
  std::error_code error;
  std::vector<fs::path> entries;
  for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    if (entry->path().filename().string()[0] != '.') entries.push_back(entry->path());
  }
  if (error) inputs->push_back(directory);
  std::sort(entries.begin(), entries.end());
  for (const fs::path& path : entries) {
    const std::string name = path.filename();
    if (fs::is_directory(fs::symlink_status(path, error))) {
      add_directory(path, list, kind, inputs);
    } else if (fs::is_regular_file(path, error) &&
               (list.glob.empty() ? is_of_kind(name, kind)
                                  : fnmatch(list.glob.c_str(), name.c_str(), 0) == 0)) {
      inputs->push_back(path);
    }
  }
}

}  // namespace

Inputs listed(const InputList& list, InputKind kind, bool is_dash_an_input) {
  Inputs inputs;
  const auto add = [&](const std::string& name) {
    std::error_code error;
    const size_t count = inputs.names.size();
    if (fs::is_directory(name, error)) {
      inputs.directories.push_back(with_slash(name));
      add_directory(name, list, kind, &inputs.names);
    }
    if (inputs.names.size() == count) inputs.names.push_back(name);
  };
  const auto add_names = [&](char separator) {
    for (std::string name; std::getline(std::cin, name, separator);) {
      if (!name.empty()) add(name);
    }
  };
  for (const std::string& name : list.names) {
    if (name == "-" && !is_dash_an_input) {
      add_names('\n');
    } else {
      add(name);
    }
  }
  if (list.is_null_separated) add_names('\0');
  if (inputs.names.empty()) throw Failure("standard input", "not one name in it");
  return inputs;
}

std::string place_of(const std::string& input, const Inputs& inputs) {
  std::string place = fs::path(input).filename();
  for (const std::string& directory : inputs.directories) {
    if (input.rfind(directory, 0) == 0) place = input.substr(directory.size());
  }
  std::replace(place.begin(), place.end(), ':', '-');  // camera:0
  return place.empty() ? "stream" : place;             // rtsp://camera/
}

void check_readable(const std::string& path) {
  std::error_code error;
  if (fs::is_directory(path, error)) {
    const fs::directory_iterator entries(path, error);
    throw Failure(path, error ? error.message()
                              : "a directory without anything to take; --glob says what to take");
  }
  if (access(path.c_str(), R_OK) != 0) throw Failure(path, std::strerror(errno));
}

}  // namespace kelnn_cli
