// Picture files, and what of them is looked at.
#ifndef KEL_NN_TOOLS_PICTURE_H_
#define KEL_NN_TOOLS_PICTURE_H_

#include <opencv2/core.hpp>
#include <string>

namespace kelnn_cli {

struct Box {
  int x = 0, y = 0, width = 0, height = 0;  // in pixels; no width: the picture's centre square
};

// Any picture that can be read, as 8-bit BGR. This and what follows throw a Failure that names the
// path.
cv::Mat load_picture(const std::string& path);
cv::Rect chosen_part(const std::string& path, const cv::Mat& picture, const Box& box);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_PICTURE_H_
