// SPDX-License-Identifier: Apache-2.0
// page.so: cpp-httplib reads requests and writes answers. The connections are ours: there are so many at most, each takes
// so many bytes and seconds at most, and all end at once with the page, which its own cannot be asked for.
#include <fcntl.h>
#include <fmt/format.h>
#include <httplib.h>
#include <poll.h>
#include <sodium.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <thread>

#include "board.h"
#include "numbers.h"
#include "page_files.h"

namespace kelnn_cli {
namespace {

using Clock = std::chrono::steady_clock;
using httplib::Request;
using httplib::Response;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr size_t kMaxConnections = 32, kMaxRequests = 1000;  // others wait; of a connection
constexpr size_t kMaxRequestSize = 16384;
// Between requests, for one, for a part of an answer.
constexpr seconds kIdle(5), kToAsk(5), kToTake(10);
constexpr int64_t kNoEvent = INT64_MAX;  // is waited for
constexpr size_t kClipBlock = 1 << 18;
constexpr char kHtml[] = "text/html; charset=utf-8";

// ----- Connections

// False: it did not become ready in time.
bool wait_for(int socket, int16_t events, Clock::time_point deadline) {
  const auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now()).count();
  pollfd ready = {socket, events, 0};
  return poll(&ready, 1, static_cast<int>(std::max<int64_t>(0, left))) > 0;
}

class Connection : public httplib::Stream {
 public:
  explicit Connection(int socket) : socket_(socket) {}

  bool begin_request() {  // false: there is none
    left_ = kMaxRequestSize;
    if (at_ == end_ && !wait_for(socket_, POLLIN, Clock::now() + kIdle)) return false;
    deadline_ = Clock::now() + kToAsk;
    return true;
  }

  ssize_t read(char* data, size_t size) override {
    if (left_ == 0) return -1;
    if (at_ == end_) {
      if (!wait_for(socket_, POLLIN, deadline_)) return -1;
      const ssize_t count = recv(socket_, buffer_.data(), buffer_.size(), 0);
      if (count <= 0) return count;
      at_ = 0;
      end_ = static_cast<size_t>(count);
    }
    const size_t count = std::min({size, end_ - at_, left_});
    std::memcpy(data, buffer_.data() + at_, count);
    at_ += count;
    left_ -= count;
    return static_cast<ssize_t>(count);
  }

  ssize_t write(const char* data, size_t size) override {
    const Clock::time_point deadline = Clock::now() + kToTake;
    for (size_t done = 0; done < size;) {
      if (!wait_for(socket_, POLLOUT, deadline)) return -1;
      const ssize_t count = send(socket_, data + done, size - done, MSG_DONTWAIT | MSG_NOSIGNAL);
      if (count < 0 && errno != EAGAIN) return -1;
      done += static_cast<size_t>(std::max<ssize_t>(0, count));
    }
    return static_cast<ssize_t>(size);
  }

  bool is_readable() const override { return wait_for(socket_, POLLIN, deadline_); }
  bool is_writable() const override { return wait_for(socket_, POLLOUT, Clock::now() + kToTake); }
  void get_remote_ip_and_port(std::string&, int&) const override {}
  void get_local_ip_and_port(std::string&, int&) const override {}
  socket_t socket() const override { return socket_; }

 private:
  int socket_;
  std::array<char, 4096> buffer_;
  size_t at_ = 0, end_ = 0, left_ = 0;  // in the buffer; what the request may still take
  Clock::time_point deadline_;
};

// ----- What requests say

// By the name that the browser was given, whatever the port: a stranger's name may lead here, too.
bool names_loopback(const std::string& host) {
  static const std::regex form(R"((localhost|127\.\d{1,3}\.\d{1,3}\.\d{1,3}|\[::1\])(:\d{1,5})?)");
  return std::regex_match(host, form);
}

std::string cookie_of(const Request& request, const std::string& name) {
  const std::string all = "; " + request.get_header_value("Cookie") + ";";
  const size_t at = all.find("; " + name + "=");
  if (at == std::string::npos) return "";
  const size_t begin = at + name.size() + 3;
  return all.substr(begin, all.find(';', begin) - begin);
}

int64_t number_in(const Request& request, const char* name) {
  int64_t number = 0;
  return parse_number(request.get_param_value(name), &number) ? number : 0;
}

// "bytes=100-199", "bytes=100-", "bytes=-100" of so many: begin and end. None: all are meant. An empty one cannot be had.
std::optional<std::pair<size_t, size_t>> part_of(const std::string& range, size_t size) {
  constexpr char kBytes[] = "bytes=";
  const size_t dash = range.find('-');
  if (range.rfind(kBytes, 0) != 0 || dash == std::string::npos) return std::nullopt;
  const std::string first = range.substr(sizeof(kBytes) - 1, dash - sizeof(kBytes) + 1);
  const std::string last = range.substr(dash + 1);
  size_t from = 0, to = size;
  const bool is_fine = (first.empty() || parse_number(first, &from)) &&
                       (last.empty() || parse_number(last, &to)) && !(first + last).empty();
  if (!is_fine || (!first.empty() && to < from && !last.empty())) return std::nullopt;
  if (first.empty()) return std::pair(size - std::min(to, size), size);
  return std::pair(std::min(from, size), to < size ? to + 1 : size);
}

void refuse(Response* response, int status, const std::string& why) {
  response->status = status;
  response->set_content(why + "\n", "text/plain; charset=utf-8");
}

// ----- The page

class Page : public LivePage, private httplib::Server {
 public:
  Page(const PageOptions& options, EncodeJpeg encode) : options_(options), board_(encode) {
    set_socket_options([](socket_t socket) {  // not SO_REUSEPORT: two programs would share the port
      const int on = 1;
      setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    });
    errno = 0;
    const bool is_bound = options.port == 0 ? (options_.port = bind_to_any_port(options.host)) > 0
                                            : bind_to_port(options.host, options.port);
    if (!is_bound) {
      throw Failure(fmt::format("--page {}, port {}: {}", options.host, options.port,
                                errno ? std::strerror(errno) : "cannot be had"));
    }
    set_keep_alive_max_count(kMaxRequests);
    set_keep_alive_timeout(kIdle.count());
    set_pre_routing_handler([this](const Request& request, Response& response) {
      answer(request, &response);
      return HandlerResponse::Handled;
    });
    acceptor_ = std::thread([this] { accept_all(); });
  }

  ~Page() override {
    board_.close();
    const int listener = svr_sock_.exchange(INVALID_SOCKET);
    std::unique_lock<std::mutex> lock(mutex_);
    is_ending_ = true;
    shutdown(listener, SHUT_RDWR);  // ends accept4()
    for (const int socket : sockets_) shutdown(socket, SHUT_RDWR);
    ended_.notify_all();
    ended_.wait(lock, [this] { return sockets_.empty(); });
    lock.unlock();
    acceptor_.join();
    ::close(listener);
  }

  bool wants_frame() const override { return board_.wants_frame(); }
  void show(const cv::Mat& drawn_bgr, const Json& state) override {
    if (board_.wants_frame()) board_.show(drawn_bgr, text_of(state));
  }
  void tell(const Json& event) override { board_.tell(text_of(event), event.value("clip", "")); }
  std::string address() const override {
    const bool is_ipv6 = options_.host.find(':') != std::string::npos;
    return fmt::format(is_ipv6 ? "http://[{}]:{}/" : "http://{}:{}/", options_.host, options_.port);
  }

 private:
  static std::string text_of(const Json& json) {  // names of files need not be UTF-8
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
  }

  // ----- Viewers

  void accept_all() {
    for (;;) {
      const int socket = accept4(svr_sock_, nullptr, nullptr, SOCK_CLOEXEC);
      std::unique_lock<std::mutex> lock(mutex_);
      ended_.wait(lock, [this] { return is_ending_ || sockets_.size() < kMaxConnections; });
      if (is_ending_) {
        if (socket >= 0) ::close(socket);
        return;
      }
      if (socket >= 0 && begin(socket)) continue;
      lock.unlock();
      std::this_thread::sleep_for(milliseconds(100));
    }
  }

  bool begin(int socket) try {
    sockets_.insert(socket);
    std::thread([this, socket] { serve(socket); }).detach();
    return true;
  } catch (const std::exception&) {  // for want of memory or threads
    sockets_.erase(socket);
    ::close(socket);
    return false;
  }

  void serve(int socket) {
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    const auto look_at = [](Request& request) {
      // It would be taken for the next request.
      for (const char* header : {"Content-Length", "Transfer-Encoding"}) {
        const std::string value = request.get_header_value(header);
        if (!value.empty() && value != "0") throw Failure("a body");
      }
      request.ranges.clear();  // the library believes them; part_of() looks at the size
    };
    try {
      Connection connection(socket);
      bool is_closed = false;
      for (size_t left = kMaxRequests; left > 0 && !is_closed; --left) {
        if (!connection.begin_request()) break;
        if (!process_request(connection, left == 1, is_closed, look_at)) break;
      }
    } catch (const std::exception&) {  // nothing more comes of this one
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    sockets_.erase(socket);
    ::close(socket);
    ended_.notify_all();
  }

  // ----- Answers

  void answer(const Request& request, Response* response) {
    const std::pair<const char*, const char*> headers[] = {
        {"Cache-Control", "no-store"},
        {"Content-Security-Policy",
         "default-src 'none'; connect-src 'self'; img-src 'self'; media-src 'self'; "
         "script-src 'self'; style-src 'self'; form-action 'self'; base-uri 'none'; "
         "frame-ancestors 'none'"},
        {"Cross-Origin-Opener-Policy", "same-origin"},
        {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Referrer-Policy", "no-referrer"},
        {"X-Content-Type-Options", "nosniff"}};
    for (const auto& [name, value] : headers) response->set_header(name, value);
    response->status = 200;
    if (request.method != "GET" && request.method != "HEAD") {
      response->set_header("Allow", "GET, HEAD");
      refuse(response, 405, "There is nothing to do here but to look.");
    } else if (request.path == "/page.css") {  // of the page for the token, too
      response->set_content(kPageCss, "text/css; charset=utf-8");
    } else if (options_.token.empty() && !names_loopback(request.get_header_value("Host"))) {
      refuse(response, 403, "This page is for localhost alone.");
    } else if (options_.token.empty() || has_token(request, response)) {
      give(request, response);
    }
  }

  // Who has the token shows it once, in the page's address or a form, and has it as a cookie from then on.
  bool has_token(const Request& request, Response* response) const {
    const std::string cookie = fmt::format("kelnn_page_{}", options_.port);
    const bool is_typed = request.path == "/" && request.has_param("token");
    const std::string token =
        is_typed ? request.get_param_value("token") : cookie_of(request, cookie);
    const std::string& right = options_.token;
    const bool is_right = token.size() == right.size() &&
                          sodium_memcmp(token.data(), right.data(), right.size()) == 0;
    if (!is_right) {
      response->status = token.empty() ? 401 : 403;
      response->set_content(kLoginHtml, kHtml);
    } else if (is_typed) {
      response->set_redirect("/", 303);  // without it
      response->set_header("Set-Cookie", fmt::format("{}={}; Path=/; Max-Age=2592000; HttpOnly; "
                                                     "SameSite=Strict",
                                                     cookie, token));
    }
    return is_right && !is_typed;
  }

  void give(const Request& request, Response* response) {
    constexpr char kClips[] = "/clips/";
    if (request.path == "/") return response->set_content(kPageHtml, kHtml);
    if (request.path == "/page.js") return response->set_content(kPageJs, "text/javascript");
    if (request.path == "/state") return state(request, response);
    if (request.path == "/picture.jpg") return picture(response);
    if (request.path.rfind(kClips, 0) == 0) {
      return clip(request.path.substr(std::strlen(kClips)), request.get_header_value("Range"),
                  response);
    }
    // Browsers ask for an icon by themselves, and show to developers that there is none.
    refuse(response, request.path == "/favicon.ico" ? 204 : 404, "There is nothing of that name.");
  }

  void state(const Request& request, Response* response) {
    const int64_t told = number_in(request, "told");
    const auto shot = board_.newest(number_in(request, "after"), told);
    response->set_content(fmt::format(R"({{"run":{},"number":{},"state":{},"events":{}}})", run_,
                                      shot ? shot->number : 0, shot ? shot->state : "null",
                                      board_.events_after(told)),
                          "application/json");
  }

  void picture(Response* response) {
    const auto shot = board_.newest(0, kNoEvent);
    if (!shot) return refuse(response, 404, "There is no frame yet.");
    response->set_content(shot->jpeg, "image/jpeg");
  }

  // No file but those that events have named, whatever is asked for.
  void clip(const std::string& path, const std::string& range, Response* response) const {
    const int file = board_.has_clip(path)
                         ? open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)
                         : -1;
    const std::shared_ptr<const int> owner(new int(file), [](const int* descriptor) {
      if (*descriptor >= 0) ::close(*descriptor);
      delete descriptor;
    });
    struct stat status = {};
    if (file < 0 || fstat(file, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size == 0) {
      return refuse(response, 404, "There is no such clip.");
    }
    const size_t size = static_cast<size_t>(status.st_size);
    const auto part = part_of(range, size);
    const auto [begin, end] = part.value_or(std::pair<size_t, size_t>(0, size));
    response->set_header("Accept-Ranges", "bytes");
    if (begin == end) {
      response->set_header("Content-Range", fmt::format("bytes */{}", size));
      return refuse(response, 416, "There is no such part of the clip.");
    }
    if (part) {
      response->status = 206;
      response->set_header("Content-Range", fmt::format("bytes {}-{}/{}", begin, end - 1, size));
    }
    const auto give = [owner, start = begin](size_t offset, size_t length,
                                             httplib::DataSink& sink) {
      std::string block(std::min(kClipBlock, length), '\0');
      const ssize_t count =
          pread(*owner, block.data(), block.size(), static_cast<off_t>(start + offset));
      return count > 0 && sink.write(block.data(), static_cast<size_t>(count));
    };
    response->set_content_provider(end - begin, "video/mp4", give);
  }

  PageOptions options_;
  Board board_;
  // Tells one run of the page from another.
  const int64_t run_ = std::chrono::system_clock::now().time_since_epoch() / milliseconds(1);
  std::mutex mutex_;
  std::condition_variable ended_;
  bool is_ending_ = false;
  std::set<int> sockets_;  // of viewers
  std::thread acceptor_;
};

std::unique_ptr<LivePage> open_server(const PageOptions& options, LivePage::EncodeJpeg encode) {
  const bool is_loopback = options.host.rfind("127.", 0) == 0 || options.host == "::1";
  if (options.token.empty() && !is_loopback) {
    throw UsageError("--page " + options.host +
                     ": whoever reaches this machine could look; it takes --page-token");
  }
  return std::make_unique<Page>(options, encode);
}

}  // namespace
}  // namespace kelnn_cli

extern "C" __attribute__((visibility("default"))) const kelnn_cli::PageModule* kelnn_module() {
  static constexpr kelnn_cli::PageModule kModule = {kelnn_cli::open_server};
  return &kModule;
}
