// How a camera was held, as the Exif data in a picture file says.
#ifndef KEL_NN_TOOLS_EXIF_H_
#define KEL_NN_TOOLS_EXIF_H_

#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>
#include <optional>

namespace kelnn_cli {

constexpr int kUpright = 1;  // also of a picture that does not say

// 1 to 8, of the data from its byte order mark on. None: the data is not as it should be.
std::optional<int> exif_orientation(const uint8_t* data, size_t size);

// Turned and mirrored, so that what was up is up.
cv::Mat made_upright(const cv::Mat& picture, int orientation);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_EXIF_H_
