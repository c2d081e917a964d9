#include "host/program/arguments.h"

#include <charconv>
#include <functional>
#include <map>

namespace mpbp::host {
namespace {

using Setter = std::function<bool(const std::string& text, Arguments& arguments)>;

bool SetPermission(const std::string& text, Arguments& arguments) {
  ParlOptions& parl = arguments.host.parl;
  parl.offer_2_0 = text != "none";
  parl.permission_result = text == "granted" ? 1 : 0;
  return text == "granted" || text == "denied" || text == "none";
}

bool SetLinger(const std::string& text, Arguments& arguments) {
  const auto seconds = ParseSeconds(text);
  arguments.linger_seconds = seconds.value_or(0);
  return seconds.has_value();
}

// Three colons outside of "[...]", which holds an IPv6 address.
bool AddConnectTo(const std::string& text, Arguments& arguments) {
  int colons = 0;
  bool in_brackets = false;
  for (const char c : text) {
    if (c == '[' || c == ']') in_brackets = c == '[';
    if (c == ':' && !in_brackets) ++colons;
  }
  arguments.host.connect_to.push_back(text);
  return colons == 3;
}

using TextField = std::string Arguments::*;

Setter SetText(TextField field) {
  return [field](const std::string& text, Arguments& arguments) {
    arguments.*field = text;
    return !text.empty();
  };
}

const std::map<std::string, Setter>& Setters() {
  static const std::map<std::string, Setter> setters = {
      {"--url", SetText(&Arguments::url)},
      {"--profile", SetText(&Arguments::profile)},
      {"--module", SetText(&Arguments::module)},
      {"--no-interface",
       [](const std::string& text, Arguments& arguments) {
         arguments.host.withheld.insert(text);
         return !text.empty();
       }},
      {"--permission", &SetPermission},
      {"--ca-file",
       [](const std::string& text, Arguments& arguments) {
         arguments.host.ca_file = text;
         return !text.empty();
       }},
      {"--connect-to", &AddConnectTo},
      {"--linger", &SetLinger},
  };
  return setters;
}

}  // namespace

const char kUsage[] =
    R"(usage: mpbp-host [--url URL] [--profile DIR] [--module FILE] [--no-interface NAME]...
                 [--permission granted|denied|none] [--ca-file FILE]
                 [--connect-to HOST:PORT:TOHOST:TOPORT]... [--linger SECONDS]

Shows the plug-in a page, without a browser. Every line that is typed is sent with the plug-in's
send; every text that reaches the page is printed with the time of day.

  --url URL            the page's address (https://www.murmel.example/)
  --profile DIR        keep settings and logs below DIR, which is made when it is missing, instead of
                       the user's own configuration folder
  --module FILE        the plug-in (libmpbppapiplugin.so beside this program)
  --no-interface NAME  be a browser without this interface, for example "PPB_Var;1.1"
  --permission WHAT    offer the private interface and answer permission requests with granted or
                       denied; none: do not offer it (none)
  --ca-file FILE       trust the certificates in FILE instead of the system's
  --connect-to HOST:PORT:TOHOST:TOPORT
                       take requests for the first to the second, for example
                       crash.murmel.example:443:127.0.0.1:8443
  --linger SECONDS     stay this long after the end of the input (0)
  --help               print this

Commands:
  /version       print the plug-in's version
  /props         list the element's properties
  /set           set onmessage (done at start)
  /clear         set onmessage to null
  /destroy       remove the element from the page
  /create        put it back, on a new page
  /event CODE    the private interface reports a remoting event
  /wait SECONDS  take the next line only after this time
  /slow MS       take MS milliseconds over each text that reaches the page (0)
  /help          print this
  /quit          leave
  //TEXT         send "/TEXT"

Ends with status 1 when the plug-in could not be loaded, refused the page, kept references or used
the browser's interface wrongly; with 2 when the command line is wrong.
)";

std::optional<double> ParseSeconds(const std::string& text) {
  double seconds = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, seconds);
  constexpr double kMaxSeconds = 1e6;
  const bool ok = error == std::errc() && stop == end && seconds >= 0 && seconds <= kMaxSeconds;
  return ok ? std::optional(seconds) : std::nullopt;
}

std::optional<std::string> ParseArguments(std::span<char* const> words, Arguments& arguments) {
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string flag = words[i];
    if (flag == "--help") {
      arguments.help = true;
      return std::nullopt;
    }
    const auto setter = Setters().find(flag);
    if (setter == Setters().end()) return "unknown argument \"" + flag + "\"";
    if (++i == words.size()) return flag + " needs a value";
    if (!setter->second(words[i], arguments)) {
      return flag + " does not take \"" + std::string(words[i]) + "\"";
    }
  }
  return std::nullopt;
}

}  // namespace mpbp::host
