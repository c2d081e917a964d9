#include "browser/browser_environment.h"

#include <QDir>
#include <QFileInfo>

namespace mpbp {
namespace {

constexpr char kMimeType[] = "application/x-murmelparl";
constexpr char kFlagsVariable[] = "QTWEBENGINE_CHROMIUM_FLAGS";

// The list of registered modules splits at these.
constexpr char kModulePathSeparators[] = ",;#";

bool FindModule(const QString& given, QString* path, QString* error) {
  const QFileInfo info(given);
  *path = info.absoluteFilePath();
  if (!info.isFile() || !info.isReadable()) {
    *error = *path + ": the plug-in module is not there or cannot be read (see --module)";
    return false;
  }
  for (const QChar separator : QString(kModulePathSeparators)) {
    if (path->contains(separator)) {
      *error = *path + ": the browser engine takes no module whose path holds one of , ; #";
      return false;
    }
  }
  return true;
}

bool MakeFolder(const QString& path, const char* variable, QString* error) {
  if (!QDir().mkpath(path)) {
    *error = path + ": the folder cannot be made";
    return false;
  }
  qputenv(variable, QFile::encodeName(path));
  return true;
}

QString ResolverRules(const std::vector<HostMapping>& mappings) {
  QStringList rules;
  for (const HostMapping& mapping : mappings) {
    rules.append("MAP " + mapping.pattern + " " + mapping.target);
  }
  return rules.join(", ");
}

}  // namespace

std::unique_ptr<BrowserEnvironment> BrowserEnvironment::Create(const BrowserArgs& args,
                                                               const char* program,
                                                               QString* error) {
  QString module;
  if (!FindModule(args.module, &module, error)) return nullptr;
  std::unique_ptr<BrowserEnvironment> environment(new BrowserEnvironment);
  if (!environment->SetFolders(args, error)) return nullptr;
  environment->SetArguments(args, program, module);
  return environment;
}

bool BrowserEnvironment::SetFolders(const BrowserArgs& args, QString* error) {
  if (!args.profile.isEmpty()) {
    const QString profile = QFileInfo(args.profile).absoluteFilePath();
    if (!MakeFolder(profile, "XDG_CONFIG_HOME", error) ||
        !MakeFolder(profile + "/cache", "XDG_CACHE_HOME", error) ||
        !MakeFolder(profile + "/data", "XDG_DATA_HOME", error)) {
      return false;
    }
  }
  if (qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR")) {
    runtime_dir_ = std::make_unique<QTemporaryDir>();
    if (!runtime_dir_->isValid()) {
      *error = "no temporary folder can be made: " + runtime_dir_->errorString();
      return false;
    }
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime_dir_->path()));
  }
  return true;
}

// The flags travel as the application's arguments, not in their environment variable: that one is
// split at every blank, and both paths and host mappings hold blanks. The browser engine reads
// only one of the two, so the user's flags move over.
void BrowserEnvironment::SetArguments(const BrowserArgs& args, const char* program,
                                      const QString& module) {
  QStringList flags = QString::fromLocal8Bit(qgetenv(kFlagsVariable)).simplified().split(' ');
  flags.removeAll(QString());
  qunsetenv(kFlagsVariable);

  flags.append("--register-pepper-plugins=" + module + ";" + kMimeType);
  flags.append("--disable-gpu");
  if (args.in_process) flags.append("--ppapi-in-process");
  if (!args.sandbox) {
    // Without the sandbox the zygote is only in the way: it cannot start page processes in a
    // container.
    flags.append({"--no-sandbox", "--no-zygote"});
    qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
  }
  if (args.dark) flags.append("--blink-settings=preferredColorScheme=0");
  if (!args.mappings.empty()) flags.append("--host-resolver-rules=" + ResolverRules(args.mappings));
  if (args.headless) {
    // This platform has no OpenGL; the software renderer needs none, for screenshots neither.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QT_QUICK_BACKEND", "software");
  }

  words_.push_back(program);
  words_.push_back("--webEngineArgs");  // Qt 6 reads only what follows this; Qt 5 has no such word
  for (const QString& flag : flags) words_.push_back(flag.toStdString());
  for (std::string& word : words_) argv_.push_back(word.data());
  argc_ = static_cast<int>(argv_.size());
  argv_.push_back(nullptr);
}

}  // namespace mpbp
