// SPDX-License-Identifier: Apache-2.0
#include "support/command_test.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

extern char** environ;

// What the encoder of H.264 takes once and keeps is no leak of ours.
extern "C" const char* __lsan_default_suppressions() { return "leak:libx264"; }

namespace kelnn_test {
namespace {

std::string content(std::FILE* file) {
  std::string text;
  char buffer[4096];
  std::rewind(file);
  for (size_t n; (n = std::fread(buffer, 1, sizeof(buffer), file)) > 0;) text.append(buffer, n);
  std::fclose(file);
  return text;
}

}  // namespace

std::string text_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

Samples beeps(double hz, double seconds, int rate) {
  std::mt19937 random(5);
  Samples samples(static_cast<size_t>(std::lround(seconds * rate)));
  for (size_t i = 0; i < samples.size(); ++i) {
    const double t = static_cast<double>(i) / rate;
    const double tone = std::fmod(t, 1.0) < 0.5 ? 8000 * std::sin(2 * CV_PI * hz * t) : 0;
    samples[i] = static_cast<int16_t>(tone + static_cast<double>(random() % 200));
  }
  return samples;
}

std::string pcm_of(const Samples& samples) {
  return {reinterpret_cast<const char*>(samples.data()), samples.size() * sizeof(samples[0])};
}

std::string avi_of(const std::string& samples, const std::vector<cv::Mat>& frames) {
  const auto number = [](size_t value, size_t size = 4) {
    return std::string(reinterpret_cast<const char*>(&value),
                       size);  // low byte first, as on every PC
  };
  const auto chunk = [&](const std::string& name, const std::string& data) {
    return name + number(data.size()) + data + std::string(data.size() % 2, '\0');
  };
  const auto stream = [&](const std::string& kind, size_t rate, size_t count, size_t unit,
                          const std::string& format) {
    return chunk("LIST", "strl" +
                             chunk("strh", kind + std::string(12, '\0') + number(1) + number(rate) +
                                               number(0) + number(count) + number(4096) +
                                               number(0) + number(unit) + number(0) + number(0)) +
                             chunk("strf", format));
  };
  constexpr size_t kRate = 16000, kBlock = 2 * kRate / size_t(kFramesPerSecond);
  std::string header(56, '\0'), streams, blocks;
  header[24] = frames.empty() ? 1 : 2;
  if (!frames.empty()) {
    streams += stream(std::string("vidsMJPG"), size_t(kFramesPerSecond), frames.size(), 0,
                      number(40) + number(size_t(frames[0].cols)) + number(size_t(frames[0].rows)) +
                          number(1, 2) + number(24, 2) + "MJPG" + std::string(20, '\0'));
  }
  streams += stream(std::string("auds\0\0\0\0", 8), kRate, samples.size() / 2, 2,
                    number(1, 2) + number(1, 2) + number(kRate) + number(2 * kRate) + number(2, 2) +
                        number(16, 2));
  for (size_t i = 0; i < frames.size() || i * kBlock < samples.size(); ++i) {
    if (i < frames.size()) {
      std::vector<uint8_t> jpeg;
      cv::imencode(".jpg", frames[i], jpeg);
      blocks += chunk("00dc", {jpeg.begin(), jpeg.end()});
    }
    if (i * kBlock < samples.size())
      blocks += chunk(frames.empty() ? "00wb" : "01wb", samples.substr(i * kBlock, kBlock));
  }
  return chunk("RIFF", "AVI " + chunk("LIST", "hdrl" + chunk("avih", header) + streams) +
                           chunk("LIST", "movi" + blocks));
}

CommandTest::CommandTest() {
  std::string path = fs::temp_directory_path() / "kelnn_test_XXXXXX";
  if (!mkdtemp(path.data())) std::abort();
  directory_ = path;
  fs::create_directory_symlink(KEL_NN_TEST_MODELS, directory_ / "models");
  setenv("KELNN_MODELS", "models/", /*overwrite=*/1);
}

CommandTest::~CommandTest() { fs::remove_all(directory_); }

// Files instead of pipes: nobody waits for anybody.
CommandResult CommandTest::run(std::vector<std::string> command, const std::string& input) const {
  std::FILE* in = std::tmpfile();
  std::FILE* out = std::tmpfile();
  std::FILE* err = std::tmpfile();
  if (!in || !out || !err) std::abort();
  std::fwrite(input.data(), 1, input.size(), in);
  std::rewind(in);

  std::vector<char*> argv;
  for (std::string& argument : command) argv.push_back(argument.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addchdir_np(&actions, directory_.c_str());
  posix_spawn_file_actions_adddup2(&actions, fileno(in), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fileno(out), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fileno(err), STDERR_FILENO);
  pid_t pid = 0;
  int status = -1;
  if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
    waitpid(pid, &status, 0);
  }
  posix_spawn_file_actions_destroy(&actions);
  std::fclose(in);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, content(out), content(err)};
}

CommandResult CommandTest::kelnn(const std::string& arguments, const std::string& input) const {
  std::istringstream words(arguments);
  std::vector<std::string> command = {KEL_NN_TEST_PROGRAM};
  command.insert(command.end(), std::istream_iterator<std::string>(words), {});
  return run(command, input);
}

std::string CommandTest::out(const std::string& arguments) const {
  const CommandResult result = kelnn(arguments);
  EXPECT_EQ(result.exit_code, 0) << "kelnn " << arguments << "\n" << result.err;
  return result.out;
}

std::vector<Json> CommandTest::lines(const std::string& arguments) const {
  std::vector<Json> lines;
  std::istringstream stream(out(arguments + " --json"));
  for (std::string line; std::getline(stream, line);) lines.push_back(Json::parse(line));
  return lines;
}

Json CommandTest::json(const std::string& arguments) const {
  const std::string text = out(arguments + " --json");
  return Json::accept(text) ? Json::parse(text) : Json("no JSON: " + text);
}

void CommandTest::expect_refused(const std::vector<Call>& calls) const {
  for (const Call& call : calls) {
    SCOPED_TRACE("kelnn " + call.arguments);
    const CommandResult result = kelnn(call.arguments);
    EXPECT_EQ(result.exit_code, call.exit_code);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, AllOf(HasSubstr("kelnn: "), HasSubstr(call.message)));
  }
}

size_t CommandTest::file_count(const std::string& name) const {
  return static_cast<size_t>(std::distance(fs::directory_iterator(path(name)), {}));
}

void CommandTest::write(const std::string& name, const std::string& content) const {
  fs::create_directories(fs::path(path(name)).parent_path());
  std::ofstream(path(name), std::ios::binary) << content;
}

void CommandTest::save(const std::string& name, const cv::Mat& picture) const {
  fs::create_directories(fs::path(path(name)).parent_path());
  EXPECT_TRUE(cv::imwrite(path(name), picture));
}

cv::Mat CommandTest::picture(const std::string& name) const { return cv::imread(path(name)); }

void CommandTest::save_video(const std::string& name, cv::Size size, int count,
                             const std::function<void(int, cv::Mat*)>& paint) const {
  cv::VideoWriter writer(path(name), cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), kFramesPerSecond,
                         size);
  EXPECT_TRUE(writer.isOpened());
  for (int i = 0; i < count; ++i) {
    cv::Mat frame = grey_frame(size);
    paint(i, &frame);
    writer.write(frame);
  }
}

}  // namespace kelnn_test
