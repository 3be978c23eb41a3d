// SPDX-License-Identifier: Apache-2.0
// The banner, the handle, and how a failure is reported.

#include <thread>

#include "kel_nn_handle.h"
#include "kel_nn_log.h"
#include "support/library_test.h"

namespace {

using kelnn_test::LibraryTest;

constexpr char kBanner[] =
    "****************************\n"
    "* KELNN v1.3.19 2023/03/07 *\n"
    "****************************\n";

TEST_F(LibraryTest, EveryHandlePrintsTheBannerAndStartsAllZero) {
  EXPECT_EQ(kel_nn_print_version(), '\n');
  EXPECT_EQ(printed(), kBanner);
  for (int i = 0; i < 2; ++i) {
    kel_nn_handle_t handle = kel_nn_handle_create();
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(printed(), kBanner);
    static const kel_nn_handle zero = {};
    EXPECT_EQ(std::memcmp(handle, &zero, sizeof(zero)), 0);
    EXPECT_EQ(kel_nn_handle_destroy(handle), 0);
    EXPECT_EQ(printed(), "");
  }
  EXPECT_EQ(kel_nn_handle_destroy(nullptr), -1);
  expect_error("plat/jzt31/kel_nn_engine.cpp", "int kel_nn_handle_destroy(kel_nn_handle_t)",
               "Unhandled nn handle input.");
}

// However a compiler spells the signature, and never more than fits.
TEST_F(LibraryTest, AFunctionIsShownInOneSpelling) {
  const std::string part = "0123456789", most = part + part + part + part + part + part;
  const std::string longest = most + most + "012345";  // 126
  const std::pair<std::string, std::string> cases[] = {
      {"f", "f"},
      {"int f(size_t, T *, U **)", "int f(size_t, T*, U**)"},
      {"void *f(char *const, T *)", "void* f(char* const, T*)"},
      {"void* f(T*)", "void* f(T*)"},
      {longest, longest},
      {longest + "6789", longest},
  };
  for (const auto& [spelt, shown] : cases) {
    kelnn::report_error("a.cpp", spelt.c_str(), 1, "text");
    expect_error("a.cpp", shown, "text");
  }
}

TEST_F(LibraryTest, ALineIsPrintedUnderTheLockOfItsStream) {
  const auto is_free = [] {  // to another thread
    bool free = false;
    std::thread([&] {
      free = ftrylockfile(stdout) == 0;
      if (free) funlockfile(stdout);
    }).join();
    return free;
  };
  flockfile(stdout);
  kelnn::report_error("a.cpp", "f", 1, "text");
  EXPECT_FALSE(is_free());
  funlockfile(stdout);
  EXPECT_TRUE(is_free());
}

// Programs of older builds rely on where the graphs lie.
TEST(Handle, KeepsTheOrderOfItsMembers) {
  const kel_nn_handle h = {};
  const void* const graphs[] = {&h.graph_facedet,   &h.graph_face_classify,   &h.graph_facelm,
                                &h.graph_facercg,   &h.graph_crydet,          &h.graph_spare,
                                &h.graph_persondet, &h.graph_person_classify, &h.graph_4clsdet};
  const auto* const first = reinterpret_cast<const char*>(&h) + sizeof(void*);
  for (size_t i = 0; i < 9; ++i) EXPECT_EQ(graphs[i], first + i * sizeof(kel_nn_graph)) << i;
}

TEST(FeatureArray, IsZeroAndHas256Elements) {
  static_assert(sizeof(feature) == 1024, "256 floats");
  EXPECT_THAT(feature, testing::Each(0.0f));
}

}  // namespace
