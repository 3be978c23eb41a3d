// SPDX-License-Identifier: Apache-2.0
// Picture files. PNG, JPEG, PGM and PPM, which nearly all are, are done here; what
// else OpenCV knows, and files that are damaged or odd, cost the loading of a module.
#pragma once

#include <opencv2/core.hpp>
#include <string>

#include "files.h"
#include "inputs.h"

namespace kelnn_cli {

// Any picture that can be read, as 8-bit BGR. A Failure names the path.
cv::Mat load_picture(const std::string& path, const InputSettings& settings = {});

bool is_usual_picture(const std::string& path);  // PNG, JPEG, PGM or PPM, by its first bytes

// 8-bit BGR, upright. Empty: damaged, too large or no picture.
// `is_damaged` is set where a part may be missing of what was decoded.
cv::Mat decode_picture(const Bytes& bytes, bool* is_damaged = nullptr);

bool is_picture_name(const std::string& path);  // one with an extension that can be written

// Of 8-bit BGR, in the format of the extension. Empty: too large for it.
Bytes encode_picture(const std::string& extension, const cv::Mat& bgr);

std::string extension_of(const std::string& path);  // ".png", in small letters

}  // namespace kelnn_cli
