#include "StandInHelper.h"

#include <QCoreApplication>

#include <cstdio>

// Serves the wire protocol for trying a client by hand:
//   vantrelo_standin_helper SOCKET [VERSION]
int main(int argc, char **argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() < 2 || arguments.size() > 3) {
        std::fprintf(stderr, "usage: vantrelo_standin_helper SOCKET [VERSION]\n");
        return 2;
    }
    const QString version = arguments.value(2, QStringLiteral("1.0.1"));
    StandInHelper helper([version](const wire::Request &request) {
        return request.code == 7
                   ? StandInHelper::reply(request, {{QStringLiteral("result"), version}})
                   : StandInHelper::defaultResponse(request);
    });
    if (!helper.listen(arguments[1])) {
        std::fprintf(stderr, "cannot listen on %s\n", qPrintable(arguments[1]));
        return 1;
    }
    return app.exec();
}
