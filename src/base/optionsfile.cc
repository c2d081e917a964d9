#include "base/optionsfile.h"

#include <cerrno>
#include <locale>
#include <sstream>

#include "base/filestream.h"
#include "base/logging.h"

namespace mpbp {
namespace {

bool IsLegalName(const std::string& name) {
  if (name.find_first_of("\n\\=") == std::string::npos) return true;
  LOG(LS_WARNING) << "Ignoring operation for illegal option " << name;
  return false;
}

bool IsLegalValue(const std::string& value) {
  if (value.find_first_of("\n\\") == std::string::npos) return true;
  LOG(LS_WARNING) << "Ignoring operation for illegal value " << value;
  return false;
}

void NameUnreadable(const std::string& path, int error) {
  LOG_ERR_EX(LS_WARNING, error) << "The options file cannot be read, path=" << path;
}

}  // namespace

bool OptionsFile::Load() {
  options_.clear();
  FileStream file;
  int error = 0;
  if (!file.Open(path_, "r", &error)) {
    LOG(LS_WARNING) << "Could not open file, err=" << error;
    if (error != ENOENT) NameUnreadable(path_, error);
    return false;
  }
  std::string line;
  size_t size = 0;
  StreamResult result = file.ReadLine(&line, &error);
  while (result == StreamResult::SR_SUCCESS && size + line.size() < kMaxFileSize) {
    size += line.size() + 1;
    AddLine(line);
    result = file.ReadLine(&line, &error);
  }
  if (result == StreamResult::SR_EOS) return true;
  LOG(LS_ERROR) << "Error when reading from file";
  NameUnreadable(path_, result == StreamResult::SR_ERROR ? error : EFBIG);
  return false;
}

void OptionsFile::AddLine(const std::string& line) {
  const size_t separator = line.find('=');
  if (separator == std::string::npos) {
    LOG(LS_WARNING) << "Ignoring malformed line in " << path_;
    return;
  }
  // An editor of another system may have left carriage returns.
  const size_t end = line.find_last_not_of('\r') + 1;
  options_[line.substr(0, separator)] = line.substr(separator + 1, end - separator - 1);
}

bool OptionsFile::IsLoadable() const {
  size_t size = 0;
  for (const auto& [name, value] : options_) {
    const size_t line = name.size() + 1 + value.size();
    if (size + line >= kMaxFileSize) return false;
    size += line + 1;
  }
  return true;
}

bool OptionsFile::Save() {
  if (!IsLoadable()) {
    LOG(LS_ERROR) << "Refusing to write options that could not be read again to " << path_;
    return false;
  }
  FileStream file;
  int error = 0;
  if (!file.Open(path_, "w", &error)) {
    LOG(LS_ERROR) << "Could not open file, err=" << error;
    return false;
  }
  bool written = true;
  for (const auto& [name, value] : options_) {
    for (const std::string_view part : {std::string_view(name), std::string_view("="),
                                        std::string_view(value), std::string_view("\n")}) {
      written = written && file.WriteAll(part) == StreamResult::SR_SUCCESS;
    }
  }
  if (written && file.Flush()) return true;
  LOG(LS_ERROR) << "Unable to write to file";
  return false;
}

bool OptionsFile::GetStringValue(const std::string& name, std::string* value) const {
  LOG(LS_VERBOSE) << "OptionsFile::GetStringValue " << name;
  if (!IsLegalName(name)) return false;
  const auto option = options_.find(name);
  if (option == options_.end()) return false;
  *value = option->second;
  return true;
}

bool OptionsFile::GetIntValue(const std::string& name, int32_t* value) const {
  LOG(LS_VERBOSE) << "OptionsFile::GetIntValue " << name;
  if (!IsLegalName(name)) return false;
  const auto option = options_.find(name);
  if (option == options_.end()) return false;
  std::istringstream text(option->second);
  text.imbue(std::locale::classic());  // the host's may group digits
  int32_t number = 0;
  if (!(text >> number)) return false;
  *value = number;
  return true;
}

bool OptionsFile::SetStringValue(const std::string& name, const std::string& value) {
  LOG(LS_VERBOSE) << "OptionsFile::SetStringValue " << name << ":" << value;
  if (!IsLegalName(name) || !IsLegalValue(value)) return false;
  options_[name] = value;
  return true;
}

bool OptionsFile::SetIntValue(const std::string& name, int32_t value) {
  LOG(LS_VERBOSE) << "OptionsFile::SetIntValue " << name << ":" << value;
  if (!IsLegalName(name)) return false;
  options_[name] = std::to_string(value);
  return true;
}

bool OptionsFile::RemoveValue(const std::string& name) {
  LOG(LS_VERBOSE) << "OptionsFile::RemoveValue " << name;
  if (!IsLegalName(name)) return false;
  options_.erase(name);
  return true;
}

}  // namespace mpbp
