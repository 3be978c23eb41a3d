/* SPDX-License-Identifier: Apache-2.0 */
/* libkelnn_kit: from a camera's frame to the image that a task wants.
 *
 * What an application does around libkelnn, beside the library, not in it: link libkelnn_kit.a
 * before libkelnn.so. People in a 1920 x 1080 NV12 frame:
 *
 *     kel_nn_kit_frame_t frame = {data, 1920, 1080, 0, KEL_NN_KIT_NV12, NULL};
 *     kel_nn_size_t frame_size = {1920, 1080}, input_size = kel_nn_kit_detector_input(1920, 1080);
 *     kel_nn_kit_image_t input = {pixels, input_size.w, input_size.h, KEL_NN_KIT_RGB, &scratch};
 *     kel_nn_det_result_t people;
 *     if (kel_nn_kit_letterbox(&frame, &input) == 0 &&
 *         kel_nn_persondet_process(handle, input.data, &people, &frame_size, &input_size) == 0) {
 *       draw(people.boxes, people.count);
 *     }
 *
 * What holds everywhere
 *
 * returns  0 or one of the negative codes below. Nothing is printed. After a failure the image holds
 *          nothing of use, but nothing beyond it was written.
 * pixels   Bilinear interpolation with the library's resize functions: the same pixels on every
 *          processor. A frame that shrinks by more than half is sampled, not averaged.
 * memory   Frames are only read, and may not overlap the image. Scratch of up to 3 bytes a pixel of
 *          the image (and 6 bytes a row of a rectangle one pixel wide) is kept in the image's
 *          `scratch` from call to call: a running camera allocates nothing. Without one it comes
 *          from the heap and is gone on return.
 * threads  Any, on distinct images and scratch.
 */
#ifndef KEL_NN_KIT_H_
#define KEL_NN_KIT_H_

#include "kel_nn.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KEL_NN_KIT_INVALID (-1)   /**< null pointer, size, stride or format that cannot be */
#define KEL_NN_KIT_OUTSIDE (-2)   /**< the rectangle and the frame have no pixel in common */
#define KEL_NN_KIT_NO_MEMORY (-3) /**< no scratch memory */
#define KEL_NN_KIT_NO_FACE (-4)   /**< the five points do not lie like those of a face */

/** The longest side of a frame or image. */
#define KEL_NN_KIT_MAX_SIDE 16384

/** What kel_nn_kit_letterbox() puts around the frame, in every channel: the engine subtracts 128
 *  from each byte, so the network sees 0, the same nothing that its own convolutions pad with.
 */
#define KEL_NN_KIT_PADDING 128

/** How pixels are stored, 8 bits a sample.
 *
 *  Grey is full range, 0 black to 255 white. From colour it is (77 R + 150 G + 29 B + 128) >> 8.
 *
 *  NV12 is a plane of luma, then a plane of one U,V pair for each 2 x 2 pixels, rounded down: the
 *  last column and row of an odd size share the pair beside them. BT.601; with `>>` rounding down,
 *  D = U - 128, E = V - 128 and results limited to 0..255:
 *
 *      KEL_NN_KIT_NV12, as video is stored: luma 16..235, chroma 16..240; C = 298 (Y - 16)
 *          R = (C + 409 E + 128) >> 8     G = (C - 100 D - 208 E + 128) >> 8
 *          B = (C + 516 D + 128) >> 8     grey = (C + 128) >> 8
 *      KEL_NN_KIT_NV12_FULL, as JPEG stores it: all of them 0..255; C = 256 Y
 *          R = (C + 359 E + 128) >> 8     G = (C - 88 D - 183 E + 128) >> 8
 *          B = (C + 454 D + 128) >> 8     grey = Y
 *
 *  Ask the camera which of the two it delivers: the wrong one costs contrast, not much else. The
 *  planes are scaled first, to NV12 of the image's size, and converted after.
 */
typedef enum kel_nn_kit_format {
  KEL_NN_KIT_GREY,     /**< one byte a pixel */
  KEL_NN_KIT_RGB,      /**< red, green, blue: three bytes a pixel */
  KEL_NN_KIT_BGR,      /**< blue, green, red: three bytes a pixel */
  KEL_NN_KIT_NV12,     /**< two planes, as video is stored */
  KEL_NN_KIT_NV12_FULL /**< two planes, as JPEG stores them */
} kel_nn_kit_format_t;

/** A picture from the camera, or from a file. */
typedef struct kel_nn_kit_frame {
  const uint8_t* data; /**< the first row, the uppermost; NV12: of the luma */
  int width, height;   /**< pixels; NV12: at least 2 x 2 */
  int stride; /**< bytes from row to row, in both planes of NV12, up to 65536; 0: no padding */
  kel_nn_kit_format_t format; /**< how its pixels are stored */
  const uint8_t* chroma;      /**< NV12's second plane; NULL: right after `height` rows of luma */
} kel_nn_kit_frame_t;

/** Memory that calls which are given it share, one after the other: it grows where a call needs
 *  more, and is otherwise left as it is.
 *
 *      kel_nn_kit_scratch_t scratch = {NULL, 0};
 *      kel_nn_kit_image_t image = {pixels, 416, 256, KEL_NN_KIT_RGB, &scratch};
 *      while (next_frame(&frame)) kel_nn_kit_letterbox(&frame, &image);
 *      kel_nn_kit_scratch_free(&scratch);
 */
typedef struct kel_nn_kit_scratch {
  void* data;  /**< from malloc(); NULL at first */
  size_t size; /**< bytes; 0 at first */
} kel_nn_kit_scratch_t;

/** Releases the memory; the scratch is then as at first. Null is ignored. */
void kel_nn_kit_scratch_free(kel_nn_kit_scratch_t* scratch);

/** What a task wants. */
typedef struct kel_nn_kit_image {
  uint8_t* data;              /**< the caller's `width` * `height` * (1 or 3) bytes, no padding */
  int width, height;          /**< pixels */
  kel_nn_kit_format_t format; /**< KEL_NN_KIT_GREY, _RGB or _BGR: what the model was trained with */
  kel_nn_kit_scratch_t* scratch; /**< kept between calls; NULL: from the heap for each call */
} kel_nn_kit_image_t;

/** A part of a picture. */
typedef struct kel_nn_kit_rect {
  int x, y; /**< its first column and row */
  int w, h; /**< how many columns and rows */
} kel_nn_kit_rect_t;

/** The input of the person and four-class detectors for frames of that size: 416 x 256 for
 *  landscape, 320 x 320 for square, 256 x 416 for portrait frames.
 */
kel_nn_size_t kel_nn_kit_detector_input(int frame_width, int frame_height);

/** Letterboxes a frame for the person and four-class detectors: scaled by max(image sides) /
 *  max(frame sides) in both directions and centred, so that the boxes come back at the right place.
 *
 *  A direction in which the scaled frame is shorter than the image is padded with
 *  KEL_NN_KIT_PADDING; one in which it is longer (640 x 480 on 416 x 256: 312 rows) is cut off
 *  equally on both sides: what is beyond the edges is not seen.
 *
 *  Detectors place the frame between pixels, here it starts at a whole one: off by nothing in the
 *  middle and, at the edges, by at most half a pixel of the frame, or half a pixel of the image where
 *  that is less and nothing is cut off. docs/kit.md has the figures. (A frame so long that its short
 *  side scales to less than 2 pixels may be off by 1 pixel of the image.)
 */
int kel_nn_kit_letterbox(const kel_nn_kit_frame_t* frame, const kel_nn_kit_image_t* image);

/** Where kel_nn_kit_letterbox() puts what: `source`, in the frame, fills `destination`, in the image;
 *  the rest of the image is padding. Sides of 1 to KEL_NN_KIT_MAX_SIDE.
 */
int kel_nn_kit_letterbox_rects(kel_nn_size_t frame_size, kel_nn_size_t image_size,
                               kel_nn_kit_rect_t* source, kel_nn_kit_rect_t* destination);

/** Scales the whole frame to the image, without keeping its proportions: what face detection wants
 *  at 320 x 240 x 3, because it scales its boxes by the frame's width and height.
 */
int kel_nn_kit_scale(const kel_nn_kit_frame_t* frame, const kel_nn_kit_image_t* image);

/** Cuts a rectangle out of the frame and scales it to the image, without keeping its proportions.
 *
 *  rect     Cut off at the edges of the frame. Where it starts or ends at an odd column or row of
 *           NV12, its colour (not its luma) is that of the rectangle widened by that pixel.
 *  returns  KEL_NN_KIT_OUTSIDE when nothing is left of it.
 *
 *      kel_nn_kit_image_t person = {pixels, 112, 112, KEL_NN_KIT_RGB, &scratch};
 *      kel_nn_kit_crop(&frame, kel_nn_kit_rect_of_box(&people.boxes[0]), &person);
 */
int kel_nn_kit_crop(const kel_nn_kit_frame_t* frame, kel_nn_kit_rect_t rect,
                    const kel_nn_kit_image_t* image);

/** How many points kel_nn_kit_align_face() takes. */
#define KEL_NN_KIT_FACE_POINT_COUNT 5

/** Turns, scales and moves a face so that its points come to lie where networks for face features
 *  expect them.
 *
 *  points  x and y of five points in the frame's pixels, where (0, 0) is the upper left corner of the
 *          first pixel: the eye on the left of the picture, the one on the right, the tip of the
 *          nose, the left and the right corner of the mouth.
 *  image   112 x 112 for the library's tasks. In an image of that size the points come to
 *          (38.4, 51.6), (73.6, 51.6), (56.0, 71.7), (41.4, 92.3) and (70.6, 92.3), as near as a
 *          similarity transform without mirroring takes them: the least sum of squares (S. Umeyama,
 *          "Least-squares estimation of transformation parameters between two point patterns",
 *          1991). In another size the places grow with its sides. They are an average face's, upright
 *          and symmetric, as most networks of this kind are trained with.
 *  returns KEL_NN_KIT_NO_FACE for points that no turn and scale brings near: not finite, all at one
 *          place, left and right exchanged.
 *
 *  Pixels are interpolated between four in double precision and rounded half up; beyond the frame's
 *  edges its outermost pixels are repeated. NV12 becomes NV12 of the image's size first.
 *
 *      kel_nn_kit_image_t face = {pixels, 112, 112, KEL_NN_KIT_GREY, &scratch};
 *      kel_nn_kit_rect_t found = {200, 80, 120, 150};
 *      float points[10], pose[3];
 *      kel_nn_facelm_init(handle); // once
 *      if (kel_nn_kit_crop(&frame, found, &face) == 0 &&
 *          kel_nn_facelm_process(handle, face.data, points, pose) == 0) {
 *        int i;
 *        for (i = 0; i < 10; i += 2) {  // the sample network gives parts of the crop
 *          points[i] = found.x + points[i] * found.w;
 *          points[i + 1] = found.y + points[i + 1] * found.h;
 *        }
 *        kel_nn_kit_align_face(&frame, points, &face);
 *      }
 */
int kel_nn_kit_align_face(const kel_nn_kit_frame_t* frame, const float* points,
                          const kel_nn_kit_image_t* image);

/** The rectangle of a box, rounded to whole pixels; for the boxes of the person and four-class
 *  detectors, whose centres are rounded down, exactly the one that was found. Values beyond an int
 *  are limited; a null box, NaN and sizes below 0 give an empty rectangle.
 */
kel_nn_kit_rect_t kel_nn_kit_rect_of_box(const kel_nn_box_t* box);

/** The largest square in the middle of a rectangle; half a pixel up or left where there is no exact
 *  middle.
 */
kel_nn_kit_rect_t kel_nn_kit_centre_square(kel_nn_kit_rect_t rect);

#ifdef __cplusplus
}
#endif

#endif /* KEL_NN_KIT_H_ */
