// One run of the program: its windows, when it ends, and with what status.
#ifndef MPBP_BROWSER_SESSION_H_
#define MPBP_BROWSER_SESSION_H_

#include <QTimer>
#include <QWebEngineProfile>
#include <vector>

#include "browser/args.h"
#include "browser/page_window.h"

namespace mpbp {

class Session : private PageObserver {
 public:
  explicit Session(const BrowserArgs& args);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() override;

  // Opens the windows. Returns false and a message for the user when a file cannot be read.
  [[nodiscard]] bool Open(QString* error);

  // Ends the application's event loop, after the screenshot; the first status that is not 0
  // counts. May be called at any time and more than once.
  void Finish(int status);

  // The status for the process, valid after the event loop.
  int status() const { return status_; }

 private:
  void OnExitRequested(int status) override { Finish(status); }
  void OnLoadFinished(PageWindow* window, bool ok) override;
  void OnWindowClosing(PageWindow* window) override;
  PageWindow* OnNewWindow() override;
  [[nodiscard]] bool IsMappedToLoopback(const QString& host) const override;

  void SaveScreenshot();

  BrowserArgs args_;
  QWebEngineProfile profile_;         // off the record; outlives the windows
  std::vector<PageWindow*> windows_;  // owned
  std::vector<PageWindow*> loading_;  // those of the command line that have not loaded yet
  PageWindow* first_ = nullptr;       // the one on the screenshot, null once it is closed
  QTimer end_timer_;
  int last_number_ = 0;
  int status_ = 0;
  bool finished_ = false;
};

}  // namespace mpbp

#endif  // MPBP_BROWSER_SESSION_H_
