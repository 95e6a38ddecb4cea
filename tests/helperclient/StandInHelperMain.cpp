#include "StandInHelper.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

using namespace Qt::StringLiterals;

// Serves the wire protocol on a socket for trying the client side by hand:
//   vantrelo_standin_helper --socket /tmp/h.sock --version 1.0.1
int main(int argc, char **argv) {
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOption({u"socket"_s, u"Socket path to listen on."_s, u"path"_s});
    parser.addOption({u"version"_s, u"Version to report for code 7."_s, u"text"_s, u"1.0.1"_s});
    parser.process(app);
    if (!parser.isSet(u"socket"_s)) {
        std::fprintf(stderr, "--socket is required\n");
        return 2;
    }
    const QString version = parser.value(u"version"_s);
    StandInHelper helper([version](const wire::Request &request) {
        return request.code == 7 ? StandInHelper::Response::reply({{u"result"_s, version}})
                                 : StandInHelper::defaultResponse(request);
    });
    if (!helper.listen(parser.value(u"socket"_s))) {
        std::fprintf(stderr, "cannot listen on %s\n", qPrintable(parser.value(u"socket"_s)));
        return 1;
    }
    std::printf("listening on %s\n", qPrintable(helper.socketPath()));
    std::fflush(stdout);
    return app.exec();
}
