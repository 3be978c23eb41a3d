// SPDX-License-Identifier: Apache-2.0
// Frames are numbered from 1, vote, and every period the majority decides.
#ifndef KEL_NN_MOTION_VOTES_H_
#define KEL_NN_MOTION_VOTES_H_

#include <cstdint>

namespace kelnn {

struct MotionVotes {
  int32_t frame = 0;        // the number of the last frame
  int64_t motion_lead = 0;  // votes for motion less votes against it in this period

  // After the last number comes 1, with what that means for the history.
  void begin_frame() { frame = frame == INT32_MAX ? 1 : frame + 1; }

  // The first two frames only fill the history.
  bool can_vote() const { return frame > 2; }

  // Takes the frame's vote. The decision, 1 for motion and 0 for none, or -1 when the period goes
  // on. A tie is no motion. A period of 0 never ends.
  int32_t vote(bool motion, int32_t period) {
    motion_lead += motion ? 1 : -1;
    if (period == 0 || frame % period != 0) return -1;
    const int32_t decision = motion_lead > 0 ? 1 : 0;
    motion_lead = 0;
    return decision;
  }
};

}  // namespace kelnn

#endif  // KEL_NN_MOTION_VOTES_H_
