// kelnn landmarks: five points of a face, and which way it looks.
#include <algorithm>
#include <memory>
#include <opencv2/imgproc.hpp>

#include "command.h"
#include "cut_out.h"
#include "cut_out_tasks.h"
#include "formatted.h"
#include "frame_sink.h"
#include "landmark_points.h"
#include "options.h"
#include "picture.h"

namespace kelnn_cli {
namespace {

struct Options {
  std::string picture, root, out;
  Box box;
};

Report report_of(const Options& options, const Landmarks& found, const cv::Rect& part) {
  Report report;
  report.json = {{"picture", options.picture},
                 {"box", {{"x", part.x}, {"y", part.y}, {"w", part.width}, {"h", part.height}}},
                 {"points", Json::array()},
                 {"pose", found.pose}};
  const bool has_pixels = are_parts(found);
  if (has_pixels) report.json["pixels"] = Json::array();
  const std::vector<cv::Point2d> pixels = pixels_of(found, part);
  for (size_t i = 0; i < pixels.size(); ++i) {
    const double x = double{found.points[2 * i]}, y = double{found.points[2 * i + 1]};
    report.json["points"].push_back({found.points[2 * i], found.points[2 * i + 1]});
    report.text +=
        "point " + std::to_string(i) + "  " + formatted("%.6g", x) + " " + formatted("%.6g", y);
    if (has_pixels) {
      report.json["pixels"].push_back({pixels[i].x, pixels[i].y});
      report.text +=
          "  at pixel " + formatted("%.1f", pixels[i].x) + ", " + formatted("%.1f", pixels[i].y);
    }
    report.text += "\n";
  }
  report.text += "pose";
  for (const float value : found.pose) report.text += "  " + formatted("%.6g", double{value});
  report.text += "\n";
  return report;
}

Report landmarks(const Options& options) {
  const cv::Mat picture = load_picture(options.picture);
  const cv::Rect part = chosen_part(options.picture, picture, options.box);
  const Landmarks found = FaceLandmarks(options.root).of(grey_cut_out(picture, part));
  if (!options.out.empty()) {
    const std::unique_ptr<FrameSink> sink = make_picture(options.out);
    cv::Mat drawn = picture.clone();
    draw_landmarks(&drawn, found, part);
    sink->write(drawn);
    sink->finish();
  }
  return report_of(options, found, part);
}

}  // namespace

void add_landmarks(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "landmarks",
      "Finds eyes, nose and mouth of a face, and which way it looks.\n"
      "Prints the model's five points, x and y, and the three values of the pose as the model\n"
      "gives them. The picture's centre square is taken, or the box, and scaled to 112 x 112\n"
      "grey pixels. If all ten values are from 0 to 1 they are taken for parts of that\n"
      "cut-out, 0 its left or top edge and 1 its right or bottom edge, and pixels of the\n"
      "picture are printed as well.");
  command->add_option("picture", options->picture, "A picture file")->required()->type_name("FILE");
  add_box(command, "--box", &options->box, "Where the face is");
  command
      ->add_option("--draw", options->out,
                   "Write the picture with the points, as parts of the cut-out from 0 to 1")
      ->type_name("OUT");
  add_root(command, &options->root);
  command->callback([=] { *chosen = [options] { return landmarks(*options); }; });
}

}  // namespace kelnn_cli
