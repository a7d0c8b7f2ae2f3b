// The settings dialog's window on Linux.
#include "Settings/CaptureSettingsWindowController.h"

#include <stdlib.h>
#include <unistd.h>

#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QDialog>
#include <QFile>
#include <QImage>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QUiLoader>

#include "Settings/CaptureTables.h"
#include "Util/FourCC.h"
#include "Util/Log.h"

namespace KTN {

namespace {

constexpr int kDefaultGrey = 89;
constexpr int kSampleBufferBytes = 4096;

// The name failure lines give the controller's method, in the window controller's own form.
const char kSetMainWindowMethod[] = "-[CaptureSettingsWindowController setMainWindow:]";

// Item data of a pop-up's selected item; 0 with nothing selected, as a tag read from no item.
int SelectedTag(QComboBox* popup) {
  QVariant tag = popup->currentData();
  return tag.isValid() ? tag.toInt() : 0;
}

void SelectTag(QComboBox* popup, int tag) {
  int index = popup->findData(tag);
  if (index >= 0) popup->setCurrentIndex(index);
}

// The audio menus' items come from the UI file; their tags are its itemTags property.
void TagItemsFromUi(QComboBox* popup) {
  QStringList tags = popup->property("itemTags").toString().split(',', Qt::SkipEmptyParts);
  for (int i = 0; i < popup->count() && i < tags.size(); ++i) popup->setItemData(i, tags[i].trimmed().toInt());
}

}  // namespace

CaptureSettingsWindowController::CaptureSettingsWindowController(const std::string& uiPath) : mUiPath(uiPath) {}

CaptureSettingsWindowController::~CaptureSettingsWindowController() {
  if (QDialog* window = mWindow.data()) {
    // The dialog's own teardown sends it events; they must not reach a filter that looks
    // at the half-destroyed dialog.
    window->removeEventFilter(this);
    delete window;
  }
}

QDialog* CaptureSettingsWindowController::window() {
  if (mWindow) return mWindow;
  QFile file(QString::fromStdString(mUiPath));
  if (!file.open(QIODevice::ReadOnly)) return nullptr;
  QUiLoader loader;
  QDialog* dialog = qobject_cast<QDialog*>(loader.load(&file));
  if (!dialog) return nullptr;
  mWindow = dialog;
  // The outlets, by object name.
  mStandardTextField = dialog->findChild<QLabel*>("mStandardTextField");
  mFormatTextField = dialog->findChild<QLabel*>("mFormatTextField");
  mChannelsTextField = dialog->findChild<QLabel*>("mChannelsTextField");
  mTypeTextField = dialog->findChild<QLabel*>("mTypeTextField");
  mRateTextField = dialog->findChild<QLabel*>("mRateTextField");
  mStandardPopup = dialog->findChild<QComboBox*>("mStandardPopup");
  mFormatPopup = dialog->findChild<QComboBox*>("mFormatPopup");
  mChannelsPopup = dialog->findChild<QComboBox*>("mChannelsPopup");
  mTypePopup = dialog->findChild<QComboBox*>("mTypePopup");
  mRatePopup = dialog->findChild<QComboBox*>("mRatePopup");
  QPushButton* okButton = dialog->findChild<QPushButton*>("okButton");
  QPushButton* cancelButton = dialog->findChild<QPushButton*>("cancelButton");
  if (!mStandardTextField || !mFormatTextField || !mChannelsTextField || !mTypeTextField || !mRateTextField ||
      !mStandardPopup || !mFormatPopup || !mChannelsPopup || !mTypePopup || !mRatePopup || !okButton || !cancelButton) {
    delete mWindow.data();
    return nullptr;
  }
  TagItemsFromUi(mChannelsPopup);
  TagItemsFromUi(mTypePopup);
  TagItemsFromUi(mRatePopup);
  connect(mStandardPopup, QOverload<int>::of(&QComboBox::activated), this, &CaptureSettingsWindowController::standardMenuChanged);
  connect(mFormatPopup, QOverload<int>::of(&QComboBox::activated), this, &CaptureSettingsWindowController::formatMenuChanged);
  connect(okButton, &QPushButton::clicked, this, &CaptureSettingsWindowController::ok);
  connect(cancelButton, &QPushButton::clicked, this, &CaptureSettingsWindowController::cancel);
  // Escape rejects the dialog, which hides it without a close event: it cancels as the
  // Cancel button does, so that the host keeps its previous settings.
  connect(dialog, &QDialog::rejected, this, &CaptureSettingsWindowController::cancel);
  dialog->installEventFilter(this);
  mCancelled = false;  // awakeFromNib
  return dialog;
}

void CaptureSettingsWindowController::setSettings(CaptureSettings* settings) {
  mSettings = settings;
}

void CaptureSettingsWindowController::setMainWindow(QWidget* mainWindow) {
  int level = kDefaultGrey;
  if (mainWindow) {
    // The host window's pixel at its origin, drawn into a bitmap of one pixel: R, G, B and A
    // bytes, alpha premultiplied, over a zeroed buffer. An image that cannot be made draws
    // nothing and the sample reads as clear.
    QImage image = mainWindow->grab(QRect(0, 0, 1, 1)).toImage();
    uchar* buffer = static_cast<uchar*>(calloc(1, kSampleBufferBytes));
    if (!buffer) {
      KTN_LOG_AS(kSetMainWindowMethod, "Failed to allocate %d byte buffer", kSampleBufferBytes);
    } else {
      QImage bitmap(buffer, 1, 1, 4, QImage::Format_RGBA8888_Premultiplied);
      QPainter context;
      if (bitmap.isNull() || !context.begin(&bitmap)) {
        KTN_LOG_AS(kSetMainWindowMethod, "CGBitmapContextCreate failed");
      } else {
        context.setCompositionMode(QPainter::CompositionMode_Source);
        context.setOpacity(1.0);
        context.drawImage(QRectF(0, 0, 1, 1), image, QRectF(0, 0, 1, 1));
        context.end();
        if (buffer[0] == buffer[1] && buffer[1] == buffer[2]) {
          level = buffer[0];
        } else {
          KTN_LOG_AS(kSetMainWindowMethod, "Interface colour isn't grey: a: %u r: %u g: %u b: %u", buffer[3],
                     buffer[2], buffer[1], buffer[0]);
        }
      }
      free(buffer);
    }
  }
  mGreyLevel = level;
  if (!mWindow) return;
  QPalette palette = mWindow->palette();
  palette.setColor(QPalette::Window, QColor(level, level, level));
  mWindow->setPalette(palette);
  mWindow->setAutoFillBackground(true);
  if (level <= kDefaultGrey) {
    // A dark interface: light labels.
    for (QLabel* label : {mStandardTextField, mFormatTextField, mChannelsTextField, mTypeTextField, mRateTextField}) {
      QPalette labelPalette = label->palette();
      labelPalette.setColor(QPalette::WindowText, QColor::fromRgbF(0.75, 0.75, 0.75, 1.0));
      label->setPalette(labelPalette);
    }
  }
}

void CaptureSettingsWindowController::populateStandardsMenu() {
  mStandardPopup->clear();
  bool separatorPending = false;
  for (size_t i = 0; i < kSupportedStandardCount; ++i) {
    const SupportedStandard& row = gSupportedStandards[i];
    if (!row.name) {
      separatorPending = true;
      continue;
    }
    if (!(mSupportedStandards & (uint64_t{1} << i))) continue;  // the pending flag survives
    if (separatorPending) {
      mStandardPopup->insertSeparator(mStandardPopup->count());
      mStandardPopup->setItemData(mStandardPopup->count() - 1, -1);
    }
    mStandardPopup->addItem(QString::fromLatin1(row.name), static_cast<int>(i));
    separatorPending = false;
    if (mSettings && mSettings->IsOfStandard(row)) mStandardPopup->setCurrentIndex(mStandardPopup->count() - 1);
  }
  // With no row matching the record, the pop-up keeps the selection it made itself.
}

void CaptureSettingsWindowController::populateFormatsMenu() {
  int standard = SelectedTag(mStandardPopup);
  uint32_t mask = standard >= 0 && static_cast<size_t>(standard) < kSupportedStandardCount
                      ? gSupportedStandards[standard].allowedFormats
                      : 0;
  uint32_t width = standard >= 0 && static_cast<size_t>(standard) < kSupportedStandardCount ? gSupportedStandards[standard].width : 0;
  mFormatPopup->clear();
  for (size_t j = 0; j < kSupportedPixelFormatCount; ++j) {
    if (!(mask & (1u << j))) continue;
    const SupportedPixelFormat& format = gSupportedPixelFormats[j];
    if (format.codecType == Util::FourCC("v210") && width > 720 && !mSupports_v210HD) continue;
    if (format.codecType == Util::FourCC("r210") && !mSupports_r210) continue;
    mFormatPopup->addItem(QString::fromLatin1(format.name), static_cast<int>(j));
    if (mSettings && format.codecType == mSettings->codecType) mFormatPopup->setCurrentIndex(mFormatPopup->count() - 1);
  }
}

void CaptureSettingsWindowController::setAudioMenus() {
  if (!mSettings) return;
  SelectTag(mChannelsPopup, static_cast<int>(mSettings->audioChannels));
  SelectTag(mTypePopup, static_cast<int>(mSettings->audioSampleType));
  SelectTag(mRatePopup, static_cast<int>(mSettings->audioSampleRate));
}

long CaptureSettingsWindowController::run() {
  mShouldCloseNow = false;
  mWindow->setWindowModality(Qt::ApplicationModal);
  mWindow->show();
  mWindow->raise();
  mWindow->activateWindow();
  // Poll rather than block, so that the host keeps servicing its own events meanwhile.
  while (!mShouldCloseNow && mWindow && mWindow->isVisible()) {
    QApplication::processEvents(QEventLoop::AllEvents, 5);
    if (mShouldCloseNow) break;
    usleep(10000);
  }
  if (mWindow) mWindow->hide();
  return 0;
}

void CaptureSettingsWindowController::standardMenuChanged() {
  populateFormatsMenu();
}

void CaptureSettingsWindowController::formatMenuChanged() {
  // Kept even if the user then cancels, so a later repopulation keeps the same codec.
  int format = SelectedTag(mFormatPopup);
  if (mSettings && format >= 0 && static_cast<size_t>(format) < kSupportedPixelFormatCount) {
    mSettings->codecType = gSupportedPixelFormats[format].codecType;
  }
}

void CaptureSettingsWindowController::ok() {
  int standard = SelectedTag(mStandardPopup);
  int format = SelectedTag(mFormatPopup);
  if (mSettings && IsNamedStandardIndex(standard) && IsPixelFormatIndex(format)) {
    mSettings->Update(standard, format, SelectedTag(mChannelsPopup), SelectedTag(mTypePopup), SelectedTag(mRatePopup));
  }
  mShouldCloseNow = true;
}

void CaptureSettingsWindowController::cancel() {
  mCancelled = true;
  mShouldCloseNow = true;
}

bool CaptureSettingsWindowController::eventFilter(QObject* watched, QEvent* event) {
  if (watched == mWindow && event->type() == QEvent::Close) {
    mCancelled = true;  // windowShouldClose: yes, as a cancel
    mShouldCloseNow = true;
  }
  return QObject::eventFilter(watched, event);
}

}  // namespace KTN
