#include "app/SingleInstance.h"

#include "tests/support/Wait.h"

#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

using namespace Qt::StringLiterals;

namespace {

class SingleInstanceTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_folder.isValid()); }
    QString socketPath() const { return m_folder.filePath(u"vantrelo.sock"_s); }

    // What a program that crashed leaves behind: a socket file nobody listens on.
    void leaveStaleSocket() const {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        ASSERT_GE(fd, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const QByteArray path = QFile::encodeName(socketPath());
        std::memcpy(address.sun_path, path.constData(), size_t(path.size()));
        ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        ::close(fd);
        ASSERT_TRUE(QFileInfo::exists(socketPath()));
    }

    QTemporaryDir m_folder;
};

// A crashed program's socket does not stop the next start, which then serves every later one.
TEST_F(SingleInstanceTest, LaterStartsHandOverReopenAndLeave) {
    leaveStaleSocket();
    SingleInstance first(socketPath());
    ASSERT_TRUE(first.claimOrHandOver());
    ASSERT_TRUE(first.isListening());
    QSignalSpy reopened(&first, &SingleInstance::reopenRequested);
    for (int start = 1; start <= 2; ++start) {
        SingleInstance later(socketPath());
        EXPECT_FALSE(later.claimOrHandOver());
        EXPECT_FALSE(later.isListening());
        EXPECT_TRUE(testsupport::waitUntil([&] { return reopened.count() == start; }));
    }
}

TEST_F(SingleInstanceTest, RuntimeFolderHoldsTheSocketElsePrivateTmpFolder) {
    const QByteArray saved = qgetenv("XDG_RUNTIME_DIR");
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_folder.path()));
    EXPECT_EQ(SingleInstance::defaultSocketPath(), socketPath());
    qunsetenv("XDG_RUNTIME_DIR");
    const QString fallback = SingleInstance::defaultSocketPath();
    qputenv("XDG_RUNTIME_DIR", saved);
    ASSERT_FALSE(fallback.isEmpty());
    const QFileInfo folder(QFileInfo(fallback).path());
    EXPECT_TRUE(folder.fileName().endsWith(QString::number(::getuid())));
    EXPECT_EQ(folder.permissions() & (QFile::ReadGroup | QFile::ReadOther | QFile::ExeOther), 0);
}

} // namespace
