#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>
#include <QTextStream>

// tapwright-grab <out.png> [window id]: saves the whole screen, or one window, of $DISPLAY.
int main(int argc, char* argv[])
{
    QGuiApplication app(argc, argv);
    const QStringList arguments = QGuiApplication::arguments();
    QTextStream err(stderr);
    if (arguments.size() < 2 || arguments.size() > 3) {
        err << "usage: tapwright-grab <out.png> [window id]\n";
        return 2;
    }

    WId window = 0;
    if (arguments.size() == 3) {
        bool ok = false;
        window = static_cast<WId>(arguments.at(2).toULongLong(&ok, 0));
        if (!ok) {
            err << "not a window id: " << arguments.at(2) << '\n';
            return 2;
        }
    }

    QScreen* screen = QGuiApplication::primaryScreen();
    if (!screen) {
        err << "no screen on this display\n";
        return 1;
    }
    const QPixmap shot = screen->grabWindow(window);
    if (shot.isNull() || !shot.save(arguments.at(1), "PNG")) {
        err << "could not grab or save " << arguments.at(1) << '\n';
        return 1;
    }
    return 0;
}
