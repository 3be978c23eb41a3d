// SPDX-License-Identifier: Apache-2.0
// What is seen and heard, in a browser: the newest frame, what is said of it, and the last events with their clips.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <string>

#include "files.h"
#include "module.h"
#include "report.h"

namespace kelnn_cli {

struct PageOptions {
  std::string host = "127.0.0.1";  // a numeric address
  int port = 8080;                 // 0: one that is free
  std::string token;               // who knows it may look; none: whoever comes from this machine
};

// It is given frames and events by one thread and shows them to viewers with threads of its own, which touch nothing else.
// It waits for no viewer, and its end for none either.
class LivePage {
 public:
  using EncodeJpeg = Bytes (*)(const cv::Mat& bgr, int quality);

  LivePage() = default;
  virtual ~LivePage() = default;
  LivePage(const LivePage&) = delete;
  LivePage& operator=(const LivePage&) = delete;

  // Would a frame be shown? There are ten a second at most, and one while nobody looks.
  virtual bool wants_frame() const = 0;
  // As it is drawn, and what is said of it. Passed over, unless one is wanted.
  virtual void show(const cv::Mat& drawn_bgr, const Json& state) = 0;
  // The last ones are kept. "clip" is the file of a video, which viewers may have as long as its event is kept.
  virtual void tell(const Json& event) = 0;
  virtual std::string address() const = 0;
};

// page.so, since the library for HTTP brings others that take long to load. A UsageError for an address beyond this
// machine without a token, a Failure for one that is taken.
struct PageModule {
  std::unique_ptr<LivePage> (*open)(const PageOptions& options, LivePage::EncodeJpeg encode);
};
inline std::unique_ptr<LivePage> open_page(const PageOptions& options,
                                           LivePage::EncodeJpeg encode) {
  return load_module<PageModule>("page.so").open(options, encode);
}

}  // namespace kelnn_cli
