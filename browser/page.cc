#include "browser/page.h"

#include <QRegularExpression>
#include <QWebEngineSettings>
#include <cstdio>

#include "browser/page_window.h"

namespace mpbp {
namespace {

constexpr char kExitText[] = "mpbp-browser:exit ";

void PrintLine(const QString& line) {
  const QByteArray bytes = line.toUtf8();
  fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
  fputc('\n', stdout);
  fflush(stdout);
}

const char* LevelName(QWebEnginePage::JavaScriptConsoleMessageLevel level) {
  switch (level) {
    case QWebEnginePage::InfoMessageLevel:
      return "info";
    case QWebEnginePage::WarningMessageLevel:
      return "warning";
    case QWebEnginePage::ErrorMessageLevel:
      return "error";
  }
  return "info";
}

// The last part of the script's address, or the name that ReadLocalPage has put into it; the text
// of a page shown from a file has none.
QString SourceName(const QString& source) {
  static const QRegularExpression kNamed("^data:[^,]*;name=([^;,]+)");
  const QRegularExpressionMatch named = kNamed.match(source);
  if (named.hasMatch()) return QUrl::fromPercentEncoding(named.captured(1).toUtf8());
  if (source.startsWith("data:")) return "page";
  const QString name = QUrl(source).fileName();
  return name.isEmpty() ? "page" : name;
}

}  // namespace

Page::Page(QWebEngineProfile* profile, PageWindow* window, PageObserver* observer, int number)
    : QWebEnginePage(profile, window), observer_(observer), number_(number) {
  settings()->setAttribute(QWebEngineSettings::PluginsEnabled, true);
  settings()->setAttribute(QWebEngineSettings::JavascriptCanOpenWindows, true);
  settings()->setAttribute(QWebEngineSettings::AllowWindowActivationFromJavaScript, true);
  connect(this, &QWebEnginePage::loadFinished, this, [this, window](bool ok) {
    PrintEvent(ok ? "loaded" : "failed", url().toString(QUrl::RemoveQuery));
    observer_->OnLoadFinished(window, ok);
  });
  connect(this, &QWebEnginePage::renderProcessTerminated, this,
          [this, window](RenderProcessTerminationStatus status, int code) {
            if (status == NormalTerminationStatus) return;
            PrintEvent("crashed", QString("the page's process ended, code %1").arg(code));
            observer_->OnLoadFinished(window, false);
          });
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
  connect(this, &QWebEnginePage::certificateError, this, [this](QWebEngineCertificateError error) {
    if (AcceptsCertificate(error.url().host(), error.description())) {
      error.acceptCertificate();
    } else {
      error.rejectCertificate();
    }
  });
#endif
  connect(this, &QWebEnginePage::windowCloseRequested, window, &QWidget::close);
}

void Page::PrintEvent(const QString& event, const QString& text) const {
  PrintLine(QString("[page %1 %2] %3").arg(number_).arg(event, text));
}

void Page::javaScriptConsoleMessage(JavaScriptConsoleMessageLevel level, const QString& text,
                                    int line, const QString& source) {
  PrintEvent(QString("%1 %2:%3").arg(LevelName(level), SourceName(source)).arg(line), text);
  if (!text.startsWith(kExitText)) return;
  bool is_number = false;
  const uint status = text.mid(static_cast<int>(sizeof(kExitText)) - 1).toUInt(&is_number);
  if (is_number && status <= 255) observer_->OnExitRequested(static_cast<int>(status));
}

bool Page::AcceptsCertificate(const QString& host, const QString& fault) const {
  if (observer_->IsMappedToLoopback(host)) return true;
  PrintEvent("certificate", host + ": " + fault);
  return false;
}

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
bool Page::certificateError(const QWebEngineCertificateError& error) {
  return AcceptsCertificate(error.url().host(), error.errorDescription());
}
#endif

QWebEnginePage* Page::createWindow(WebWindowType) { return observer_->OnNewWindow()->page(); }

}  // namespace mpbp
