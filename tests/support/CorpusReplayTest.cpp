#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// Replays a fuzzer's stored corpus (VANTRELO_FUZZ_CORPUS) through the fuzz entry it is linked
// with, so findings stay fixed in the plain build.
TEST(CorpusReplay, EveryCorpusFileRunsCleanly) {
    const QDir corpus(QStringLiteral(VANTRELO_FUZZ_CORPUS));
    const QStringList files = corpus.entryList(QDir::Files, QDir::Name);
    ASSERT_GE(files.size(), 10) << "corpus missing at " << corpus.path().toStdString();
    for (const QString &name : files) {
        QFile file(corpus.filePath(name));
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << name.toStdString();
        const QByteArray bytes = file.readAll();
        SCOPED_TRACE(name.toStdString());
        EXPECT_EQ(LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.constData()),
                                         size_t(bytes.size())),
                  0);
    }
}
