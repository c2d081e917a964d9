#include "browser/page_window.h"

#include <QCloseEvent>

#include "browser/page.h"

namespace mpbp {

PageWindow::PageWindow(QWebEngineProfile* profile, PageObserver* observer, int number)
    : observer_(observer), page_(new Page(profile, this, observer, number)) {
  setPage(page_);
}

void PageWindow::ShowHtml(const QString& html, const QUrl& url) { page_->setHtml(html, url); }

void PageWindow::closeEvent(QCloseEvent* event) {
  page_->PrintEvent("closed", page_->url().toString(QUrl::RemoveQuery));
  event->accept();
  observer_->OnWindowClosing(this);
}

}  // namespace mpbp
