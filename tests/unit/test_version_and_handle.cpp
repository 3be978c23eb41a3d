// The banner, the handle, and how a failure is reported.
#include <cstddef>

#include "kel_nn_handle.h"
#include "support/library_test.h"

namespace {

using kelnn_test::IsLocatedLine;
using kelnn_test::LibraryTest;

constexpr char kBanner[] =
    "****************************\n"
    "* KELNN v1.3.19 2023/03/07 *\n"
    "****************************\n";

TEST_F(LibraryTest, BannerIsFramedByRowsOfItsOwnWidth) {
  EXPECT_EQ(kel_nn_print_version(), '\n');
  EXPECT_EQ(printed(), kBanner);
}

TEST_F(LibraryTest, EveryHandlePrintsTheBannerAndStartsAllZero) {
  for (int i = 0; i < 2; ++i) {
    kel_nn_handle_t handle = kel_nn_handle_create();
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(printed(), kBanner);
    const auto* bytes = reinterpret_cast<const unsigned char*>(handle);
    for (size_t k = 0; k < sizeof(kel_nn_handle); ++k) ASSERT_EQ(bytes[k], 0) << k;
    EXPECT_EQ(kel_nn_handle_destroy(handle), 0);
    EXPECT_EQ(printed(), "");
  }
}

TEST_F(LibraryTest, DestroyingNoHandleIsAnError) {
  EXPECT_EQ(kel_nn_handle_destroy(nullptr), -1);
  EXPECT_THAT(printed(), IsLocatedLine("31", "plat/jzt31/kel_nn_engine.cpp",
                                       "int kel_nn_handle_destroy(kel_nn_handle_t)",
                                       "[Error]Unhandled nn handle input."));
}

// Programs of older builds rely on where the graphs lie.
TEST(Handle, KeepsTheOrderOfItsMembers) {
  const size_t offsets[] = {
      offsetof(kel_nn_handle, reserved),
      offsetof(kel_nn_handle, graph_facedet),
      offsetof(kel_nn_handle, graph_face_classify),
      offsetof(kel_nn_handle, graph_facelm),
      offsetof(kel_nn_handle, graph_facercg),
      offsetof(kel_nn_handle, graph_crydet),
      offsetof(kel_nn_handle, graph_spare),
      offsetof(kel_nn_handle, graph_persondet),
      offsetof(kel_nn_handle, graph_person_classify),
      offsetof(kel_nn_handle, graph_4clsdet),
  };
  EXPECT_EQ(offsets[0], 0u);
  EXPECT_EQ(offsets[1], sizeof(void*));
  for (int i = 2; i < 10; ++i) EXPECT_EQ(offsets[i], offsets[i - 1] + sizeof(kel_nn_graph)) << i;
}

TEST(FeatureArray, IsZeroAndHas256Elements) {
  static_assert(sizeof(feature) == 1024, "256 floats");
  for (float value : feature) EXPECT_EQ(value, 0.0f);
}

}  // namespace
