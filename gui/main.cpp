#include "app/Controller.h"
#include "app/InstallPaths.h"
#include "app/JobEngine.h"
#include "gui/MainWindow.h"
#include "probe/ProbeSampler.h"
#include "probe/TarvoLibrary.h"

#include <QApplication>

#include <cstdio>

int main(int argc, char** argv)
{
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    QApplication app(argc, argv);
    // Desktops match the window to its menu entry and icon by this name.
    QGuiApplication::setDesktopFileName("com.norvex.Plotvik");
    // The probe library's second place to look: beside the real executable,
    // wherever the link that started it is.
    tarvo::setApplicationPath(installpaths::applicationFile());
    std::vector<std::string> args(argv, argv + argc);
    int code = 0;
    {
        Controller controller(JobEngine::instance(), std::make_unique<ProbeSampler>());
        MainWindow window(controller, args);
        code = app.exec();
    }
    return code;
}
