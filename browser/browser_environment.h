// What the browser engine and the module find when they start: flags, folders, platform.
#ifndef MPBP_BROWSER_BROWSER_ENVIRONMENT_H_
#define MPBP_BROWSER_BROWSER_ENVIRONMENT_H_

#include <QString>
#include <QTemporaryDir>
#include <memory>
#include <string>
#include <vector>

#include "browser/args.h"

namespace mpbp {

// Made before the application object, kept until after it is gone.
class BrowserEnvironment {
 public:
  // Sets the process's environment variables. Returns null and a message for the user when the
  // module does not exist or a folder cannot be made.
  [[nodiscard]] static std::unique_ptr<BrowserEnvironment> Create(const BrowserArgs& args,
                                                                  const char* program,
                                                                  QString* error);

  // The arguments for the application object. They live as long as this object.
  int& argc() { return argc_; }
  char** argv() { return argv_.data(); }

 private:
  BrowserEnvironment() = default;

  // Names the folders that the module, the engine and the browser use.
  [[nodiscard]] bool SetFolders(const BrowserArgs& args, QString* error);
  void SetArguments(const BrowserArgs& args, const char* program, const QString& module);

  std::unique_ptr<QTemporaryDir> runtime_dir_;  // when the user has none
  std::vector<std::string> words_;
  std::vector<char*> argv_;
  int argc_ = 0;
};

}  // namespace mpbp

#endif  // MPBP_BROWSER_BROWSER_ENVIRONMENT_H_
