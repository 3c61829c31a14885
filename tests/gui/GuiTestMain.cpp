// Widget tests need one QApplication for the whole run; QStandardPaths' test
// mode keeps every test away from the user's own configuration.
#include "app/Settings.h"

#include <QApplication>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTimer>

#include <gtest/gtest.h>

namespace {

// A main window closed outside the application's own loop still asks that
// loop to quit; the request stays and makes every later modal loop return
// at once. One short run of the application loop after each test clears it.
class ClearQuitRequest : public ::testing::EmptyTestEventListener {
    void OnTestEnd(const ::testing::TestInfo&) override
    {
        QTimer::singleShot(0, qApp, &QCoreApplication::quit);
        QCoreApplication::exec();
    }
};

}  // namespace

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
    ::testing::UnitTest::GetInstance()->listeners().Append(new ClearQuitRequest);  // owned by gtest
    return RUN_ALL_TESTS();
}
