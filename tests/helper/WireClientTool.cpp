#include "helperclient/wire/WireClient.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdio>

using namespace Qt::StringLiterals;

// helper_wire_client SOCKET CODE [KEY=VALUE ...] prints "result: <text>", or exits 2 if no reply.
int main(int argc, char *argv[]) {
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    bool codeOk = false;
    const quint64 code = arguments.value(2).toULongLong(&codeOk);
    if (!codeOk) {
        std::fprintf(stderr, "usage: helper_wire_client SOCKET CODE [KEY=VALUE ...]\n");
        return 1;
    }
    wire::Dictionary parameter;
    for (const QString &argument : arguments.mid(3))
        parameter.insert(argument.section(u'=', 0, 0), argument.section(u'=', 1));
    QString why;
    const auto client = wire::WireClient::connectTo(arguments[1], &why);
    const auto reply = client ? client->call(code, parameter) : std::nullopt;
    if (!reply) {
        std::fprintf(stderr, "no reply: %s\n", qPrintable(client ? client->lastError() : why));
        return 2;
    }
    std::printf("result: %s\n",
                qPrintable(reply->reply.value(u"result"_s, u"<none>"_s).toString()));
    return 0;
}
