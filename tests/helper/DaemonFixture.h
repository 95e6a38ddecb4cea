#pragma once

#include "tests/support/LoopImage.h"
#include "tests/support/PrivatePolkit.h"
#include "tests/support/SystemCommand.h"

#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/types.h>

#include <memory>
#include <utility>
#include <vector>

// The built daemon on a socket of its own, asking a polkitd of its own, stopped with the test.
// The client is nobody, whom polkit refuses everything until grantClient().
class DaemonTest : public ::testing::Test {
protected:
    static constexpr uid_t kClientUid = 65534;

    void SetUp() override;
    void TearDown() override;

    // A polkit rule lets the client do every com.corvin.vantrelo.* action.
    void grantClient();

    // Runs `arguments` as the client (no shell in between).
    static testsupport::CommandResult runAsClient(const QStringList &arguments);
    // The "result" of one command sent by the client, or by root.
    QString sendAsClient(quint64 code, const QStringList &parameters);
    QString sendAsRoot(quint64 code, const QStringList &parameters);
    // Sends every (code, parameters) from a client process of its own, all at once; the results
    // in the same order.
    QStringList sendAtOnceAsClient(const std::vector<std::pair<quint64, QStringList>> &requests);

    static QString bsdName(const QString &devicePath);
    // An NTFS image holding before.txt, mounted read-only where the client can reach it.
    std::unique_ptr<testsupport::LoopImage> readOnlyNtfs(const QString &label, QString *target);
    static void expectOnlyMount(const QString &devicePath, const QString &target, bool readOnly);
    static QString blkidValue(const QString &devicePath, const QString &tag);
    // What can be seen of a volume from outside: its label and its mounts.
    static QString diskState(const QString &devicePath);
    // As ntfsinfo shows them; bit 0 is the dirty flag.
    static QString volumeFlags(const QString &devicePath);

    testsupport::PrivatePolkit polkit;
    QTemporaryDir socketDir;
    QString socketPath;
    QProcess daemon;

private:
    // setpriv's arguments that make the client.
    static QStringList clientUser();
    QStringList clientCommand(quint64 code, const QStringList &parameters) const;
    static QString resultOf(const testsupport::CommandResult &run);
};

// For tests where the client is meant to succeed.
class GrantedDaemonTest : public DaemonTest {
protected:
    void SetUp() override;
};
