#pragma once

#include "helper/Caller.h"

#include <QString>

namespace helper {

struct Authorization {
    bool allowed = false;
    // For a refusal, the whole "result" text a person reads: what was asked, and why not.
    QString refusal;
};

// Decides whether a caller may do one kind of work. It may block for as long as a person takes to
// answer a password prompt, so it never runs on the event loop.
class Authorizer {
public:
    virtual ~Authorizer() = default;
    // `action` is a polkit action id (com.corvin.vantrelo.erase-system, ...); `what` says in
    // words what was asked ("erase sdb1").
    virtual Authorization check(const Caller &caller, const QString &action,
                                const QString &what) const = 0;
};

} // namespace helper
