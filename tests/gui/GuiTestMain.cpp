// Widget tests need one QApplication for the whole run; QStandardPaths' test
// mode keeps every test away from the user's own configuration.
#include "app/Settings.h"

#include <QApplication>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", qgetenv("QT_QPA_PLATFORM").isEmpty() ? QByteArray("offscreen") : qgetenv("QT_QPA_PLATFORM"));
    QStandardPaths::setTestModeEnabled(true);
    QApplication::setOrganizationName("NorvexTest");
    QApplication::setApplicationName("PlotvikGuiTest");
    QApplication app(argc, argv);
    // The recent list and start action go to a private folder, never the user's.
    QTemporaryDir native;
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, native.path());
    // A window started without arguments shows no start-up dialog unless a test asks for one.
    writeStartAction(1);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
