#include "Qz/NotifyMsg.h"

NotifyMsgTypeDictionary& NotifyMsgTypeDictionary::instance()
{
    static NotifyMsgTypeDictionary* const lasting = new NotifyMsgTypeDictionary;
    return *lasting;
}

unsigned NotifyMsgTypeDictionary::intern(const LightweightString<char>& name)
{
    const std::lock_guard<std::mutex> hold(guard_);
    for (std::size_t i = 0; i < names_.size(); ++i)
        if (names_[i] == name)
            return static_cast<unsigned>(i + 1);
    names_.push_back(name);
    return static_cast<unsigned>(names_.size());
}

LightweightString<char> NotifyMsgTypeDictionary::nameOf(unsigned type) const
{
    const std::lock_guard<std::mutex> hold(guard_);
    return type == 0 || type > names_.size() ? LightweightString<char>() : names_[type - 1];
}
