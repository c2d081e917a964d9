// The command line of mpbp-browser.
#ifndef MPBP_BROWSER_ARGS_H_
#define MPBP_BROWSER_ARGS_H_

#include <QSize>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <vector>

namespace mpbp {

// One page to open. When `file` is set its HTML is shown under `url`; otherwise `url` is loaded.
struct PageSource {
  QString file;
  QUrl url;
};

// "PATTERN=HOST:PORT" of --map-host: connections to hosts that match go to the target instead.
struct HostMapping {
  QString pattern;
  QString target;
};

struct BrowserArgs {
  std::vector<PageSource> pages;
  std::vector<HostMapping> mappings;
  QString profile;     // empty: the user's own configuration folder
  QString screenshot;  // empty: none
  QString module;
  QSize window{1200, 800};
  double run_for = -1;  // seconds after the pages have loaded; negative: until closed
  bool in_process = false;
  bool headless = false;
  bool dark = false;
  bool sandbox = false;
  bool help = false;
};

// The text that --help prints.
QString UsageText();

// Reads the arguments that follow the program's name. `program_dir` is the folder that the default
// page and module are looked for in. Returns false and a message for the user when the command line
// cannot be used; `args` is then unspecified.
[[nodiscard]] bool ParseArgs(const QStringList& words, const QString& program_dir,
                             BrowserArgs* args, QString* error);

}  // namespace mpbp

#endif  // MPBP_BROWSER_ARGS_H_
