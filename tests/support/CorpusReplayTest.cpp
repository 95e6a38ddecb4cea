#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// Replays a fuzzer's stored corpus (VANTRELO_FUZZ_CORPUS) through the fuzz entry it is linked
// with, so findings stay fixed in the plain build. Each input runs in a child process of its own,
// so one that aborts or crashes is named and the others still run.
TEST(CorpusReplay, EveryCorpusFileRunsCleanly) {
    const QDir corpus(QStringLiteral(VANTRELO_FUZZ_CORPUS));
    const QStringList files = corpus.entryList(QDir::Files, QDir::Name);
    ASSERT_GE(files.size(), 10) << "corpus missing at " << corpus.path().toStdString();
    for (const QString &name : files) {
        QFile file(corpus.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << name.toStdString();
        const QByteArray bytes = file.readAll();
        // exit(), not _exit(): a leak checker in the build reports at exit.
        EXPECT_EXIT(
            std::exit(LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.constData()),
                                             size_t(bytes.size()))),
            ::testing::ExitedWithCode(0), "")
            << "corpus file " << name.toStdString();
    }
}
