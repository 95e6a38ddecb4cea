#include "helperclient/wire/WireClient.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdio>

using namespace Qt::StringLiterals;

// helper_wire_client SOCKET CODE [KEY=VALUE ...] prints "result: <text>", or exits 2 if no reply.
int main(int argc, char *argv[]) {
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    wire::Dictionary parameter;
    for (const QString &argument : arguments.mid(3))
        parameter.insert(argument.section(u'=', 0, 0), argument.section(u'=', 1));
    QString why;
    const auto client = wire::WireClient::connectTo(arguments.value(1), &why);
    const auto reply =
        client ? client->call(arguments.value(2).toULongLong(), parameter) : std::nullopt;
    if (!reply) {
        std::fprintf(stderr, "no reply: %s\n", qPrintable(client ? client->lastError() : why));
        return 2;
    }
    std::printf("result: %s\n",
                qPrintable(reply->reply.value(u"result"_s, u"<none>"_s).toString()));
    return 0;
}
