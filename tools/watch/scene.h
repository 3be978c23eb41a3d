// SPDX-License-Identifier: Apache-2.0
// What there is to tell of what is seen and heard, once each: events.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "frame_source.h"
#include "gallery.h"
#include "report.h"
#include "tracker.h"
#include "watcher.h"

namespace kelnn_cli {

class Scene {
 public:
  // Of a face, who it is when it is more alike than the threshold.
  Scene(const KnownFaces& known, float threshold) : known_(known), threshold_(threshold) {}

  // Writes into what was found which track it is and who, and gives the events: "entered", "left", "recognised".
  std::vector<Json> see(Sighting* seen, const Frame& frame);
  // Of a window of sound: "cry" when one begins.
  std::vector<Json> hear(float probability);
  std::vector<Json> finish();  // what is still there leaves

 private:
  std::vector<Json> leaving(const std::vector<Track>& left);

  const KnownFaces& known_;
  float threshold_;
  Tracker tracker_;
  std::map<int64_t, std::set<std::string>> recognised_;  // of tracks that have not left
  bool is_crying_ = false;
};

}  // namespace kelnn_cli
