// One page and its window.
#ifndef MPBP_BROWSER_PAGE_H_
#define MPBP_BROWSER_PAGE_H_

#include <QWebEngineCertificateError>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineView>

namespace mpbp {

class PageWindow;

// What the pages report to whoever opened them; everything on the main thread.
class PageObserver {
 public:
  virtual ~PageObserver() = default;

  // A page asked to end the program. May be called from inside the page's own events.
  virtual void OnExitRequested(int status) = 0;
  // The first load ended, or the page's process did. May be called more than once.
  virtual void OnLoadFinished(PageWindow* window, bool ok) = 0;
  // The window is about to close, by its user or by its page; it may be deleted with deleteLater.
  virtual void OnWindowClosing(PageWindow* window) = 0;
  // A page opens a window; the result is owned by the observer. Never null.
  virtual PageWindow* OnNewWindow() = 0;
  // True when connections to `host` go to the loopback address on purpose.
  [[nodiscard]] virtual bool IsMappedToLoopback(const QString& host) const = 0;
};

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

#endif  // MPBP_BROWSER_PAGE_H_
