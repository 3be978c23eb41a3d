#include "reporter.h"

#include <fmt/args.h>

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

std::string filled(const std::string& format, const Json& result) {
  fmt::dynamic_format_arg_store<fmt::format_context> arguments;
  for (const auto& [name, value] : result.items()) {
    if (value.is_string()) {
      arguments.push_back(fmt::arg(name.c_str(), value.get<std::string>()));
    } else if (value.is_number_float()) {
      arguments.push_back(fmt::arg(name.c_str(), value.get<double>()));
    } else if (value.is_number()) {
      arguments.push_back(fmt::arg(name.c_str(), value.get<int64_t>()));
    }
  }
  return fmt::vformat(format, arguments);
}

Text line(const std::string& format) {
  return [format](const Json& result) { return filled(format, result); };
}

void Reporter::report(const Json& result, const Text& text) {
  output_.write(wants_json_ ? dumped(result, 2) : text(result));
}

void Reporter::report_one(const Json& result, const Text& text) {
  output_.write(wants_json_ ? dumped(result, -1) : text(result));
}

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
