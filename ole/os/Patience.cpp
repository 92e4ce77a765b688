#include "os/Patience.h"

#include <limits>

namespace os {

namespace {

struct Limit
{
    bool isSet = false;
    unsigned limitMs = 0;
};

Limit& ofThisThread()
{
    static thread_local Limit limit;
    return limit;
}

// Seven weeks; for ever, where a clock still counts it.
constexpr unsigned endlessMs = std::numeric_limits<unsigned>::max();

}  // namespace

Patience::Patience(unsigned limitMs) : wasSet_(ofThisThread().isSet), limitMsBefore_(ofThisThread().limitMs)
{
    ofThisThread() = {true, limitMs == 0 ? endlessMs : limitMs};
}

Patience::~Patience() { ofThisThread() = {wasSet_, limitMsBefore_}; }

bool Patience::isSet() { return ofThisThread().isSet; }

unsigned Patience::limitMs(unsigned usualMs)
{
    const Limit& limit = ofThisThread();
    return limit.isSet ? limit.limitMs : usualMs;
}

}  // namespace os
