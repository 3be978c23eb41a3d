#include "reporter.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "interruption.h"
#include "library_call.h"

namespace kelnn_cli {
namespace {

// File names need not be UTF-8.
std::string dumped(const Json& json, int indent) {
  return json.dump(indent, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string Reporter::on_several_lines(const Json& json) { return dumped(json, 2); }
std::string Reporter::on_one_line(const Json& json) { return dumped(json, -1); }

void Reporter::complain(const std::string& message) const {
  fmt::print(stderr, "kelnn: {}\n", message);
}

void Reporter::complain(const std::exception& error) const {
  const auto* of_library = dynamic_cast<const kel_nn::Error*>(&error);
  complain(of_library ? explanation(*of_library) : error.what());
}

bool for_each_input(const std::vector<std::string>& inputs, const Reporter& reporter,
                    const std::function<void(const std::string&)>& work) {
  bool ok = true;
  for (const std::string& input : inputs) {
    if (is_interrupted()) break;
    try {
      work(input);
    } catch (const OutputFailure&) {
      throw;
    } catch (const std::exception& error) {
      reporter.complain(error);
      ok = false;
    }
  }
  return ok;
}

}  // namespace kelnn_cli
