// Boxes with their labels, drawn into a picture.
#ifndef KEL_NN_TOOLS_DRAWING_H_
#define KEL_NN_TOOLS_DRAWING_H_

#include <opencv2/core.hpp>
#include <string>

namespace kelnn_cli {

// `colour` tells kinds of boxes apart: any number, 0 and up. Lines and letters grow with the picture.
void draw_box(cv::Mat* bgr, const cv::Rect& box, const std::string& label, int colour);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_DRAWING_H_
