#pragma once

#include "helperclient/wire/WireCodec.h"

#include <functional>

// What the application asks of the privileged helper: a numbered command with a string
// dictionary, answered later by a dictionary whose values keep their types. The reply handler may
// never run.
class CommandDelegate {
public:
    using ReplyHandler = std::function<void(const wire::ReplyDictionary &)>;

    virtual ~CommandDelegate() = default;
    virtual void sendCommand(quint64 code, const wire::Dictionary &parameter,
                             ReplyHandler withReply) = 0;
};
