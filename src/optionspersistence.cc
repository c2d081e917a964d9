#include "optionspersistence.h"

#include "base/filesystem.h"
#include "base/logging.h"

namespace mpbp {

bool OptionsPersistence::GetStringValue(const std::string& name, std::string* value) {
  return EnsureLoaded() && file_->GetStringValue(name, value);
}

bool OptionsPersistence::SetStringValue(const std::string& name, const std::string& value) {
  return EnsureLoaded() && file_->SetStringValue(name, value) && file_->Save();
}

bool OptionsPersistence::GetIntValue(const std::string& name, int32_t* value) {
  return EnsureLoaded() && file_->GetIntValue(name, value);
}

bool OptionsPersistence::SetIntValue(const std::string& name, int32_t value) {
  return EnsureLoaded() && file_->SetIntValue(name, value) && file_->Save();
}

bool OptionsPersistence::RemoveValue(const std::string& name) {
  return EnsureLoaded() && file_->RemoveValue(name) && file_->Save();
}

bool OptionsPersistence::EnsureLoaded() {
  if (file_) return true;
  Pathname path;
  if (!Filesystem::GetAppDataFolder(&path, true)) {
    LOG(LS_ERROR) << "Could not get app data folder; cannot do any options storage!";
    return false;
  }
  path.SetFilename(kOptionsFile);
  file_ = std::make_unique<OptionsFile>(path.pathname());
  if (!file_->Load()) {
    LOG(LS_WARNING) << "Error while loading options; some may be missing";
  }
  return true;
}

std::unique_ptr<OptionsPersistenceInterface> CreateOptionsPersistence() {
  return std::make_unique<OptionsPersistence>();
}

}  // namespace mpbp
