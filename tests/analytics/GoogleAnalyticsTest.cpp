#include "analytics/GoogleAnalytics.h"

#include "analytics/EventTracker.h"
#include "analytics/SystemInfo.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSysInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

TEST(GoogleAnalyticsParameters, SixFixedParametersInOrder) {
    const EventParameters expected = {{u"soft_name"_s, u"Vantrelo"_s},
                                      {u"track_version"_s, u"1.2.0"_s},
                                      {u"event_label"_s, u"on"_s},
                                      {u"event_action"_s, u"launch at login"_s},
                                      {u"system_version"_s, SystemInfo::systemVersion()},
                                      {u"serial"_s, SystemInfo::serialNumber()}};
    EXPECT_EQ(GoogleAnalytics::eventParameters(u"launch at login"_s, u"on"_s), expected);
}

QJsonObject eventObject(const QString &name, const QString &action, const QString &param) {
    return QJsonDocument::fromJson(
               EventTracker::eventJson(name, GoogleAnalytics::eventParameters(action, param)))
        .object();
}

TEST(GoogleAnalyticsParameters, EventJsonKeepsWithinMeasurementProtocolLimits) {
    const QString longLabel = u"failed:"_s + QString(300, u'x');
    const QJsonObject event = eventObject(QString(60, u'N'), u"mount failed"_s, longLabel);
    EXPECT_EQ(event[u"name"_s].toString().size(), 40);
    EXPECT_EQ(event[u"params"_s][u"event_label"_s].toString(), longLabel.left(100));
    EXPECT_EQ(event[u"params"_s][u"soft_name"_s].toString(), u"Vantrelo"_s);

    // Null action and param become empty texts, not JSON nulls.
    const QJsonObject params = eventObject(u"Menu"_s, {}, {})[u"params"_s].toObject();
    EXPECT_EQ(params[u"event_action"_s], QJsonValue(u""_s));
    EXPECT_EQ(params[u"event_label"_s], QJsonValue(u""_s));
}

struct ReleaseCase {
    const char *release;
    const char *version;
};

class KernelReleaseTest : public ::testing::TestWithParam<ReleaseCase> {};

TEST_P(KernelReleaseTest, MajorMinorPatch) {
    EXPECT_EQ(SystemInfo::versionFromRelease(QString::fromUtf8(GetParam().release)),
              QString::fromUtf8(GetParam().version));
}

INSTANTIATE_TEST_SUITE_P(
    Releases, KernelReleaseTest,
    ::testing::Values(ReleaseCase{"6.1.0-13-amd64", "6.1.0"},
                      ReleaseCase{"5.15.0-91-generic", "5.15.0"},
                      ReleaseCase{"6.6.7+rpt-rpi-v8", "6.6.7"}, ReleaseCase{"5.15", "5.15.0"},
                      ReleaseCase{"4.19.0rc3", "4.19.0"}, ReleaseCase{"6", "6.0.0"},
                      ReleaseCase{"6.1.0.4", "6.1.0"}, ReleaseCase{"", "0.0.0"},
                      ReleaseCase{"linux", "0.0.0"}));

TEST(SystemInfoTest, RunningKernelVersion) {
    EXPECT_EQ(SystemInfo::systemVersion(),
              SystemInfo::versionFromRelease(QSysInfo::kernelVersion()));
    EXPECT_NE(SystemInfo::systemVersion(), u"0.0.0"_s);
}

TEST(SystemInfoTest, SerialIsTrimmedOrEmptyWhenUnreadable) {
    QTemporaryDir dir;
    QFile file(dir.filePath(u"product_serial"_s));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("  PF2ABCDE\n");
    file.close();
    EXPECT_EQ(SystemInfo::serialNumber(file.fileName()), u"PF2ABCDE"_s);
    EXPECT_EQ(SystemInfo::serialNumber(dir.filePath(u"missing"_s)), u""_s);
    // A folder opens but cannot be read, as root too.
    EXPECT_EQ(SystemInfo::serialNumber(dir.path()), u""_s);
}

} // namespace
