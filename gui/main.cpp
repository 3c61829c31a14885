#include "app/Controller.h"
#include "app/JobEngine.h"
#include "gui/MainWindow.h"
#include "probe/ProbeSampler.h"

#include <QApplication>

#include <cstdio>

int main(int argc, char** argv)
{
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    QApplication app(argc, argv);
    std::vector<std::string> args(argv, argv + argc);
    int code = 0;
    {
        Controller controller(JobEngine::instance(), std::make_unique<ProbeSampler>());
        MainWindow window(controller, args);
        code = app.exec();
    }
    return code;
}
