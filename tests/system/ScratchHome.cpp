// Points XDG_CONFIG_HOME and XDG_DATA_HOME of the test program at a temporary folder before main()
// runs, since the defaults read them once, at their first use: the real user's files stay as
// they are.
#include <QFile>
#include <QTemporaryDir>

namespace {

const QTemporaryDir kScratch;
const bool kInstalled =
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(kScratch.path() + QStringLiteral("/config"))) &&
    qputenv("XDG_DATA_HOME", QFile::encodeName(kScratch.path() + QStringLiteral("/data")));

} // namespace
