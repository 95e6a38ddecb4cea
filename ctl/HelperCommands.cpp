#include "ctl/HelperCommands.h"

#include "helperclient/wire/HelperCommand.h"
#include "helperclient/wire/WireClient.h"
#include "util/InstallPaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

using namespace Qt::StringLiterals;

namespace {

// The application waits for ever; a person at a terminal should not have to.
constexpr std::chrono::seconds kOperationBound{120};
constexpr std::chrono::seconds kVersionBound{10};

enum Exit { Ok = 0, Failed = 1, Usage = 2, Unreachable = 3, TimedOut = 4 };

struct Verb {
    const char *name;
    int operands;
    const char *usage;
};

constexpr Verb kVerbs[] = {
    {"mount-rw", 1, "mount-rw DEVICE"},
    {"open", 1, "open PATH"},
    {"eject", 1, "eject DEVICE"},
    {"repair", 1, "repair DEVICE"},
    {"erase", 1, "erase DEVICE"},
    {"rename", 2, "rename DEVICE NAME"},
    {"helper-version", 0, "helper-version"},
};

const Verb *findVerb(const QString &name) {
    for (const Verb &verb : kVerbs)
        if (name == QLatin1StringView(verb.name))
            return &verb;
    return nullptr;
}

// "sdb1", "/dev/sdb1" or a /dev/disk/by-* link all name the kernel device sdb1.
QString bsdNameOf(const QString &device, QString *why) {
    const QString path = device.startsWith(u'/') ? device : u"/dev/"_s + device;
    const QFileInfo info(path);
    if (!info.exists()) {
        *why = u"no such device: %1"_s.arg(device);
        return {};
    }
    return QFileInfo(info.canonicalFilePath()).fileName();
}

// The volume label udev publishes for the device, or the device name when it has none.
QString volumeNameOf(const QString &bsdName) {
    const QDir labels(u"/dev/disk/by-label"_s);
    for (const QFileInfo &link : labels.entryInfoList(QDir::System | QDir::Files)) {
        if (QFileInfo(link.canonicalFilePath()).fileName() != bsdName)
            continue;
        // udev writes unsafe characters as \xNN.
        QString label = link.fileName();
        QByteArray decoded;
        const QByteArray raw = label.toUtf8();
        for (qsizetype i = 0; i < raw.size(); ++i) {
            if (raw[i] == '\\' && i + 3 < raw.size() && raw[i + 1] == 'x') {
                bool ok = false;
                const int value = raw.mid(i + 2, 2).toInt(&ok, 16);
                if (ok) {
                    decoded.append(char(value));
                    i += 3;
                    continue;
                }
            }
            decoded.append(raw[i]);
        }
        return QString::fromUtf8(decoded);
    }
    return bsdName;
}

struct Outcome {
    enum class Kind { Replied, Unreachable, TimedOut };
    Kind kind = Kind::Unreachable;
    wire::Dictionary reply;
    QString error;
};

// Sends one command and waits for its reply, a transport error or the bound.
Outcome sendAndWait(quint64 code, const wire::Dictionary &parameter,
                    std::chrono::milliseconds bound) {
    const QString socket = InstallPaths::helperSocket();
    QString why;
    const auto client = wire::WireClient::connectTo(socket, &why);
    if (!client)
        return {Outcome::Kind::Unreachable, {}, u"cannot connect to %1: %2"_s.arg(socket, why)};
    const std::optional<wire::Reply> reply = client->call(code, parameter, int(bound.count()));
    if (reply)
        return {Outcome::Kind::Replied, reply->reply, {}};
    return {client->timedOut() ? Outcome::Kind::TimedOut : Outcome::Kind::Unreachable,
            {},
            client->lastError()};
}

void printReply(const wire::Dictionary &reply, QTextStream &out) {
    if (reply.isEmpty())
        out << "(empty reply)\n";
    for (auto it = reply.cbegin(); it != reply.cend(); ++it)
        out << it.key() << ": " << it.value() << '\n';
}

} // namespace

QString openInSession(const QString &path) {
    if (::geteuid() == 0)
        return u"not as root: run vantreloctl open as the person whose session should show it"_s;
    const QByteArray pathBytes = QFile::encodeName(path);
    char program[] = "xdg-open";
    char *argv[] = {program, const_cast<char *>(pathBytes.constData()), nullptr};
    pid_t pid = 0;
    if (::posix_spawnp(&pid, program, nullptr, nullptr, argv, environ) != 0)
        return u"xdg-open could not be started"_s;
    // xdg-open hands the folder to the file browser and ends; one that keeps running is showing
    // it itself, and is left to run.
    const int exited = ::syscall(SYS_pidfd_open, pid, 0);
    pollfd done{exited, POLLIN, 0};
    if (exited < 0 || ::poll(&done, 1, 10000) != 1) {
        if (exited >= 0)
            ::close(exited);
        return {};
    }
    ::close(exited);
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return {};
    return u"xdg-open found no program to show folders in this session"_s;
}

bool isHelperCommand(const QString &verb) {
    return findVerb(verb) != nullptr;
}

int runHelperCommand(const QStringList &arguments, QTextStream &out, QTextStream &err,
                     std::optional<std::chrono::milliseconds> bound, const FolderOpener &open) {
    const Verb *verb = arguments.isEmpty() ? nullptr : findVerb(arguments.first());
    if (!verb || arguments.size() != verb->operands + 1) {
        if (verb) {
            err << "usage: vantreloctl " << verb->usage << Qt::endl;
        } else {
            for (const Verb &each : kVerbs)
                err << "usage: vantreloctl " << each.usage << '\n';
        }
        err << "waits at most " << kOperationBound.count() << " s for the helper's reply ("
            << kVersionBound.count() << " s for helper-version)" << Qt::endl;
        return Usage;
    }

    quint64 code = 0;
    wire::Dictionary parameter;
    if (verb->operands > 0 && arguments[0] != "open"_L1) {
        QString why;
        const QString bsdName = bsdNameOf(arguments[1], &why);
        if (bsdName.isEmpty()) {
            err << why << Qt::endl;
            return Usage;
        }
        using namespace helpercommand;
        const QString &word = arguments[0];
        if (word == "mount-rw"_L1) {
            code = kMountReadWrite;
            parameter = mountParameter(volumeNameOf(bsdName), bsdName);
        } else if (word == "eject"_L1) {
            code = kEject;
            parameter = ejectParameter(volumeNameOf(bsdName), bsdName);
        } else if (word == "repair"_L1) {
            code = kRepair;
            parameter = repairParameter(bsdName);
        } else if (word == "erase"_L1) {
            code = kErase;
            parameter = eraseParameter(bsdName);
        } else {
            code = kRename;
            parameter = renameParameter(arguments[2], bsdName);
        }
    } else if (arguments[0] == "open"_L1) {
        code = helpercommand::kOpen;
        // The helper compares with the mount table, which holds canonical paths.
        const QFileInfo path(arguments[1]);
        parameter = helpercommand::openParameter(path.exists() ? path.canonicalFilePath()
                                                               : path.absoluteFilePath());
    } else {
        code = helpercommand::kHelperVersion;
        parameter = helpercommand::helperVersionParameter();
    }

    const bool version = code == helpercommand::kHelperVersion;
    const std::chrono::milliseconds wait =
        bound.value_or(version ? kVersionBound : kOperationBound);
    const Outcome outcome = sendAndWait(code, parameter, wait);
    if (outcome.kind == Outcome::Kind::TimedOut) {
        err << "no reply from the helper within " << double(wait.count()) / 1000 << " s"
            << Qt::endl;
        return TimedOut;
    }
    if (outcome.kind == Outcome::Kind::Unreachable) {
        err << "helper unavailable: " << outcome.error << Qt::endl;
        return Unreachable;
    }
    const std::optional<QString> result = helpercommand::resultOf(outcome.reply);
    if (version) {
        if (!result || result->isEmpty()) {
            err << "the helper reported no version" << Qt::endl;
            return Failed;
        }
        out << *result << Qt::endl;
        return Ok;
    }
    printReply(outcome.reply, out);
    out.flush();
    if (!result) {
        err << arguments[0] << " failed: the reply has no result" << Qt::endl;
        return Failed;
    }
    if (!result->isEmpty()) {
        err << arguments[0] << " failed: " << *result << Qt::endl;
        return Failed;
    }
    // The helper only says whether the folder may be opened; it is opened here, in the person's
    // own session, never by the root daemon.
    if (code == helpercommand::kOpen) {
        const QString path = parameter.value(u"mountPath"_s);
        if (const QString why = open(path); !why.isEmpty()) {
            err << "open: " << path << " can be opened, but was not: " << why << Qt::endl;
            return Failed;
        }
        out << "opened " << path << " in a file browser" << Qt::endl;
    }
    return Ok;
}
