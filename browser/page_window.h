#ifndef MPBP_BROWSER_PAGE_WINDOW_H_
#define MPBP_BROWSER_PAGE_WINDOW_H_

#include <QString>
#include <QUrl>
#include <QWebEngineProfile>
#include <QWebEngineView>

#include "browser/page_observer.h"

namespace mpbp {

class Page;

class PageWindow : public QWebEngineView {
 public:
  PageWindow(QWebEngineProfile* profile, PageObserver* observer, int number);

  // Shows `html` as the page of `url`.
  void ShowHtml(const QString& html, const QUrl& url);

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  PageObserver* observer_;
  Page* page_;  // a child of this object
};

}  // namespace mpbp

#endif  // MPBP_BROWSER_PAGE_WINDOW_H_
