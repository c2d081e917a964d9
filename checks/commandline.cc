#include "checks/commandline.h"

#include <algorithm>
#include <sstream>
#include <string_view>

namespace mpbp {
namespace {

std::set<std::string> SplitNames(const std::string& text) {
  std::set<std::string> names;
  std::istringstream parts(text);
  for (std::string name; std::getline(parts, name, ',');) {
    if (!name.empty()) names.insert(name);
  }
  return names;
}

class Reader {
 public:
  Reader(int argc, const char* const* argv, const std::vector<ProgramOption>& options)
      : pending_(argv + (argc > 0 ? 1 : 0), argv + argc), options_(options) {}

  bool Read() {
    while (next_ < pending_.size()) {
      const std::string word = pending_[next_++];
      if (word == "--") {
        while (next_ < pending_.size()) line_.arguments.push_back(pending_[next_++]);
      } else if (word.size() > 1 && word[0] == '-') {
        if (!ReadOption(word)) return false;
      } else {
        line_.arguments.push_back(word);
      }
    }
    return true;
  }

  CommandLine& line() { return line_; }
  const std::string& error() const { return error_; }

 private:
  bool ReadOption(const std::string& word) {
    const size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    std::optional<std::string> value;
    if (equals != std::string::npos) value = word.substr(equals + 1);
    const auto own =
        std::find_if(options_.begin(), options_.end(),
                     [&name](const ProgramOption& option) { return option.name == name; });
    bool* flag = Flag(name);
    const bool takes_value =
        name == "--only" || name == "--report" || (own != options_.end() && !own->value.empty());
    if (!flag && !takes_value && own == options_.end()) return Refuse("unknown option " + name);
    if (!takes_value && value) return Refuse(name + " takes no value");
    if (takes_value && !value && next_ < pending_.size()) value = pending_[next_++];
    if (takes_value && value.value_or("").empty()) return Refuse(name + " needs a value");
    if (flag) {
      *flag = true;
    } else if (name == "--only") {
      line_.only.merge(SplitNames(*value));
      if (line_.only.empty()) return Refuse("--only needs names of checks");
    } else if (name == "--report") {
      line_.report = *value;
    } else {
      line_.options[name] = value.value_or("");
    }
    return true;
  }

  bool* Flag(std::string_view name) {
    if (name == "--list") return &line_.list;
    if (name == "--json") return &line_.json;
    if (name == "--help") return &line_.help;
    if (name == "--version") return &line_.version;
    return nullptr;
  }

  bool Refuse(std::string error) {
    error_ = std::move(error);
    return false;
  }

  const std::vector<std::string> pending_;
  const std::vector<ProgramOption>& options_;
  size_t next_ = 0;
  CommandLine line_;
  std::string error_;
};

}  // namespace

std::optional<CommandLine> ReadCommandLine(int argc, const char* const* argv,
                                           const std::vector<ProgramOption>& options,
                                           std::string* error) {
  Reader reader(argc, argv, options);
  if (reader.Read()) return std::move(reader.line());
  *error = reader.error();
  return std::nullopt;
}

}  // namespace mpbp
