// How good detections are, beside labelled boxes.
#ifndef KEL_NN_TOOLS_EVALUATION_DETECTION_H_
#define KEL_NN_TOOLS_EVALUATION_DETECTION_H_

#include <opencv2/core.hpp>
#include <vector>

#include "detection.h"

namespace kelnn_cli {

struct Truth {
  cv::Rect2d box;  // pixels of the picture
  int class_id;
};

struct DetectedPicture {
  std::vector<Truth> truths;
  std::vector<Detection> found;
};

constexpr double kMatchingIou = 0.5;  // the least

// The IoU of every detection with the truth that it matches, 0 where it matches none. The better
// score chooses first: the truth of its class that it overlaps most, of those that are left.
std::vector<double> match(const DetectedPicture& picture);

struct ScoredDetection {
  float score;
  bool is_match;
};

// The area under the curve of precision over recall, where precision is the best at that recall or
// any higher one (all-point interpolation). Detections of equal score are one point of the curve. Not
// a number without truths.
double average_precision(std::vector<ScoredDetection> found, size_t truth_count);

struct DetectionFigures {
  size_t truths = 0, found = 0, matches = 0;
  double average_precision, precision, recall;
  double mean_iou;  // of the matches
};

struct DetectionEvaluation {
  std::vector<DetectionFigures> classes;
  DetectionFigures all;  // its average precision is the mean over the classes that have truths
  double false_detections_per_picture;
};

DetectionEvaluation evaluate_detections(const std::vector<DetectedPicture>& pictures,
                                        int class_count);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_EVALUATION_DETECTION_H_
