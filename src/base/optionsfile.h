// Named text settings in a plain file, one "name=value" line each, sorted by name.
//
// A line ends with a line feed; carriage returns before it are no part of the value. The first "="
// ends the name. Nothing is quoted or escaped, so neither part may hold a line feed or a backslash,
// and a name no "=". Either may be empty.
#ifndef MPBP_BASE_OPTIONSFILE_H_
#define MPBP_BASE_OPTIONSFILE_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace mpbp {

// Used by one thread at a time. Every operation returns whether it succeeded and logs what went
// wrong; an out parameter is written on success only. Only Load and Save touch the file.
class OptionsFile {
 public:
  // More than this, in bytes, is not read from a file: nobody's settings are that long.
  static constexpr size_t kMaxFileSize = 1'048'576;

  explicit OptionsFile(std::string path) : path_(std::move(path)) {}

  // Replaces the options by the file's. Those read before a failure stay.
  [[nodiscard]] bool Load();
  // Writes all options. Refused, with the file left as it is, when there are more than Load takes;
  // any other failure may leave the file cut short.
  [[nodiscard]] bool Save();

  [[nodiscard]] bool GetStringValue(const std::string& name, std::string* value) const;
  // Reads the decimal number that the value begins with, blanks before it skipped. Fails when there
  // is none or it does not fit.
  [[nodiscard]] bool GetIntValue(const std::string& name, int32_t* value) const;
  [[nodiscard]] bool SetStringValue(const std::string& name, const std::string& value);
  [[nodiscard]] bool SetIntValue(const std::string& name, int32_t value);
  // Removing what is not there succeeds.
  [[nodiscard]] bool RemoveValue(const std::string& name);

 private:
  // Takes one line from the file.
  void AddLine(const std::string& line);
  // Whether Load would take what Save writes.
  bool IsLoadable() const;

  std::string path_;
  std::map<std::string, std::string> options_;
};

}  // namespace mpbp

#endif  // MPBP_BASE_OPTIONSFILE_H_
