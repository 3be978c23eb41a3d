// kelnn compare: how alike two faces are.
#include <cstdio>
#include <memory>

#include "command.h"
#include "face_features.h"
#include "options.h"
#include "picture.h"

namespace kelnn_cli {
namespace {

struct Options {
  std::string picture_a, picture_b, root;
  Box box_a, box_b;
};

Report compare(const Options& options) {
  const Bytes face_a = load_face(options.picture_a, options.box_a);
  const Bytes face_b = load_face(options.picture_b, options.box_b);
  FaceFeatures features(options.root);
  const float value = similarity(features.of(face_a), features.of(face_b));

  Report report;
  char line[32];
  std::snprintf(line, sizeof(line), "%.6f\n", double{value});
  report.text = line;
  report.json = {{"a", options.picture_a}, {"b", options.picture_b}, {"similarity", value}};
  return report;
}

}  // namespace

void add_compare(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "compare",
      "Prints how alike two faces are: 1 is the most, -1 the least.\n"
      "From which value on they are the same person depends on the model. Of each picture the\n"
      "centre square is taken, or the box, and scaled to 112 x 112 grey pixels.");
  command->add_option("a", options->picture_a, "A picture file")->required()->type_name("FILE");
  command->add_option("b", options->picture_b, "Another one")->required()->type_name("FILE");
  add_box(command, "--box-a", &options->box_a, "Where the face is in the first picture");
  add_box(command, "--box-b", &options->box_b, "Where the face is in the second picture");
  add_root(command, &options->root);
  command->callback([=] { *chosen = [options] { return compare(*options); }; });
}

}  // namespace kelnn_cli
