// kelnn classify-face and kelnn classify-person: which class a cut-out belongs to.
#include <memory>

#include "command.h"
#include "cut_out.h"
#include "cut_out_tasks.h"
#include "formatted.h"
#include "options.h"
#include "picture.h"

namespace kelnn_cli {
namespace {

struct Options {
  std::string picture, root;
  Box box;
};

Report classify_face(const Options& options) {
  const cv::Mat picture = load_picture(options.picture);
  const cv::Rect part = chosen_part(options.picture, picture, options.box);
  const FaceClass found = FaceClassifier(options.root).of(grey_cut_out(picture, part));
  Report report;
  report.text = "class " + std::to_string(found.id) + "  score " +
                formatted("%.6f", double{found.score}) + "\n";
  report.json = {{"picture", options.picture}, {"class", found.id}, {"score", found.score}};
  return report;
}

Report classify_person(const Options& options) {
  const cv::Mat picture = load_picture(options.picture);
  const cv::Rect part = chosen_part(options.picture, picture, options.box);
  const float probability = PersonClassifier(options.root).of(rgb_cut_out(picture, part));
  Report report;
  report.text = formatted("%.6f", double{probability}) + "\n";
  report.json = {{"picture", options.picture}, {"probability", probability}};
  return report;
}

void add_classifier(CLI::App& app, Command* chosen, const char* name, const char* help,
                    Report (*classify)(const Options&)) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(name, help);
  command->add_option("picture", options->picture, "A picture file")->required()->type_name("FILE");
  add_box(command, "--box", &options->box, "Which part of the picture");
  add_root(command, &options->root);
  command->callback([=] { *chosen = [=] { return classify(*options); }; });
}

}  // namespace

void add_classifiers(CLI::App& app, Command* chosen) {
  add_classifier(
      app, chosen, "classify-face",
      "Tells which of three classes a face belongs to.\n"
      "Prints the class, 0 to 2, and its score (0 to 1), which does not depend on the other\n"
      "classes. What the classes are comes with the model. The picture's centre square is\n"
      "taken, or the box, and scaled to 112 x 112 grey pixels.",
      classify_face);
  add_classifier(
      app, chosen, "classify-person",
      "Tells how probable a person is in a picture.\n"
      "Prints the probability (0 to 1) of the first of two classes. Which of them is a person\n"
      "comes with the model. The picture's centre square is taken, or the box, and scaled to\n"
      "112 x 112 pixels of red, green and blue.",
      classify_person);
}

}  // namespace kelnn_cli
