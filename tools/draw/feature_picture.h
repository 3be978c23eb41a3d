// The cry detector's features as a picture: time to the right, frequency upwards, both with axes.
#ifndef KEL_NN_TOOLS_FEATURE_PICTURE_H_
#define KEL_NN_TOOLS_FEATURE_PICTURE_H_

#include <string>

#include "files.h"
#include "sound_window.h"

namespace kelnn_cli {

// A PNG file's bytes. `start` is the second at which the window begins.
Bytes draw_features(const FeatureMatrix& matrix, const std::string& title, double start);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_FEATURE_PICTURE_H_
