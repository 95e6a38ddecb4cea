#include "helper/DeviceFacts.h"
#include "helper/HelperCommands.h"
#include "helper/HelperServer.h"
#include "helper/RequestValidation.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

// Planning must never run anything; a call here is a finding.
class ForbiddenRunner : public helper::ToolRunner {
public:
    helper::ToolResult run(const QString &, const QStringList &,
                           std::chrono::milliseconds) override {
        std::abort();
    }
    bool spawnAs(const QString &, const QStringList &, const helper::Identity &,
                 QString *) override {
        std::abort();
    }
    helper::ToolResult unmount(const QString &) override { std::abort(); }
};

class ForbiddenProbe : public helper::VolumeProbe {
public:
    Volume probe(const QString &) const override { std::abort(); }
};

void checkPlan(const helper::HelperCommands &commands, const helper::DeviceFacts &facts,
               const wire::Request &request, const helper::Caller &caller) {
    const helper::Plan plan = commands.plan(request, caller);
    if (plan.immediate) {
        if (!plan.immediate->contains(u"result"_s) || plan.work)
            std::abort();
        if (wire::encodeReply({request.id, *plan.immediate}).isEmpty())
            std::abort();
        return;
    }
    if (!plan.work)
        std::abort();
    // Work is only ever planned for a known command on a real, permitted device.
    switch (request.code) {
    case helper::kOpen:
        if (!plan.disk.isEmpty())
            std::abort();
        return;
    case helper::kMountReadWrite:
    case helper::kEject:
    case helper::kRepair:
    case helper::kErase:
    case helper::kRename: {
        const QString device = request.parameter.value(u"bsdName"_s);
        if (!facts.isBlockDevice(device) || plan.disk != facts.parentDisk(device) ||
            facts.isSystemDisk(plan.disk) ||
            (!caller.administrator && !facts.isExternal(plan.disk)))
            std::abort();
        if (request.code == helper::kRename &&
            !helper::ntfsLabelProblem(request.parameter.value(u"newName"_s)).isEmpty())
            std::abort();
        return;
    }
    default:
        std::abort();
    }
}

} // namespace

// The bytes are a client's stream, cut in two where the first byte says; the last byte picks an
// administrator or an ordinary user as the caller.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static ForbiddenRunner runner;
    static const helper::DeviceFacts facts;
    static const ForbiddenProbe probe;
    static const helper::HelperCommands commands(runner, facts, probe);
    const QByteArrayView bytes(data, qsizetype(size));
    helper::Caller caller = helper::Caller::forIds(1, 1000, 1000);
    caller.administrator = size > 0 && (data[size - 1] & 1);

    wire::FrameReader reader;
    const qsizetype cut = bytes.isEmpty() ? 0 : qsizetype(data[0]) % (bytes.size() + 1);
    for (const QByteArrayView part : {bytes.first(cut), bytes.sliced(cut)}) {
        QList<wire::Request> requests;
        const bool intact = helper::readRequests(reader, part, &requests);
        for (const wire::Request &request : std::as_const(requests))
            checkPlan(commands, facts, request, caller);
        if (!intact)
            break;
    }
    return 0;
}
