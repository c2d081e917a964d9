#include "browser/session.h"

#include <QApplication>
#include <QDir>
#include <QPixmap>
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "browser/local_page.h"

namespace mpbp {

Session::Session(const BrowserArgs& args) : args_(args) {
  end_timer_.setSingleShot(true);
  QObject::connect(&end_timer_, &QTimer::timeout, [this] { Finish(0); });
}

Session::~Session() { qDeleteAll(windows_); }

bool Session::Open(QString* error) {
  for (const PageSource& source : args_.pages) {
    QString html;
    if (!source.file.isEmpty() && !ReadLocalPage(source.file, &html, error)) return false;
    PageWindow* window = OnNewWindow();
    if (first_ == nullptr) first_ = window;
    loading_.push_back(window);
    if (source.file.isEmpty()) {
      window->load(source.url);
    } else {
      window->ShowHtml(html, source.url);
    }
  }
  return true;
}

void Session::Finish(int status) {
  if (status_ == 0) status_ = status;
  if (finished_) return;
  finished_ = true;
  SaveScreenshot();
  // The caller may be inside one of the page's events, so the windows close from the event loop.
  QMetaObject::invokeMethod(qApp, "quit", Qt::QueuedConnection);
}

void Session::OnLoadFinished(PageWindow* window, bool ok) {
  if (!ok && status_ == 0) status_ = 1;
  const auto end = std::remove(loading_.begin(), loading_.end(), window);
  if (end == loading_.end()) return;
  loading_.erase(end, loading_.end());
  if (loading_.empty() && args_.run_for >= 0 && !end_timer_.isActive()) {
    end_timer_.start(static_cast<int>(std::lround(args_.run_for * 1000)));
  }
}

void Session::OnWindowClosing(PageWindow* window) {
  const auto found = std::find(windows_.begin(), windows_.end(), window);
  if (found == windows_.end()) return;
  if (windows_.size() == 1) {
    Finish(0);
    return;
  }
  windows_.erase(found);
  OnLoadFinished(window, true);
  if (first_ == window) first_ = nullptr;
  window->deleteLater();
}

PageWindow* Session::OnNewWindow() {
  auto* window = new PageWindow(&profile_, this, ++last_number_);
  windows_.push_back(window);
  window->resize(args_.window);
  window->show();
  return window;
}

bool Session::IsMappedToLoopback(const QString& host) const {
  return std::any_of(args_.mappings.begin(), args_.mappings.end(), [&](const HostMapping& mapping) {
    const bool loopback =
        mapping.target.startsWith("127.") || mapping.target.startsWith("localhost:");
    return loopback && QDir::match(mapping.pattern.section(':', 0, 0), host);
  });
}

void Session::SaveScreenshot() {
  if (args_.screenshot.isEmpty()) return;
  if (first_ != nullptr && first_->grab().save(args_.screenshot, "PNG")) return;
  fprintf(stderr, "mpbp-browser: %s: the screenshot could not be saved\n",
          qPrintable(args_.screenshot));
  if (status_ == 0) status_ = 1;
}

}  // namespace mpbp
