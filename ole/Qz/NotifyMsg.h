#pragma once

#include "Qz/Export.h"
#include "Qz/LightweightString.h"
#include "Qz/Ptr.h"
#include "Qz/iObject.h"

#include <mutex>
#include <vector>

// NotifyMsg: what a listener gets: a text and, where there is one, the object that it is about.
class QZ_API NotifyMsg
{
public:
    // A message; payload may be null.
    NotifyMsg(const LightweightString<char>& text, const Qz::Ptr<iObject>& payload)
        : text_(text), payload_(payload)
    {}

    // What happened, or to what, as the issuer documents it.
    [[nodiscard]] const LightweightString<char>& getText() const { return text_; }
    // The object that it is about; null for none. Cast back with Qz::dynamicCast.
    [[nodiscard]] const Qz::Ptr<iObject>& getPayload() const { return payload_; }

private:
    LightweightString<char> text_;
    Qz::Ptr<iObject> payload_;
};

// NotifyMsgTypeDictionary: one number per notification name, the same for the whole process. Never 0.
// Usable before main and until the very end of the process; any thread.
class QZ_API NotifyMsgTypeDictionary
{
public:
    // The dictionary of the process, made on first use and never destroyed.
    static NotifyMsgTypeDictionary& instance();

    // The number of name; made on first use, in rising order from 1.
    unsigned intern(const LightweightString<char>& name);
    // The name of a number; null when none has it.
    [[nodiscard]] LightweightString<char> nameOf(unsigned type) const;

private:
    NotifyMsgTypeDictionary() = default;

    mutable std::mutex guard_;
    std::vector<LightweightString<char>> names_;
};
