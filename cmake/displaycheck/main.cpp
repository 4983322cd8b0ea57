#include <QGuiApplication>

// Qt ends the program here where no platform plugin can open a display.
int main(int argc, char *argv[])
{
    QGuiApplication application(argc, argv);
    return 0;
}
