#ifndef MPBP_BROWSER_PAGE_H_
#define MPBP_BROWSER_PAGE_H_

#include <QWebEngineCertificateError>
#include <QWebEnginePage>
#include <QWebEngineProfile>

#include "browser/page_observer.h"

namespace mpbp {

class Page : public QWebEnginePage {
 public:
  // `number` names the page in what is printed. Profile and observer outlive the page.
  Page(QWebEngineProfile* profile, PageWindow* window, PageObserver* observer, int number);

  // Prints "[page N EVENT] text".
  void PrintEvent(const QString& event, const QString& text) const;

 protected:
  void javaScriptConsoleMessage(JavaScriptConsoleMessageLevel level, const QString& text, int line,
                                const QString& source) override;
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
  bool certificateError(const QWebEngineCertificateError& error) override;
#endif
  QWebEnginePage* createWindow(WebWindowType type) override;

 private:
  // Decides about a certificate that the browser engine does not trust; prints a refusal.
  [[nodiscard]] bool AcceptsCertificate(const QString& host, const QString& fault) const;

  PageObserver* observer_;
  int number_;
};

}  // namespace mpbp

#endif  // MPBP_BROWSER_PAGE_H_
