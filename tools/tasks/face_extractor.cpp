// SPDX-License-Identifier: Apache-2.0
#include "face_extractor.h"

#include <fmt/format.h>

#include <algorithm>

#include "library_call.h"
#include "report.h"

namespace kelnn_cli {

bool are_parts(const kel_nn::Landmarks& landmarks) {
  return std::all_of(landmarks.points.begin(), landmarks.points.end(),
                     [](float value) { return value >= 0 && value <= 1; });
}

ExtractedFeature feature_of(const cv::Mat& bgr, const kel_nn::Rect& face,
                            const std::optional<kel_nn::Landmarks>& landmarks,
                            kel_nn::FaceFeatures* task) {
  const kel_nn::Frame frame = frame_of(bgr);
  if (landmarks && are_parts(*landmarks)) {
    kel_nn::Image upright({112, 112}, KEL_NN_KIT_GREY);
    try {
      upright.align(frame, landmarks->in_frame(frame, face));
      return {task->of(upright), true};
    } catch (const kel_nn::Error& error) {
      if (error.kind() != kel_nn::Error::kFrame) throw;  // else five points that are no face's
    }
  }
  return {task->of(frame, face), false};
}

FaceExtractor::FaceExtractor(const std::string& root, bool is_ready, const Note& note)
    : library_(root), is_ready_(is_ready), note_(note), features_(library_) {}

std::vector<kel_nn::Detection> FaceExtractor::faces(const cv::Mat& bgr) {
  if (!faces_) faces_.emplace(library_);
  return faces_->detect(frame_of(bgr));
}

kel_nn::Rect FaceExtractor::place(const std::string& path, const cv::Mat& bgr,
                                  const kel_nn::Rect& box) {
  if (is_ready_ || box.w != 0) return chosen_part(path, bgr, box);
  const std::vector<kel_nn::Detection> found = faces(bgr);
  if (found.empty()) {
    throw Failure(path +
                  ": no face is found. To do: say where it is with a box, X,Y,WIDTH,HEIGHT; or "
                  "--aligned, if the picture is a face already");
  }
  const kel_nn::Rect& face = found.front().box;
  const std::string where = fmt::format("{},{},{},{}", face.x, face.y, face.w, face.h);
  if (found.size() > 1) {
    note_(fmt::format("{}: {} faces; the surest is taken, {}", path, found.size(), where));
  }
  return face;
}

ExtractedFeature FaceExtractor::of(const cv::Mat& bgr, const kel_nn::Rect& face) {
  if (is_ready_) return {of_box(bgr, face), true};
  if (!landmarks_) landmarks_.emplace(library_);
  return feature_of(bgr, face, landmarks_->of(frame_of(bgr), face), &features_);
}

kel_nn::Feature FaceExtractor::of_box(const cv::Mat& bgr, const kel_nn::Rect& face) {
  return features_.of(frame_of(bgr), face);
}

}  // namespace kelnn_cli
