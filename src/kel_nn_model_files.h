// SPDX-License-Identifier: Apache-2.0
// The files of all tasks: their names, and how a file is scrambled.
//
// The names are opaque on purpose: a listing of the model directory does not say what a camera
// does. Their lengths belong to the interface.
#ifndef KEL_NN_MODEL_FILES_H_
#define KEL_NN_MODEL_FILES_H_

#include <cstddef>

namespace kelnn {

// A file begins with this many bytes that mean nothing, and as many of the model after them are
// scrambled.
constexpr size_t kScrambledSize = 1000;
constexpr char kScrambleKey[] = "TXlTYW1wbGUtS2V5LUEwMS0wMA==";
constexpr int kScrambled = 1;  // what kel_nne_graph_init() is told of a task's model

// clang-format off
constexpr char kFaceDetectionModel[] = "EVPwGdE421zuqAOqhFFORdPijmJe4ztqqLciSD.bin";
constexpr char kFaceLandmarksModel[] = "YKtibxagiDHtsSWTT64yH3P1dbwwCznM9F5V92OWCB79rwN5ffzTcdrkTFV9SP8aolMUHLpVT6AsYX.bin";
constexpr char kFaceFeatureModel[] = "2GDJH4sSZqW9QpXWaAZpZQjsXuQ1iNahwt6aR133JK8Ph37aHEJ05b5F2G6AuNP6bmxfhz673N.bin";
constexpr char kFaceClassifyModel[] = "4ktzpMv5WkUtd7i8vQxNiU91bEuDD25eMEprZUrbhnzHVHYg2UxakFjLTS2WoSwSSLBL8aWpUkLrJ3.bin";
constexpr char kPersonDetectionLandscapeModel[] = "FaN2sHdQKTn6L3Z1zBV8bHP9lfFRrvCuZjWqIElGvJdrh6XoDbvcIDWJPsHidFREJsTGzkUrNWCyEP.bin";
constexpr char kPersonDetectionSquareModel[] = "9WyVYM3yAIK6Af61MaQy6E75Ez3TGa5mNM8DP5TbfXm0FsAxV5C2tQ3arcxuqsjCa7.bin";
constexpr char kPersonDetectionPortraitModel[] = "6bBkDjMEgUbm2gKtl1Vd1pXkfRzfaFLTGuGtizrl62pC8PgGX0tJtH7gkVuaxVfaKp.bin";
constexpr char kPersonClassifyModel[] = "j6LJDni8h9VvNntyXnwIdFGWmTO48ehJYDt2Yjasr7Sl0qdWyseHlFKBOX1HzR5XovpYpa.bin";
constexpr char kFourClassLandscapeModel[] = "OeHcpHvOgsF4QOq8GRjGrPi48Cp69mYXD8Q3qID8tQyIZeY1Hxwq9XUc72EJG0EQsA9YSyz2E29.bin";
constexpr char kFourClassSquareModel[] = "7w1JCoDJrDyF8cxqtHBmlc25tAgJqpQGArjwFfVzK0rks6Sb6Qz3tzQdkKuvXT6WCgHj649M41l.bin";
constexpr char kFourClassPortraitModel[] = "O6AKSDGejHSVTkg4xJ1qZHaAxa5oiNnuDl1TLLtt4Wb7IwF1Lem2kI2wno9PicpmQ9RR6d8JLko.bin";
constexpr char kCryDetectionModel[] = "C8649fbD3ZJ4uQmKPMeL7Z1VMGBZdIrKeiAcIa4eaD0TIZALrtblMV.bin";
// clang-format on

template <size_t size>
constexpr bool has_stem_of(const char (&)[size], size_t length) {
  return size == length + sizeof(".bin");
}
static_assert(has_stem_of(kFaceDetectionModel, 38), "length of the name");
static_assert(has_stem_of(kFaceLandmarksModel, 78), "length of the name");
static_assert(has_stem_of(kFaceFeatureModel, 74), "length of the name");
static_assert(has_stem_of(kFaceClassifyModel, 78), "length of the name");
static_assert(has_stem_of(kPersonDetectionLandscapeModel, 78), "length of the name");
static_assert(has_stem_of(kPersonDetectionSquareModel, 66), "length of the name");
static_assert(has_stem_of(kPersonDetectionPortraitModel, 66), "length of the name");
static_assert(has_stem_of(kPersonClassifyModel, 70), "length of the name");
static_assert(has_stem_of(kFourClassLandscapeModel, 75), "length of the name");
static_assert(has_stem_of(kFourClassSquareModel, 75), "length of the name");
static_assert(has_stem_of(kFourClassPortraitModel, 75), "length of the name");
static_assert(has_stem_of(kCryDetectionModel, 54), "length of the name");

}  // namespace kelnn

#endif  // KEL_NN_MODEL_FILES_H_
