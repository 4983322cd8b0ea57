#include "demostartup.h"
#include "orvanedemowindow.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    enableHighDpi();
    QApplication application(argc, argv);
    applyDemoStyle();
    OrvaneDemoWindow window;
    window.show();
    return QApplication::exec();
}
