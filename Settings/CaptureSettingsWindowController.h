// The settings dialog's window on Linux: loaded from Settings.ui, driven like its window controller.
#pragma once

#include <stdint.h>

#include <QObject>
#include <QPointer>
#include <string>

#include "Settings/CaptureSettings.h"

class QComboBox;
class QDialog;
class QLabel;
class QWidget;

namespace KTN {

// Main thread only. Pop-up items carry their tags as item data; separators are tagged -1.
class CaptureSettingsWindowController : public QObject {
  Q_OBJECT

 public:
  // uiPath: the Settings.ui file. Loaded by window().
  explicit CaptureSettingsWindowController(const std::string& uiPath);
  ~CaptureSettingsWindowController() override;

  // Loads the window; null, without a line of its own, when the file cannot be loaded or
  // lacks one of its parts: the dialog reports that it has no window controller.
  QDialog* window();
  void setSettings(CaptureSettings* settings);
  // Samples the host window's top-left pixel and blends the dialog into its grey.
  void setMainWindow(QWidget* mainWindow);
  void setSupportedStandards(uint64_t mask) { mSupportedStandards = mask; }
  void setSupports_v210HD(bool supported) { mSupports_v210HD = supported; }
  void setSupports_r210(bool supported) { mSupports_r210 = supported; }
  // The standards the card receives; selects the last one matching the record. With none
  // matching, the pop-up keeps its own selection (its first item, a separator included).
  void populateStandardsMenu();
  void populateFormatsMenu();
  void setAudioMenus();
  // The modal loop: shows the window and polls every 10 ms until it is closed. Returns 0.
  long run();
  bool getCancelled() const { return mCancelled; }

  // The grey level chosen by setMainWindow.
  int GreyLevel() const { return mGreyLevel; }

 public slots:
  void standardMenuChanged();
  void formatMenuChanged();
  void ok();
  void cancel();

 protected:
  // The window's close box: windowShouldClose.
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  std::string mUiPath;
  QPointer<QDialog> mWindow;
  QLabel* mStandardTextField = nullptr;
  QLabel* mFormatTextField = nullptr;
  QLabel* mChannelsTextField = nullptr;
  QLabel* mTypeTextField = nullptr;
  QLabel* mRateTextField = nullptr;
  QComboBox* mStandardPopup = nullptr;
  QComboBox* mFormatPopup = nullptr;
  QComboBox* mChannelsPopup = nullptr;
  QComboBox* mTypePopup = nullptr;
  QComboBox* mRatePopup = nullptr;
  bool mCancelled = false;
  uint64_t mSupportedStandards = 0;
  bool mSupports_v210HD = false;
  bool mSupports_r210 = false;
  CaptureSettings* mSettings = nullptr;
  bool mShouldCloseNow = false;
  int mGreyLevel = 89;
};

}  // namespace KTN
