#include "helperclient/wire/WireClient.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdio>

using namespace Qt::StringLiterals;

// A tiny client for tests and manual checks:
//   helper_wire_client SOCKET CODE [KEY=VALUE ...]
// prints "result: <text>" and exits 0 when a reply came, 2 when none did.
int main(int argc, char *argv[]) {
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    bool codeOk = false;
    const quint64 code = arguments.value(2).toULongLong(&codeOk);
    if (arguments.size() < 3 || !codeOk) {
        std::fprintf(stderr, "usage: helper_wire_client SOCKET CODE [KEY=VALUE ...]\n");
        return 1;
    }
    wire::Dictionary parameter;
    for (qsizetype i = 3; i < arguments.size(); ++i) {
        const qsizetype equals = arguments[i].indexOf(u'=');
        if (equals > 0)
            parameter.insert(arguments[i].left(equals), arguments[i].mid(equals + 1));
    }
    QString why;
    auto client = wire::WireClient::connectTo(arguments[1], &why);
    if (!client) {
        std::fprintf(stderr, "cannot connect: %s\n", qPrintable(why));
        return 2;
    }
    const auto reply = client->call(code, parameter);
    if (!reply) {
        std::fprintf(stderr, "no reply\n");
        return 2;
    }
    std::printf("result: %s\n", qPrintable(reply->reply.value(u"result"_s, u"<none>"_s)));
    return 0;
}
