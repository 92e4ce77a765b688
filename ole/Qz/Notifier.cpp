#include "Qz/Notifier.h"

#include <algorithm>
#include <mutex>

// The records of one notifier; lives as long as the notifier or any handle.
class NotifierBase::List : public Qz::InternalRefCount
{
public:
    void add(const Qz::Ptr<NotifierRecord>& record)
    {
        const std::lock_guard<std::mutex> hold(guard_);
        records_.push_back(record);
    }

    void remove(const Qz::Ptr<NotifierRecord>& record)
    {
        const std::lock_guard<std::mutex> hold(guard_);
        const auto found = std::find(records_.begin(), records_.end(), record);
        if (found != records_.end())
            records_.erase(found);
    }

    std::vector<Qz::Ptr<NotifierRecord>> ofType(int type) const
    {
        std::vector<Qz::Ptr<NotifierRecord>> matches;
        const std::lock_guard<std::mutex> hold(guard_);
        for (const auto& record : records_)
            if (record->getType() == type)
                matches.push_back(record);
        return matches;
    }

private:
    mutable std::mutex guard_;
    std::vector<Qz::Ptr<NotifierRecord>> records_;
};

// Keeps its record alive across remove, so that a listener's own end runs outside of the lock.
class NotifierBase::Handle : public iObject
{
public:
    Handle(const Qz::Ptr<List>& list, const Qz::Ptr<NotifierRecord>& record) : list_(list), record_(record) {}
    ~Handle() override { list_->remove(record_); }

private:
    Qz::Ptr<List> list_;
    Qz::Ptr<NotifierRecord> record_;
};

NotifierRecord::~NotifierRecord() = default;

NotifierBase::NotifierBase() : list_(new List) {}

NotifierBase::~NotifierBase() = default;

Qz::Ptr<iObject> NotifierBase::registerInternal(const Qz::Ptr<NotifierRecord>& record)
{
    if (!record)
        return nullptr;
    const Qz::Ptr<iObject> handle(new Handle(list_, record));
    list_->add(record);
    return handle;
}

std::vector<Qz::Ptr<NotifierRecord>> NotifierBase::recordsOf(int type) const { return list_->ofType(type); }
