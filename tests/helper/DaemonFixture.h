#pragma once

#include "tests/support/HelperDaemon.h"
#include "tests/support/LoopImage.h"
#include "tests/support/PrivatePolkit.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

// The built daemon on a socket of its own, asking a polkitd of its own, stopped with the test.
// The client is nobody, whom polkit refuses everything until grantClient().
class DaemonTest : public ::testing::Test {
protected:
    using Request = std::pair<quint64, QStringList>;

    void SetUp() override;
    void TearDown() override;
    void grantClient();

    // The "result" of each request (KEY=VALUE parameters), all sent at once from processes of
    // their own, as the client or as root.
    QStringList send(const std::vector<Request> &requests, bool asRoot = false) const;
    QString sendAsClient(quint64 code, const QStringList &parameters) const {
        return send({{code, parameters}}).value(0);
    }
    static QString bsdName(const QString &devicePath);
    // A loop device with an NTFS volume, or null after a failed expectation.
    static std::unique_ptr<testsupport::LoopImage> ntfsImage(const QString &label);
    // Its label and its mounts: "Label /mount/point ro".
    static QString diskState(const QString &devicePath);

    testsupport::PrivatePolkit polkit;
    testsupport::HelperDaemon daemon;
    const QString socketPath = daemon.socketPath();
};
