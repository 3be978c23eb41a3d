// Picture files as the face tasks want them: 112 x 112 grey pixels.
#ifndef KEL_NN_TOOLS_PICTURE_H_
#define KEL_NN_TOOLS_PICTURE_H_

#include <CLI/CLI.hpp>
#include <string>

#include "files.h"

namespace kelnn_cli {

constexpr int kFaceSize = 112;

struct Box {
  int x = 0, y = 0, width = 0, height = 0;  // in pixels; no width: the picture's centre square
};

// Any picture that OpenCV reads, cut to the box and scaled; throws a Failure that names the path.
Bytes load_face(const std::string& path, const Box& box);

void add_box(CLI::App* command, const std::string& name, Box* box, const std::string& help);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_PICTURE_H_
