#include <QApplication>
#include <QIcon>
#include <QMenu>
#include <QPixmap>
#include <QSystemTrayIcon>

// An icon in the status bar whose menu has "Quit", and nothing else.
int main(int argc, char **argv) {
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);

    QPixmap image(22, 22);
    image.fill(Qt::darkCyan);
    QMenu menu;
    QObject::connect(menu.addAction(QStringLiteral("Quit")), &QAction::triggered, &application,
                     &QApplication::quit);
    QSystemTrayIcon icon{QIcon(image)};
    icon.setContextMenu(&menu);
    icon.show();
    return QApplication::exec();
}
