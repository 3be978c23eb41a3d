// SPDX-License-Identifier: Apache-2.0
// Decoding of the face detector's outputs, apart from the runtime.
#ifndef KEL_NN_ULTRAFACE_H_
#define KEL_NN_ULTRAFACE_H_

#include "kel_nn.h"

namespace kelnn {

constexpr int kFaceLevels = 4;
constexpr int kMaxFaces = 100;

// The columns, rows and anchors of a level's feature map. Anchors are ordered by row, column, size.
struct FaceLevel {
  int columns, rows, anchor_count;
  int anchor_sizes[3];  // in pixels of the input

  constexpr int total() const { return columns * rows * anchor_count; }
};

// Strides of 8, 16, 32 and 64 pixels. The last two do not divide the input's 240 rows: their maps
// are rounded up, and their rows have pitches of an 8th and a 4th of the input.
constexpr FaceLevel kFaceLevelTable[kFaceLevels] = {
    {40, 30, 3, {10, 16, 24}},
    {20, 15, 2, {32, 48}},
    {10, 8, 2, {64, 96}},
    {5, 4, 3, {128, 192, 256}},
};

struct FaceLevelOutputs {
  float* scores;             // two for each anchor: background, face
  const float* regressions;  // four for each anchor: dx, dy, dw, dh
};

// The anchors of a level, relative to the input. Centres repeat from row to row and from column to
// column and sizes from cell to cell, so each is kept once.
struct FaceAnchors {
  float column_centres[40], row_centres[30];
  float widths[3], heights[3];
};

void fill_face_anchors(FaceAnchors (&anchors)[kFaceLevels]);

// Turns all scores into probabilities, in place, and the first `kMaxFaces` anchors that score high
// enough into boxes, level by level. Returns how many boxes there are.
int decode_faces(const FaceAnchors (&anchors)[kFaceLevels],
                 const FaceLevelOutputs (&outputs)[kFaceLevels], int frame_width, int frame_height,
                 kel_nn_box_t* boxes);

}  // namespace kelnn

#endif  // KEL_NN_ULTRAFACE_H_
