#include "system/UserDefaults.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdio>

// Writes `count` keys "<prefix><n>" to the defaults file given, synchronising after each one, so
// that two of these running at once race on every write.
int main(int argc, char **argv) {
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 4) {
        std::fprintf(stderr, "usage: DefaultsWriter FILE PREFIX COUNT\n");
        return 2;
    }
    UserDefaults defaults(args[1]);
    const int count = args[3].toInt();
    for (int n = 0; n < count; ++n) {
        defaults.setInteger(n, args[2] + QString::number(n));
        if (!defaults.synchronize())
            return 1;
    }
    return 0;
}
