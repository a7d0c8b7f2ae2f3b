// Test support: one QApplication on Qt's offscreen platform for a whole test program.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <QApplication>

namespace KTN {

// Register once per test program, at static initialisation:
//   const bool sQt = (testing::AddGlobalTestEnvironment(new OffscreenQtApplication), true);
class OffscreenQtApplication : public testing::Environment {
 public:
  void SetUp() override {
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    static int argc = 1;
    static char* argv[] = {const_cast<char*>("test"), nullptr};
    mApplication = new QApplication(argc, argv);
  }
  void TearDown() override { delete mApplication; }

 private:
  QApplication* mApplication = nullptr;
};

}  // namespace KTN
