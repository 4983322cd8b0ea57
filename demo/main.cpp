#include "demostartup.h"
#include "orvanedemowindow.h"

#include <QApplication>

int main(int argc, char *argv[])
{
    prepareDemoApplication();
    QApplication application(argc, argv);
    applyDemoStyle();
    applyDemoLanguage();
    applyDemoIdentity();
    OrvaneDemoWindow window;
    window.show();
    return QApplication::exec();
}
