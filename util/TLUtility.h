#pragma once

#include <QString>

// Stateless helpers shared by every layer.
class TLUtility {
public:
    TLUtility() = delete;
};
