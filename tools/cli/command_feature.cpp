// kelnn feature: the 256 numbers that stand for a face.
#include <cstdio>
#include <memory>

#include "command.h"
#include "face_features.h"
#include "options.h"
#include "picture.h"

namespace kelnn_cli {
namespace {

struct Options {
  std::string picture, root;
  Box box;
};

Report feature(const Options& options) {
  const Bytes face = load_face(options.picture, options.box);
  const std::vector<float> values = FaceFeatures(options.root).of(face);

  Report report;
  report.json = {{"picture", options.picture}, {"feature", values}};
  for (const float value : values) {
    char line[32];
    std::snprintf(line, sizeof(line), "%.9g\n", double{value});  // nine digits give back the float
    report.text += line;
  }
  return report;
}

}  // namespace

void add_feature(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "feature",
      "Prints the 256 numbers that stand for a face, one a line.\n"
      "The picture's centre square is taken, or the box, and scaled to 112 x 112 grey pixels.");
  command->add_option("picture", options->picture, "A picture file")->required()->type_name("FILE");
  add_box(command, "--box", &options->box, "Where the face is");
  add_root(command, &options->root);
  command->callback([=] { *chosen = [options] { return feature(*options); }; });
}

}  // namespace kelnn_cli
