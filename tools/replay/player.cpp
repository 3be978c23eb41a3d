// SPDX-License-Identifier: Apache-2.0
#include "player.h"

#include <fmt/format.h>

#include <cmath>
#include <filesystem>

#include "files.h"
#include "report.h"
#include "runtime_errors.h"
#include "wrap_networks.h"

namespace kelnn_cli {

using namespace kelnn_record;

Player* Player::s_player = nullptr;

// ----- Networks ----------------------------------------------------------------------------------

// Gives what a recorded network gave, or what `own` gives; both are told to the call that is compared.
class ReplayedNet : public jzdl::BaseNet {
 public:
  ReplayedNet(Player* player, jzdl::BaseNet* own) : player_(player), own_(own) {}

  int load_model(const char* model, int from_memory) override {
    is_loading_ = true;
    shapes_.clear();
    if (own_) return own_->load_model(model, from_memory);
    const Field* loaded = find("network_loaded", Type::kIntegers);
    const Field* shapes = find("network_shapes", Type::kIntegers);
    if (!loaded || loaded->count<int32_t>() != 2 || loaded->at<int32_t>(0) != 0 || !shapes)
      return kelnn_host::kUnsupportedNetwork;
    size_t total = 0;
    for (size_t i = 0; i < shapes->count<int32_t>(); ++i) {
      shapes_.push_back(shapes->at<int32_t>(i));
      if (shapes_.back() < 0 || shapes_.back() > kMostValues) return kelnn_host::kUnsupportedOutput;
    }
    if (shapes_.size() < 3 || shapes_.size() % 3 != 0) return kelnn_host::kUnsupportedOutput;
    for (size_t i = 0; i < shapes_.size(); i += 3) {
      const double product = 1.0 * shapes_[i] * shapes_[i + 1] * shapes_[i + 2];
      if (product > kMostValues) return kelnn_host::kUnsupportedOutput;
      if (i > 0) total += static_cast<size_t>(product);
    }
    values_ = total;
    return values_ <= kMostValues ? kelnn_host::kOk : kelnn_host::kUnsupportedOutput;
  }

  std::vector<int> input_shape() override {
    if (own_) {
      const std::vector<int> shape = own_->input_shape();  // width, height, channels
      if (shape.size() == 3) shapes_ = {shape[1], shape[0], shape[2]};
      return shape;
    }
    return {shapes_[1], shapes_[0], shapes_[2]};
  }

  int input(jzdl::Mat<signed char>& image, int layer) override {
    image_.assign(image.data, image.data + (image.data ? image.total() : 0));
    for (uint8_t& byte : image_) byte ^= 0x80;  // as the application gave it
    return own_ ? own_->input(image, layer) : kelnn_host::kOk;
  }

  int run(jzdl::Mat<float>& output, int layer) override {
    const int code = own_ ? own_->run(output, layer) : play(&output);
    if (code != 0 || output.empty()) return code;
    if (own_ && is_loading_) learn_shapes(output);
    if (is_loading_) {
      player_->call_.shapes(shapes_.data(), shapes_.size());
    } else {
      player_->call_.ran(image_.data(), image_.size(), output.data,
                         std::min(values_, output.total()));
    }
    is_loading_ = false;
    return code;
  }

 private:
  static constexpr int32_t kMostValues = 1 << 24;  // up to here a float counts exactly

  const Field* find(const std::string& name, Type type) const {
    const Field* found = player_->entry_ ? player_->entry_->find(name) : nullptr;
    return found && found->type == type ? found : nullptr;
  }

  // The values as they were, and behind them what a runtime says of them.
  int play(jzdl::Mat<float>* output) const {
    const Field* recorded = find("network_outputs", Type::kFloats);
    if (!is_loading_ && (!recorded || recorded->count<float>() != values_))
      return kelnn_host::kInferenceFailed;
    output->create(static_cast<int>(values_ + shapes_.size() - 3 + 1), 1, 1);
    if (output->empty()) return kelnn_host::kOutOfMemory;
    float* to = output->data;
    std::fill(to, to + values_, 0.0f);
    if (!is_loading_ && values_ > 0)
      std::memcpy(to, recorded->value.data(), recorded->value.size());
    to = std::copy(shapes_.begin() + 3, shapes_.end(), to + values_);
    *to = static_cast<float>(shapes_.size() / 3 - 1);
    return kelnn_host::kOk;
  }

  void learn_shapes(const jzdl::Mat<float>& output) {
    const size_t size = output.total();
    const size_t count = static_cast<size_t>(output.data[size - 1]);
    if (3 * count + 1 > size) return;
    values_ = size - 1 - 3 * count;
    for (size_t i = 0; i < 3 * std::min<size_t>(count, KEL_NN_MAX_TENSOR_CNT); ++i) {
      shapes_.push_back(static_cast<int32_t>(output.data[values_ + i]));
    }
  }

  Player* player_;
  std::unique_ptr<jzdl::BaseNet> own_;
  bool is_loading_ = false;
  std::vector<int32_t> shapes_;  // height, width and channels, and three values of each output
  size_t values_ = 0;            // of all outputs
  std::vector<uint8_t> image_;
};

// The recorded one needs none of its own.
jzdl::BaseNet* Player::make_net(jzdl::BaseNet* own) {
  if (s_player->networks_.are_run) return new ReplayedNet(s_player, own);
  delete own;
  return new ReplayedNet(s_player, nullptr);
}

// ----- What a call was given ---------------------------------------------------------------------

const Field& Player::field(const std::string& name, Type type, size_t size) const {
  const Field* found = entry_->find(name);
  if (!found || found->type != type || found->value.size() != size) {
    throw Failure(
        fmt::format("call {}: {} is not recorded as it should be", entry_->header.number, name));
  }
  return *found;
}

int32_t Player::integer(const std::string& name) const {
  return field(name, Type::kIntegers, sizeof(int32_t)).at<int32_t>(0);
}
float Player::number(const std::string& name) const {
  return field(name, Type::kFloats, sizeof(float)).at<float>(0);
}

bool Player::is_null(const std::string& name) const {
  const Field* found = entry_->find(name);
  return found && found->type == Type::kNull;
}

const kel_nn_size_t* Player::size(const std::string& name) {
  if (is_null(name)) return nullptr;
  const auto recorded = field(name, Type::kIntegers, sizeof(kel_nn_size_t)).at<kel_nn_size_t>(0);
  return new (room(sizeof(kel_nn_size_t))) kel_nn_size_t(recorded);
}

kel_nn_handle_t Player::handle() {
  const int32_t id = integer("handle");
  if (id == 0) return nullptr;
  kel_nn_handle_t& own = handles_[id];
  if (!own) own = kel_nn_handle_create();
  return own;
}

kel_nn_graph_t Player::graph() {
  const int32_t id = integer("graph");
  if (id == 0) return nullptr;
  std::unique_ptr<kel_nn_graph>& own = graphs_[id];
  if (!own) own = std::make_unique<kel_nn_graph>();
  return own.get();
}

// One byte more: the address of no bytes is not null.
uint8_t* Player::room(size_t size) { return blocks_.emplace_back(size + 1).data(); }

const uint8_t* Player::block(const std::string& name, Type type, size_t size) {
  if (is_null(name)) return nullptr;
  const Field* found = entry_->find(name);
  uint8_t* const memory = room(size);
  if (found && found->type == Type::kDigest) {
    is_blank_ = true;
  } else {
    const Field& recorded = field(name, type, size);
    std::copy(recorded.value.begin(), recorded.value.end(), memory);
  }
  return memory;
}

const uint8_t* Player::image(size_t size) { return block("image", Type::kBytes, size); }

// ----- The functions -----------------------------------------------------------------------------

namespace {
enum class Role { kOther, kInit, kDeinit, kProcess };
// Of tasks whose results follow from earlier inputs too.
bool remembers(const std::string& task) { return task == "motion" || task == "cry"; }
}  // namespace

struct Player::Function {
  std::string task;
  Role role;
  std::function<void(Player*, Call*)> play;
};

const std::map<std::string, Player::Function>& Player::functions() {
  static const std::map<std::string, Function> all = [] {
    constexpr size_t kFace = kFaceSide * kFaceSide;  // pixels
    std::map<std::string, Function> table;
    const auto of_handle_alone = [](auto function) {
      return [function](Player* p, Call* call) { of_handle(call, function, p->handle()); };
    };
    const auto for_size = [](auto form, auto function) {
      return [form, function](Player* p, Call* call) {
        form(call, function, p->handle(), p->integer("width"), p->integer("height"));
      };
    };
    const auto detector = [](auto function) {
      return [function](Player* p, Call* call) {
        const kel_nn_size_t* const input = p->size("input_size");
        const auto is = [=](int32_t w, int32_t h) {
          return input && input->w == w && input->h == h;
        };
        const size_t pixels = is(416, 256) || is(256, 416) ? 416 * 256
                              : is(320, 320)               ? 320 * 320
                                                           : 0;
        detector_process(call, function, p->handle(), p->image(3 * pixels),
                         p->result<kel_nn_det_result_t>("result"), p->size("frame_size"), input);
      };
    };
    const auto add_task = [&table](const std::string& task, const std::string& prefix, auto init,
                                   auto deinit, const std::string& process_name, auto process) {
      table[prefix + "_init"] = {task, Role::kInit, init};
      table[prefix + "_deinit"] = {task, Role::kDeinit, deinit};
      table[process_name] = {task, Role::kProcess, process};
    };
    const auto add = [&table](const std::string& name, const std::string& task, Role role,
                              auto play) {
      table[name] = {task, role, play};
    };

    add("kel_nn_handle_create", "", Role::kOther, [](Player* p, Call* call) {
      kel_nn_handle_t& known = p->handles_[p->integer("handle")];
      p->release(known);
      if (known) kel_nn_handle_destroy(known);
      known = handle_create(call, kel_nn_handle_create);
    });
    add("kel_nn_handle_destroy", "", Role::kOther, [](Player* p, Call* call) {
      const kel_nn_handle_t handle = p->handle();
      p->release(handle);
      of_handle(call, kel_nn_handle_destroy, handle);
      if (handle) p->handles_.erase(p->integer("handle"));
    });
    add("kel_nn_set_model_root_dir", "", Role::kOther, [](Player* p, Call* call) {
      const char* const directory = p->is_null("dir") ? nullptr : p->directory_.c_str();
      set_model_root_dir(call, kel_nn_set_model_root_dir, directory);
    });
    add_task("faces", "kel_nn_facedet", for_size(init_for_size<int>, kel_nn_facedet_init),
             of_handle_alone(kel_nn_facedet_deinit), "kel_nn_facedet_process",
             [](Player* p, Call* call) {
               facedet_process(call, kel_nn_facedet_process, p->handle(), p->image(320 * 240 * 3),
                               p->result<kel_nn_facedet_result_t>("result"));
             });
    add_task("persons", "kel_nn_persondet", for_size(init_for_size<int>, kel_nn_persondet_init),
             of_handle_alone(kel_nn_persondet_deinit), "kel_nn_persondet_process",
             detector(kel_nn_persondet_process));
    add_task("objects", "kel_nn_4clsdet", for_size(init_for_size<int>, kel_nn_4clsdet_init),
             of_handle_alone(kel_nn_4clsdet_deinit), "kel_nn_4clsdet_process",
             detector(kel_nn_4clsdet_process));
    add_task("features", "kel_nn_facercg", of_handle_alone(kel_nn_facercg_init),
             of_handle_alone(kel_nn_facercg_deinit), "kel_nn_face_feature_extract",
             [](Player* p, Call* call) {
               feature_extract(call, kel_nn_face_feature_extract, p->handle(), p->image(kFace),
                               p->result<kel_nn_feature_t>("feature"));
             });
    add("kel_nn_face_feature_similarity_calcul", "similarity", Role::kOther,
        [](Player* p, Call* call) {
          const Field* values = p->entry_->find("a");
          const size_t count = values ? values->count<float>() : 0;
          const auto feature = [&](const char* name) {
            const uint8_t* data = p->block(name, Type::kFloats, count * sizeof(float));
            return kel_nn_feature_t{reinterpret_cast<float*>(const_cast<uint8_t*>(data)),
                                    static_cast<uint32_t>(count)};
          };
          const kel_nn_feature_t a = feature("a"), b = feature("b");
          feature_similarity(call, kel_nn_face_feature_similarity_calcul, &a, &b);
        });
    add_task("landmarks", "kel_nn_facelm", of_handle_alone(kel_nn_facelm_init),
             of_handle_alone(kel_nn_facelm_deinit), "kel_nn_facelm_process",
             [](Player* p, Call* call) {
               facelm_process(call, kel_nn_facelm_process, p->handle(), p->image(kFace),
                              p->result<float, 10>("landmarks"), p->result<float, 3>("pose"));
             });
    add_task("face_class", "kel_nn_face_classify", of_handle_alone(kel_nn_face_classify_init),
             of_handle_alone(kel_nn_face_classify_deinit), "kel_nn_face_classify_process",
             [](Player* p, Call* call) {
               face_classify_process(call, kel_nn_face_classify_process, p->handle(),
                                     p->image(kFace), p->result<int>("class_id"),
                                     p->result<float>("score"));
             });
    add_task("person_class", "kel_nn_person_classify", of_handle_alone(kel_nn_person_classify_init),
             of_handle_alone(kel_nn_person_classify_deinit), "kel_nn_person_classify_process",
             [](Player* p, Call* call) {
               person_classify_process(call, kel_nn_person_classify_process, p->handle(),
                                       p->image(3 * kFace), p->result<float>("score"));
             });
    add_task("motion", "kel_nn_pir_filter", for_size(pir_filter_init, kel_nn_pir_filter_init),
             of_handle_alone(kel_nn_pir_filter_deinit), "kel_nn_pir_filter_process",
             [](Player* p, Call* call) {
               int32_t* const result = p->result<int32_t>("result");
               if (result) *result = p->integer("result_before");
               const int32_t width = p->integer("width"), height = p->integer("height");
               // Others than the filter was started with are not looked at, and not recorded.
               const bool is_read =
                   width == p->memory_.motion_width && height == p->memory_.motion_height;
               const size_t pixels =
                   is_read && width > 0 && height > 0 ? size_t(width) * size_t(height) : 0;
               if (pixels > kMaxRecord / 2)
                 throw Failure("a frame that is too large to be recorded");
               pir_filter_process(call, kel_nn_pir_filter_process, p->handle(), p->image(pixels),
                                  width, height, p->number("ratio"), p->integer("period"), result);
             });
    add_task(
        "cry", "kel_nn_crydet",
        [](Player* p, Call* call) {
          crydet_init(call, kel_nn_crydet_init, p->handle(),
                      static_cast<uint32_t>(p->integer("sample_rate")),
                      p->number("gate_threshold"));
        },
        of_handle_alone(kel_nn_crydet_deinit), "kel_nn_crydet_process",
        [](Player* p, Call* call) {
          const auto n = static_cast<uint32_t>(p->integer("n"));
          const void* pcm = p->block("pcm", Type::kSamples, 2 * std::min<size_t>(n, kCryWindow));
          crydet_process(call, kel_nn_crydet_process, p->handle(), static_cast<const int16_t*>(pcm),
                         n, p->result<float>("score"));
        });

    // Graphs of the application's own.
    add_task(
        "graphs", "kel_nne_graph",
        [](Player* p, Call* call) {
          const Field* model = p->entry_->find("network_model");
          const std::string name =
              model ? std::string(model->value.begin(), model->value.end()) : "";
          call->start();
          call->returned(kel_nne_graph_init(
              p->graph(), p->is_null("model") ? nullptr : name.c_str(), p->integer("scrambled")));
        },
        [](Player* p, Call* call) { call->run(kel_nne_graph_deinit, p->graph()); },
        "kel_nne_run_graph",
        [](Player* p, Call* call) {
          const kel_nn_graph_t graph = p->graph();
          if (graph) {
            const auto& [batch, height, width, channels] = graph->inputs[0].dim;
            graph->inputs[0].buffer =
                p->entry_->find("image") ? const_cast<uint8_t*>(p->image(height * width * channels))
                                         : nullptr;
          }
          call->start();
          call->returned(kel_nne_run_graph(graph));
        });
    return table;
  }();
  return all;
}

// ----- Call after call ---------------------------------------------------------------------------

Player::Player(const Networks& networks)
    : networks_(networks), call_(&record_, {true, true}, &memory_) {
  if (networks_.are_run) {
    directory_ = with_slash(networks_.root);
  } else {
    std::error_code error;
    std::string path =
        (std::filesystem::temp_directory_path(error) / "kelnn-replay-XXXXXX").string();
    if (error || !mkdtemp(path.data())) throw Failure(path, "no directory for temporary files");
    directory_ = with_slash(path);
  }
  s_player = this;
  kelnn_host::wrap_networks(make_net);
}

Player::~Player() {
  end_session();
  kelnn_host::wrap_networks(nullptr);
  s_player = nullptr;
  std::error_code error;
  if (!networks_.are_run) std::filesystem::remove_all(directory_, error);
}

void Player::begin_session() {
  session_ = entry_->header.time;
  end_session();
  last_number_ = 0;
  has_gap_ = false;
  memory_ = {};
  kel_nn_set_model_root_dir(directory_.c_str());
}

// The library leaves a handle's models to their _deinit; an application that forgot one should not cost memory here.
void Player::release(kel_nn_handle_t handle) {
  for (const auto deinit :
       {kel_nn_facedet_deinit, kel_nn_persondet_deinit, kel_nn_4clsdet_deinit,
        kel_nn_facercg_deinit, kel_nn_facelm_deinit, kel_nn_face_classify_deinit,
        kel_nn_person_classify_deinit, kel_nn_crydet_deinit}) {
    if (handle) deinit(handle);
  }
}

void Player::end_session() {
  entry_ = nullptr;
  for (const auto& [id, handle] : handles_) {
    release(handle);
    if (handle) {
      kel_nn_pir_filter_deinit(handle);
      kel_nn_handle_destroy(handle);
    }
  }
  handles_.clear();
  for (const auto& [id, graph] : graphs_) kel_nne_graph_deinit(graph.get());
  graphs_.clear();
  initialised_.clear();
  unsettled_.clear();
}

// Calls between the last and this one are not there: what they left in the tasks is not known.
void Player::note_gap(uint64_t number) {
  if (number == last_number_ + 1) return;
  comparison_.missing += static_cast<int64_t>(number - last_number_ - 1);
  has_gap_ = true;
  unsettled_ = {"motion", "cry"};
}

bool Player::can_be_made(const Function& function) const {
  bool has_digest = false;
  for (const Field& field : entry_->fields) {
    has_digest = has_digest || (field.kind == Kind::kArgument && field.type == Type::kDigest);
  }
  if (has_digest &&
      (networks_.are_run || remembers(function.task) || function.task == "similarity"))
    return false;
  if (function.role != Role::kProcess) return true;
  if (unsettled_.count(function.task)) return false;
  const Field* outputs = entry_->find("network_outputs");
  if (!networks_.are_run && outputs && outputs->type == Type::kDigest) return false;
  return !has_gap_ || initialised_.count(function.task);
}

// What is known of the task after the call that was recorded.
void Player::follow(const Function& function) {
  const Field* returned = entry_->find("returned");
  const bool is_fine = returned && returned->count<int32_t>() == 1 && returned->at<int32_t>(0) == 0;
  if (function.role == Role::kInit && is_fine) {
    initialised_.insert(function.task);
    if (!entry_->header.is_repeated) unsettled_.erase(function.task);
  } else if (function.role == Role::kInit && entry_->header.is_repeated &&
             remembers(function.task)) {
    unsettled_.insert(function.task);
  } else if (function.role == Role::kDeinit && is_fine) {
    initialised_.erase(function.task);
  }
  if (function.role == Role::kProcess && function.task == "cry") {
    const Field* score = entry_->find("score");
    const bool is_full = score && score->type == Type::kFloats && score->count<float>() == 1 &&
                         score->at<float>(0) >= 0;
    if (is_full) unsettled_.erase("cry");  // the next window begins empty
  }
}

// A file for the library to read; one that was not there then is not there now.
void Player::lay_out_model() const {
  const Field* model = entry_->find("network_model");
  const Field* loaded = entry_->find("network_loaded");
  if (!model || model->type != Type::kText || !loaded || loaded->count<int32_t>() != 2) return;
  const std::string name(model->value.begin(), model->value.end());
  const bool is_name = !name.empty() && name != "." && name != ".." &&
                       name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
  if (!is_name) return;
  const std::string path = directory_ + name;
  std::error_code error;
  std::filesystem::remove(path, error);
  if (loaded->at<int32_t>(0) == 0 || loaded->at<int32_t>(1) != 0)
    write_file(path, Bytes(3000, 'x'));
}

void Player::play(const Entry& entry) {
  entry_ = &entry;
  if (entry.name == kStartRecord) {
    if (entry.header.time != session_) begin_session();
    return;
  }
  if (entry.name == kLostRecord) {
    comparison_.lost += integer("calls");
    comparison_.missing -= integer("calls");
    return;
  }
  if (entry.header.number <= last_number_) return;  // told again, and known
  if (!entry.header.is_repeated) {
    note_gap(entry.header.number);
    last_number_ = entry.header.number;
    ++comparison_.calls;
  } else if (last_number_ == 0) {
    unsettled_ = {"motion", "cry"};
  }
  const auto found = functions().find(entry.name);
  if (found == functions().end() || !can_be_made(found->second)) {
    comparison_.skipped += !entry.header.is_repeated;
    if (found != functions().end()) follow(found->second);
    return;
  }
  if (!networks_.are_run) lay_out_model();
  is_blank_ = false;
  blocks_.clear();
  call_.begin(entry.name.c_str(), entry.header.number);
  found->second.play(this, &call_);
  follow(found->second);
  if (!entry.header.is_repeated) compare();
}

// ----- Comparing ---------------------------------------------------------------------------------

namespace {

std::string shown(float value) {
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof(bits));
  return fmt::format("{} (0x{:08x})", value, bits);
}
std::string shown(const DigestField& field) {
  return fmt::format("{} bytes of digest {:016x}", field.size, field.digest);
}
template <typename Integer>
std::string shown(Integer value) {
  return std::to_string(value);
}

struct Unequal {
  std::string where, recorded, replayed;
};

std::optional<Unequal> unequal(int32_t a, int32_t b) {
  if (a == b) return {};
  return Unequal{"", shown(a), shown(b)};
}
std::optional<Unequal> unequal(float a, float b) {
  if (std::memcmp(&a, &b, sizeof(a)) == 0 || (std::isnan(a) && std::isnan(b))) return {};
  return Unequal{"", shown(a), shown(b)};
}
std::optional<Unequal> unequal(const kel_nn_box_t& a, const kel_nn_box_t& b) {
  std::optional<Unequal> found;
  const auto compare = [&](const char* name, auto kel_nn_box_t::*member) {
    if (!found && (found = unequal(a.*member, b.*member))) found->where = name;
  };
  compare(".cx", &kel_nn_box_t::cx);
  compare(".cy", &kel_nn_box_t::cy);
  compare(".w", &kel_nn_box_t::w);
  compare(".h", &kel_nn_box_t::h);
  compare(".score", &kel_nn_box_t::score);
  compare(".class_id", &kel_nn_box_t::class_id);
  return found;
}

// The first element that differs.
template <typename Value>
std::optional<Unequal> first_unequal(const Field& recorded, const Field& replayed) {
  const size_t count = recorded.count<Value>();
  const bool is_one = count == 1 && !std::is_same_v<Value, kel_nn_box_t>;
  for (size_t i = 0; i < std::min(count, replayed.count<Value>()); ++i) {
    auto found = unequal(recorded.at<Value>(i), replayed.at<Value>(i));
    if (found && !is_one) found->where.insert(0, fmt::format("[{}]", i));
    if (found) return found;
  }
  if (recorded.value.size() == replayed.value.size()) return {};
  return Unequal{".count", shown(count), shown(replayed.count<Value>())};
}

std::optional<Unequal> first_unequal_value(const Field& recorded, const Field& replayed) {
  if (recorded.type == Type::kDigest) {
    const DigestField a = recorded.at<DigestField>(0);
    const DigestField b =
        replayed.type == Type::kDigest
            ? replayed.at<DigestField>(0)
            : DigestField{Digest::of(replayed.value.data(), replayed.value.size()),
                          static_cast<uint32_t>(replayed.value.size()),
                          replayed.type,
                          {}};
    if (a.digest == b.digest && a.size == b.size) return {};
    return Unequal{"", shown(a), shown(b)};
  }
  if (recorded.type != replayed.type) return Unequal{"", "of another kind", "of another kind"};
  if (recorded.type == Type::kBoxes) return first_unequal<kel_nn_box_t>(recorded, replayed);
  if (recorded.type == Type::kFloats) return first_unequal<float>(recorded, replayed);
  if (recorded.type == Type::kIntegers) return first_unequal<int32_t>(recorded, replayed);
  if (recorded.value == replayed.value) return {};
  return Unequal{"", fmt::format("{} bytes", recorded.value.size()), "others"};
}

std::vector<const Field*> compared_fields(const Entry& entry, bool without_input) {
  std::vector<const Field*> fields;
  for (const Field& field : entry.fields) {
    const bool is_input = field.name == "network_input";
    if (field.kind != Kind::kArgument && !(is_input && without_input)) fields.push_back(&field);
  }
  return fields;
}

}  // namespace

void Player::compare() {
  Entry replayed;
  const Buffer& bytes = record_.bytes();
  if (bytes.is_short() || !parse(bytes.data(), bytes.size(), &replayed)) {
    throw Failure(fmt::format("call {}: no memory for its results", entry_->header.number));
  }
  ++comparison_.compared;
  const std::vector<const Field*> then = compared_fields(*entry_, is_blank_),
                                  now = compared_fields(replayed, is_blank_);
  for (size_t i = 0; i < std::max(then.size(), now.size()); ++i) {
    const std::string name = i < then.size() ? then[i]->name : now[i]->name;
    std::optional<Unequal> unequal;
    if (i >= then.size() || i >= now.size() || then[i]->name != now[i]->name) {
      unequal =
          Unequal{"", i < then.size() ? "there" : "missing", i < then.size() ? "missing" : "there"};
    } else {
      unequal = first_unequal_value(*then[i], *now[i]);
    }
    if (!unequal) continue;
    ++comparison_.differing;
    if (!comparison_.first) {
      comparison_.first =
          Difference{entry_->header.number, static_cast<double>(entry_->header.time) / 1e6,
                     entry_->name,          name + unequal->where,
                     unequal->recorded,     unequal->replayed};
    }
    return;
  }
}

}  // namespace kelnn_cli
