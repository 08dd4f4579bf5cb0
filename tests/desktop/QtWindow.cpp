// A window of Qt with a title, for tests that look at it from outside.

#include <QApplication>
#include <QWidget>

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QWidget window;
    window.setWindowTitle(application.arguments().value(1));
    window.resize(300, 200);
    window.show();
    return QApplication::exec();
}
