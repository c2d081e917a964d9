// The saved options: one look-up or change at a time, each with the file as it is now.
#ifndef MPBP_OPTIONSPERSISTENCE_H_
#define MPBP_OPTIONSPERSISTENCE_H_

#include <cstdint>
#include <memory>
#include <string>

#include "base/optionsfile.h"

namespace mpbp {

// In the per-user application data folder.
inline constexpr char kOptionsFile[] = "options";

// Made for one use and discarded, by one thread, so that a change of the file counts from the next
// use on. Each operation returns whether it succeeded; an out parameter is written on success only.
class OptionsPersistenceInterface {
 public:
  virtual ~OptionsPersistenceInterface() = default;
  [[nodiscard]] virtual bool GetStringValue(const std::string& name, std::string* value) = 0;
  // A change is saved before the call returns; when that fails, so does the call.
  [[nodiscard]] virtual bool SetStringValue(const std::string& name, const std::string& value) = 0;
  [[nodiscard]] virtual bool GetIntValue(const std::string& name, int32_t* value) = 0;
  [[nodiscard]] virtual bool SetIntValue(const std::string& name, int32_t value) = 0;
  [[nodiscard]] virtual bool RemoveValue(const std::string& name) = 0;
};

// Keeps the options in kOptionsFile.
class OptionsPersistence : public OptionsPersistenceInterface {
 public:
  [[nodiscard]] bool GetStringValue(const std::string& name, std::string* value) override;
  [[nodiscard]] bool SetStringValue(const std::string& name, const std::string& value) override;
  [[nodiscard]] bool GetIntValue(const std::string& name, int32_t* value) override;
  [[nodiscard]] bool SetIntValue(const std::string& name, int32_t value) override;
  [[nodiscard]] bool RemoveValue(const std::string& name) override;

 private:
  // True once the file's path is known, whether or not the file could be read.
  [[nodiscard]] bool EnsureLoaded();

  std::unique_ptr<OptionsFile> file_;
};

[[nodiscard]] std::unique_ptr<OptionsPersistenceInterface> CreateOptionsPersistence();

}  // namespace mpbp

#endif  // MPBP_OPTIONSPERSISTENCE_H_
