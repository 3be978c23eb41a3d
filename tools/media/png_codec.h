// PNG through libpng.
#ifndef KEL_NN_TOOLS_PNG_CODEC_H_
#define KEL_NN_TOOLS_PNG_CODEC_H_

#include "picture_codecs.h"

namespace kelnn_cli {

bool is_png(const Bytes& bytes);

cv::Mat decode_png(const Bytes& bytes);  // empty: damaged or odd
Bytes encode_png(const cv::Mat& bgr);    // empty: too large

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_PNG_CODEC_H_
