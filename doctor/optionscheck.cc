// options: each line of the file, as the plug-in reads it.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <numeric>
#include <set>
#include <sstream>
#include <vector>

#include "base/filestream.h"
#include "base/logging.h"
#include "base/stringutils.h"
#include "doctor/checks.h"
#include "doctor/files.h"

namespace mpbp::doctor {
namespace {

constexpr size_t kMaxShown = 60;

// How many letters must be changed, added or left out to make one of the other.
size_t Distance(std::string_view one, std::string_view other) {
  std::vector<size_t> row(other.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (size_t i = 0; i < one.size(); ++i) {
    size_t diagonal = row[0]++;
    for (size_t j = 0; j < other.size(); ++j) {
      const size_t changed = diagonal + (one[i] == other[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

// The known name that is nearest to the unknown one.
std::string Nearest(std::string_view name) {
  const std::string wanted = LowerCase(TrimWhitespace(name)).substr(0, kMaxShown);
  return *std::min_element(std::begin(kOptionNames), std::end(kOptionNames),
                           [&wanted](const char* one, const char* other) {
                             return Distance(wanted, one) < Distance(wanted, other);
                           });
}

std::string Shown(std::string_view text) {
  return '"' + std::string(text.substr(0, kMaxShown)) + (text.size() > kMaxShown ? "..." : "") +
         '"';
}

class LineReader {
 public:
  explicit LineReader(CheckResult* result) : result_(*result) {}

  void Read(const std::string& line) {
    ++number_;
    if (line.empty()) return;  // refused, and of no harm
    const size_t separator = line.find('=');
    if (separator == std::string::npos) {
      const bool comment = line[0] == '#';
      Add(CheckStatus::WARNING, "is refused, it has no \"=\"",
          comment ? "There are no comments in this file; the line is harmless."
                  : "Write name=value, or take the line out.");
      return;
    }
    const std::string name = line.substr(0, separator);
    if (std::find(std::begin(kOptionNames), std::end(kOptionNames), name) ==
        std::end(kOptionNames)) {
      Add(CheckStatus::WARNING, "has the unknown name " + Shown(name),
          "Did you mean " + Nearest(name) + "? Names have no blanks around them.");
    } else if (!seen_.insert(name).second) {
      Add(CheckStatus::WARNING, "sets " + name + " again; the last one counts",
          "Leave one of them.");
    }
  }

 private:
  void Add(CheckStatus status, const std::string& what, const std::string& remedy) {
    result_.Add(status, "line " + std::to_string(number_) + " " + what, remedy);
  }

  CheckResult& result_;
  int number_ = 0;
  std::set<std::string> seen_;
};

bool IsSwitch(const std::string& name) {
  return name == "plugin_enable_corp_host" || name == "prompt_delivery";
}

bool IsQuotedOrBlank(const std::string& value) {
  return value != TrimWhitespace(value) || value.starts_with('"') || value.starts_with('\'');
}

void CheckValue(const Setup& setup, const std::string& name, CheckResult* result) {
  const std::string value = setup.Option(name);
  int32_t number = 0;
  if (value.empty()) return;
  if (IsQuotedOrBlank(value)) {
    result->AddFault(name + " has quotes or blanks around its value, which count: " + Shown(value),
                     "Write the value as it is, right after the \"=\".");
  } else if (name == "pluginppapi_log_level" && LogMessage::SeverityFromName(value) > LS_ERROR) {
    result->AddFault(name + " is " + Shown(value) + ": the log stays empty",
                     "LS_SENSITIVE, LS_VERBOSE, LS_INFO, LS_WARNING, LS_ERROR, or 0 to 4.");
  } else if (IsSwitch(name) && !setup.options.GetIntValue(name, &number)) {
    result->AddFault(name + " is " + Shown(value) + ", no number, and so counts as 0",
                     "1 turns it on, 0 off.");
  }
}

std::string Summary(const Setup& setup) {
  std::string summary;
  for (const char* const name : kOptionNames) {
    const std::string value = setup.Option(name);
    if (!value.empty()) summary += (summary.empty() ? "" : ", ") + std::string(name) + "=" + value;
  }
  return summary.empty() ? "nothing is set: the defaults hold" : summary;
}

}  // namespace

CheckResult CheckOptions(const Setup& setup) {
  if (setup.folder.empty()) return Skipped("no folder is known (folder)");
  const std::string path = setup.folder + kOptionsName;
  struct stat status = {};
  if (lstat(path.c_str(), &status) != 0) {
    if (errno == ENOTDIR) return Skipped("there is no such folder (folder)");
    if (errno == ENOENT) return Ok("there is no options file: the defaults hold");
  }
  OptionsFile file(path);
  int error = 0;
  FileStream stream;
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    return Fault(path + " is " + KindOf(status.st_mode) + " and no regular file; the defaults hold",
                 "Move it away, and write the options into a file.");
  }
  if (!stream.Open(path, "r", &error)) {
    return Fault(path + " cannot be read: " + ErrorText(error) + "; the defaults hold",
                 "Make it a file that you may read.");
  }
  if (!file.Load()) {
    return Fault(path + " cannot be read to its end, some options may be missing",
                 "It must be shorter than 1 MiB.");
  }
  CheckResult result;
  LineReader reader(&result);
  std::istringstream lines(ReadFileText(path, OptionsFile::kMaxFileSize));
  for (std::string line; std::getline(lines, line);) reader.Read(line);
  for (const char* const name : kOptionNames) CheckValue(setup, name, &result);
  if (result.status == CheckStatus::SKIPPED) result.AddOk(Summary(setup));
  return result;
}

}  // namespace mpbp::doctor
