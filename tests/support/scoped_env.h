// Environment variables and the application data folder, for the length of a test.
#ifndef MPBP_TESTS_SUPPORT_SCOPED_ENV_H_
#define MPBP_TESTS_SUPPORT_SCOPED_ENV_H_

#include <cstdlib>
#include <optional>
#include <string>

#include "base/filesystem.h"
#include "tests/support/temp_dir.h"

namespace mpbp::test {

// Sets a variable, or removes it when `value` is null, and puts it back at the end.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    if (const char* old = getenv(name)) old_ = old;
    Set(value);
  }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;
  ~ScopedEnv() { Set(old_ ? old_->c_str() : nullptr); }

 private:
  void Set(const char* value) { value ? setenv(name_.c_str(), value, 1) : unsetenv(name_.c_str()); }

  std::string name_;
  std::optional<std::string> old_;
};

// An application data folder of the test's own, in a temporary folder. Nothing is there yet.
class ScopedAppData {
 public:
  ScopedAppData() : config_("XDG_CONFIG_HOME", dir_.path().c_str()) {
    Filesystem::SetOrganizationName("Murmel");
    Filesystem::SetApplicationName("Murmel Parl Plugin");
  }

  const TempDir& dir() const { return dir_; }
  // With a closing '/'.
  std::string folder() const { return dir_ / "murmel-murmelparlplugin/"; }
  // Writes the options file.
  void WriteOptions(const std::string& text) const {
    std::filesystem::create_directories(folder());
    WriteFile(folder() + "options", text);
  }

 private:
  TempDir dir_;
  ScopedEnv config_;
};

}  // namespace mpbp::test

#endif  // MPBP_TESTS_SUPPORT_SCOPED_ENV_H_
