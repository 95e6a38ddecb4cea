#include "app/AppDelegate.h"
#include "app/SingleInstance.h"

#include <QApplication>

using namespace Qt::StringLiterals;

int main(int argc, char **argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(u"Vantrelo"_s);
    QApplication::setApplicationVersion(QStringLiteral(VANTRELO_VERSION));
    QApplication::setDesktopFileName(u"com.corvin.Vantrelo"_s);

    SingleInstance instance;
    if (!instance.claimOrHandOver())
        return 0;

    AppDelegate delegate;
    QObject::connect(&instance, &SingleInstance::reopenRequested, &delegate,
                     &AppDelegate::applicationShouldHandleReopen);
    delegate.applicationDidFinishLaunching();
    return QApplication::exec();
}
