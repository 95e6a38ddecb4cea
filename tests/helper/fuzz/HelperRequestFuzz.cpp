#include "helper/HelperCommands.h"
#include "helper/HelperServer.h"
#include "helper/RequestValidation.h"

#include <QLoggingCategory>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

// Planning must never run a tool, probe a volume or ask polkit; a call here is a finding.
class Forbidden : public helper::ToolRunner, public helper::VolumeProbe, public helper::Authorizer {
public:
    helper::Authorization check(const helper::Caller &, const QString &,
                                const QString &) const override {
        std::abort();
    }
    helper::ToolResult run(const QString &, const QStringList &, std::chrono::milliseconds,
                           int) override {
        std::abort();
    }
    helper::ToolResult mountOnto(int, const QString &, const QString &, const QString &) override {
        std::abort();
    }
    helper::ToolResult unmount(const QString &) override { std::abort(); }
    Volume probe(const QString &) const override { std::abort(); }
};

// Work is only ever planned for a known command on a real, permitted device and a valid label.
bool planIsSafe(const helper::Plan &plan, const helper::DeviceFacts &facts,
                const wire::Request &request) {
    if (plan.immediate)
        return plan.immediate->contains(u"result"_s) && !plan.work &&
               !wire::encodeReply(request.id, *plan.immediate).isEmpty();
    if (!plan.work)
        return false;
    if (request.code == helper::kOpen)
        return plan.disk.isEmpty() && !plan.authorize;
    const QString device = request.parameter.value(u"bsdName"_s);
    const QStringList holders =
        request.code == helper::kEject ? facts.diskHolders(plan.disk) : facts.holders(device);
    return QList<quint64>{helper::kMountReadWrite, helper::kEject, helper::kRepair, helper::kErase,
                          helper::kRename}
               .contains(request.code) &&
           facts.isBlockDevice(device) && plan.disk == facts.parentDisk(device) &&
           !facts.isSystemDisk(plan.disk) && holders.isEmpty() && plan.authorize &&
           (request.code != helper::kRename ||
            helper::ntfsLabelProblem(request.parameter.value(u"newName"_s)).isEmpty());
}

} // namespace

// The bytes are a client's stream, cut in two where the first byte says; the last byte picks root
// or an ordinary user as the caller.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static Forbidden forbidden;
    static const helper::DeviceFacts facts;
    static const helper::HelperCommands commands = [] {
        // The refusal log would be most of the time spent.
        QLoggingCategory::setFilterRules(u"vantrelo.helper.*=false"_s);
        return helper::HelperCommands(forbidden, facts, forbidden, forbidden);
    }();
    const QByteArrayView bytes(data, qsizetype(size));
    const bool root = size > 0 && (data[size - 1] & 1);
    const helper::Caller caller = helper::Caller::forIds(1, root ? 0 : 1000, root ? 0 : 1000);
    wire::FrameReader reader;
    QList<wire::Request> requests;
    const qsizetype cut = bytes.isEmpty() ? 0 : qsizetype(data[0]) % (bytes.size() + 1);
    if (helper::readRequests(reader, bytes.first(cut), &requests))
        helper::readRequests(reader, bytes.sliced(cut), &requests);
    for (const wire::Request &request : std::as_const(requests))
        if (!planIsSafe(commands.plan(request, caller), facts, request))
            std::abort();
    return 0;
}
