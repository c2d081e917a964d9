#ifndef MPBP_BROWSER_PAGE_OBSERVER_H_
#define MPBP_BROWSER_PAGE_OBSERVER_H_

#include <QString>

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

}  // namespace mpbp

#endif  // MPBP_BROWSER_PAGE_OBSERVER_H_
