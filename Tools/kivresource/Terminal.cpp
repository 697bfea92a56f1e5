#include "Tools/kivresource/Terminal.h"

#include <cstdlib>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tool {

namespace {

std::string_view environment(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}

std::string_view codeOf(Terminal::Style style) {
  switch (style) {
    case Terminal::Style::bold:
      return "1";
    case Terminal::Style::dim:
      return "2";
    case Terminal::Style::green:
      return "32";
    case Terminal::Style::red:
      return "31";
  }
  return "0";
}

}  // namespace

Terminal::Terminal()
    : isTerminal_(isatty(STDOUT_FILENO) == 1 && environment("TERM") != "dumb"),
      hasColours_(isTerminal_ && environment("NO_COLOR").empty()) {}

std::size_t Terminal::width() const {
  winsize size{};
  const bool isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return isKnown ? size.ws_col : 80;
}

std::string Terminal::styled(Style style, std::string_view text) const {
  if (!hasColours_) return std::string(text);
  return std::string("\033[").append(codeOf(style)).append("m").append(text).append("\033[0m");
}

}  // namespace tool
