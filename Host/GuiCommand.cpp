// kestrin-capture gui: the capture window, with options for unattended screenshots.
#include "Host/GuiCommand.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <QApplication>
#include <QDialog>
#include <QImage>
#include <QPushButton>
#include <QTimer>

#include "Host/CaptureWindow.h"
#include "Host/CommandOptions.h"
#include "Host/HostSettingsFile.h"
#include "Host/MoviePath.h"
#include "Host/OptionParser.h"
#include "Host/StopSignals.h"
#include "Host/UnattendedRun.h"
#include "Host/WholeNumber.h"

namespace KTN {

namespace {

int GuiUsage(const std::string& problem) {
  fputs(CommandOptions::Refusal(problem, CommandOptions::Find("gui")).c_str(), stderr);
  return 2;
}

// Ctrl-C in the terminal the window was started from, its hang-up or a kill end a take as
// the Stop button does, then close the window: the movie is finished, not cut off.
void CloseOnSignals(CaptureWindow& window) {
  StopSignals::Install();
  QTimer* watch = new QTimer(&window);
  watch->setInterval(100);
  QObject::connect(watch, &QTimer::timeout, &window, [&window] {
    if (!StopSignals::Received()) return;
    window.close();  // stops a take first
    QApplication::quit();
  });
  watch->start();
}

// The options dialog, while it is shown.
QDialog* OpenDialog() {
  for (QWidget* widget : QApplication::topLevelWidgets()) {
    if (QDialog* dialog = qobject_cast<QDialog*>(widget)) {
      if (dialog->isVisible() && dialog->objectName() == "Settings") return dialog;
    }
  }
  return nullptr;
}

}  // namespace

int RunCaptureWindow(int argc, char** argv) {
  std::string movie = "capture.mov", bundle = PluginHost::DefaultBundlePath(), previewShot, optionsShot;
  std::string recordingShot, windowShot, labels;
  int grey = 60;
  double quitAfter = 0;
  long long recordFrames = 0;
  bool verify = false;
  ParsedOptions parsed;
  int status = 0;
  if (!OptionParser::Read("gui", argc, argv, parsed, &status,
                          [](const std::string& problem) { return GuiUsage(problem); })) {
    return status;
  }
  if (!parsed.operands.empty()) return GuiUsage("gui: unexpected argument " + parsed.operands[0] + " (the movie is given with -o)");
  for (const GivenOption& given : parsed.given) {
    const std::string& option = given.name;
    const char* value = given.value.c_str();
    char* end = nullptr;
    if (option == "output") movie = value;
    else if (option == "plugin") bundle = value;
    else if (option == "grey") {
      long level = 0;
      if (!ParseWhole(value, 0, 255, level)) return GuiUsage("--grey must be a level from 0 to 255");
      grey = static_cast<int>(level);
    } else if (option == "screenshot-preview") previewShot = value;
    else if (option == "screenshot-options") optionsShot = value;
    else if (option == "quit-after") {
      quitAfter = strtod(value, &end);
      if (!*value || *end || !(quitAfter > 0 && quitAfter <= 86400)) {
        return GuiUsage("--quit-after must be a number of seconds above 0, at most a day");
      }
    } else if (option == "record-frames") {
      long frames = 0;
      if (!ParseWhole(value, 1, 0x7FFFFFFE, frames)) return GuiUsage("--record-frames must be a whole number from 1");
      recordFrames = frames;
    } else if (option == "screenshot-recording") recordingShot = value;
    else if (option == "screenshot-window") windowShot = value;
    else if (option == "labels") labels = value;
    else if (option == "verify") verify = true;
  }
  std::string pathProblem;
  if (!MoviePath::MakeAbsolute(movie, &pathProblem)) return GuiUsage(pathProblem);
  int qtArgc = 1;
  char* qtArgv[] = {const_cast<char*>("kestrin-capture"), nullptr};
  QApplication application(qtArgc, qtArgv);

  // Settings the plug-in cannot record with are said, and the window shows the defaults.
  std::string settingsProblem;
  CaptureSettings settings = HostSettingsOrDefaults(&settingsProblem);
  if (!settingsProblem.empty()) fprintf(stderr, "kestrin-capture: warning: %s: the window starts with the defaults\n", settingsProblem.c_str());
  PluginHost host;
  std::string loaded = host.Load(bundle);
  if (!loaded.empty()) {
    fprintf(stderr, "kestrin-capture: %s\n", loaded.c_str());
    return 3;
  }
  {
    CaptureWindow window(host, settings, movie, grey);
    CloseOnSignals(window);
    window.SetVerifyAfterStop(verify);
    window.show();
    std::string failure = window.Start();
    if (!failure.empty()) {
      fprintf(stderr, "kestrin-capture: %s\n", failure.c_str());
      return 3;
    }
    if (!previewShot.empty()) {
      QTimer::singleShot(1500, &window, [&window, &previewShot, &status] {
        QImage preview = window.GrabPreview();
        if (preview.isNull() || !preview.save(QString::fromStdString(previewShot))) {
          fprintf(stderr, "kestrin-capture: cannot save the preview to %s\n", previewShot.c_str());
          status = 4;
        }
      });
    }
    if (!optionsShot.empty()) {
      // The dialog runs its own modal loop; a timer inside it takes the picture and cancels.
      QTimer::singleShot(300, &window, [&window, &optionsShot, &status] {
        QTimer::singleShot(700, [&optionsShot, &status] {
          QDialog* dialog = OpenDialog();
          if (!dialog || !dialog->grab().save(QString::fromStdString(optionsShot))) {
            fprintf(stderr, "kestrin-capture: cannot save the options dialog to %s\n", optionsShot.c_str());
            status = 4;
          }
          if (dialog) {
            if (QPushButton* cancel = dialog->findChild<QPushButton*>("cancelButton")) cancel->click();
          }
        });
        window.ShowOptions();
      });
    }
    if (recordFrames > 0 || !labels.empty() || !recordingShot.empty() || !windowShot.empty()) {
      new UnattendedRun(window, recordFrames, labels, recordingShot, windowShot, status);
    }
    if (quitAfter > 0) QTimer::singleShot(static_cast<int>(quitAfter * 1000), &application, &QApplication::quit);
    application.exec();
  }
  return status;
}

}  // namespace KTN
