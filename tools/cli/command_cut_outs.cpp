// kelnn landmarks, feature, compare, classify-face and classify-person: what the networks make of
// faces and persons that are cut out of pictures.
#include <fmt/format.h>

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "drawing_target.h"
#include "frames.h"
#include "landmark_points.h"
#include "library_call.h"

namespace kelnn_cli {
namespace {

// ----- The parts that are looked at

struct Part {
  const std::string& path;
  const cv::Mat& picture;
  cv::Rect rect;
  bool is_only_one;
  cv::Mat* drawing;  // empty: none is wanted
};

bool for_each_part(const CutOutOptions& options, Reporter* reporter,
                   const std::function<void(const Part&)>& look) {
  DrawingTarget drawings(options.out, options.pictures);
  const std::vector<Box> boxes = options.boxes.empty() ? std::vector<Box>(1) : options.boxes;
  const bool is_only_one = options.pictures.size() * boxes.size() == 1;
  return for_each_input(options.pictures, *reporter, [&](const std::string& path) {
    const cv::Mat picture = load_picture(path);
    const std::unique_ptr<FrameSink> sink = drawings.open_picture(path);
    cv::Mat drawing = sink ? picture.clone() : cv::Mat();
    for (const Box& box : boxes) {
      look({path, picture, chosen_part(path, picture, box), is_only_one, &drawing});
    }
    if (!sink) return;
    sink->write(drawing);
    sink->finish();
  });
}

// ----- What is found

struct FoundLandmarks {
  kel_nn::Landmarks landmarks;
  std::vector<cv::Point2d> pixels;  // none: the values are no parts of the cut-out
};

std::string text_of(const FoundLandmarks& found) {
  std::string text;
  for (size_t i = 0; i < found.landmarks.points.size() / 2; ++i) {
    text += fmt::format("point {}  {:.6g} {:.6g}", i, found.landmarks.points[2 * i],
                        found.landmarks.points[2 * i + 1]);
    if (!found.pixels.empty()) {
      text += fmt::format("  at pixel {:.1f}, {:.1f}", found.pixels[i].x, found.pixels[i].y);
    }
    text += "\n";
  }
  return text + fmt::format("pose  {:.6g}\n", fmt::join(found.landmarks.pose, "  "));
}

Json json_of(const FoundLandmarks& found) {
  Json points = Json::array(), pixels = Json::array();
  for (size_t i = 0; i < found.landmarks.points.size(); i += 2) {
    points.push_back({found.landmarks.points[i], found.landmarks.points[i + 1]});
  }
  for (const cv::Point2d& pixel : found.pixels) pixels.push_back({pixel.x, pixel.y});
  Json json = {{"points", points}, {"pose", found.landmarks.pose}};
  if (!found.pixels.empty()) json["pixels"] = pixels;
  return json;
}

std::string text_of(const kel_nn::Feature& feature) {  // nine digits give back the float
  return fmt::format("{:.9g}\n", fmt::join(feature, "\n"));
}
Json json_of(const kel_nn::Feature& feature) { return {{"feature", feature}}; }

std::string text_of(const kel_nn::FaceClass& found) {
  return fmt::format("class {}  score {:.6f}\n", found.id, found.score);
}
Json json_of(const kel_nn::FaceClass& found) {
  return {{"class", found.id}, {"score", found.score}};
}

struct Probability {
  float value;
};
std::string text_of(const Probability& found) { return fmt::format("{:.6f}\n", found.value); }
Json json_of(const Probability& found) { return {{"probability", found.value}}; }

// Where it was found is said before it, in the text only if there is a choice.
template <typename Found>
struct Placed {
  const Part& part;
  const Found& found;
};

template <typename Found>
std::string text_of(const Placed<Found>& placed) {
  const auto& [path, picture, rect, is_only_one, drawing] = placed.part;
  if (is_only_one) return text_of(placed.found);
  return fmt::format("{}, x {}, y {}, {} x {}:\n{}", path, rect.x, rect.y, rect.width, rect.height,
                     text_of(placed.found));
}

template <typename Found>
Json json_of(const Placed<Found>& placed) {
  Json json = {{"picture", placed.part.path}, {"box", kelnn_cli::json_of(placed.part.rect)}};
  json.update(json_of(placed.found));
  return json;
}

template <typename Found>
void report(const Part& part, const Found& found, Reporter* reporter) {
  const Placed<Found> placed = {part, found};
  part.is_only_one ? reporter->report(placed) : reporter->report_one(placed);
}

struct Comparison {
  const CompareOptions& options;
  float similarity;
};
std::string text_of(const Comparison& compared) {
  return fmt::format("{:.6f}\n", compared.similarity);
}
Json json_of(const Comparison& compared) {
  return {{"a", compared.options.picture_a},
          {"b", compared.options.picture_b},
          {"similarity", compared.similarity}};
}

kel_nn::Image grey_face(const std::string& path, const Box& box) {
  const cv::Mat picture = load_picture(path);
  return grey_cut_out(picture, chosen_part(path, picture, box));
}

}  // namespace

bool landmarks(const CutOutOptions& options, Reporter* reporter) {
  kel_nn::FaceLandmarks task{kel_nn::Library(options.root)};
  return for_each_part(options, reporter, [&](const Part& part) {
    FoundLandmarks found = {task.of(grey_cut_out(part.picture, part.rect)), {}};
    if (are_parts(found.landmarks)) found.pixels = pixels_of(found.landmarks, part.rect);
    if (!part.drawing->empty()) draw_landmarks(part.drawing, found.landmarks, part.rect);
    report(part, found, reporter);
  });
}

bool feature(const CutOutOptions& options, Reporter* reporter) {
  kel_nn::FaceFeatures task{kel_nn::Library(options.root)};
  return for_each_part(options, reporter, [&](const Part& part) {
    report(part, task.of(grey_cut_out(part.picture, part.rect)), reporter);
  });
}

bool classify_face(const CutOutOptions& options, Reporter* reporter) {
  kel_nn::FaceClassifier task{kel_nn::Library(options.root)};
  return for_each_part(options, reporter, [&](const Part& part) {
    report(part, task.of(grey_cut_out(part.picture, part.rect)), reporter);
  });
}

bool classify_person(const CutOutOptions& options, Reporter* reporter) {
  kel_nn::PersonClassifier task{kel_nn::Library(options.root)};
  return for_each_part(options, reporter, [&](const Part& part) {
    report(part, Probability{task.of(rgb_cut_out(part.picture, part.rect))}, reporter);
  });
}

bool compare(const CompareOptions& options, Reporter* reporter) {
  const kel_nn::Image face_a = grey_face(options.picture_a, options.box_a);
  const kel_nn::Image face_b = grey_face(options.picture_b, options.box_b);
  kel_nn::FaceFeatures task{kel_nn::Library(options.root)};
  reporter->report(Comparison{options, kel_nn::similarity(task.of(face_a), task.of(face_b))});
  return true;
}

}  // namespace kelnn_cli
