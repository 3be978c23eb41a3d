// JPEG through libjpeg-turbo.
#ifndef KEL_NN_TOOLS_JPEG_CODEC_H_
#define KEL_NN_TOOLS_JPEG_CODEC_H_

#include "picture_codecs.h"

namespace kelnn_cli {

bool is_jpeg(const Bytes& bytes);

cv::Mat decode_jpeg(const Bytes& bytes);  // empty: damaged or odd
Bytes encode_jpeg(const cv::Mat& bgr);    // empty: too large

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_JPEG_CODEC_H_
