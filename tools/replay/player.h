// SPDX-License-Identifier: Apache-2.0
// Makes the calls of a recording again, through the library of this PC, and compares what comes.
#pragma once

#include <jzdl.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <string>

#include "kel_nn.h"
#include "recorded_calls.h"
#include "recording_reader.h"

namespace kelnn_cli {

// The first value that is not as it was recorded.
struct Difference {
  uint64_t call;
  double time;  // seconds since 1970
  std::string function, value, recorded, replayed;
};

struct Comparison {
  int64_t calls = 0, compared = 0, differing = 0;
  int64_t skipped =
      0;  // cannot be made again: without their inputs, or with what calls before the recording left
  int64_t lost = 0;     // that the recorder had no room for
  int64_t missing = 0;  // that are gone otherwise
  std::optional<Difference> first;
};

// What networks do: they give what was recorded, or are run, with the models of a directory.
struct Networks {
  bool are_run = false;
  std::string root;
};

class Player {
 public:
  explicit Player(const Networks& networks);
  ~Player();
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  void play(const kelnn_record::Entry& entry);
  const Comparison& comparison() const { return comparison_; }

 private:
  friend class ReplayedNet;
  struct Function;
  static const std::map<std::string, Function>& functions();
  static jzdl::BaseNet* make_net(jzdl::BaseNet* own);

  void begin_session();
  void end_session();
  static void release(kel_nn_handle_t handle);
  void note_gap(uint64_t number);
  bool can_be_made(const Function& function) const;
  void lay_out_model() const;
  void follow(const Function& function);
  void compare();

  // Of the call that is made: what it was given.
  const kelnn_record::Field& field(const std::string& name, kelnn_record::Type type,
                                   size_t size) const;
  int32_t integer(const std::string& name) const;
  float number(const std::string& name) const;
  kel_nn_handle_t handle();
  kel_nn_graph_t graph();
  bool is_null(const std::string& name) const;
  const kel_nn_size_t* size(const std::string& name);
  // Blank where there is a digest alone.
  const uint8_t* block(const std::string& name, kelnn_record::Type type, size_t size);
  const uint8_t* image(size_t size);
  // Where a result goes; null if it went nowhere.
  template <typename Value, size_t kCount = 1>
  Value* result(const std::string& name) {
    return is_null(name) ? nullptr : new (room(kCount * sizeof(Value))) Value[kCount]();
  }
  uint8_t* room(size_t size);  // blank, for as long as the call takes

  static Player* s_player;  // whose networks the runtime makes

  Networks networks_;
  std::string directory_;  // of files that stand for the models
  Comparison comparison_;
  const kelnn_record::Entry* entry_ = nullptr;
  bool is_blank_ = false;                    // an input of this call
  std::deque<std::vector<uint8_t>> blocks_;  // what it is given

  // Of one process that was recorded.
  uint64_t session_ = 0, last_number_ = 0;
  bool has_gap_ = false;
  std::map<int32_t, kel_nn_handle_t> handles_;
  std::map<int32_t, std::unique_ptr<kel_nn_graph>> graphs_;
  std::set<std::string> initialised_,
      unsettled_;  // tasks; unsettled: that remember what is not known here

  kelnn_record::Record record_;
  kelnn_record::Memory memory_;
  kelnn_record::Call call_;
};

}  // namespace kelnn_cli
