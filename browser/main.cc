// mpbp-browser: a small browser that shows pages with the plug-in registered.
#include <QApplication>
#include <QFileInfo>
#include <cstdio>

#include "browser/args.h"
#include "browser/browser_environment.h"
#include "browser/session.h"
#include "browser/signal_watch.h"

namespace {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

int Fail(const QString& message, int status) {
  fprintf(stderr, "mpbp-browser: %s\n", qPrintable(message));
  return status;
}

QString ProgramDir() { return QFileInfo(QFileInfo("/proc/self/exe").canonicalFilePath()).path(); }

QStringList Words(int argc, char** argv) {
  QStringList words;
  for (int i = 1; i < argc; ++i) words.append(QString::fromLocal8Bit(argv[i]));
  return words;
}

int Run(const mpbp::BrowserArgs& args, mpbp::BrowserEnvironment& environment) {
  QApplication application(environment.argc(), environment.argv());
  QApplication::setApplicationName("mpbp-browser");
  // The session decides when the last window is gone: it still takes the screenshot then.
  QApplication::setQuitOnLastWindowClosed(false);
  mpbp::Session session(args);
  const mpbp::SignalWatch signal_watch([&session] { session.Finish(0); });
  QString error;
  if (!session.Open(&error)) return Fail(error, kFailed);
  QApplication::exec();
  return session.status();
}

}  // namespace

int main(int argc, char** argv) {
  mpbp::BrowserArgs args;
  QString error;
  if (!mpbp::ParseArgs(Words(argc, argv), ProgramDir(), &args, &error)) {
    return Fail(error + " (--help lists the options)", kWrongUsage);
  }
  if (args.help) {
    fputs(qPrintable(mpbp::UsageText()), stdout);
    return 0;
  }
  const auto environment = mpbp::BrowserEnvironment::Create(args, argv[0], &error);
  if (!environment) return Fail(error, kFailed);
  return Run(args, *environment);
}
