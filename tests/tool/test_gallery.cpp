// SPDX-License-Identifier: Apache-2.0
// kelnn enroll and kelnn who: the nearest of many features, and the gallery's file.

#include "feature_index.h"
#include "support/command_test.h"

namespace {

using namespace kelnn_test;
using ::testing::Each;

kel_nn::Feature random_feature(std::mt19937* random) {
  kel_nn::Feature feature;
  for (float& value : feature) value = std::normal_distribution<float>(0, 0.0625f)(*random);
  return feature;
}

TEST(FeatureIndex, FindsWhatTheLibraryFindsMostAlikeToTheBit) {
  std::mt19937 random(7);
  std::vector<kel_nn::Feature> all;
  kelnn_cli::FeatureIndex index;
  for (int count = 1; count < 70; ++count) {
    all.push_back(count % 9 == 0 ? all.front()
                                 : random_feature(&random));  // of equal ones the first
    index.add(all.back());
    for (const kel_nn::Feature& asked : {random_feature(&random), all.front(), all.back()}) {
      size_t best = 0;
      for (size_t i = 1; i < all.size(); ++i) {
        if (kel_nn::similarity(asked, all[i]) > kel_nn::similarity(asked, all[best])) best = i;
      }
      const auto found = index.nearest(asked);
      EXPECT_EQ(found.number, best) << count;
      EXPECT_EQ(found.similarity, kel_nn::similarity(asked, all[best])) << count;
    }
  }
}

// Faces are patches of pure colour, which the sample network tells apart.
class Galleries : public CommandTest {
 protected:
  Galleries() {
    cv::Mat both = grey_frame(kFrame);
    for (const auto& [name, patch] : {std::pair("red", kRedFace), std::pair("blue", kBlueFace)}) {
      cv::Mat alone = grey_frame(kFrame);
      for (cv::Mat* frame : {&alone, &both})
        paint(frame, on_face_level(kFrame, patch), patch.colour);
      save(std::string(name) + ".png", alone);
    }
    save("both.png", both);
    save("nobody.png", grey_frame(kFrame));
  }
  std::vector<std::string> names_in_both(const std::string& options = "") const {
    std::vector<std::string> names;
    const Json found = json("who both.png --gallery g.db " + options);
    for (const Json& box : found.at("boxes")) names.push_back(box.at("name"));
    std::sort(names.begin(), names.end());
    return names;
  }

  const cv::Size kFrame = {640, 360};
  const Patch kRedFace = {kRed, 4, 11}, kBlueFace = {kBlue, 3, 1};
};

TEST_F(Galleries, KnowWhoWasEnrolledAndForgetWhoIsRemoved) {
  const Json red = json("enroll red red.png --gallery g.db");
  EXPECT_EQ(red.at("new"), true);
  EXPECT_EQ(json("enroll red red.png --gallery g.db").at("new"), false);
  EXPECT_THAT(names_in_both("--threshold 0.99"), ElementsAre("red", "unknown"));
  out("enroll blue blue.png --gallery g.db");
  EXPECT_THAT(names_in_both(), ElementsAre("blue", "red"));
  EXPECT_EQ(out("enroll --list --gallery g.db"), "blue  1\nred  1\n");
  EXPECT_EQ(fs::status(path("g.db")).permissions(), fs::perms::owner_read | fs::perms::owner_write);

  EXPECT_EQ(out("enroll red --remove --gallery g.db"), "red: 1 faces removed\n");
  EXPECT_THAT(names_in_both("--threshold -1"), Each("blue"));
  EXPECT_THAT(out("who nobody.png --gallery g.db"), HasSubstr("nobody.png:\n"));
}

TEST_F(Galleries, RefuseWhatIsNoneOfTheirsAndLeaveNothingHalfDone) {
  write("text.db",
        "not a gallery, but a text that is longer than a header of a database file, "
        "which has a hundred bytes and is what is looked at");
  out("enroll red red.png --gallery g.db");
  fs::create_directory(path("other"));
  for (const auto& model : fs::directory_iterator(path("models")))
    fs::copy_file(model.path(), path("other") / model.path().filename());
  for (const auto& model : fs::directory_iterator(path("other")))  // another network, by one byte
    std::ofstream(model.path(), std::ios::app | std::ios::binary).put('\0');
  expect_refused({
      {"who both.png --gallery none.db", 1, "none.db: there is no gallery; kelnn enroll NAME"},
      {"who both.png --gallery text.db", 1, "text.db: no gallery"},
      {"enroll red red.png --gallery text.db", 1, "text.db: no gallery"},
      {"enroll red red.png --gallery red.png", 2, "red.png"},
      {"enroll nobody nobody.png --gallery new.db", 1, "no face is found"},
      {"enroll unknown red.png --gallery new.db", 2, "nobody is called"},
      {"enroll blue --remove --gallery g.db", 1, "g.db: knows no \"blue\""},
      {"enroll blue blue.png --gallery g.db --root other", 1, "a gallery of another network"},
      {"who both.png --gallery g.db --root other", 1, "a gallery of another network"},
      {"who both.png --gallery g.db --threshold 2", 2, "--threshold"},
      {"who both.png --gallery g.db --csv g.db", 2, "take the place of the input"},
      {"watch x.avi --gallery g.db --coco g.db", 2, "take the place of the input"},
      {"enroll", 2, "name is required"},
  });
  EXPECT_FALSE(fs::exists(path("new.db")));
  EXPECT_THAT(text("text.db"), HasSubstr("not a gallery"));
  EXPECT_EQ(out("enroll --list --gallery g.db"), "red  1\n");
  EXPECT_EQ(kelnn("enroll blue nobody.png blue.png --gallery g.db").exit_code, 1);
  EXPECT_EQ(out("enroll --list --gallery g.db"), "blue  1\nred  1\n");  // the other one is kept
}

}  // namespace
