#pragma once

#include "Qz/Ptr.h"
#include "Qz/iObject.h"
#include "Studio.h"

#include <map>
#include <mutex>
#include <random>
#include <string>
#include <vector>

// Control: what the control thread of an application does: scans, locations that come, go and change their
// name, listeners.
class Control
{
public:
    explicit Control(Studio& studio);

    // Registers the locations, and records the clip of the guest location.
    void begin();
    // One change at random.
    void step();
    // While the workers rest: counts messages, looks for every clip, begins ids afresh.
    void checkAtRest();

private:
    void refill();
    void scanAll();
    void scanOne();
    void renameOne();
    void guestComesOrGoes();
    void listenersChange();
    void expectKnown(const ClipPtr& clip);
    void hear(const std::string& cookie);

    Studio& studio_;
    std::mt19937_64 random_;
    ClipPtr guestClip_;
    bool guestIsThere_ = false;
    unsigned registered_ = 0;
    Qz::Ptr<iObject> counting_;
    std::vector<Qz::Ptr<iObject>> others_;
    std::mutex guard_;
    std::map<std::string, unsigned> heard_;  // messages of files that were added, by cookie; under guard_
};
