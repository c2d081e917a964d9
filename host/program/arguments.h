#ifndef MPBP_HOST_PROGRAM_ARGUMENTS_H_
#define MPBP_HOST_PROGRAM_ARGUMENTS_H_

#include <optional>
#include <span>
#include <string>

#include "host/options.h"

namespace mpbp::host {

// What the command line says.
struct Arguments {
  bool help = false;
  std::string url = "https://www.murmel.example/";
  std::string module;   // empty: the file beside the program
  std::string profile;  // empty: the user's own
  double linger_seconds = 0;
  HostOptions host;
};

// Returns what is wrong with the command line (without the program's name in front); nothing when
// `arguments` is filled in.
std::optional<std::string> ParseArguments(std::span<char* const> words, Arguments& arguments);

// A number of seconds, 0 or more and finite; nothing for any other text.
std::optional<double> ParseSeconds(const std::string& text);

extern const char kUsage[];

}  // namespace mpbp::host

#endif  // MPBP_HOST_PROGRAM_ARGUMENTS_H_
