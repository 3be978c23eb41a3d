#include "options.h"

#include <sstream>

namespace kelnn_cli {
namespace {

bool parse_box(const std::string& text, Box* box) {
  std::istringstream in(text);
  char comma[3] = {};
  in >> box->x >> comma[0] >> box->y >> comma[1] >> box->width >> comma[2] >> box->height;
  return in && in.peek() == EOF && std::string(comma, 3) == ",,," && box->x >= 0 && box->y >= 0 &&
         box->width > 0 && box->height > 0;
}

}  // namespace

void add_box(CLI::App* command, const std::string& name, Box* box, const std::string& help) {
  command
      ->add_option_function<std::string>(
          name, [box](const std::string& text) { parse_box(text, box); }, help)
      ->type_name("X,Y,W,H")
      ->check(CLI::Validator(
          [](std::string& text) {
            Box parsed;
            return parse_box(text, &parsed) ? "" : "\"" + text + "\" is not X,Y,WIDTH,HEIGHT";
          },
          ""));
}

}  // namespace kelnn_cli
